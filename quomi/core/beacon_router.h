#pragma once

#include "quomi/beacons/beacon_manager.h"

#include <functional>
#include <memory>

#include <boost/json/fwd.hpp>

namespace quomi {

class HostDelegate;

/// Where the beacon manager's news go: to the host's delegate and into the event log, in this order. After all that is
/// more than a ping, the notification rights are looked at again.
class BeaconRouter : public QuomiBeaconManagerDelegate {
public:
    using LogEvent = std::function<void(const boost::json::object&)>;
    using LogNotificationRights = std::function<void()>;

    /// The host outlives the router.
    BeaconRouter(const HostDelegate& host, LogEvent logEvent, LogNotificationRights logNotificationRights);
    BeaconRouter(const BeaconRouter&) = delete;
    BeaconRouter& operator=(const BeaconRouter&) = delete;

    /// From now on nothing is passed on.
    void end() { ended_ = true; }

private:
    void logRegionEvent(const char* trigger, const BeaconRegion& region) const;
    void logBeaconEvent(const char* trigger, const QuomiBeacon& beacon) const;
    void finish() const;

    const HostDelegate& host_;
    LogEvent logEvent_;
    LogNotificationRights logNotificationRights_;
    bool ended_ = false;
};

}  // namespace quomi
