#include "quomi/api/api_client.h"

#include "quomi/api/url.h"
#include "quomi/data/records.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "quomi/model/user.h"
#include "quomi/model/version.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device.h"
#include "quomi/platform/device_helpers.h"
#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <utility>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

HttpHeaders jsonHeaders() {
    return {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
}

HttpSession::Success withBody(QuomiAPI::Success success) {
    return [success = std::move(success)](const boost::json::value& body, int) {
        if (success) success(body);
    };
}

HttpSession::Failure withError(QuomiAPI::Failure failure) {
    return [failure = std::move(failure)](const HttpSessionFailure& ended) {
        if (failure) failure(ended.error);
    };
}

/// The user's own properties without the keys that the system fills itself.
boost::json::object ownProperties(const QuomiUser& user) {
    auto properties = user.properties().value_or(boost::json::object());
    for (const char* reserved : {"u_devices", "ext_id", "tags"}) properties.stable_erase(reserved);
    if (const auto& userID = user.userID()) properties["ext_id"] = *userID;
    if (const auto& tags = user.tags(); tags && !tags->empty()) {
        properties["tags"] = boost::json::array(tags->begin(), tags->end());
    }
    return properties;
}

constexpr const char* kSecretKeys[] = {"advertising_id", "idfa", "push_token", "device_token", "shared_secret"};

/// The answer without what it repeats of identifiers and secrets, however deep: under their keys, or as the text given.
boost::json::value withoutSecrets(boost::json::value answer, const std::optional<std::string>& secret) {
    if (auto* array = answer.if_array()) {
        for (auto& element : *array) element = withoutSecrets(std::move(element), secret);
    } else if (auto* object = answer.if_object()) {
        for (const char* key : kSecretKeys) object->stable_erase(key);
        for (auto& member : *object) member.value() = withoutSecrets(std::move(member.value()), secret);
    } else if (const auto* text = answer.if_string();
               text != nullptr && secret && !secret->empty() && *text == *secret) {
        answer = "…";
    }
    return answer;
}

}  // namespace

QuomiAPI::QuomiAPI(std::string baseURL, const Platform& platform, const QuomiSettings& settings, DebugLog& debugLog)
    : baseURL_(std::move(baseURL)),
      platform_(platform),
      settings_(settings),
      debugLog_(debugLog),
      errors_(platform.localization),
      session_(platform,
               {jsonHeaders(), toDuration(Seconds(settings.requestTimeout)), settings.deployment().maxResponseBytes}),
      serverNotifications_(session_, settings, platform_, debugLog, errors_) {
    session_.setSuspended(platform.reachability.status() == NetworkStatus::notReachable);
    reachability_ = platform.reachability.observe(
        [this](NetworkStatus status) { session_.setSuspended(status == NetworkStatus::notReachable); });
}

QuomiAPI::~QuomiAPI() = default;

std::size_t QuomiAPI::getRequestQueueCount() const {
    return session_.requestCount();
}

void QuomiAPI::forgetFailedDownloads() {
    session_.forgetFailures();
}

void QuomiAPI::cancelAllRequests() {
    areAllGeofencesWanted_ = false;
    serverNotifications_.cancelAll();
    session_.cancelAll();
}

std::string QuomiAPI::endpoint(std::string_view path) const {
    return joinUrl(baseURL_, path);
}

std::string QuomiAPI::logEndpoint(std::string_view name) const {
    // The namespace stands unescaped in the path: deliberate, the server matches it literally.
    return endpoint(fmt::format("/u_applications/{}/{}", settings_.namespace_.value_or("(null)"), name));
}

std::string QuomiAPI::udid() const {
    return QuomiUDID::udid(platform_.device);
}

void QuomiAPI::post(const std::string& url, const boost::json::object& body, Done success, Failure failure) {
    session_.post(
        url, body,
        [success = std::move(success)](const boost::json::value&, int) {
            if (success) success();
        },
        [this, failure = std::move(failure)](const HttpSessionFailure& ended) {
            // Nobody else says so: what the server answers to these does not matter.
            if (ended.exceedsBound) platform_.console.log(fmt::format("Quomi SDK Error: {}", describe(ended.error)));
            if (failure) failure(ended.error);
        });
}

void QuomiAPI::getApplicationWithNamespace(const std::string& appNamespace, Success success, Failure failure) {
    session_.get(withQuery(endpoint("/u_applications/query.json"), {{"namespace", appNamespace}}),
                 withBody(std::move(success)), withError(std::move(failure)));
}

void QuomiAPI::getApplicationEventLimits(const std::string& appNamespace, Success success, Failure failure) {
    session_.get(withQuery(endpoint("/u_applications/limits.json"), {{"namespace", appNamespace}}),
                 withBody(std::move(success)), withError(std::move(failure)));
}

