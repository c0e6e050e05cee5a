#pragma once

#include "quomi/beacons/beacon_manager.h"
#include "quomi/beacons/beacon_service_manager.h"
#include "quomi/sdk/routing_context.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class BatteryAlertQueue;
class QuomiBeaconActionExecutor;
struct QuomiBeaconData;
struct UpdateBeacons;

/// Where the beacon manager's news go, in this order: to the host's delegate, into the event log, to the rules of the
/// beacon's records of the app's namespace, and to the updater; then the notification rights are looked at again. A
/// ping goes to the delegate only. A lookup that fails is told to the host and ends the handling.
class BeaconRouter : public QuomiBeaconManagerDelegate {
public:
    BeaconRouter(const RoutingContext& context, QuomiBeaconActionExecutor& executor);
    BeaconRouter(const BeaconRouter&) = delete;
    BeaconRouter& operator=(const BeaconRouter&) = delete;

    /// From now on nothing is passed on, not even by a handler that is under way.
    void end() { lifetime_.end(); }

private:
    using Records = std::vector<std::shared_ptr<QuomiBeaconData>>;
    using Execute = std::function<bool(const std::shared_ptr<QuomiBeaconData>&, std::optional<Error>*)>;

    void route(const BeaconRegion& region, const Execute& execute);
    void route(const QuomiBeacon& beacon, const Execute& execute);
    void execute(const Records& records, const std::optional<Error>& lookupError, const UpdateBeacons& update,
                 const Execute& execute);
    bool executeAll(const Records& records, const Execute& execute) const;
    void logRegionEvent(const char* trigger, const BeaconRegion& region) const;
    [[nodiscard]] Records recordsOf(const QuomiBeacon& beacon, std::optional<Error>* error) const;
    void logBeaconEvent(const char* trigger, const QuomiBeacon& beacon) const;

    const RoutingContext context_;
    QuomiBeaconActionExecutor& executor_;
    Lifetime lifetime_;
};

/// Where the service beacon manager's news go: into the queue of battery alerts.
class BeaconServiceRouter : public QuomiBeaconServiceManagerDelegate {
public:
    /// The queue outlives the router.
    BeaconServiceRouter(const RoutingContext& context, BatteryAlertQueue& alerts);

private:
    const RoutingContext context_;
    BatteryAlertQueue& alerts_;
};

}  // namespace quomi
