#pragma once

#include "quomi/util/error.h"
#include "quomi/util/time.h"

#include <functional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiSDK;
struct CircularRegion;
struct Location;
struct NotificationRequest;

/// What the host may want to hear and decide. An empty function is an operation that the host does not implement; one
/// that throws counts as empty. All are called on the host's thread, with the facade first; every operation of the
/// facade may be called from inside.
struct QuomiSDKDelegate {
    /// Every error that the SDK reports.
    std::function<void(QuomiSDK&, const Error&)> didReceiveErrorNotification;
    /// An event was accepted into the event log.
    std::function<void(QuomiSDK&, const boost::json::object& event, WallTime time)> didLogEvent;

    /// The device entered or left the region of a proximity UUID (its text, upper case).
    std::function<void(QuomiSDK&, const std::string& uuid, const boost::json::object& userInfo)> didEnterBeaconRegion;
    std::function<void(QuomiSDK&, const std::string& uuid, const boost::json::object& userInfo)> didExitBeaconRegion;
    /// A beacon, by its name; `userInfo` is QuomiBeacon::dictionary().
    std::function<void(QuomiSDK&, const std::string& beacon, const boost::json::object& userInfo)> didFindNewBeacon;
    std::function<void(QuomiSDK&, const std::string& beacon, const boost::json::object& userInfo)> didLoseBeaconSignal;
    std::function<void(QuomiSDK&, const std::string& beacon, const boost::json::object& userInfo)> didUpdateBeacon;
    std::function<void(QuomiSDK&, const std::string& beacon, const boost::json::object& userInfo)>
        didReceivePingFromBeacon;

    /// The device is somewhere else.
    std::function<void(QuomiSDK&, const Location&)> didReceiveLocationChange;
    /// The device entered a geofence's region. Not told while the app is active and the geofence is outside its dates
    /// or opening hours. Told in every other case, before its rules have run in the background, or without any.
    std::function<void(QuomiSDK&, const CircularRegion&)> didReceiveEnterRegionNotification;
    /// The device left a geofence's region, and its rules have been judged while the app was active. Not told of a
    /// geofence outside its dates or opening hours.
    std::function<void(QuomiSDK&, const CircularRegion&)> didReceiveExitRegionNotification;

    // Actions of rules and of servers' answers. The first group decides: false, and the action is not performed. The
    // second performs: the SDK then does not. `triggeredBy` is 1 for a geofence and 2 for a beacon.

    /// Decides in its own time, by calling the block once, on the host's thread, from inside or later; further calls
    /// are ignored, and so is one after `stop`. Without a call the notification never appears. Where this one is
    /// implemented, the one without a block is not asked.
    std::function<void(QuomiSDK&, const NotificationRequest&, int triggeredBy,
                       std::function<void(bool)> completionBlock)>
        shouldExecuteNotificationRequestCompletionBlock;
    std::function<bool(QuomiSDK&, const NotificationRequest&, int triggeredBy)> shouldExecuteNotificationRequest;
    std::function<bool(QuomiSDK&, const std::string& url, int triggeredBy)> shouldExecuteOpenWebPageRequest;
    std::function<bool(QuomiSDK&, const std::string& url, int triggeredBy)> shouldExecuteOpenDeepLinkRequest;
    std::function<bool(QuomiSDK&, const std::string& url, int triggeredBy)> shouldExecuteServerNotificationRequest;

    /// To be posted to the notification centre, now or changed.
    std::function<void(QuomiSDK&, const NotificationRequest&, int triggeredBy)> executeNotificationRequest;
    std::function<void(QuomiSDK&, const std::string& url, int triggeredBy)> executeOpenWebPageRequest;
    std::function<void(QuomiSDK&, const std::string& url, int triggeredBy)> executeOpenDeepLinkRequest;
    /// Calls one of the blocks, once, on the host's thread, from inside or later; further calls are ignored. The
    /// rule's other actions never run: deliberate, a host that asks the server itself acts on the answer itself.
    std::function<void(QuomiSDK&, const std::string& url, int triggeredBy, std::function<void()> success,
                       std::function<void(const Error&)> failure)>
        executeServerNotificationRequest;
};

}  // namespace quomi
