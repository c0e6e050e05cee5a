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
    Execute execute;
    BackgroundTaskIdentifier task = kBackgroundTaskInvalid;
    std::unique_ptr<Timer> check;
    bool hasBegun = false;
    bool isExpired = false;
};

GeofenceRouter::GeofenceRouter(const RoutingContext& context, QuomiGeofenceActionExecutor& executor,
                               const QuomiErrors& errors)
    : context_(context), executor_(executor), errors_(errors) {
    locationChanged = [this](const Location& location) { handleLocation(location); };
    locationRegionMonitoringFailed = [this](const Region& region, const PlatformError& error) {
        countRefusedRegion(region, error);
    };
    locationDidEnterRegion = [this](const CircularRegion& region) { handleEntry(region); };
    locationDidExitRegion = [this](const Region& region) { handleExit(region); };
}

GeofenceRouter::~GeofenceRouter() = default;

void GeofenceRouter::end() {
    lifetime_.end();
    for (const auto& work : std::exchange(works_, {})) {
        work->check.reset();
        endTask(*work);
    }
}

// Positions

void GeofenceRouter::handleLocation(const Location& location) {
    bool inFull = false;
    lifetime_.inTurn([&] { inFull = !watchStoredGeofences(location.coordinate); },
                     [&] { update(location.coordinate, inFull); },
                     [&] { context_.host.tell(&QuomiSDKDelegate::didReceiveLocationChange, location); });
}

/// Watches the geofences near the place. False when they have to be downloaded.
bool GeofenceRouter::watchStoredGeofences(const Coordinate& place) {
    const auto closest = context_.data.findClosestGeofenceRegion(place.latitude, place.longitude);
    if (closest == nullptr || context_.data.geofenceRegionExpired(*closest)) return false;
    if (context_.data.findNearbyGeofences(place.latitude, place.longitude).empty()) {
        return !context_.settings.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion;
    }
    startMonitoringLocalRegions();
    return true;
}

void GeofenceRouter::update(const Coordinate& place, bool inFull) {
    if (std::exchange(forceFullGeofencesUpdate_, false) || inFull) return updateInFull(place);
    context_.updater.performGeofencesDataUpdateIfNeeded(areaAround(place));
    const auto uuid = Uuid::parse(context_.settings.beaconProximityUUIDNormal).value_or(Uuid());
    context_.updater.performBeaconsDataUpdateIfNeeded({uuid});
    context_.session.logNotificationAuthorizationStatusIfNeeded();
}

/// A download that waits takes the new place over: then the choice of regions that it brings is enough.
void GeofenceRouter::updateInFull(const Coordinate& place) {
    QuomiDataUpdater::Success choose;
    if (awaitedChoice_.expired()) {
        const auto awaited = std::make_shared<AwaitedChoice>();
        awaitedChoice_ = awaited;
        choose = lifetime_.guard([this, awaited](bool) {
            awaitedChoice_.reset();
            startMonitoringLocalRegions();
        });
    }
    context_.updater.performFullGeofencesDataUpdate(areaAround(place), choose);
}

// The choice of regions

/// Off the map, and error 8 for the host, while geofences are switched off; the equator off Africa when no position is
/// known.
Coordinate GeofenceRouter::currentCoordinate() {
    if (!context_.settings.geofencingEnabled) {
        context_.host.forwardErrorToDelegate(errors_.errorWithCode(ErrorCode::geofencesDisabled));
        return {-1, -1};
    }
    const auto* manager = context_.session.locationManager();
    return manager != nullptr && manager->currentLocation() ? manager->currentLocation()->coordinate : Coordinate{};
}

std::vector<CircularRegion> GeofenceRouter::getLocalRegions() {
    Coordinate place;
    std::vector<CircularRegion> regions;
    // Asked for each of the two degrees, so the host hears of disabled geofences twice: deliberate.
    lifetime_.inTurn([&] { place.latitude = currentCoordinate().latitude; },
                     [&] { place.longitude = currentCoordinate().longitude; },
                     [&] {
                         regions = QuomiRegionTypeConverter::convertRegionsToCLRegions(
                             context_.data.findNearbyGeofences(place.latitude, place.longitude));
                     });
    return regions;
}

bool GeofenceRouter::startMonitoringLocalRegions(std::optional<Error>* error) {
    const auto local = getLocalRegions();
    auto* manager = context_.session.locationManager();
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
    if (error.code != kRegionMonitoringFailure) return;
    const auto* manager = context_.session.locationManager();
    if (manager == nullptr || manager->regionIsMonitored(regionIdentifier(region))) return;
    const bool isFirst = refusedRegions_.empty();
    refusedRegions_.insert(regionIdentifier(region));
    if (isFirst) context_.platform.runLoop.post(lifetime_.guard([this] { tellOfRefusedRegions(); }));
}

