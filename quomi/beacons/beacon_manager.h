#pragma once

#include "quomi/beacons/beacon.h"
#include "quomi/platform/application.h"
#include "quomi/platform/location.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/run_loop.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace quomi {

class DebugLog;
class QuomiBeaconManager;
struct QuomiSettings;

/// What a beacon manager tells its owner; an empty function is news that the owner does not want. All on the host's
/// thread. A callback may stop the manager; nothing further is reported then. What a callback throws is dropped.
struct QuomiBeaconManagerDelegate {
    std::function<void(const BeaconRegion&)> didEnterBeaconRegion;
    std::function<void(const BeaconRegion&)> didExitBeaconRegion;
    std::function<void(const BeaconRegion&, RegionState)> beaconRegionStateChanged;
    std::function<void(const BeaconRegion&)> beaconRegionMonitoringStarted;
    std::function<void(const BeaconRegion&, const PlatformError&)> beaconRegionMonitoringFailed;
    /// A beacon that was not nearby is heard.
    std::function<void(const QuomiBeacon&)> didFindBeacon;
    /// A nearby beacon is heard again, changed or not. Accuracies in metres.
    std::function<void(const QuomiBeacon&, QuomiProximity oldProximity, double oldAccuracy, QuomiProximity newProximity,
                       double newAccuracy)>
        didUpdateBeacon;
    /// Follows each of the two above.
    std::function<void(const QuomiBeacon&)> didReceivePingFromBeacon;
    /// A nearby beacon was not heard for longer than the alive timeout.
    std::function<void(const QuomiBeacon&)> didLoseBeacon;
};

/// Watches the beacons of one proximity UUID through the phone's location service: monitors the region, ranges what is
/// in it, keeps the table of nearby beacons and tells found, updated and lost ones. It holds no rules and no store.
/// Host's thread only.
class QuomiBeaconManager : private LocationServiceDelegate {
public:
    /// Platform, settings and log outlive the manager.
    QuomiBeaconManager(const Uuid& proximityUUID, const Platform& platform, const QuomiSettings& settings,
                       DebugLog& debugLog);
    ~QuomiBeaconManager() override;
    QuomiBeaconManager(const QuomiBeaconManager&) = delete;
    QuomiBeaconManager& operator=(const QuomiBeaconManager&) = delete;

    /// Starts monitoring and ranging as far as the user's permission goes; with none yet, asks for it and goes on when
    /// it is given. Fails with 1001 when started and 802 when the phone monitors no beacon regions.
    bool start(std::optional<Error>* error = nullptr);
    /// Ends it all, without lost events for what was nearby. Also ends the ranging of every other region of the app,
    /// deliberately: the phone ranges for the app as a whole.
    void stop();

    [[nodiscard]] bool isStarted() const { return isStarted_; }
    [[nodiscard]] const Uuid& proximityUUID() const { return proximityUUID_; }
    /// The beacons heard less than the alive timeout ago, in the order in which they were found.
    [[nodiscard]] std::vector<std::shared_ptr<const QuomiBeacon>> getNearbyBeacons() const;

    /// Held weakly.
    void setDelegate(std::weak_ptr<QuomiBeaconManagerDelegate> delegate) { delegate_ = std::move(delegate); }
    [[nodiscard]] std::shared_ptr<QuomiBeaconManagerDelegate> delegate() const { return delegate_.lock(); }
    /// Which permission `start` asks for; at first the one for always.
    void setRequestWhenInUseAuthorization(bool request) { requestWhenInUseAuthorization_ = request; }
    [[nodiscard]] bool requestWhenInUseAuthorization() const { return requestWhenInUseAuthorization_; }
    /// Keeps the app running in the background by coarse location updates so that ranging goes on. Takes effect at
    /// once.
    void setUseExtendedBackgroundRangingTime(bool use);
    [[nodiscard]] bool useExtendedBackgroundRangingTime() const { return useExtendedBackgroundRangingTime_; }
    /// Where far is divided, in metres, at first 0; for beacons found from now on.
    void setFarDistanceSplitThreshold(double metres) { farDistanceSplitThreshold_ = metres; }
    [[nodiscard]] double farDistanceSplitThreshold() const { return farDistanceSplitThreshold_; }

