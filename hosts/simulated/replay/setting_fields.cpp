#include "hosts/simulated/replay/setting_fields.h"

#include "quomi/model/settings.h"
#include "quomi/util/json_readers.h"

#include <map>
#include <variant>

namespace quomi::simulated {

namespace {

using S = QuomiSettings;
using Member =
    std::variant<bool S::*, double S::*, std::uint64_t S::*, std::string S::*, std::optional<std::string> S::*>;

const std::map<std::string_view, Member>& members() {
    static const std::map<std::string_view, Member> table{
        {"baseAPIUrl", &S::baseAPIUrl},
        {"apiVersion", &S::apiVersion},
        {"requestTimeout", &S::requestTimeout},
        {"serverNotificationRequestTimeout", &S::serverNotificationRequestTimeout},
        {"serverNotificationNumberOfRetry", &S::serverNotificationNumberOfRetry},
        {"serverNotificationMaxRetryPeriod", &S::serverNotificationMaxRetryPeriod},
        {"serverNotificationRetrySlotDuration", &S::serverNotificationRetrySlotDuration},
        {"namespace", &S::namespace_},
        {"significantLocationUpdateInterval", &S::significantLocationUpdateInterval},
        {"stopUpdatingLocationAfterFirstUpdate", &S::stopUpdatingLocationAfterFirstUpdate},
        {"downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion",
         &S::downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion},
        {"localNotificationActionsEnabled", &S::localNotificationActionsEnabled},
        {"serverNotificationActionsEnabled", &S::serverNotificationActionsEnabled},
        {"openWebPageActionsEnabled", &S::openWebPageActionsEnabled},
        {"openPassBookActionsEnabled", &S::openPassBookActionsEnabled},
        {"openDeepLinkActionsEnabled", &S::openDeepLinkActionsEnabled},
        {"beaconEnabled", &S::beaconEnabled},
        {"beaconSecurityMode", &S::beaconSecurityMode},
        {"beaconServiceMonitorinEnabled", &S::beaconServiceMonitorinEnabled},
        {"beaconProximityIdentifier", &S::beaconProximityIdentifier},
        {"beaconProximityIdentifierService", &S::beaconProximityIdentifierService},
        {"beaconProximityUUIDNormal", &S::beaconProximityUUIDNormal},
        {"beaconProximityUUIDSecure", &S::beaconProximityUUIDSecure},
        {"beaconProximityUUIDService", &S::beaconProximityUUIDService},
        {"proximityFarSplitThreshold", &S::proximityFarSplitThreshold},
        {"requestWhenInUseAuthorization", &S::requestWhenInUseAuthorization},
        {"useExtendedBackgroundRangingTime", &S::useExtendedBackgroundRangingTime},
        {"geofencingEnabled", &S::geofencingEnabled},
        {"fileLogEnabled", &S::fileLogEnabled},
    };
    return table;
}

bool store(bool& field, const boost::json::value& value) {
    if (!value.is_bool()) return false;
    field = value.get_bool();
    return true;
}

bool store(double& field, const boost::json::value& value) {
    const auto number = quomi::numberOf(&value);
    if (number) field = number->doubleValue();
    return number.has_value();
}

bool store(std::uint64_t& field, const boost::json::value& value) {
    const auto number = quomi::numberOf(&value);
    if (number) field = number->as<std::uint64_t>();
    return number.has_value();
}

bool store(std::string& field, const boost::json::value& value) {
    if (!value.is_string()) return false;
    field = value.get_string();
    return true;
}

bool store(std::optional<std::string>& field, const boost::json::value& value) {
    if (!value.is_string()) return false;
    field = std::string(value.get_string());
    return true;
}

}  // namespace

bool setSetting(QuomiSettings& settings, std::string_view name, const boost::json::value& value) {
    const auto member = members().find(name);
    if (member == members().end()) return false;
    return std::visit(
        [&](auto pointer) {
            auto& field = settings.*pointer;
            if (!value.is_null()) return store(field, value);
            field = {};
            return true;
        },
        member->second);
}

}  // namespace quomi::simulated
