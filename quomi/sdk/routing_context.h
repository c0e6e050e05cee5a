#pragma once

#include <cstddef>

#include <boost/json/fwd.hpp>

namespace quomi {

class HostDelegate;
class QuomiData;
class QuomiDataUpdater;
class QuomiLocationManager;
struct Platform;
struct QuomiSettings;

/// What the routers of beacon and geofence events ask of the session that has made them.
class RoutingSession {
public:
    /// Takes an event for the event log. The host is told of it, and may stop the SDK.
    virtual void logEvent(const boost::json::object& event) = 0;
    /// Looks at the notification rights again and logs them, in a later turn, when they have changed.
    virtual void logNotificationAuthorizationStatusIfNeeded() = 0;
    /// Null while location is off.
    [[nodiscard]] virtual QuomiLocationManager* locationManager() const = 0;
    /// Requests that have not ended, waiting ones included.
    [[nodiscard]] virtual std::size_t requestQueueCount() const = 0;

protected:
    ~RoutingSession() = default;
};

/// What the routers use. All of it outlives them, or they are ended before it goes.
struct RoutingContext {
    const Platform& platform;
    const QuomiSettings& settings;
    const HostDelegate& host;
    QuomiData& data;
    QuomiDataUpdater& updater;
    RoutingSession& session;
};

}  // namespace quomi
