#include "hosts/simulated/visit/visit_readers.h"

namespace quomi::simulated {
namespace {

using boost::json::value;

// What a call may be given. Each checks the step's `with` and gives the argument.

value none(const JsonNode& with) {
    if (with) with.fail("no argument");
    return nullptr;
}

value boolean(const JsonNode& with) {
    return with.boolean();
}

value text(const JsonNode& with) {
    return boost::json::string(with.text());
}

value textOrNil(const JsonNode& with) {
    if (with.isNull()) return nullptr;
    if (!with.isText()) with.fail("a text or null");
    return with.raw();
}

value anyObject(const JsonNode& with) {
    if (!with.isObject()) with.fail("an object");
    return with.raw();
}

/// For values that are handed on as they stand.
struct Checked {};

constexpr Field<Checked> kUserFields[] = {
    {"userID", [](const JsonNode& n, Checked&) { textOrNil(n); }},
    {"properties",
     [](const JsonNode& n, Checked&) {
         if (!n.isNull() && !n.isObject()) n.fail("an object or null");
     }},
    {"tags",
     [](const JsonNode& n, Checked&) {
         if (!n.isNull()) n.eachItem("an array of texts or null", [](const JsonNode& tag) { text(tag); });
     }},
};

value user(const JsonNode& with) {
    Checked checked;
    readObject<Checked>(with, kUserFields, checked);
    return with.raw();
}

value userOrNil(const JsonNode& with) {
    return with.isNull() ? value(nullptr) : user(with);
}

constexpr Field<Checked> kHeaderFields[] = {
    {"name", [](const JsonNode& n, Checked&) { text(n); }, true},
    {"value", [](const JsonNode& n, Checked&) { textOrNil(n); }, true},
};

value header(const JsonNode& with) {
    Checked checked;
    readObject<Checked>(with, kHeaderFields, checked);
    return with.raw();
}

constexpr Field<Checked> kSettingFields[] = {
    {"name", [](const JsonNode& n, Checked&) { text(n); }, true},
    {"value",
     [](const JsonNode& n, Checked&) {
         if (!n) n.fail("a value or null");
     },
     true},
};

value setting(const JsonNode& with) {
    Checked checked;
    readObject<Checked>(with, kSettingFields, checked);
    if (with.failed()) return nullptr;
    const auto name = with["name"];
    const std::string field = name.text();
    return boost::json::object{{"name", field}, {"value", settingValue(name, field, with["value"])}};
}

using ReadArgument = value (*)(const JsonNode&);

constexpr Named<ReadArgument> kCalls[] = {
    {"start", none},
    {"stop", none},
    {"setAppNamespace", textOrNil},
    {"setBaseURL", text},
    {"setBeaconsEnabled", boolean},
    {"setGeofencesEnabled", boolean},
    {"setRequestWhenInUseAuthorization", boolean},
    {"setUseExtendedBackgroundRangingTime", boolean},
    {"setFileLogEnabled", boolean},
    {"setEventLogsEnabled", boolean},
    {"setEnableIDFACollection", boolean},
    {"setSetting", setting},
    {"setUser", userOrNil},
    {"changeUser", user},
    {"updateUserInformation", none},
    {"registerCloudMessagingPushNotificationsDeviceToken", text},
    {"performServerSync", none},
    {"updateAllRulesData", none},
    {"triggerLocationUpdate", none},
    {"updateLocation", none},
    {"resetCounters", none},
    {"removeAllData", none},
    {"openNotification", none},
    {"openWebPageForUrl", text},
    {"openDeepLinkForURL", text},
    {"setServerNotificationRequestHeader", header},
    {"logEvent", anyObject},
    {"getDebugFileContent", none},
    {"clearDebugFile", none},
    {"isQuomiBeaconsServiceEnabled", none},
    {"isQuomiGeofencesServiceEnabled", none},
    {"isLocationServiceEnabled", none},
    {"isBluetoothEnabled", none},
    {"isBackgroundRefreshEnabled", none},
    {"areAllNotificationRightsGranted", none},
    {"isBannerNotificationRightGranted", none},
    {"showEnableBluetoothAlert", none},
    {"showEnableLocationServiceUI", none},
    {"showEnableBackgroundRefreshUI", none},
};

}  // namespace

void readCall(const JsonNode& name, const JsonNode& with, CallStep& call) {
    const ReadArgument readArgument = name.oneOf<ReadArgument>(kCalls);
    if (name.failed()) return;
    call.name = name.text();
    call.with = readArgument(with);
}

}  // namespace quomi::simulated
