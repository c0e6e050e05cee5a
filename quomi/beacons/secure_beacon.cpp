#include "quomi/beacons/secure_beacon.h"

#include "quomi/beacons/beacon_security.h"
#include "quomi/platform/clock.h"

#include <boost/json/object.hpp>

namespace quomi {

QuomiSecureBeacon::QuomiSecureBeacon(const Uuid& proximityUUID, std::uint16_t advertizedMajor,
                                     std::uint16_t advertizedMinor, WallTime createdAt)
    : QuomiBeacon(proximityUUID, QuomiBeaconSecurity::getMajorFromSecureMajor(advertizedMajor, advertizedMinor),
                  QuomiBeaconSecurity::getCRCFromSecureMajor(advertizedMajor, advertizedMinor), createdAt),
      advertizedMajor_(advertizedMajor),
      advertizedMinor_(advertizedMinor) {}

std::string QuomiSecureBeacon::name() const {
    return QuomiBeaconUtils::beaconNameForProximityUUID(proximityUUID(), advertizedMajor_, advertizedMinor_);
}

boost::json::object QuomiSecureBeacon::dictionary() const {
    auto values = QuomiBeacon::dictionary();
    values.emplace("advertizedMajor", advertizedMajor_);
    values.emplace("advertizedMinor", advertizedMinor_);
    return values;
}

std::shared_ptr<QuomiBeacon> QuomiSecureBeaconManager::createNewBeaconWithCLBeacon(const RangedBeacon& beacon) const {
    return std::make_shared<QuomiSecureBeacon>(beacon.proximityUUID, beacon.major, beacon.minor,
                                               platform().clock.now());
}

}  // namespace quomi
