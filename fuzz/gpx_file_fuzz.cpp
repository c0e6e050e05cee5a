// Tracks that a recorder wrote.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/gpx/gpx_file.h"

#include <algorithm>
#include <cmath>
#include <optional>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using quomi::fuzz::require;
    using quomi::simulated::TrackPoint;
    std::optional<quomi::Error> error;
    const auto track = quomi::simulated::parseGpx(quomi::fuzz::textOf(data, size), "fuzz.gpx", &error);
    require(track.has_value() != error.has_value());
    if (!track) {
        require(error->localizedDescription().value_or("").starts_with("fuzz.gpx:"));
        return 0;
    }
    require(!track->empty() && track->front().offset == quomi::Duration::zero());
    require(std::ranges::is_sorted(*track, {}, &TrackPoint::offset));
    for (const auto& point : *track) {
        require(std::abs(point.coordinate.latitude) <= 90 && std::abs(point.coordinate.longitude) <= 180);
        require(point.age >= quomi::Duration::zero());
    }
    return 0;
}
