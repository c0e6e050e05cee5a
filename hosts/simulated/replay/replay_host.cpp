#include "hosts/simulated/replay/replay_host.h"

#include "hosts/simulated/replay/setting_fields.h"
#include "hosts/simulated/simulated_phone.h"
#include "hosts/simulated/visit/visit.h"
#include "quomi/model/settings.h"
#include "quomi/sdk/authorization_manager.h"
#include "quomi/sdk/sdk.h"
#include "quomi/util/ascii.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/value_to.hpp>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

/// What a call came to; the record's fields.
struct Outcome {
    json::value result;
    std::optional<Error> error;
};

using Call = std::function<Outcome(ReplayHost& host, const json::value& with)>;

std::optional<std::string> textOrNil(const json::value& with) {
    if (!with.is_string()) return std::nullopt;
    return std::string(with.get_string());
}

/// A call with a URL that says whether it was opened.
Call opener(bool (QuomiSDK::*operation)(const std::string&)) {
    return [operation](ReplayHost& host, const json::value& with) {
        return Outcome{json::value((host.sdk().*operation)(textOrNil(with).value_or(""))), {}};
    };
}

/// The user opens the notification that was posted last; nothing when there is none.
Outcome openNotification(ReplayHost& host, const json::value&) {
    const auto& notifications = host.phone().notifications();
    if (notifications.empty()) return {};
    const NotificationRequest opened = notifications.back();
    host.sdk().executeNotificationRequestActions(opened);
    return {};
}

/// A call of a boolean property.
Call setter(void (QuomiSDK::*operation)(bool)) {
    return [operation](ReplayHost& host, const json::value& with) {
        (host.sdk().*operation)(with.get_bool());
        return Outcome{};
    };
}

void writeCallback(const Trace& trace, const char* call, const char* outcome, const std::optional<Error>& error) {
    trace.write("callback", call, {{"outcome", outcome}, {"error", traceError(error)}});
}

/// The blocks that the host gives to a call.
struct Blocks {
    std::function<void()> success;
    std::function<void(const Error&)> failure;
};

Blocks tracingBlocks(const Trace& trace, const char* call) {
    return {[&trace, call] { writeCallback(trace, call, "success", std::nullopt); },
            [&trace, call](const Error& error) { writeCallback(trace, call, "failure", error); }};
}

Outcome updateUserInformation(ReplayHost& host, const json::value&) {
    const auto blocks = tracingBlocks(host.trace(), "updateUserInformation");
    host.sdk().updateUserInformation(blocks.success, blocks.failure);
    return {};
}

Outcome registerToken(ReplayHost& host, const json::value& with) {
    const auto blocks = tracingBlocks(host.trace(), "registerCloudMessagingPushNotificationsDeviceToken");
    host.sdk().registerCloudMessagingPushNotificationsDeviceToken(textOrNil(with).value_or(""), blocks.success,
                                                                  blocks.failure);
    return {};
}

Outcome performServerSync(ReplayHost& host, const json::value&) {
    host.sdk().performServerSync([&trace = host.trace()](std::uint64_t outcome) {
        trace.write("callback", "performServerSync", {{"outcome", outcome}, {"error", nullptr}});
    });
    return {};
}

/// A call without arguments that may fail.
Call attempt(bool (QuomiSDK::*operation)(std::optional<Error>*)) {
    return [operation](ReplayHost& host, const json::value&) {
        Outcome outcome;
        outcome.result = (host.sdk().*operation)(&outcome.error);
        return outcome;
    };
}

/// A call without arguments or result.
Call order(void (QuomiSDK::*operation)()) {
    return [operation](ReplayHost& host, const json::value&) {
        (host.sdk().*operation)();
        return Outcome{};
    };
}

QuomiUser::Properties propertiesOf(const json::value& value) {
    return value.is_object() ? QuomiUser::Properties(value.get_object()) : std::nullopt;
}

QuomiUser::Tags tagsOf(const json::value& value) {
    if (!value.is_array()) return std::nullopt;
    return json::value_to<std::vector<std::string>>(value);
}

/// Sets those fields that the call names, in its order.
void setFields(QuomiUser& user, const json::object& fields) {
    for (const auto& [name, value] : fields) {
        if (name == "userID") user.setUserID(textOrNil(value));
        if (name == "properties") user.setProperties(propertiesOf(value));
        if (name == "tags") user.setTags(tagsOf(value));
    }
}

Outcome setUser(ReplayHost& host, const json::value& with) {
    std::shared_ptr<QuomiUser> user;
    if (with.is_object()) {
        user = std::make_shared<QuomiUser>();
        setFields(*user, with.get_object());
    }
    const auto blocks = tracingBlocks(host.trace(), "setUser");
    host.sdk().setUser(std::move(user), blocks.success, blocks.failure);
    return {};
}

Outcome changeUser(ReplayHost& host, const json::value& with) {
    if (const auto user = host.sdk().user()) setFields(*user, with.get_object());
    return {};
}

Call question(bool (QuomiAuthorizationManager::*operation)() const) {
    return [operation](ReplayHost& host, const json::value&) {
        return Outcome{json::value((host.authorizationManager().*operation)()), {}};
    };
}

