#pragma once

#include "quomi/util/error.h"
#include "quomi/util/time.h"

#include <functional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiSDK;

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
};

}  // namespace quomi
