#pragma once

#include <functional>

#include <boost/json/fwd.hpp>

namespace quomi {

class HostDelegate;
class QuomiData;
class QuomiDataUpdater;
struct Platform;
struct QuomiSettings;

/// What the routers of beacon and geofence events are lent. All of it outlives them, or they are ended before it goes.
struct RoutingContext {
    const Platform& platform;
    const QuomiSettings& settings;
    const HostDelegate& host;
    QuomiData& data;
    QuomiDataUpdater& updater;
    /// Takes an event for the event log; the host is told of it.
    std::function<void(const boost::json::object&)> logEvent;
    /// Looks at the notification rights again and logs them when they have changed.
    std::function<void()> logNotificationRights;
};

}  // namespace quomi
