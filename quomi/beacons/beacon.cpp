#include "quomi/beacons/beacon.h"

#include <boost/json/object.hpp>
#include <fmt/compile.h>
#include <fmt/format.h>

namespace quomi {

std::string QuomiBeaconUtils::beaconNameForProximityUUID(const Uuid& uuid, std::int32_t major, std::int32_t minor) {
    std::string name = uuid.string();
    fmt::format_to(std::back_inserter(name), FMT_COMPILE("/{}-{}"), major, minor);
    return name;
}

std::string QuomiBeaconUtils::CLBeaconName(const RangedBeacon& beacon) {
    return beaconNameForProximityUUID(beacon.proximityUUID, beacon.major, beacon.minor);
}

QuomiBeacon::QuomiBeacon(const Uuid& proximityUUID, std::uint16_t major, std::uint16_t minor, WallTime createdAt)
    : proximityUUID_(proximityUUID), major_(major), minor_(minor), lastSeenAt_(createdAt) {}

void QuomiBeacon::updateState(const RangedBeacon& report, WallTime now) {
    proximity_ =
        QuomiProximityUtils::splitFarProximity(QuomiProximityUtils::mapCLProximityToQuomiProximity(report.proximity),
                                               report.accuracy, farDistanceSplitThreshold_);
    accuracy_ = report.accuracy;
    rssi_ = report.rssi;
    lastSeenAt_ = now;
}

std::string QuomiBeacon::name() const {
    return QuomiBeaconUtils::beaconNameForProximityUUID(proximityUUID_, major_, minor_);
}

boost::json::object QuomiBeacon::dictionary() const {
    boost::json::object values;
    values.reserve(8);
    values.emplace("name", name());
    values.emplace("proximityUUID", proximityUUID_.string());
    values.emplace("major", major_);
    values.emplace("minor", minor_);
    values.emplace("proximity", static_cast<std::int64_t>(proximity_));
    values.emplace("accuracy", accuracy_);
    values.emplace("rssi", rssi_);
    values.emplace("isSecure", isSecure());
    return values;
}

}  // namespace quomi
