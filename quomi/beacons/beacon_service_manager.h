#pragma once

#include "quomi/platform/location.h"
#include "quomi/platform/platform.h"
#include "quomi/util/error.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>

namespace quomi {

struct QuomiSettings;

/// What a service beacon manager tells its owner. On the host's thread; what it throws is dropped.
struct QuomiBeaconServiceManagerDelegate {
    /// A beacon advertises low battery: its service identifier and check code.
    std::function<void(const Uuid&, std::uint16_t serviceID, std::uint16_t crc16Code)> didFindLowBatteryAdvertisement;
};

/// Watches for beacons that advertise a low battery under the service UUID, and tells of each advertised pair once in
/// its life. Host's thread only.
class QuomiBeaconServiceManager : private LocationServiceDelegate {
public:
    /// Platform and settings outlive the manager.
    QuomiBeaconServiceManager(const Uuid& proximityUUID, const Platform& platform, const QuomiSettings& settings);
    ~QuomiBeaconServiceManager() override;
    QuomiBeaconServiceManager(const QuomiBeaconServiceManager&) = delete;
    QuomiBeaconServiceManager& operator=(const QuomiBeaconServiceManager&) = delete;

    /// Starts monitoring; beacons are ranged when the region is entered. Fails with 1001 when started and 802 when the
    /// phone monitors no beacon regions.
    bool start(std::optional<Error>* error = nullptr);
    /// Ends monitoring, and the ranging of every region of the app, deliberately: the phone ranges for the app as a
    /// whole. What was reported stays reported.
    void stop();

    [[nodiscard]] bool isStarted() const { return started_; }
    [[nodiscard]] const Uuid& proximityUUID() const { return proximityUUID_; }
    /// Held weakly.
    void setDelegate(std::weak_ptr<QuomiBeaconServiceManagerDelegate> delegate) { delegate_ = std::move(delegate); }

private:
    void didChangeAuthorizationStatus(AuthorizationStatus status) override;
    void didStartMonitoring(const Region& region) override;
    void didDetermineState(RegionState state, const Region& region) override;
    void didEnterRegion(const Region& region) override;
    void didRangeBeacons(const std::vector<RangedBeacon>& beacons, const BeaconRegion& region) override;

    [[nodiscard]] const BeaconRegion* ownRegion(const Region& region) const;
    void report(const RangedBeacon& beacon) const noexcept;

    const Platform& platform_;
    const QuomiSettings& settings_;
    const Uuid proximityUUID_;
    bool isFirstBeaconCheck_ = false;  // arms the one simulated entry of a launch inside the region
    bool started_ = false;
    std::optional<BeaconRegion> beaconRegion_;
    std::unordered_set<std::string> reportedBeacons_;  // names
    std::weak_ptr<QuomiBeaconServiceManagerDelegate> delegate_;
    std::unique_ptr<LocationService> locationManager_;  // last: its callbacks end first
};

}  // namespace quomi
