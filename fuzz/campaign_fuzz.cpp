// What a back office serves, as somebody wrote it.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/campaign/campaign.h"

#include <optional>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using quomi::fuzz::require;
    std::optional<quomi::Error> error;
    const auto campaign = quomi::simulated::Campaign::parse(quomi::fuzz::textOf(data, size), "fuzz.json", &error);
    require(campaign.has_value() != error.has_value());
    if (!campaign) {
        const std::string line = error->localizedDescription().value_or("");
        require(line.starts_with("fuzz.json: ") && line.find('\n') == line.npos);
        return 0;
    }
    require(!campaign->namespaceUid().empty());
    require(campaign->application().contains("namespace_uid"));
    for (const auto* objects : {&campaign->beacons(), &campaign->geofences()}) {
        for (const auto& object : *objects) require(object.as_object().contains("id"));
    }
    return 0;
}
