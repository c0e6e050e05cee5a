#include "quomi/platform/region_text.h"

#include <fmt/format.h>

namespace quomi {

std::string describe(const Region& region) {
    if (const auto* circle = std::get_if<CircularRegion>(&region)) {
        return fmt::format("CLCircularRegion (identifier:'{}', center:<{:+.8f},{:+.8f}>, radius:{:.2f}m)",
                           circle->identifier, circle->center.latitude, circle->center.longitude, circle->radius);
    }
    const auto& beacons = std::get<BeaconRegion>(region);
    return fmt::format("CLBeaconRegion (identifier:'{}', uuid:{}, major:(null), minor:(null))", beacons.identifier,
                       beacons.proximityUUID.string());
}

std::string describe(const PlatformError& error) {
    return fmt::format("Error Domain={} Code={} \"{}\"", error.domain, error.code, error.description);
}

}  // namespace quomi
