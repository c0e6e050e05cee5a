#pragma once

#include "quomi/location/location_manager.h"
#include "quomi/platform/application.h"
#include "quomi/sdk/routing_context.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace quomi {

class QuomiErrors;
class QuomiGeofenceActionExecutor;
class Timer;
struct QuomiGeofence;

/// Where the location manager's news go: a new position decides what is downloaded and which geofences the phone
/// watches; an entry or exit runs the rules of the geofence, in the background as work under a background task.
///
/// Background work waits, without blocking anything, until no request is pending, so that what the rules asked servers
/// arrives before the phone stops the app. Host's thread.
class GeofenceRouter : public QuomiLocationDelegate {
public:
    /// What it is given outlives the router, or the router is ended before it goes.
    GeofenceRouter(const RoutingContext& context, QuomiGeofenceActionExecutor& executor, const QuomiErrors& errors);
    ~GeofenceRouter();
    GeofenceRouter(const GeofenceRouter&) = delete;
    GeofenceRouter& operator=(const GeofenceRouter&) = delete;

    /// From now on nothing is passed on; background work that waits ends with its task.
    void end();

    /// The next position downloads the geofences around it in full.
    void setForceFullGeofencesUpdate() { forceFullGeofencesUpdate_ = true; }
    /// Handles the position as if it had just been reported.
    void handleLocation(const Location& location);

private:
    /// One entry or exit that is handled in the background.
    struct Work;
    struct AwaitedChoice {};
    using Geofence = std::shared_ptr<QuomiGeofence>;
    using Execute = bool (QuomiGeofenceActionExecutor::*)(const Geofence&, std::optional<Error>*);

    void handleEntry(const CircularRegion& region);
    void handleExit(const Region& region);
    void logEntry(const QuomiGeofence& geofence) const;
    [[nodiscard]] bool perform(const Geofence& geofence, Execute execute, bool otherwise);
    bool execute(const Geofence& geofence, Execute execute);
    void performInBackground(const std::string& geofenceId, Execute execute);
    void expire(const std::shared_ptr<Work>& work);
    void endTask(Work& work) const;
    void run(const std::shared_ptr<Work>& work);
    void waitForRequests(const std::shared_ptr<Work>& work);
    void finish(const std::shared_ptr<Work>& work);

    bool startMonitoringLocalRegions(std::optional<Error>* error = nullptr);
    void countRefusedRegion(const Region& region, const PlatformError& error);
    void tellOfRefusedRegions();
    [[nodiscard]] std::vector<CircularRegion> getLocalRegions();
    [[nodiscard]] Coordinate currentCoordinate();
    [[nodiscard]] bool watchStoredGeofences(const Coordinate& place);
    void update(const Coordinate& place, bool inFull);
    void updateInFull(const Coordinate& place);

    const RoutingContext context_;
    QuomiGeofenceActionExecutor& executor_;
    const QuomiErrors& errors_;
    bool forceFullGeofencesUpdate_ = false;
    std::weak_ptr<AwaitedChoice> awaitedChoice_;  // there while a download is to be followed by a choice of regions
    std::set<std::string> refusedRegions_;        // since they were last spoken of
    std::vector<std::shared_ptr<Work>> works_;
    Lifetime lifetime_;
};

}  // namespace quomi
