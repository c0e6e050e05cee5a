#include "quomi/sdk/geofence_router.h"

#include "quomi/data/data.h"
#include "quomi/data/data_updater.h"
#include "quomi/location/region_type_converter.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/console.h"
#include "quomi/platform/run_loop.h"
#include "quomi/rules/geofence_rule_executor.h"
#include "quomi/sdk/host_delegate.h"
#include "quomi/util/uuid.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

constexpr Duration kRequestCheckInterval = std::chrono::seconds(5);
constexpr std::int64_t kRegionMonitoringFailure = 5;  // the phone can watch no further region

UpdateArea areaAround(const Coordinate& place) {
    return {place.latitude, place.longitude, static_cast<double>(kGeofenceDownloadRadius)};
}

}  // namespace

struct GeofenceRouter::Work {
    std::string geofenceId;
    Perform perform;
    BackgroundTaskIdentifier task = kBackgroundTaskInvalid;
    std::unique_ptr<Timer> check;
    bool hasBegun = false;
    bool isExpired = false;
};

GeofenceRouter::GeofenceRouter(RoutingContext context, GeofenceRouting routing)
    : context_(std::move(context)), routing_(std::move(routing)) {
    locationChanged = [this](const Location& location) { handleLocation(location); };
    locationRegionMonitoringFailed = [this](const Region& region, const PlatformError& error) {
        countRefusedRegion(region, error);
    };
    locationDidEnterRegion = [this](const CircularRegion& region) { handleEntry(region); };
    locationDidExitRegion = [this](const Region& region) { handleExit(region); };
}

GeofenceRouter::~GeofenceRouter() = default;

void GeofenceRouter::end() {
    ended_ = true;
    for (const auto& work : std::exchange(works_, {})) {
        work->check.reset();
        context_.platform.application.endBackgroundTask(std::exchange(work->task, kBackgroundTaskInvalid));
    }
}

// Positions

void GeofenceRouter::handleLocation(const Location& location) {
    if (ended_) return;
    const auto& place = location.coordinate;
    const auto closest = context_.data.findClosestGeofenceRegion(place.latitude, place.longitude);
    bool needsFullUpdate = closest == nullptr || context_.data.geofenceRegionExpired(*closest);
    const auto nearby = needsFullUpdate ? QuomiData::List<QuomiGeofence>()
                                        : context_.data.findNearbyGeofences(place.latitude, place.longitude);
    if (!nearby.empty()) startMonitoringLocalRegions();
    if (ended_) return;
    if (context_.settings.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion && nearby.empty()) {
        needsFullUpdate = true;
    }
    if (needsFullUpdate || forceFullGeofencesUpdate_) {
        forceFullGeofencesUpdate_ = false;
        updateInFull(place);
    } else {
        context_.updater.performGeofencesDataUpdateIfNeeded(areaAround(place));
        const auto uuid = Uuid::parse(context_.settings.beaconProximityUUIDNormal).value_or(Uuid());
        context_.updater.performBeaconsDataUpdateIfNeeded({uuid});
        context_.logNotificationRights();
    }
    if (!ended_) context_.host.tell(&QuomiSDKDelegate::didReceiveLocationChange, location);
}

void GeofenceRouter::updateInFull(const Coordinate& place) {
    context_.updater.performFullGeofencesDataUpdate(areaAround(place), [weak = weak_from_this()](bool) {
        const auto router = weak.lock();
        if (router != nullptr && !router->ended_) router->startMonitoringLocalRegions();
    });
}

// The choice of regions

/// Nothing, and error 8 for the host, while geofences are switched off; the equator off Africa when no position is
/// known.
std::optional<Coordinate> GeofenceRouter::currentCoordinate() {
    if (!context_.settings.geofencingEnabled) {
        context_.host.forwardErrorToDelegate(routing_.errors.errorWithCode(ErrorCode::geofencesDisabled));
        return std::nullopt;
    }
    const auto* manager = routing_.locationManager();
    if (manager == nullptr || !manager->currentLocation()) return Coordinate{};
    return manager->currentLocation()->coordinate;
}

std::vector<CircularRegion> GeofenceRouter::getLocalRegions() {
    constexpr double nowhere = -1;
    // Asked for each of the two degrees, so the host hears of disabled geofences twice: deliberate.
    const auto forLatitude = currentCoordinate();
    const auto forLongitude = ended_ ? std::nullopt : currentCoordinate();
    if (ended_) return {};
    return QuomiRegionTypeConverter::convertRegionsToCLRegions(context_.data.findNearbyGeofences(
        forLatitude ? forLatitude->latitude : nowhere, forLongitude ? forLongitude->longitude : nowhere));
}

bool GeofenceRouter::startMonitoringLocalRegions(std::optional<Error>* error) {
    const auto local = getLocalRegions();
    auto* manager = ended_ ? nullptr : routing_.locationManager();
    if (manager == nullptr) return true;
    std::unordered_set<std::string_view> wanted;
    for (const auto& region : local) wanted.insert(region.identifier);
    if (context_.settings.geofencingEnabled) {
        for (const auto& region : manager->getCurrentlyMonitoredRegions()) {
            if (!wanted.contains(region.identifier)) manager->removeRegionById(region.identifier);
        }
    }
    std::unordered_set<std::string> monitored;
    for (const auto& region : manager->getCurrentlyMonitoredRegions()) monitored.insert(region.identifier);
    return std::ranges::all_of(local, [&](const CircularRegion& region) {
        return !monitored.insert(region.identifier).second || manager->addRegion(region, error);
    });
}

