#include "quomi/location/location_manager.h"

#include "quomi/location/location_utils.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/util/host_call.h"

#include <algorithm>
#include <utility>

namespace quomi {

namespace {

template <class Entry>
void appendToHistory(std::vector<Entry>& history, const Entry& entry) {
    history.push_back(entry);
    if (history.size() > kLocationHistoryMaxEntries) history.erase(history.begin());
}

}  // namespace

QuomiLocationManager::QuomiLocationManager(const Platform& platform, const QuomiSettings& settings,
                                           DebugLog& /*debugLog*/)
    : platform_(platform), settings_(settings), locationManager_(platform.location.makeLocationService(*this)) {
    locationManager_->setDesiredAccuracy(kCLLocationAccuracyBest);
    locationManager_->setDistanceFilter(kLocationDistanceFilter);
}

QuomiLocationManager::~QuomiLocationManager() = default;

template <class Operation, class... Arguments>
void QuomiLocationManager::tell(Operation QuomiLocationDelegate::*operation,
                                const Arguments&... arguments) const noexcept {
    if (const auto delegate = delegate_.lock()) callHost((*delegate).*operation, arguments...);
}

// Positions

void QuomiLocationManager::startLocationMonitoring() {
    locationManager_->startMonitoringSignificantLocationChanges();
}

void QuomiLocationManager::stopLocationMonitoring() {
    locationManager_->stopMonitoringSignificantLocationChanges();
}

void QuomiLocationManager::addLocationToHistory(const Location& location) {
    appendToHistory(locationHistory_, Location(location));
    currentLocation_ = locationHistory_.back();
    if (locationHistory_.size() >= 2) addSpeed(*(locationHistory_.end() - 2), locationHistory_.back());
}

void QuomiLocationManager::addSpeed(const Location& from, const Location& to) {
    const double seconds = toSeconds(to.timestamp - from.timestamp);
    if (seconds <= 0) return;
    const double metres = QuomiLocationUtils::calculateDistance(from.coordinate, to.coordinate);
    const double speed = (metres / 1000.0) / (seconds / 3600.0);
    if (speed > 0) appendToHistory(speedHistory_, speed);
}

void QuomiLocationManager::clearLocationHistory() {
    locationHistory_.clear();
    speedHistory_.clear();
    currentLocation_.reset();
    currentRegion_.reset();
}

void QuomiLocationManager::didUpdateLocations(const std::vector<Location>& oldestFirst) {
    if (oldestFirst.empty()) return;
    addLocationToHistory(oldestFirst.back());
    tell(&QuomiLocationDelegate::locationChanged, oldestFirst.back());
    if (settings_.stopUpdatingLocationAfterFirstUpdate) stopLocationMonitoring();
}

void QuomiLocationManager::didFailWithError(const PlatformError& error) {
    tell(&QuomiLocationDelegate::locationUpdateFailed, error);
}

// Geofences

bool QuomiLocationManager::startRegionMonitoring(std::optional<Error>* /*error*/) {
    if (platform_.location.authorizationStatus() == AuthorizationStatus::notDetermined) {
        locationManager_->requestAlwaysAuthorization();
    }
    regionMonitoringStarted_ = true;
    return true;
}

void QuomiLocationManager::stopRegionMonitoring() {
    removeAllRegions();
    regionMonitoringStarted_ = false;
}

bool QuomiLocationManager::addRegion(const std::optional<Region>& region, std::optional<Error>* error) {
    if (!region) {
        assign(error,
               QuomiErrors(platform_.localization).errorWithCode(ErrorCode::location, "Can't add a nil region."));
        return false;
    }
    if (!regionMonitoringStarted_) startRegionMonitoring();
    locationManager_->startMonitoring(*region);
    return true;
}

void QuomiLocationManager::removeRegionById(std::string_view identifier) {
    if (regionIsMonitored(identifier)) locationManager_->stopMonitoring(std::string(identifier));
}

void QuomiLocationManager::removeAllRegions() {
    for (const auto& region : getCurrentlyMonitoredRegions()) locationManager_->stopMonitoring(region.identifier);
}

std::vector<CircularRegion> QuomiLocationManager::getCurrentlyMonitoredRegions() const {
    std::vector<CircularRegion> circles;
    for (auto& region : locationManager_->monitoredRegions()) {
        if (auto* circle = std::get_if<CircularRegion>(&region)) circles.push_back(std::move(*circle));
    }
    return circles;
}

bool QuomiLocationManager::regionIsMonitored(std::string_view identifier) const {
    const auto circles = getCurrentlyMonitoredRegions();
    return std::any_of(circles.begin(), circles.end(),
                       [identifier](const CircularRegion& circle) { return circle.identifier == identifier; });
}

bool QuomiLocationManager::isCurrentRegion(std::string_view identifier) const {
    return currentRegion_ && currentRegion_->identifier == identifier;
}

void QuomiLocationManager::didStartMonitoring(const Region& region) {
    const auto* circle = std::get_if<CircularRegion>(&region);
    if (circle == nullptr) return;
    tell(&QuomiLocationDelegate::locationRegionMonitoringStarted, *circle);
    // Deliberate: the phone's zero coordinate stands in for an unknown position, so a geofence around it is entered.
    const Coordinate here = currentLocation_ ? currentLocation_->coordinate : Coordinate{};
    if (QuomiLocationUtils::pointIsInRegion(here, *circle)) handleEntry(*circle);
}

void QuomiLocationManager::monitoringDidFail(const Region& region, const PlatformError& error) {
    if (std::holds_alternative<BeaconRegion>(region)) return;
    tell(&QuomiLocationDelegate::locationRegionMonitoringFailed, region, error);
}

void QuomiLocationManager::didEnterRegion(const Region& region) {
    if (const auto* circle = std::get_if<CircularRegion>(&region)) handleEntry(*circle);
}

void QuomiLocationManager::handleEntry(const CircularRegion& region) {
    currentLocation_ = Location{region.center, platform_.clock.now()};
    if (isCurrentRegion(region.identifier)) return;
    currentRegion_ = region;
    tell(&QuomiLocationDelegate::locationDidEnterRegion, region);
}

void QuomiLocationManager::didExitRegion(const Region& region) {
    // Deliberately not the test of an entry: an entry is one into a circle, an exit is one from anything but beacons.
    if (std::holds_alternative<BeaconRegion>(region)) return;
    if (isCurrentRegion(regionIdentifier(region))) currentRegion_.reset();
    tell(&QuomiLocationDelegate::locationDidExitRegion, region);
}

}  // namespace quomi
