#include "quomi/model/errors.h"

#include "quomi/platform/localization.h"

#include <algorithm>
#include <array>
#include <utility>

#include <fmt/format.h>

namespace quomi {

namespace {

struct Message {
    ErrorCode code;
    std::string_view text;
};

constexpr std::array kMessages{
    Message{ErrorCode::success, "Success / No error"},
    Message{ErrorCode::unknown, "Unknown error"},
    Message{ErrorCode::notStarted, "SDK not started"},
    Message{ErrorCode::alreadyStarted, "SDK already started"},
    Message{ErrorCode::dataInitialization,
            "SDK start failed due to data initialization error. Calling removeAllData method should help but will "
            "erase all stored data"},
    Message{ErrorCode::regionMonitoringUnsupported,
            "The device does not support region monitoring or significant location change monitoring"},
    Message{ErrorCode::beaconsUnsupported, "The device does not support iBeacons. Support has been added with iOS 7.0"},
    Message{ErrorCode::namespaceNotSet, "The mandatory appNamespace property is not set"},
    Message{ErrorCode::geofencesDisabled,
            "The geofencing features of the SDK are disabled, see geofencesEnabled property"},
    Message{ErrorCode::beaconsDisabled, "The beacons features of the SDK are disabled, see beaconsEnabled property"},
    Message{ErrorCode::action, "Generic action error, related to actions execution"},
    Message{ErrorCode::regionDataMissing,
            "Data for entered region does not exist. It might have been removed after registering and before entering "
            "the location"},
    Message{ErrorCode::startDateInFuture, "Data for region not available, start date is in the future"},
    Message{ErrorCode::endDateInPast, "Data for region not available, end date is in the past"},
    Message{ErrorCode::scheduleClosed, "Data for region not available, schedule indicates disabled"},
    Message{ErrorCode::network, "Generic network error, related to web service API"},
    Message{ErrorCode::requestParameters, "API request parameters error"},
    Message{ErrorCode::responseParsing, "API response parsing error"},
    Message{ErrorCode::geofencesDownloadRunning,
            "Tried to launch a second geofences download request while the previous one hadn't finished yet"},
    Message{ErrorCode::downloadStatus, "Regions downloading received != 200 HTTP status code response"},
    Message{ErrorCode::serverNotificationResponse,
            "JSON object returned by HTTP request for notify_server action is invalid"},
    Message{ErrorCode::data, "Generic data error, related to data storage"},
    Message{ErrorCode::storeMigration,
            "Could not migrate storage store. Calling removeAllData method should help but will cause to destroy all "
            "stored data"},
    Message{ErrorCode::storeDeletion, "Could not delete old storage store"},
    Message{ErrorCode::storeOpening, "Could not open persistent storage file"},
    Message{ErrorCode::directoryIsFile,
            "Expected a directory and found a file during persistent storage directory creation"},
    Message{ErrorCode::predicate, "Predicate parsing error"},
    Message{ErrorCode::updateRunning,
            "Attempted to insert/update data while previously started attempt hasn't yet finished"},
    Message{ErrorCode::nilRuleAndAction, "Unable to add nil rule and action object"},
    Message{ErrorCode::nilAction, "Unable to add nil action object"},
    Message{ErrorCode::dataRemoval, "Removing local data failed"},
    Message{ErrorCode::location, "Generic location error, related to location services"},
    Message{ErrorCode::locationUnavailable, "Location services are not available"},
    Message{ErrorCode::monitoringUnavailable, "Region monitoring is not available on the device"},
    Message{ErrorCode::beacon, "Generic beacon error, related to beacons management"},
    Message{ErrorCode::beaconManagerStarted, "Beacon manager already started"},
    Message{ErrorCode::beaconManagerNotStarted, "Beacon manager not started"},
};

std::string_view englishMessage(std::int64_t code) {
    const auto* found = std::ranges::find_if(
        kMessages, [code](const Message& message) { return static_cast<std::int64_t>(message.code) == code; });
    return found == kMessages.end() ? std::string_view() : found->text;
}

}  // namespace

std::string QuomiErrors::errorMessageForCode(std::int64_t code) const {
    const std::string_view english = englishMessage(code);
    // Some catalogues translate the empty text into something about themselves.
    if (english.empty()) return {};
    return localization_.localizedString(english).value_or(std::string(english));
}

Error QuomiErrors::errorWithCode(std::int64_t code) const {
    return errorWithCode(code, errorMessageForCode(code));
}

Error QuomiErrors::errorWithCode(std::int64_t code, std::optional<std::string_view> additionalMessage) const {
    return {kErrorDomain,
            code,
            {{kLocalizedDescriptionKey,
              fmt::format("{}. {}", errorMessageForCode(code), additionalMessage.value_or("(null)"))}}};
}

Error QuomiErrors::errorWithCodeAndInfo(std::int64_t code, boost::json::object info) const {
    return {kErrorDomain, code, std::move(info)};
}

}  // namespace quomi
