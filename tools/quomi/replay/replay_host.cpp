#include "tools/quomi/replay/replay_host.h"

#include "hosts/simulated/simulated_phone.h"
#include "quomi/core/sdk.h"
#include "quomi/core/settings.h"
#include "tools/quomi/replay/setting_fields.h"
#include "tools/quomi/visit/visit.h"

#include <map>
#include <string>

#include <boost/json/object.hpp>

namespace quomi::tool {

namespace json = boost::json;

namespace {

/// What a call came to; the record's fields.
struct Outcome {
    json::value result;
    std::optional<Error> error;
};

struct Caller {
    QuomiSDK& sdk;
    QuomiSettings& settings;
    const Trace& trace;
    const simulated::SimulatedPhone& phone;
};

using Call = std::function<Outcome(const Caller&, const json::value& with)>;

std::optional<std::string> textOrNil(const json::value& with) {
    if (!with.is_string()) return std::nullopt;
    return std::string(with.get_string());
}

/// A call with a URL that says whether it was opened.
Call opener(bool (QuomiSDK::*operation)(const std::string&)) {
    return [operation](const Caller& caller, const json::value& with) {
        return Outcome{json::value((caller.sdk.*operation)(textOrNil(with).value_or(""))), {}};
    };
}

/// The user opens the notification that was posted last; nothing when there is none.
Outcome openNotification(const Caller& caller, const json::value&) {
    const auto& notifications = caller.phone.notifications();
    if (notifications.empty()) return {};
    const NotificationRequest opened = notifications.back();
    caller.sdk.executeNotificationRequestActions(opened);
    return {};
}

/// A call of a boolean property.
Call setter(void (QuomiSDK::*operation)(bool)) {
    return [operation](const Caller& caller, const json::value& with) {
        (caller.sdk.*operation)(with.get_bool());
        return Outcome{};
    };
}

void writeCallback(const Trace& trace, const char* call, const char* outcome, const std::optional<Error>& error) {
    trace.write("callback", call, {{"outcome", outcome}, {"error", traceError(error)}});
}

Outcome start(const Caller& caller, const json::value&) {
    Outcome outcome;
    outcome.result = caller.sdk.start(&outcome.error);
    return outcome;
}

Outcome stop(const Caller& caller, const json::value&) {
    caller.sdk.stop();
    return {};
}

Outcome updateUserInformation(const Caller& caller, const json::value&) {
    const Trace& trace = caller.trace;
    caller.sdk.updateUserInformation(
        [&trace] { writeCallback(trace, "updateUserInformation", "success", std::nullopt); },
        [&trace](const Error& error) { writeCallback(trace, "updateUserInformation", "failure", error); });
    return {};
}

const std::map<std::string_view, Call>& calls() {
    static const std::map<std::string_view, Call> table{
        {"start", start},
        {"stop", stop},
        {"updateUserInformation", updateUserInformation},
        {"openNotification", openNotification},
        {"openWebPageForUrl", opener(&QuomiSDK::openWebPageForUrl)},
        {"openDeepLinkForURL", opener(&QuomiSDK::openDeepLinkForURL)},
        {"setAppNamespace",
         [](const Caller& caller, const json::value& with) {
             caller.sdk.setAppNamespace(textOrNil(with));
             return Outcome{};
         }},
        {"setBaseURL",
         [](const Caller& caller, const json::value& with) {
             caller.sdk.setBaseURL(textOrNil(with).value_or(""));
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
         [](const Caller& caller, const json::value& with) {
             const auto& fields = with.get_object();
             setSetting(caller.settings, fields.at("name").get_string(), fields.at("value"));
             return Outcome{};
         }},
        {"logEvent",
         [](const Caller& caller, const json::value& with) {
             caller.sdk.logEvent(with.get_object());
             return Outcome{};
         }},
        {"getDebugFileContent",
         [](const Caller& caller, const json::value&) {
             return Outcome{json::value(caller.sdk.getDebugFileContent()), {}};
         }},
        {"clearDebugFile",
         [](const Caller& caller, const json::value&) {
             caller.sdk.clearDebugFile();
             return Outcome{};
         }},
    };
    return table;
}

/// The name under which `app.properties` knows a property, to the call that sets it.
std::string setterName(const std::string& property) {
    std::string name = "set" + property;
    if (name[3] >= 'a' && name[3] <= 'z') name[3] = static_cast<char>(name[3] - 'a' + 'A');
    return name;
}

std::shared_ptr<QuomiSDKDelegate> tracingDelegate(const Trace& trace) {
    auto delegate = std::make_shared<QuomiSDKDelegate>();
    delegate->didReceiveErrorNotification = [&trace](QuomiSDK&, const Error& error) {
        trace.write("delegate", "didReceiveErrorNotification", {{"error", traceError(error)}});
    };
    delegate->didLogEvent = [&trace](QuomiSDK&, const json::object& event, WallTime time) {
        trace.write("delegate", "didLogEvent", {{"event", event}, {"time", traceDate(time)}});
    };
    const auto about = [&trace](const char* operation, const char* key) {
        return [&trace, operation, key](QuomiSDK&, const std::string& name, const json::object& userInfo) {
            trace.write("delegate", operation, {{key, json::value(name)}, {"userInfo", userInfo}});
        };
    };
    delegate->didEnterBeaconRegion = about("didEnterBeaconRegion", "uuid");
    delegate->didExitBeaconRegion = about("didExitBeaconRegion", "uuid");
    delegate->didFindNewBeacon = about("didFindNewBeacon", "beacon");
    delegate->didLoseBeaconSignal = about("didLoseBeaconSignal", "beacon");
    delegate->didUpdateBeacon = about("didUpdateBeacon", "beacon");
    delegate->didReceivePingFromBeacon = about("didReceivePingFromBeacon", "beacon");
    return delegate;
}

}  // namespace

ReplayHost::ReplayHost(QuomiSDK& sdk, QuomiSettings& settings, const Trace& trace, simulated::SimulatedPhone& phone)
    : sdk_(sdk),
      settings_(settings),
      trace_(trace),
      phone_(phone),
      deciding_(trace, phone.platform().runLoop),
      delegate_(tracingDelegate(trace)) {}

ReplayHost::~ReplayHost() = default;

void ReplayHost::configure(const AppConfig& app) {
    const Caller caller{sdk_, settings_, trace_, phone_};
    if (app.appNamespace) sdk_.setAppNamespace(app.appNamespace);
    sdk_.setBaseURL(app.baseURL);
    for (const auto& [property, value] : app.properties) calls().at(setterName(property))(caller, value);
    for (const auto& [name, value] : app.settings) setSetting(settings_, name, value);
    deciding_.implement(app.delegate, *delegate_);
    sdk_.setDelegate(delegate_);
}

void ReplayHost::presentScreen(bool presents) {
    sdk_.setPresentationViewController(phone_.presentScreen(presents));
}

void ReplayHost::call(const CallStep& step) {
    const auto outcome = calls().at(step.name)(Caller{sdk_, settings_, trace_, phone_}, step.with);
    trace_.write("call", json::value(step.name), {{"result", outcome.result}, {"error", traceError(outcome.error)}});
}

}  // namespace quomi::tool