    /// Asks the phone for time in the background, unless a task is held already; held until it expires or `stop`.
    void beginBackgroundRangingTask();
    void cancelBackgroundRangingTask();

protected:
    /// The one point of extension: the record for a beacon that was found.
    [[nodiscard]] virtual std::shared_ptr<QuomiBeacon> createNewBeaconWithCLBeacon(const RangedBeacon& beacon) const;
    [[nodiscard]] const Platform& platform() const { return platform_; }

private:
    struct Nearby {
        std::shared_ptr<QuomiBeacon> beacon;
        std::uint64_t order;    // of finding
        MonotonicTime heardAt;  // a wall clock that jumps loses no beacon and keeps none
    };

    void didChangeAuthorizationStatus(AuthorizationStatus status) override;
    void didFailWithError(const PlatformError& error) override;
    void didStartMonitoring(const Region& region) override;
    void monitoringDidFail(const Region& region, const PlatformError& error) override;
    void didDetermineState(RegionState state, const Region& region) override;
    void didEnterRegion(const Region& region) override;
    void didExitRegion(const Region& region) override;
    void didRangeBeacons(const std::vector<RangedBeacon>& beacons, const BeaconRegion& region) override;
    void rangingBeaconsDidFail(const BeaconRegion& region, const PlatformError& error) override;

    [[nodiscard]] bool isOwn(const BeaconRegion& region) const { return region.proximityUUID == proximityUUID_; }
    /// The region as a beacon region of this manager's UUID; null for every other one.
    [[nodiscard]] const BeaconRegion* ownRegion(const Region& region) const;
    void createBeaconRegion();
    void startByAuthorization(AuthorizationStatus status);
    void startMonitoringAndRanging();
    void startRanging();
    void startExtendedBackgroundRangingIfPossible();
    void stopExtendedBackgroundRanging();
    void handleInsideState(const BeaconRegion& region);
    void handleEntry(const BeaconRegion& region);
    void handleRangedBeacon(const RangedBeacon& report);
    template <class Operation, class... Arguments>
    void tell(Operation QuomiBeaconManagerDelegate::*operation, const Arguments&... arguments) const noexcept;
    void updateAliveBeaconsTimeoutStatus();
    /// Those whose age compares so with the alive timeout, in the order in which they were found.
    template <class Compare>
    [[nodiscard]] std::vector<Nearby> nearbyOfAge(Compare compare) const;

    const Platform& platform_;
    const QuomiSettings& settings_;
    DebugLog& debugLog_;
    const Uuid proximityUUID_;
    const std::int64_t beaconAliveTimeout_;
    bool isStarted_ = false;
    bool isInRegion_ = false;
    bool requestWhenInUseAuthorization_ = false;
    bool useExtendedBackgroundRangingTime_ = false;
    double farDistanceSplitThreshold_ = 0.0;
    std::int64_t rangingDebugCounter_ = 0;  // reports since the last entry, for sampled logging
    std::uint64_t found_ = 0;
    BackgroundTaskIdentifier rangingBackgroundTask_ = kBackgroundTaskInvalid;
    std::optional<BeaconRegion> beaconRegion_;
    std::unordered_map<std::string, Nearby> nearbyBeacons_;
    std::weak_ptr<QuomiBeaconManagerDelegate> delegate_;
    std::unique_ptr<Timer> beaconTimeoutMonitorTimer_;
    std::unique_ptr<ApplicationObservation> applicationObservation_;
    std::unique_ptr<LocationService> locationManager_;
    Lifetime run_;  // from a start or a stop to the next
};

}  // namespace quomi
