#pragma once

#include "quomi/beacons/beacon.h"
#include "quomi/beacons/beacon_manager.h"

namespace quomi {

/// A beacon that advertises a rotating pair: its major is the true one, its minor the day's check code, both decoded
/// from what it advertises.
class QuomiSecureBeacon : public QuomiBeacon {
public:
    QuomiSecureBeacon(const Uuid& proximityUUID, std::uint16_t advertizedMajor, std::uint16_t advertizedMinor,
                      WallTime createdAt);

    [[nodiscard]] std::uint16_t advertizedMajor() const { return advertizedMajor_; }
    [[nodiscard]] std::uint16_t advertizedMinor() const { return advertizedMinor_; }

    /// Made of the advertised pair, so that each pair is a beacon of its own: one whose code changes at midnight is
    /// lost and found again.
    [[nodiscard]] std::string name() const override;
    [[nodiscard]] bool isSecure() const override { return true; }
    /// That of a beacon, and "advertizedMajor" and "advertizedMinor".
    [[nodiscard]] boost::json::object dictionary() const override;

private:
    std::uint16_t advertizedMajor_;
    std::uint16_t advertizedMinor_;
};

/// A beacon manager whose beacons are secure ones.
class QuomiSecureBeaconManager : public QuomiBeaconManager {
public:
    using QuomiBeaconManager::QuomiBeaconManager;

protected:
    [[nodiscard]] std::shared_ptr<QuomiBeacon> createNewBeaconWithCLBeacon(const RangedBeacon& beacon) const override;
};

}  // namespace quomi