/// The phone refuses the regions beyond its limit one by one; one line tells of them all.
void GeofenceRouter::countRefusedRegion(const Region& region, const PlatformError& error) {
    if (ended_ || error.code != kRegionMonitoringFailure) return;
    const auto* manager = routing_.locationManager();
    if (manager == nullptr || manager->regionIsMonitored(regionIdentifier(region))) return;
    const bool isFirst = refusedRegions_.empty();
    refusedRegions_.insert(regionIdentifier(region));
    if (!isFirst) return;
    context_.platform.runLoop.post([weak = weak_from_this()] {
        const auto router = weak.lock();
        if (router == nullptr || router->ended_) return;
        const auto count = std::exchange(router->refusedRegions_, {}).size();
        router->context_.platform.console.log(
            fmt::format("Quomi SDK Warning: {} nearby {} not watched, because the phone can't watch more regions",
                        count, count == 1 ? "geofence is" : "geofences are"));
    });
}

// Entries and exits

void GeofenceRouter::handleEntry(const CircularRegion& region) {
    if (ended_) return;
    bool isDone = true;
    const auto geofence = context_.data.getGeofenceById(region.identifier);
    if (geofence != nullptr && geofence->enabled) {
        context_.logEvent({{"type", "view"},
                           {"trigger", kTriggerOnEntry},
                           {"area_type", "geofence"},
                           {"geofence_id", geofence->geofenceId}});
        if (ended_) return;
        const auto state = context_.platform.application.state();
        if (state == ApplicationState::active) isDone = performGeofenceEnterActions(geofence, nullptr);
        if (state == ApplicationState::background) {
            performInBackground(geofence->geofenceId, &GeofenceRouter::performGeofenceEnterActions);
        }
    }
    if (ended_) return;
    startMonitoringLocalRegions();
    // What happens in the background is not waited for, and an unknown geofence counts as done. One that is outside its
    // dates or hours does not, so the host of an active app is not told of it.
    if (isDone && !ended_) context_.host.tell(&QuomiSDKDelegate::didReceiveEnterRegionNotification, region);
}

void GeofenceRouter::handleExit(const Region& region) {
    if (ended_) return;
    bool isDone = false;
    const auto geofence = context_.data.getGeofenceById(regionIdentifier(region));
    UpdateArea area;
    if (geofence != nullptr) area = {geofence->latitude, geofence->longitude, geofence->radius};
    context_.updater.performGeofencesDataUpdateIfNeeded(area);
    if (geofence != nullptr && geofence->enabled) {
        const auto state = context_.platform.application.state();
        if (state == ApplicationState::active) isDone = performGeofenceExitActions(geofence, nullptr);
        if (state == ApplicationState::background) {
            performInBackground(geofence->geofenceId, &GeofenceRouter::performGeofenceExitActions);
        }
    }
    if (geofence != nullptr && !ended_) startMonitoringLocalRegions();
    const auto* circle = std::get_if<CircularRegion>(&region);
    if (isDone && !ended_ && circle != nullptr) {
        context_.host.tell(&QuomiSDKDelegate::didReceiveExitRegionNotification, *circle);
    }
    if (!ended_) context_.logNotificationRights();
}

bool GeofenceRouter::performGeofenceEnterActions(const std::shared_ptr<QuomiGeofence>& geofence,
                                                 std::optional<Error>* error) {
    routing_.executor.clearAllTimersForGeofenceId(geofence->geofenceId);
    return !ended_ && routing_.executor.executeGeofenceEnteredActions(geofence, error);
}

bool GeofenceRouter::performGeofenceExitActions(const std::shared_ptr<QuomiGeofence>& geofence,
                                                std::optional<Error>* error) {
    routing_.executor.clearAllTimersForGeofenceId(geofence->geofenceId);
    return !ended_ && routing_.executor.executeGeofenceExitedActions(geofence, error);
}

// In the background

void GeofenceRouter::performInBackground(const std::string& geofenceId, Perform perform) {
    const auto work = std::make_shared<Work>();
    work->geofenceId = geofenceId;
    work->perform = perform;
    works_.push_back(work);
    const auto weak = weak_from_this();
    work->task = context_.platform.application.beginBackgroundTask([weak, weakWork = std::weak_ptr(work)] {
        const auto router = weak.lock();
        const auto expired = weakWork.lock();
        if (router == nullptr || expired == nullptr) return;
        expired->isExpired = true;
        // Work that has not begun is done all the same when its turn comes, but waits for nothing.
        router->context_.platform.application.endBackgroundTask(std::exchange(expired->task, kBackgroundTaskInvalid));
        if (expired->hasBegun) router->finish(expired);
    });
    context_.platform.runLoop.postToGlobalQueue([weak, work] {
        const auto router = weak.lock();
        if (router != nullptr && !router->ended_) router->run(work);
    });
}

void GeofenceRouter::run(const std::shared_ptr<Work>& work) {
    work->hasBegun = true;
    context_.data.startBackgroundObjectContext();
    if (const auto geofence = context_.data.getGeofenceById(work->geofenceId)) {
        static_cast<void>((this->*work->perform)(geofence, nullptr));
    }
    if (!ended_) waitForRequests(work);
}

void GeofenceRouter::waitForRequests(const std::shared_ptr<Work>& work) {
    if (work->isExpired || routing_.requestQueueCount() == 0) {
        finish(work);
        return;
    }
    work->check = context_.platform.runLoop.scheduleOnce(kRequestCheckInterval, [this, weak = std::weak_ptr(work)] {
        if (const auto waiting = weak.lock()) waitForRequests(waiting);
    });
}

void GeofenceRouter::finish(const std::shared_ptr<Work>& work) {
    if (std::erase(works_, work) == 0) return;
    work->check.reset();
    context_.data.finishBackgroundObjectContext();
    context_.platform.application.endBackgroundTask(std::exchange(work->task, kBackgroundTaskInvalid));
}

}  // namespace quomi
