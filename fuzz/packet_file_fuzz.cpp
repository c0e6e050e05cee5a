// Packets that a scanner logged.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/packet_file.h"

#include <algorithm>
#include <optional>
#include <vector>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using quomi::fuzz::require;
    using quomi::simulated::TimedPacket;
    std::optional<quomi::Error> error;
    const auto packets = quomi::simulated::parsePackets(quomi::fuzz::textOf(data, size), "fuzz.csv", &error);
    require(packets.has_value() != error.has_value());
    if (packets) {
        require(std::ranges::is_sorted(*packets, {}, &TimedPacket::offset));
        require(packets->empty() || packets->front().offset >= quomi::Duration::zero());
    } else {
        require(error->localizedDescription().value_or("").starts_with("fuzz.csv:"));
    }
    return 0;
}