template <class Operation>
Call prompt(Operation operation) {
    return [operation](ReplayHost& host, const json::value&) {
        (host.authorizationManager().*operation)();
        return Outcome{};
    };
}

const std::map<std::string_view, Call>& calls() {
    static const std::map<std::string_view, Call> table{
        {"start", attempt(&QuomiSDK::start)},
        {"stop", order(&QuomiSDK::stop)},
        {"performServerSync", performServerSync},
        {"updateAllRulesData", order(&QuomiSDK::updateAllRulesData)},
        {"triggerLocationUpdate", order(&QuomiSDK::triggerLocationUpdate)},
        {"updateLocation", attempt(&QuomiSDK::updateLocation)},
        {"resetCounters", attempt(&QuomiSDK::resetCounters)},
        {"removeAllData", attempt(&QuomiSDK::removeAllData)},
        {"setUser", setUser},
        {"changeUser", changeUser},
        {"updateUserInformation", updateUserInformation},
        {"openNotification", openNotification},
        {"openWebPageForUrl", opener(&QuomiSDK::openWebPageForUrl)},
        {"openDeepLinkForURL", opener(&QuomiSDK::openDeepLinkForURL)},
        {"registerCloudMessagingPushNotificationsDeviceToken", registerToken},
        {"setServerNotificationRequestHeader",
         [](ReplayHost& host, const json::value& with) {
             const auto& fields = with.get_object();
             host.sdk().setServerNotificationRequestHeader(textOrNil(fields.at("name")).value_or(""),
                                                           textOrNil(fields.at("value")));
             return Outcome{};
         }},
        {"isQuomiBeaconsServiceEnabled", question(&QuomiAuthorizationManager::isQuomiBeaconsServiceEnabled)},
        {"isQuomiGeofencesServiceEnabled", question(&QuomiAuthorizationManager::isQuomiGeofencesServiceEnabled)},
        {"isLocationServiceEnabled", question(&QuomiAuthorizationManager::isLocationServiceEnabled)},
        {"isBluetoothEnabled", question(&QuomiAuthorizationManager::isBluetoothEnabled)},
        {"isBackgroundRefreshEnabled", question(&QuomiAuthorizationManager::isBackgroundRefreshEnabled)},
        {"areAllNotificationRightsGranted", question(&QuomiAuthorizationManager::areAllNotificationRightsGranted)},
        {"isBannerNotificationRightGranted", question(&QuomiAuthorizationManager::isBannerNotificationRightGranted)},
        {"showEnableBluetoothAlert", prompt(&QuomiAuthorizationManager::showEnableBluetoothAlert)},
        {"showEnableLocationServiceUI", prompt(&QuomiAuthorizationManager::showEnableLocationServiceUI)},
        {"showEnableBackgroundRefreshUI", prompt(&QuomiAuthorizationManager::showEnableBackgroundRefreshUI)},
        {"setAppNamespace",
         [](ReplayHost& host, const json::value& with) {
             host.sdk().setAppNamespace(textOrNil(with));
             return Outcome{};
         }},
        {"setBaseURL",
         [](ReplayHost& host, const json::value& with) {
             host.sdk().setBaseURL(textOrNil(with).value_or(""));
             return Outcome{};
         }},
        {"setBeaconsEnabled", setter(&QuomiSDK::setBeaconsEnabled)},
        {"setGeofencesEnabled", setter(&QuomiSDK::setGeofencesEnabled)},
        {"setRequestWhenInUseAuthorization", setter(&QuomiSDK::setRequestWhenInUseAuthorization)},
        {"setUseExtendedBackgroundRangingTime", setter(&QuomiSDK::setUseExtendedBackgroundRangingTime)},
        {"setFileLogEnabled", setter(&QuomiSDK::setFileLogEnabled)},
        {"setEventLogsEnabled", setter(&QuomiSDK::setEventLogsEnabled)},
        {"setEnableIDFACollection", setter(&QuomiSDK::setEnableIDFACollection)},
        {"setSetting",
         [](ReplayHost& host, const json::value& with) {
             const auto& fields = with.get_object();
             setSetting(host.settings(), fields.at("name").get_string(), fields.at("value"));
             return Outcome{};
         }},
        {"logEvent",
         [](ReplayHost& host, const json::value& with) {
             host.sdk().logEvent(with.get_object());
             return Outcome{};
         }},
        {"getDebugFileContent",
         [](ReplayHost& host, const json::value&) {
             return Outcome{json::value(host.sdk().getDebugFileContent()), {}};
         }},
        {"clearDebugFile", order(&QuomiSDK::clearDebugFile)},
    };
    return table;
}

/// The name under which `app.properties` knows a property, to the call that sets it.
std::string setterName(const std::string& property) {
    std::string name = "set" + property;
    name[3] = upperCase(name[3]);
    return name;
}

