#include "quomi/sdk/beacon_router.h"

#include "quomi/beacons/beacon_security.h"
#include "quomi/data/data.h"
#include "quomi/data/data_updater.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/rules/beacon_rule_executor.h"
#include "quomi/sdk/battery_alerts.h"
#include "quomi/sdk/host_delegate.h"

#include <algorithm>
#include <string>

#include <boost/json/object.hpp>

namespace quomi {

namespace {

using Record = std::shared_ptr<QuomiBeaconData>;
using ErrorSlot = std::optional<Error>*;

/// The beacon's dictionary is made only for a host that wants it: thousands of reports a second may come by here.
template <class Operation>
void tellOfBeacon(const HostDelegate& host, Operation operation, const QuomiBeacon& beacon) {
    if (host.implements(operation)) host.tell(operation, beacon.name(), beacon.dictionary());
}

template <class Operation>
void tellOfRegion(const HostDelegate& host, Operation operation, const BeaconRegion& region) {
    host.tell(operation, region.proximityUUID.string(), boost::json::object());
}

}  // namespace

BeaconRouter::BeaconRouter(const RoutingContext& context, QuomiBeaconActionExecutor& executor)
    : context_(context), executor_(executor) {
    // In each: to the host, into the event log, to the rules. Every one of them may end this object.
    didEnterBeaconRegion = [this](const BeaconRegion& region) {
        lifetime_.inTurn([&] { tellOfRegion(context_.host, &QuomiSDKDelegate::didEnterBeaconRegion, region); },
                         [&] { logRegionEvent(kTriggerOnEntry, region); },
                         [&] {
                             route(region, [this](const Record& record, ErrorSlot error) {
                                 return executor_.executeRegionEnteredActions(record, error);
                             });
                         });
    };
    didExitBeaconRegion = [this](const BeaconRegion& region) {
        lifetime_.inTurn([&] { tellOfRegion(context_.host, &QuomiSDKDelegate::didExitBeaconRegion, region); },
                         [&] { logRegionEvent(kTriggerOnExit, region); },
                         [&] {
                             route(region, [this](const Record& record, ErrorSlot error) {
                                 return executor_.executeRegionExitedActions(record, error);
                             });
                         });
    };
    didFindBeacon = [this](const QuomiBeacon& beacon) {
        lifetime_.inTurn([&] { tellOfBeacon(context_.host, &QuomiSDKDelegate::didFindNewBeacon, beacon); },
                         [&] { logBeaconEvent(kTriggerOnEntry, beacon); },
                         [&] {
                             route(beacon,
                                   [this, proximity = beacon.proximity()](const Record& record, ErrorSlot error) {
                                       return executor_.executeBeaconFoundActions(record, proximity, error);
                                   });
                         });
    };
    didLoseBeacon = [this](const QuomiBeacon& beacon) {
        lifetime_.inTurn([&] { tellOfBeacon(context_.host, &QuomiSDKDelegate::didLoseBeaconSignal, beacon); },
                         [&] { logBeaconEvent(kTriggerOnExit, beacon); },
                         [&] {
                             route(beacon,
                                   [this, proximity = beacon.proximity()](const Record& record, ErrorSlot error) {
                                       return executor_.executeBeaconLostActions(record, proximity, error);
                                   });
                         });
    };
    // The beacon's own accuracy counts, not the one that is told: deliberate, they are the same unless a host changed
    // something meanwhile.
    didUpdateBeacon = [this](const QuomiBeacon& beacon, QuomiProximity oldProximity, double oldAccuracy,
                             QuomiProximity newProximity, double /*newAccuracy*/) {
        lifetime_.inTurn([&] { tellOfBeacon(context_.host, &QuomiSDKDelegate::didUpdateBeacon, beacon); },
                         [&] {
                             route(beacon, [&, accuracy = beacon.accuracy()](const Record& record, ErrorSlot error) {
                                 return executor_.executeBeaconProximityChangedActions(
                                     record, oldProximity, oldAccuracy, newProximity, accuracy, error);
                             });
                         });
    };
    didReceivePingFromBeacon = [this](const QuomiBeacon& beacon) {
        tellOfBeacon(context_.host, &QuomiSDKDelegate::didReceivePingFromBeacon, beacon);
    };
}

void BeaconRouter::route(const BeaconRegion& region, const Execute& operation) {
    std::optional<Error> error;
    const auto records =
        context_.data.getBeaconsByProximityUUID(region.proximityUUID, std::nullopt, std::nullopt, &error);
    execute(records, error, {region.proximityUUID}, operation);
}

void BeaconRouter::route(const QuomiBeacon& beacon, const Execute& operation) {
    std::optional<Error> error;
    const auto records = recordsOf(beacon, &error);
    execute(records, error, {beacon.proximityUUID(), beacon.major(), beacon.minor()}, operation);
}

void BeaconRouter::execute(const Records& records, const std::optional<Error>& lookupError, const UpdateBeacons& update,
                           const Execute& operation) {
    if (lookupError) {
        context_.host.forwardErrorToDelegate(lookupError);
        return;
    }
    if (!executeAll(records, operation)) return;
    context_.updater.performBeaconsDataUpdateIfNeeded(update);
    context_.session.logNotificationAuthorizationStatusIfNeeded();
}

/// False when this object has ended meanwhile.
bool BeaconRouter::executeAll(const Records& records, const Execute& operation) const {
    return std::ranges::all_of(records, [&](const auto& record) {
        if (record->namespace_ != context_.settings.namespace_) return true;
        std::optional<Error> failure;
        return lifetime_.inTurn([&] { operation(record, &failure); },
                                [&] {
                                    if (failure) context_.host.forwardErrorToDelegate(failure);
                                });
    });
}

/// A secure beacon's minor is a code of the day: its record is found by major, and by the code that it would have.
BeaconRouter::Records BeaconRouter::recordsOf(const QuomiBeacon& beacon, std::optional<Error>* error) const {
    const int major = beacon.major();
    const int minor = beacon.minor();
    if (!beacon.isSecure()) {
        return context_.data.getBeaconsByProximityUUID(beacon.proximityUUID(), major, minor, error);
    }
    const auto now = context_.platform.clock.now();
    const auto zone = context_.platform.clock.timeZone();
    const auto isMatching = [&](const QuomiBeaconData& candidate) {
        return QuomiBeaconSecurity::isAdvertisementMatchingCRCCode(
            static_cast<std::uint16_t>(minor), now, zone, candidate.serialNumber.value_or(""),
            candidate.sharedSecret.value_or(""), static_cast<std::uint16_t>(major), true);
    };
    return context_.data.getBeaconsByProximityUUID(beacon.proximityUUID(), major, isMatching, error);
}

void BeaconRouter::logRegionEvent(const char* trigger, const BeaconRegion& region) const {
    context_.session.logEvent({{"type", "region"},
                               {"trigger", trigger},
                               {"area_type", "beacon"},
                               {"proximity_uuid", region.proximityUUID.string()}});
}

void BeaconRouter::logBeaconEvent(const char* trigger, const QuomiBeacon& beacon) const {
    context_.session.logEvent({{"type", "view"},
                               {"trigger", trigger},
                               {"area_type", "beacon"},
                               {"proximity_uuid", beacon.proximityUUID().string()},
                               {"major", std::to_string(beacon.major())},
                               {"minor", std::to_string(beacon.minor())}});
}

BeaconServiceRouter::BeaconServiceRouter(const RoutingContext& context, BatteryAlertQueue& alerts)
    : context_(context), alerts_(alerts) {
    // The check code is not looked at, deliberately: the server knows its beacons by their service identifiers.
    didFindLowBatteryAdvertisement = [this](const Uuid& proximityUUID, std::uint16_t serviceID,
                                            std::uint16_t /*crc16Code*/) {
        auto alert = std::make_shared<QuomiBatteryAlert>();
        alert->date = context_.platform.clock.now();
        alert->appNamespace = context_.settings.namespace_.value_or("");
        alert->proximityUUID = proximityUUID.string();
        alert->serviceID = std::to_string(serviceID);
        alerts_.sendBatteryAlert(alert);
    };
}

}  // namespace quomi