boost::json::object QuomiAPI::userInformation(const QuomiUser& user, const std::string& appNamespace) const {
    const auto languages = platform_.device.preferredLanguages();
    boost::json::object information{{"udid", udid()},
                                    {"properties", ownProperties(user)},
                                    {"u_application_uid", appNamespace},
                                    {"advertising_tracking_mode_enabled", user.advertisingTrackingModeEnabled()},
                                    {"system_name", platform_.device.systemName()},
                                    {"system_version", platform_.device.systemVersion()},
                                    {"sdk_name", "Vellora SDK"},
                                    {"sdk_version", kSDKVersion},
                                    {"model", platform_.device.model()},
                                    {"language", languages.empty() ? "" : languages.front()}};
    if (user.advertisingTrackingModeEnabled()) {
        information["advertising_id"] = QuomiUser::idfa(platform_.device).value_or("");
    }
    return information;
}

void QuomiAPI::setUserInformation(const QuomiUser& user, const std::string& appNamespace, Done success,
                                  Failure failure) {
    session_.post(
        endpoint("/u_app_users/find_or_create_by_udid.json"), {{"u_app_user", userInformation(user, appNamespace)}},
        [this, success = std::move(success)](const boost::json::value& body, int) {
            debugLog_.log("SUCCESS Send user information: {}",
                          boost::json::serialize(withoutSecrets(body, QuomiUser::idfa(platform_.device))));
            if (success) success();
        },
        [this, failure = std::move(failure)](const HttpSessionFailure& ended) {
            debugLog_.log("ERROR Send user information: {}", describe(ended.error));
            if (failure) failure(ended.error);
        });
}

void QuomiAPI::registerUdid(const std::string& udid, const std::optional<std::string>& appNamespace,
                            const std::string& deviceToken, Done success, Failure failure) {
    debugLog_.log("Registering device token...");
    boost::json::object body;
    if (appNamespace) body["namespace"] = *appNamespace;
    body["udid"] = udid;
    std::string token = deviceToken;
    std::erase_if(token, [](char c) { return c == '<' || c == '>' || c == ' '; });
    body["push_token"] = token;
    post(joinUrl(settings_.deployment().apiBaseUrl, "/u_app_users/register_push_token.json"), body, std::move(success),
         std::move(failure));
}

void QuomiAPI::sendLogEvent(const std::optional<WallTime>& logTime, const std::optional<std::string>& logData,
                            Done success, Failure failure) {
    boost::json::object body{{"udid", udid()}};
    if (logTime) body["date"] = QuomiUtils::logDateString(*logTime, platform_.clock.timeZone());
    if (auto data = logData ? parseJson(*logData) : std::nullopt) body["data"] = std::move(*data);
    post(logEndpoint("log.json"), body, std::move(success), std::move(failure));
}

void QuomiAPI::sendEvent(const QuomiDebugLog& record, Done success, Failure failure) {
    sendLogEvent(record.logTime, record.logData, std::move(success), std::move(failure));
}

void QuomiAPI::sendDLogEvent(const QuomiDLog& record, Done success, Failure failure) {
    sendLogEvent(record.logTime, record.logData, std::move(success), std::move(failure));
}

void QuomiAPI::sendBatteryAlert(const BatteryAlert& alert, Done success, Failure failure) {
    post(endpoint("/u_beacon_devices/battery_alert.json"),
         {{"namespace", alert.appNamespace}, {"uuid", alert.proximityUUID}, {"battery_service_id", alert.serviceID}},
         std::move(success), std::move(failure));
}

void QuomiAPI::sendServerNotificationToURL(ServerNotification notification) {
    serverNotifications_.send(std::move(notification));
}

void QuomiAPI::setCustomHeadersForServerNotificationRequest(Headers headers) {
    customHeaders_ = std::move(headers);
}

void QuomiAPI::setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value) {
    if (value) {
        customHeaders_.insert_or_assign(name, std::move(*value));
    } else {
        customHeaders_.erase(name);
    }
}

void QuomiAPI::sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, Done success, Failure failure) {
    const std::string zone = platform_.clock.timeZone();
    boost::json::array logs;
    for (const auto& record : records) {
        if (!record.logTime || !record.logData) break;
        boost::json::object log;
        if (auto data = parseJson(*record.logData)) log["data"] = std::move(*data);
        log["date"] = QuomiUtils::logDateString(*record.logTime, zone);
        logs.push_back(std::move(log));
    }
    post(logEndpoint("log_multi.json"), {{"udid", udid()}, {"logs", std::move(logs)}}, std::move(success),
         std::move(failure));
}

}  // namespace quomi