/// What is not traced is not implemented, so that the SDK makes nothing for it.
std::shared_ptr<QuomiSDKDelegate> tracingDelegate(const Trace& trace, const TracedOperations& traces) {
    auto delegate = std::make_shared<QuomiSDKDelegate>();
    const auto implement = [&traces](auto& slot, const char* operation, auto traced) {
        if (!traces || traces(operation)) slot = traced;
    };
    implement(delegate->didReceiveErrorNotification, "didReceiveErrorNotification",
              [&trace](QuomiSDK&, const Error& error) {
                  trace.write("delegate", "didReceiveErrorNotification", {{"error", traceError(error)}});
              });
    implement(delegate->didLogEvent, "didLogEvent", [&trace](QuomiSDK&, const json::object& event, WallTime time) {
        trace.write("delegate", "didLogEvent", {{"event", event}, {"time", traceDate(time)}});
    });
    const auto about = [&](auto& slot, const char* operation, const char* key) {
        implement(slot, operation,
                  [&trace, operation, key](QuomiSDK&, const std::string& name, const json::object& userInfo) {
                      trace.write("delegate", operation, {{key, json::value(name)}, {"userInfo", userInfo}});
                  });
    };
    about(delegate->didEnterBeaconRegion, "didEnterBeaconRegion", "uuid");
    about(delegate->didExitBeaconRegion, "didExitBeaconRegion", "uuid");
    about(delegate->didFindNewBeacon, "didFindNewBeacon", "beacon");
    about(delegate->didLoseBeaconSignal, "didLoseBeaconSignal", "beacon");
    about(delegate->didUpdateBeacon, "didUpdateBeacon", "beacon");
    about(delegate->didReceivePingFromBeacon, "didReceivePingFromBeacon", "beacon");
    implement(delegate->didReceiveLocationChange, "didReceiveLocationChange",
              [&trace](QuomiSDK&, const Location& location) {
                  const auto& place = location.coordinate;
                  trace.write("delegate", "didReceiveLocationChange",
                              {{"location", {{"lat", place.latitude}, {"lng", place.longitude}}}});
              });
    const auto aboutRegion = [&](auto& slot, const char* operation) {
        implement(slot, operation, [&trace, operation](QuomiSDK&, const CircularRegion& region) {
            trace.write("delegate", operation, {{"region", traceRegion(region)}});
        });
    };
    aboutRegion(delegate->didReceiveEnterRegionNotification, "didReceiveEnterRegionNotification");
    aboutRegion(delegate->didReceiveExitRegionNotification, "didReceiveExitRegionNotification");
    return delegate;
}

std::shared_ptr<QuomiAuthorizationDelegate> tracingAuthorizationDelegate(const Trace& trace) {
    const auto about = [&trace](const char* operation) {
        return [&trace, operation](bool value) { trace.write("delegate", operation, {{"value", value}}); };
    };
    auto delegate = std::make_shared<QuomiAuthorizationDelegate>();
    delegate->bluetoothStatusDidChange = about("bluetoothStatusDidChange");
    delegate->locationServiceStatusDidChange = about("locationServiceStatusDidChange");
    delegate->backgroundRefreshStatusDidChange = about("backgroundRefreshStatusDidChange");
    delegate->quomiBeaconsServiceStatusDidChange = about("quomiBeaconsServiceStatusDidChange");
    delegate->quomiGeofencesServiceStatusDidChange = about("quomiGeofencesServiceStatusDidChange");
    return delegate;
}

}  // namespace

ReplayHost::ReplayHost(const Platform& platform, QuomiSDK& sdk, QuomiSettings& settings, const Trace& trace,
                       SimulatedPhone& phone, std::shared_ptr<const QuomiSDKDelegate> own,
                       const TracedOperations& traces)
    : platform_(platform),
      sdk_(sdk),
      settings_(settings),
      trace_(trace),
      phone_(phone),
      deciding_(trace, platform.runLoop),
      own_(std::move(own)),
      delegate_(tracingDelegate(trace, traces)),
      authorizationDelegate_(tracingAuthorizationDelegate(trace)) {}

ReplayHost::~ReplayHost() = default;

void ReplayHost::configure(const AppConfig& app) {
    if (app.appNamespace) sdk_.setAppNamespace(app.appNamespace);
    sdk_.setBaseURL(app.baseURL);
    for (const auto& [property, value] : app.properties) calls().at(setterName(property))(*this, value);
    for (const auto& [name, value] : app.settings) setSetting(settings_, name, value);
    deciding_.implement(app.delegate, *delegate_);
    if (own_ != nullptr) deciding_.join(*own_, *delegate_);
    sdk_.setDelegate(delegate_);
}

void ReplayHost::presentScreen(bool presents) {
    sdk_.setPresentationViewController(phone_.presentScreen(presents));
}

void ReplayHost::call(const CallStep& step) {
    const auto outcome = calls().at(step.name)(*this, step.with);
    trace_.write("call", json::value(step.name), {{"result", outcome.result}, {"error", traceError(outcome.error)}});
}

QuomiAuthorizationManager& ReplayHost::authorizationManager() {
    if (authorizationManager_ == nullptr) {
        authorizationManager_ = std::make_unique<QuomiAuthorizationManager>(platform_, sdk_);
        authorizationManager_->setAuthorizationDelegate(authorizationDelegate_);
    }
    return *authorizationManager_;
}

}  // namespace quomi::simulated
