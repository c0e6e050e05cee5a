#include "quomi/beacons/beacon_manager.h"

#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/region_text.h"
#include "quomi/util/host_call.h"

#include <algorithm>
#include <utility>

namespace quomi {

QuomiBeaconManager::QuomiBeaconManager(const Uuid& proximityUUID, const Platform& platform,
                                       const QuomiSettings& settings, DebugLog& debugLog)
    : platform_(platform),
      settings_(settings),
      debugLog_(debugLog),
      proximityUUID_(proximityUUID),
      beaconAliveTimeout_(kBeaconAliveTimeout),
      locationManager_(platform.location.makeLocationService(*this)) {
    setUseExtendedBackgroundRangingTime(false);
}

QuomiBeaconManager::~QuomiBeaconManager() {
    cancelBackgroundRangingTask();
}

template <class Operation, class... Arguments>
void QuomiBeaconManager::tell(Operation QuomiBeaconManagerDelegate::*operation,
                              const Arguments&... arguments) const noexcept {
    if (const auto delegate = delegate_.lock()) callHost((*delegate).*operation, arguments...);
}

// Starting and stopping

bool QuomiBeaconManager::start(std::optional<Error>* error) {
    const QuomiErrors errors(platform_.localization);
    if (isStarted_) {
        assign(error, errors.errorWithCode(ErrorCode::beaconManagerStarted));
        return false;
    }
    if (!platform_.location.isMonitoringAvailable(RegionClass::beacon).value_or(false)) {
        assign(error, errors.errorWithCode(ErrorCode::monitoringUnavailable));
        return false;
    }
    run_.renew();
    beaconTimeoutMonitorTimer_ =
        platform_.runLoop.scheduleRepeating(std::chrono::seconds(1), [this] { updateAliveBeaconsTimeoutStatus(); });
    createBeaconRegion();
    isInRegion_ = false;
    nearbyBeacons_.clear();
    if (!platform_.location.locationServicesEnabled()) {
        platform_.console.log("Quomi SDK Warning: Location services are globally disabled");
    }
    startByAuthorization(platform_.location.authorizationStatus());
    applicationObservation_ = platform_.application.observe([this](ApplicationEvent event) {
        if (event == ApplicationEvent::didBecomeActive && isStarted_ && useExtendedBackgroundRangingTime_) {
            startExtendedBackgroundRangingIfPossible();
        }
    });
    isStarted_ = true;
    return true;
}

void QuomiBeaconManager::createBeaconRegion() {
    BeaconRegion region{settings_.beaconProximityIdentifier, proximityUUID_};
    region.notifyEntryStateOnDisplay = true;
    region.notifyOnEntry = true;
    region.notifyOnExit = true;
    beaconRegion_ = std::move(region);
}

void QuomiBeaconManager::startByAuthorization(AuthorizationStatus status) {
    switch (status) {
        case AuthorizationStatus::notDetermined:
            platform_.console.log("Quomi SDK: Location services not yet authorized, requesting access!");
            if (requestWhenInUseAuthorization_) {
                locationManager_->requestWhenInUseAuthorization();
            } else {
                locationManager_->requestAlwaysAuthorization();
            }
            break;
        case AuthorizationStatus::restricted:
        case AuthorizationStatus::denied:
            platform_.console.log("Quomi SDK Warning: Location service is denied to the application!");
            break;
        case AuthorizationStatus::authorizedAlways:
            startMonitoringAndRanging();
            break;
        case AuthorizationStatus::authorizedWhenInUse:
            startRanging();
            break;
    }
}

void QuomiBeaconManager::startMonitoringAndRanging() {
    const auto monitored = locationManager_->monitoredRegions();
    const bool known = std::any_of(monitored.begin(), monitored.end(), [this](const Region& region) {
        return regionIdentifier(region) == beaconRegion_->identifier;
    });
    if (!known) locationManager_->startMonitoring(*beaconRegion_);
    startRanging();
}

void QuomiBeaconManager::startRanging() {
    locationManager_->startRangingBeacons(*beaconRegion_);
    if (useExtendedBackgroundRangingTime_) startExtendedBackgroundRangingIfPossible();
}

void QuomiBeaconManager::stop() {
    run_.renew();
    applicationObservation_.reset();
    beaconTimeoutMonitorTimer_.reset();
    for (const auto& region : locationManager_->rangedRegions())
        locationManager_->stopRangingBeacons(region.identifier);
    stopExtendedBackgroundRanging();
    if (beaconRegion_) locationManager_->stopMonitoring(beaconRegion_->identifier);
    beaconRegion_.reset();
    nearbyBeacons_.clear();
    isInRegion_ = false;
    isStarted_ = false;
    cancelBackgroundRangingTask();
}

// Time in the background

void QuomiBeaconManager::setUseExtendedBackgroundRangingTime(bool use) {
    useExtendedBackgroundRangingTime_ = use;
    locationManager_->setPausesLocationUpdatesAutomatically(!use);
    locationManager_->setAllowsBackgroundLocationUpdates(use);
    if (!isStarted_) return;
    if (use) {
        startExtendedBackgroundRangingIfPossible();
    } else {
        stopExtendedBackgroundRanging();
    }
}

void QuomiBeaconManager::startExtendedBackgroundRangingIfPossible() {
    if (platform_.application.state() == ApplicationState::background) return;
    locationManager_->setDesiredAccuracy(kCLLocationAccuracyThreeKilometers);
    locationManager_->startUpdatingLocation();
}

void QuomiBeaconManager::stopExtendedBackgroundRanging() {
    locationManager_->stopUpdatingLocation();
}

void QuomiBeaconManager::beginBackgroundRangingTask() {
    if (rangingBackgroundTask_ != kBackgroundTaskInvalid) return;
    rangingBackgroundTask_ = platform_.application.beginBackgroundTask([this] { cancelBackgroundRangingTask(); });
}

void QuomiBeaconManager::cancelBackgroundRangingTask() {
    if (rangingBackgroundTask_ == kBackgroundTaskInvalid) return;
    platform_.application.endBackgroundTask(std::exchange(rangingBackgroundTask_, kBackgroundTaskInvalid));
}

// What the phone reports

const BeaconRegion* QuomiBeaconManager::ownRegion(const Region& region) const {
    const auto* beaconRegion = std::get_if<BeaconRegion>(&region);
    return isStarted_ && beaconRegion != nullptr && isOwn(*beaconRegion) ? beaconRegion : nullptr;
}

void QuomiBeaconManager::didChangeAuthorizationStatus(AuthorizationStatus status) {
    if (!isStarted_) return;
    switch (status) {
        case AuthorizationStatus::restricted:
        case AuthorizationStatus::denied:
            platform_.console.log(
                "Quomi SDK Warning: Location services status changed and are not available anymore. Beacon support "
                "will restart when location services become available again.");
            stopExtendedBackgroundRanging();
            break;
        case AuthorizationStatus::authorizedAlways:
            startMonitoringAndRanging();
            break;
        case AuthorizationStatus::authorizedWhenInUse:
            startRanging();
            break;
        case AuthorizationStatus::notDetermined:
            break;
    }
}

void QuomiBeaconManager::didStartMonitoring(const Region& region) {
    const auto* own = ownRegion(region);
    if (own == nullptr) return;
    locationManager_->requestState(*own);
    tell(&QuomiBeaconManagerDelegate::beaconRegionMonitoringStarted, *own);
}

void QuomiBeaconManager::monitoringDidFail(const Region& region, const PlatformError& error) {
    const auto* own = ownRegion(region);
    if (own == nullptr) return;
    if (error.code == kCLErrorRegionMonitoringDenied) {
        platform_.console.log(
            "Quomi SDK Error: could not start monitoring for beacon region, got error "
            "kCLErrorRegionMonitoringDenied.");
    }
    debugLog_.log("monitoringDidFailForRegion {}", describe(region));
    tell(&QuomiBeaconManagerDelegate::beaconRegionMonitoringFailed, *own, error);
}

void QuomiBeaconManager::didDetermineState(RegionState state, const Region& region) {
    const auto* own = ownRegion(region);
    if (own == nullptr) return;
    const Lifetime::Watch run(run_);
    switch (state) {
        case RegionState::unknown:
            debugLog_.log("didDetermineState UNKNOWN for region {}", describe(region));
            break;
        case RegionState::outside:
            debugLog_.log("didDetermineState OUTSIDE for region {}", describe(region));
            isInRegion_ = false;
            break;
        case RegionState::inside:
            handleInsideState(*own);
            break;
    }
    if (!run.goesOn()) return;
    if (platform_.application.state() == ApplicationState::background) beginBackgroundRangingTask();
    tell(&QuomiBeaconManagerDelegate::beaconRegionStateChanged, *own, state);
}

void QuomiBeaconManager::handleInsideState(const BeaconRegion& region) {
    debugLog_.log("didDetermineState INSIDE for region {}", describe(region));
    if (isInRegion_) return;
    debugLog_.log("Got inside region state but didEnterRegion did not triggered, will simulate a didEnterRegion event");
    handleEntry(region);
}

void QuomiBeaconManager::didEnterRegion(const Region& region) {
    if (const auto* own = ownRegion(region)) handleEntry(*own);
}

void QuomiBeaconManager::handleEntry(const BeaconRegion& region) {
    debugLog_.log("didEnterRegion {}", describe(region));
    isInRegion_ = true;
    rangingDebugCounter_ = 0;
    locationManager_->startRangingBeacons(region);
    tell(&QuomiBeaconManagerDelegate::didEnterBeaconRegion, region);
}

void QuomiBeaconManager::didExitRegion(const Region& region) {
    // An exit deliberately leaves isInRegion, ranging and the nearby beacons alone: only an outside state clears the
    // first, and beacons that are no longer heard are lost by the timeout.
    const auto* own = ownRegion(region);
    if (own == nullptr) return;
    debugLog_.log("didExitRegion {}", describe(region));
    tell(&QuomiBeaconManagerDelegate::didExitBeaconRegion, *own);
}

void QuomiBeaconManager::rangingBeaconsDidFail(const BeaconRegion& region, const PlatformError& /*error*/) {
    if (isStarted_ && isOwn(region)) debugLog_.log("rangingBeaconsDidFailForRegion {}", describe(region));
}

void QuomiBeaconManager::didFailWithError(const PlatformError& error) {
    debugLog_.log("locationManager didFailWithError {}", describe(error));
}

void QuomiBeaconManager::didRangeBeacons(const std::vector<RangedBeacon>& beacons, const BeaconRegion& region) {
    if (!isStarted_ || !isOwn(region)) return;
    if (rangingDebugCounter_ % 10 == 0) {
        debugLog_.log("didRangeBeacons (range event # {}) (# beacons: {}) region: {}", rangingDebugCounter_,
                      beacons.size(), describe(region));
    }
    ++rangingDebugCounter_;
    const Lifetime::Watch run(run_);
    for (const auto& report : beacons) {
        if (report.proximityUUID != proximityUUID_) continue;
        if (report.proximity == PlatformProximity::unknown) continue;
        handleRangedBeacon(report);
        if (!run.goesOn()) return;
    }
}

void QuomiBeaconManager::handleRangedBeacon(const RangedBeacon& report) {
    const Lifetime::Watch run(run_);
    const WallTime now = platform_.clock.now();
    auto name = QuomiBeaconUtils::CLBeaconName(report);
    std::shared_ptr<QuomiBeacon> beacon;
    if (const auto known = nearbyBeacons_.find(name); known != nearbyBeacons_.end()) {
        beacon = known->second.beacon;
        known->second.heardAt = platform_.clock.monotonicNow();
        const auto oldProximity = beacon->proximity();
        const auto oldAccuracy = beacon->accuracy();
        beacon->updateState(report, now);
        tell(&QuomiBeaconManagerDelegate::didUpdateBeacon, *beacon, oldProximity, oldAccuracy, beacon->proximity(),
             beacon->accuracy());
    } else {
        beacon = createNewBeaconWithCLBeacon(report);
        beacon->setFarDistanceSplitThreshold(farDistanceSplitThreshold_);
        beacon->updateState(report, now);
        nearbyBeacons_.emplace(std::move(name), Nearby{beacon, ++found_, platform_.clock.monotonicNow()});
        tell(&QuomiBeaconManagerDelegate::didFindBeacon, *beacon);
    }
    if (run.goesOn()) tell(&QuomiBeaconManagerDelegate::didReceivePingFromBeacon, *beacon);
}

std::shared_ptr<QuomiBeacon> QuomiBeaconManager::createNewBeaconWithCLBeacon(const RangedBeacon& beacon) const {
    return std::make_shared<QuomiBeacon>(beacon.proximityUUID, beacon.major, beacon.minor, platform_.clock.now());
}

// Nearby beacons

template <class Compare>
std::vector<QuomiBeaconManager::Nearby> QuomiBeaconManager::nearbyOfAge(Compare compare) const {
    const auto now = platform_.clock.monotonicNow();
    std::vector<Nearby> some;
    for (const auto& [name, nearby] : nearbyBeacons_) {
        if (compare(now - nearby.heardAt, std::chrono::seconds(beaconAliveTimeout_))) some.push_back(nearby);
    }
    std::ranges::sort(some, {}, &Nearby::order);
    return some;
}

std::vector<std::shared_ptr<const QuomiBeacon>> QuomiBeaconManager::getNearbyBeacons() const {
    std::vector<std::shared_ptr<const QuomiBeacon>> alive;
    for (const auto& nearby : nearbyOfAge(std::less())) alive.push_back(nearby.beacon);
    return alive;
}

void QuomiBeaconManager::updateAliveBeaconsTimeoutStatus() {
    const Lifetime::Watch run(run_);
    for (const auto& silent : nearbyOfAge(std::greater())) {
        // While the host was told of another one it may have run the loop, and this one may have been heard again.
        const auto nearby = nearbyBeacons_.find(silent.beacon->name());
        if (nearby == nearbyBeacons_.end() || nearby->second.heardAt != silent.heardAt) continue;
        nearbyBeacons_.erase(nearby);
        tell(&QuomiBeaconManagerDelegate::didLoseBeacon, *silent.beacon);
        if (!run.goesOn()) return;
    }
}

}  // namespace quomi
