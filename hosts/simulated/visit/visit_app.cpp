#include "hosts/simulated/visit/visit_readers.h"

namespace quomi::simulated {
namespace {

constexpr std::string_view kProperties[] = {
    "beaconsEnabled", "geofencesEnabled", "requestWhenInUseAuthorization", "useExtendedBackgroundRangingTime",
    "fileLogEnabled", "eventLogsEnabled", "enableIDFACollection",
};

enum class SettingType { boolean, number, count, countOrNil, textOrNil };

/// The fields of the settings object.
constexpr Named<SettingType> kSettings[] = {
    {"baseAPIUrl", SettingType::textOrNil},
    {"apiVersion", SettingType::countOrNil},
    {"requestTimeout", SettingType::number},
    {"serverNotificationRequestTimeout", SettingType::number},
    {"serverNotificationNumberOfRetry", SettingType::count},
    {"serverNotificationMaxRetryPeriod", SettingType::number},
    {"serverNotificationRetrySlotDuration", SettingType::number},
    {"namespace", SettingType::textOrNil},
    {"significantLocationUpdateInterval", SettingType::count},
    {"stopUpdatingLocationAfterFirstUpdate", SettingType::boolean},
    {"downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion", SettingType::boolean},
    {"localNotificationActionsEnabled", SettingType::boolean},
    {"serverNotificationActionsEnabled", SettingType::boolean},
    {"openWebPageActionsEnabled", SettingType::boolean},
    {"openPassBookActionsEnabled", SettingType::boolean},
    {"openDeepLinkActionsEnabled", SettingType::boolean},
    {"beaconEnabled", SettingType::boolean},
    {"beaconSecurityMode", SettingType::count},
    // The missing letter is deliberate: it is the field's name.
    {"beaconServiceMonitorinEnabled", SettingType::boolean},
    {"beaconProximityIdentifier", SettingType::textOrNil},
    {"beaconProximityIdentifierService", SettingType::textOrNil},
    {"beaconProximityUUIDNormal", SettingType::textOrNil},
    {"beaconProximityUUIDSecure", SettingType::textOrNil},
    {"beaconProximityUUIDService", SettingType::textOrNil},
    {"proximityFarSplitThreshold", SettingType::number},
    {"requestWhenInUseAuthorization", SettingType::boolean},
    {"useExtendedBackgroundRangingTime", SettingType::boolean},
    {"geofencingEnabled", SettingType::boolean},
    {"fileLogEnabled", SettingType::boolean},
};

void readProperties(const JsonNode& node, AppConfig& app) {
    node.eachMember("an object", [&](std::string_view key, const JsonNode& value) {
        if (std::ranges::find(kProperties, key) != std::ranges::end(kProperties)) {
            app.properties.emplace_back(key, value.boolean());
            return;
        }
        std::string list;
        for (const auto name : kProperties) appendQuoted(list, name);
        value.fail("one of the properties " + list);
    });
}

void readSettings(const JsonNode& node, AppConfig& app) {
    node.eachMember("an object", [&](std::string_view key, const JsonNode& value) {
        app.settings.emplace_back(key, settingValue(value, key, value));
    });
}

void readTextMap(const JsonNode& node, std::map<std::string, std::string>& texts) {
    node.eachMember("an object",
                    [&](std::string_view key, const JsonNode& value) { texts.emplace(key, value.text()); });
}

DelegateAnswer readDelegateAnswer(const JsonNode& node) {
    if (!node.isObject()) return {node.boolean(), std::nullopt};
    static constexpr Field<DelegateAnswer> kFields[] = {
        {"async", [](const JsonNode& n, DelegateAnswer& a) { a.answer = n.boolean(); }, true},
        {"after", [](const JsonNode& n, DelegateAnswer& a) { a.after = n.seconds(); }, true},
    };
    DelegateAnswer answer;
    readObject<DelegateAnswer>(node, kFields, answer);
    return answer;
}

DelegateServerRequest readServerRequest(const JsonNode& node) {
    if (!node.isText()) {
        if (!node.isTrue()) node.fail("true, \"succeed\" or \"fail\"");
        return DelegateServerRequest::performs;
    }
    static constexpr Named<DelegateServerRequest> kNames[] = {
        {"succeed", DelegateServerRequest::succeeds},
        {"fail", DelegateServerRequest::fails},
    };
    return node.oneOf<DelegateServerRequest>(kNames);
}

constexpr Field<DelegateConfig> kDelegateFields[] = {
    {"shouldExecuteNotificationRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.shouldExecuteNotificationRequest = readDelegateAnswer(n); }},
    {"executeNotificationRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.executeNotificationRequest = n.onlyTrue(); }},
    {"shouldExecuteOpenWebPageRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.shouldExecuteOpenWebPageRequest = n.boolean(); }},
    {"executeOpenWebPageRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.executeOpenWebPageRequest = n.onlyTrue(); }},
    {"shouldExecuteOpenDeepLinkRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.shouldExecuteOpenDeepLinkRequest = n.boolean(); }},
    {"executeOpenDeepLinkRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.executeOpenDeepLinkRequest = n.onlyTrue(); }},
    {"shouldExecuteServerNotificationRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.shouldExecuteServerNotificationRequest = n.boolean(); }},
    {"executeServerNotificationRequest",
     [](const JsonNode& n, DelegateConfig& d) { d.executeServerNotificationRequest = readServerRequest(n); }},
};

void readDelegate(const JsonNode& node, DelegateConfig& delegate) {
    readObject<DelegateConfig>(node, kDelegateFields, delegate);
}

constexpr Field<AppConfig> kAppFields[] = {
    {"namespace", [](const JsonNode& n, AppConfig& a) { a.appNamespace = n.text(); }},
    {"baseURL", [](const JsonNode& n, AppConfig& a) { a.baseURL = n.text(); }},
    {"properties", readProperties},
    {"settings", readSettings},
    {"localization", [](const JsonNode& n, AppConfig& a) { readTextMap(n, a.localization); }},
    {"resources", [](const JsonNode& n, AppConfig& a) { readTextMap(n, a.resources); }},
    {"delegate", [](const JsonNode& n, AppConfig& a) { readDelegate(n, a.delegate); }},
};

}  // namespace

void readApp(const JsonNode& node, AppConfig& app) {
    readObject<AppConfig>(node, kAppFields, app);
}

boost::json::value settingValue(const JsonNode& name, std::string_view field, const JsonNode& value) {
    const auto setting = std::ranges::find(kSettings, field, &Named<SettingType>::name);
    if (setting == std::ranges::end(kSettings)) {
        std::string list;
        for (const auto& known : kSettings) appendQuoted(list, known.name);
        name.fail("a field of the settings: " + list);
        return {};
    }
    const auto type = setting->value;
    if (value.isNull() && (type == SettingType::countOrNil || type == SettingType::textOrNil)) return nullptr;
    switch (type) {
        case SettingType::boolean:
            return value.boolean();
        case SettingType::number:
            return value.number();
        case SettingType::count:
        case SettingType::countOrNil:
            return value.integer(0);
        case SettingType::textOrNil:
            return boost::json::string(value.text());
    }
    return {};
}

}  // namespace quomi::simulated
