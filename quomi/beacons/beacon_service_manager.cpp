#include "quomi/beacons/beacon_service_manager.h"

#include "quomi/beacons/beacon.h"
#include "quomi/beacons/beacon_security.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/util/host_call.h"

#include <utility>

namespace quomi {

QuomiBeaconServiceManager::QuomiBeaconServiceManager(const Uuid& proximityUUID, const Platform& platform,
                                                     const QuomiSettings& settings)
    : platform_(platform),
      settings_(settings),
      proximityUUID_(proximityUUID),
      locationManager_(platform.location.makeLocationService(*this)) {}

QuomiBeaconServiceManager::~QuomiBeaconServiceManager() = default;

bool QuomiBeaconServiceManager::start(std::optional<Error>* error) {
    const QuomiErrors errors(platform_.localization);
    if (started_) {
        assign(error, errors.errorWithCode(ErrorCode::beaconManagerStarted));
        return false;
    }
    BeaconRegion region{settings_.beaconProximityIdentifierService, proximityUUID_};
    region.notifyEntryStateOnDisplay = false;
    region.notifyOnEntry = true;
    region.notifyOnExit = true;
    beaconRegion_ = std::move(region);
    isFirstBeaconCheck_ = true;
    if (!platform_.location.isMonitoringAvailable(RegionClass::beacon).value_or(false)) {
        assign(error, errors.errorWithCode(ErrorCode::monitoringUnavailable));
        return false;
    }
    locationManager_->startMonitoring(*beaconRegion_);
    started_ = true;
    return true;
}

void QuomiBeaconServiceManager::stop() {
    if (beaconRegion_) locationManager_->stopMonitoring(beaconRegion_->identifier);
    for (const auto& region : locationManager_->rangedRegions())
        locationManager_->stopRangingBeacons(region.identifier);
    beaconRegion_.reset();
    started_ = false;
}

const BeaconRegion* QuomiBeaconServiceManager::ownRegion(const Region& region) const {
    const auto* beaconRegion = std::get_if<BeaconRegion>(&region);
    return started_ && beaconRegion != nullptr && beaconRegion->proximityUUID == proximityUUID_ ? beaconRegion
                                                                                                : nullptr;
}

void QuomiBeaconServiceManager::didChangeAuthorizationStatus(AuthorizationStatus status) {
    if (status == AuthorizationStatus::authorizedAlways || status == AuthorizationStatus::authorizedWhenInUse) {
        isFirstBeaconCheck_ = true;
    }
}

void QuomiBeaconServiceManager::didStartMonitoring(const Region& region) {
    if (const auto* own = ownRegion(region)) locationManager_->requestState(*own);
}

void QuomiBeaconServiceManager::didDetermineState(RegionState state, const Region& region) {
    if (state != RegionState::inside || !isFirstBeaconCheck_ || ownRegion(region) == nullptr) return;
    didEnterRegion(region);
    isFirstBeaconCheck_ = false;
}

void QuomiBeaconServiceManager::didEnterRegion(const Region& region) {
    if (const auto* own = ownRegion(region)) locationManager_->startRangingBeacons(*own);
}

void QuomiBeaconServiceManager::didRangeBeacons(const std::vector<RangedBeacon>& beacons, const BeaconRegion& region) {
    if (ownRegion(region) == nullptr) return;
    for (const auto& beacon : beacons) {
        if (!started_ || beacon.proximityUUID != proximityUUID_) continue;
        if (reportedBeacons_.insert(QuomiBeaconUtils::CLBeaconName(beacon)).second) report(beacon);
    }
}

void QuomiBeaconServiceManager::report(const RangedBeacon& beacon) const noexcept {
    if (const auto delegate = delegate_.lock()) {
        callHost(delegate->didFindLowBatteryAdvertisement, proximityUUID_,
                 QuomiBeaconSecurity::getMajorFromSecureMajor(beacon.major, beacon.minor),
                 QuomiBeaconSecurity::getCRCFromSecureMajor(beacon.major, beacon.minor));
    }
}

}  // namespace quomi
