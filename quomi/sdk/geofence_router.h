#pragma once

#include "quomi/location/location_manager.h"
#include "quomi/platform/application.h"
#include "quomi/sdk/routing_context.h"
#include "quomi/util/error.h"

#include <cstddef>
#include <functional>
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

/// What the router of geofence events needs beside what all routers do.
struct GeofenceRouting {
    QuomiGeofenceActionExecutor& executor;
    const QuomiErrors& errors;
    /// Null while location is off.
    std::function<QuomiLocationManager*()> locationManager;
    /// Requests that have not ended, waiting ones included.
    std::function<std::size_t()> requestQueueCount;
};

/// Where the location manager's news go: a new position decides what is downloaded and which geofences the phone
/// watches; an entry or exit runs the rules of the geofence, in the background as work under a background task.
///
/// Background work waits, without blocking anything, until no request is pending, so that what the rules asked servers
/// arrives before the phone stops the app. Made with `std::make_shared`. Host's thread.
class GeofenceRouter : public QuomiLocationDelegate, public std::enable_shared_from_this<GeofenceRouter> {
public:
    GeofenceRouter(RoutingContext context, GeofenceRouting routing);
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
    using Perform = bool (GeofenceRouter::*)(const std::shared_ptr<QuomiGeofence>&, std::optional<Error>*);

    void handleEntry(const CircularRegion& region);
    void handleExit(const Region& region);
    [[nodiscard]] bool performGeofenceEnterActions(const std::shared_ptr<QuomiGeofence>& geofence,
                                                   std::optional<Error>* error);
    [[nodiscard]] bool performGeofenceExitActions(const std::shared_ptr<QuomiGeofence>& geofence,
                                                  std::optional<Error>* error);
    void performInBackground(const std::string& geofenceId, Perform perform);
    void run(const std::shared_ptr<Work>& work);
    void waitForRequests(const std::shared_ptr<Work>& work);
    void finish(const std::shared_ptr<Work>& work);

    bool startMonitoringLocalRegions(std::optional<Error>* error = nullptr);
    void countRefusedRegion(const Region& region, const PlatformError& error);
    [[nodiscard]] std::vector<CircularRegion> getLocalRegions();
    [[nodiscard]] std::optional<Coordinate> currentCoordinate();
    void updateInFull(const Coordinate& place);

    const RoutingContext context_;
    const GeofenceRouting routing_;
    bool ended_ = false;
    bool forceFullGeofencesUpdate_ = false;
    std::set<std::string> refusedRegions_;  // since they were last spoken of
    std::vector<std::shared_ptr<Work>> works_;
};

}  // namespace quomi
