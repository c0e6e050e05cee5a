#pragma once

#include "quomi/util/error.h"
#include "quomi/util/export.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace quomi {

class Localization;

/// Domain of every error that the SDK itself makes.
inline constexpr const char* kErrorDomain = "QuomiErrorDomain";

/// The SDK's error codes. Host apps compare against the numbers, so they never change.
enum class ErrorCode : std::int64_t {
    success = 0,
    unknown = 1,
    notStarted = 2,
    alreadyStarted = 3,
    dataInitialization = 4,
    regionMonitoringUnsupported = 5,
    beaconsUnsupported = 6,
    namespaceNotSet = 7,
    geofencesDisabled = 8,
    beaconsDisabled = 9,

    action = 200,
    regionDataMissing = 201,
    startDateInFuture = 202,
    endDateInPast = 203,
    scheduleClosed = 204,

    network = 400,
    requestParameters = 401,
    responseParsing = 402,
    geofencesDownloadRunning = 403,
    downloadStatus = 404,
    serverNotificationResponse = 405,

    data = 600,
    storeMigration = 601,
    storeDeletion = 602,
    storeOpening = 603,
    directoryIsFile = 604,
    predicate = 605,
    updateRunning = 606,
    nilRuleAndAction = 607,
    nilAction = 608,
    dataRemoval = 609,

    location = 800,
    locationUnavailable = 801,
    monitoringUnavailable = 802,

    beacon = 1000,
    beaconManagerStarted = 1001,
    beaconManagerNotStarted = 1002,
};

/// Makes the SDK's errors, with messages in the host app's language. Any thread; no operation fails.
class QUOMI_EXPORT QuomiErrors {
public:
    /// The localization outlives the object.
    explicit QuomiErrors(const Localization& localization) : localization_(localization) {}

    /// The message of the code: the host app's translation of the English text, else the English text itself; the
    /// empty string for a code that is not one of ErrorCode.
    [[nodiscard]] std::string errorMessageForCode(std::int64_t code) const;

    /// An error whose description is the code's message twice, joined by ". ". The doubling is deliberate: hosts
    /// match on it.
    [[nodiscard]] Error errorWithCode(std::int64_t code) const;
    [[nodiscard]] Error errorWithCode(ErrorCode code) const { return errorWithCode(static_cast<std::int64_t>(code)); }

    /// An error described by the code's message, ". " and the additional message ("(null)" for none).
    [[nodiscard]] Error errorWithCode(std::int64_t code, std::optional<std::string_view> additionalMessage) const;
    [[nodiscard]] Error errorWithCode(ErrorCode code, std::optional<std::string_view> additionalMessage) const {
        return errorWithCode(static_cast<std::int64_t>(code), additionalMessage);
    }

    /// An error with exactly the given user info. It carries a description only when the caller put one in: the code's
    /// message is deliberately not added.
    [[nodiscard]] Error errorWithCodeAndInfo(std::int64_t code, boost::json::object info) const;
    [[nodiscard]] Error errorWithCodeAndInfo(ErrorCode code, boost::json::object info) const {
        return errorWithCodeAndInfo(static_cast<std::int64_t>(code), std::move(info));
    }

private:
    const Localization& localization_;
};

}  // namespace quomi
