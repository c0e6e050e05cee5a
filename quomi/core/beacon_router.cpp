#include "quomi/core/beacon_router.h"

#include "quomi/core/host_delegate.h"

#include <string>
#include <utility>

#include <boost/json/object.hpp>

namespace quomi {

namespace {

constexpr const char* kOnEntry = "on_entry";
constexpr const char* kOnExit = "on_exit";

template <class Operation>
void tellOfRegion(const HostDelegate& host, Operation operation, const BeaconRegion& region) {
    host.tell(operation, region.proximityUUID.string(), boost::json::object());
}

/// The beacon's dictionary is made only for a host that wants it: thousands of reports a second may come by here.
template <class Operation>
void tellOfBeacon(const HostDelegate& host, Operation operation, const QuomiBeacon& beacon) {
    if (host.implements(operation)) host.tell(operation, beacon.name(), beacon.dictionary());
}

}  // namespace

BeaconRouter::BeaconRouter(const HostDelegate& host, LogEvent logEvent, LogNotificationRights logNotificationRights)
    : host_(host), logEvent_(std::move(logEvent)), logNotificationRights_(std::move(logNotificationRights)) {
    didEnterBeaconRegion = [this](const BeaconRegion& region) {
        tellOfRegion(host_, &QuomiSDKDelegate::didEnterBeaconRegion, region);
        logRegionEvent(kOnEntry, region);
        finish();
    };
    didExitBeaconRegion = [this](const BeaconRegion& region) {
        tellOfRegion(host_, &QuomiSDKDelegate::didExitBeaconRegion, region);
        logRegionEvent(kOnExit, region);
        finish();
    };
    didFindBeacon = [this](const QuomiBeacon& beacon) {
        tellOfBeacon(host_, &QuomiSDKDelegate::didFindNewBeacon, beacon);
        logBeaconEvent(kOnEntry, beacon);
        finish();
    };
    didLoseBeacon = [this](const QuomiBeacon& beacon) {
        tellOfBeacon(host_, &QuomiSDKDelegate::didLoseBeaconSignal, beacon);
        logBeaconEvent(kOnExit, beacon);
        finish();
    };
    didUpdateBeacon = [this](const QuomiBeacon& beacon, QuomiProximity, double, QuomiProximity, double) {
        tellOfBeacon(host_, &QuomiSDKDelegate::didUpdateBeacon, beacon);
        finish();
    };
    didReceivePingFromBeacon = [this](const QuomiBeacon& beacon) {
        tellOfBeacon(host_, &QuomiSDKDelegate::didReceivePingFromBeacon, beacon);
    };
}

void BeaconRouter::finish() const {
    if (!ended_) logNotificationRights_();
}

void BeaconRouter::logRegionEvent(const char* trigger, const BeaconRegion& region) const {
    if (ended_) return;
    logEvent_({{"type", "region"},
               {"trigger", trigger},
               {"area_type", "beacon"},
               {"proximity_uuid", region.proximityUUID.string()}});
}

void BeaconRouter::logBeaconEvent(const char* trigger, const QuomiBeacon& beacon) const {
    if (ended_) return;
    logEvent_({{"type", "view"},
               {"trigger", trigger},
               {"area_type", "beacon"},
               {"proximity_uuid", beacon.proximityUUID().string()},
               {"major", std::to_string(beacon.major())},
               {"minor", std::to_string(beacon.minor())}});
}

}  // namespace quomi