void GeofenceRouter::tellOfRefusedRegions() {
    const auto count = std::exchange(refusedRegions_, {}).size();
    context_.platform.console.log(
        fmt::format("Quomi SDK Warning: {} nearby {} not watched, because the phone can't watch more regions", count,
                    count == 1 ? "geofence is" : "geofences are"));
}

// Entries and exits

void GeofenceRouter::handleEntry(const CircularRegion& region) {
    // What happens in the background is not waited for, and an unknown geofence counts as done. One that is outside its
    // dates or hours does not, so the host of an active app is not told of it.
    bool isDone = true;
    const auto geofence = context_.data.getGeofenceById(region.identifier);
    const bool isEnabled = geofence != nullptr && geofence->enabled;
    lifetime_.inTurn(
        [&] {
            if (isEnabled) logEntry(*geofence);
        },
        [&] {
            if (isEnabled)
                isDone = perform(geofence, &QuomiGeofenceActionExecutor::executeGeofenceEnteredActions, true);
        },
        [&] { startMonitoringLocalRegions(); },
        [&] {
            if (isDone) context_.host.tell(&QuomiSDKDelegate::didReceiveEnterRegionNotification, region);
        });
}

void GeofenceRouter::logEntry(const QuomiGeofence& geofence) const {
    context_.session.logEvent({{"type", "view"},
                               {"trigger", kTriggerOnEntry},
                               {"area_type", "geofence"},
                               {"geofence_id", geofence.geofenceId}});
}

void GeofenceRouter::handleExit(const Region& region) {
    bool isDone = false;
    const auto geofence = context_.data.getGeofenceById(regionIdentifier(region));
    const auto* circle = std::get_if<CircularRegion>(&region);
    lifetime_.inTurn(
        [&] {
            const bool isKnown = geofence != nullptr;
            context_.updater.performGeofencesDataUpdateIfNeeded(
                isKnown ? UpdateArea{geofence->latitude, geofence->longitude, geofence->radius} : UpdateArea());
            if (!isKnown || !geofence->enabled) return;
            isDone = perform(geofence, &QuomiGeofenceActionExecutor::executeGeofenceExitedActions, false);
        },
        [&] {
            if (geofence != nullptr) startMonitoringLocalRegions();
        },
        [&] {
            if (isDone && circle != nullptr) {
                context_.host.tell(&QuomiSDKDelegate::didReceiveExitRegionNotification, *circle);
            }
        },
        [&] { context_.session.logNotificationAuthorizationStatusIfNeeded(); });
}

/// Runs the rules as the app's state allows. The result of an active app's rules; `otherwise` in every other state.
bool GeofenceRouter::perform(const Geofence& geofence, Execute execution, bool otherwise) {
    const auto state = context_.platform.application.state();
    if (state == ApplicationState::active) return execute(geofence, execution);
    if (state == ApplicationState::background) performInBackground(geofence->geofenceId, execution);
    return otherwise;
}

bool GeofenceRouter::execute(const Geofence& geofence, Execute execution) {
    bool isDone = false;
    lifetime_.inTurn([&] { executor_.clearAllTimersForGeofenceId(geofence->geofenceId); },
                     [&] { isDone = (executor_.*execution)(geofence, nullptr); });
    return isDone;
}

// In the background

void GeofenceRouter::performInBackground(const std::string& geofenceId, Execute execution) {
    const auto work = std::make_shared<Work>();
    work->geofenceId = geofenceId;
    work->execute = execution;
    works_.push_back(work);
    work->task = context_.platform.application.beginBackgroundTask(lifetime_.guard([this, weak = std::weak_ptr(work)] {
        if (const auto expired = weak.lock()) expire(expired);
    }));
    context_.platform.runLoop.postToGlobalQueue(lifetime_.guard([this, work] { run(work); }));
}

/// Work that has not begun is done all the same when its turn comes, but waits for nothing.
void GeofenceRouter::expire(const std::shared_ptr<Work>& work) {
    work->isExpired = true;
    endTask(*work);
    if (work->hasBegun) finish(work);
}

void GeofenceRouter::endTask(Work& work) const {
    context_.platform.application.endBackgroundTask(std::exchange(work.task, kBackgroundTaskInvalid));
}

void GeofenceRouter::run(const std::shared_ptr<Work>& work) {
    work->hasBegun = true;
    context_.data.startBackgroundObjectContext();
    lifetime_.inTurn(
        [&] {
            const auto geofence = context_.data.getGeofenceById(work->geofenceId);
            if (geofence != nullptr) execute(geofence, work->execute);
        },
        [&] { waitForRequests(work); });
}

void GeofenceRouter::waitForRequests(const std::shared_ptr<Work>& work) {
    if (work->isExpired || context_.session.requestQueueCount() == 0) {
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
    endTask(*work);
}

}  // namespace quomi
