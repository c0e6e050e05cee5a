#pragma once

#include "quomi/beacons/beacon_manager.h"

#include <functional>
#include <memory>

#include <boost/json/fwd.hpp>

namespace quomi {

class HostDelegate;

/// Where the beacon manager's news go: to the host's delegate and into the event log, in this order.
class BeaconRouter : public QuomiBeaconManagerDelegate {
public:
    using LogEvent = std::function<void(const boost::json::object&)>;

    /// The host outlives the router.
    BeaconRouter(const HostDelegate& host, LogEvent logEvent);
    BeaconRouter(const BeaconRouter&) = delete;
    BeaconRouter& operator=(const BeaconRouter&) = delete;

    /// From now on nothing is passed on.
    void end() { ended_ = true; }

private:
    void logRegionEvent(const char* trigger, const BeaconRegion& region) const;
    void logBeaconEvent(const char* trigger, const QuomiBeacon& beacon) const;

    const HostDelegate& host_;
    LogEvent logEvent_;
    bool ended_ = false;
};

}  // namespace quomi
