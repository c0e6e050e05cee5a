#include "quomi/api/api_client.h"

#include <utility>

#include "quomi/api/url.h"
#include "quomi/core/settings.h"
#include "quomi/core/user.h"
#include "quomi/core/version.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/device.h"
#include "quomi/platform/device_helpers.h"
#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

HttpHeaders jsonHeaders() { return {{"Content-Type", "application/json"}, {"Accept", "application/json"}}; }

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
    auto properties = user.properties.value_or(boost::json::object());
    for (const char* reserved : {"u_devices", "ext_id", "tags"}) properties.erase(reserved);
    if (user.userID) properties["ext_id"] = *user.userID;
    if (user.tags && !user.tags->empty()) properties["tags"] = boost::json::array(user.tags->begin(), user.tags->end());
    return properties;
}

}  // namespace

QuomiAPI::QuomiAPI(std::string baseURL, const Platform& platform, const QuomiSettings& settings, DebugLog& debugLog)
    : baseURL_(std::move(baseURL)),
      platform_(platform),
      settings_(settings),
      debugLog_(debugLog),
      session_(platform.http, jsonHeaders(), toDuration(Seconds(settings.requestTimeout))) {
    session_.setSuspended(platform.reachability.status() == NetworkStatus::notReachable);
    reachability_ = platform.reachability.observe(
        [this](NetworkStatus status) { session_.setSuspended(status == NetworkStatus::notReachable); });
}

QuomiAPI::~QuomiAPI() = default;

std::size_t QuomiAPI::getRequestQueueCount() const { return session_.requestCount(); }

void QuomiAPI::cancelAllRequests() { session_.cancelAll(); }

std::string QuomiAPI::endpoint(std::string_view path) const { return joinUrl(baseURL_, path); }

std::string QuomiAPI::udid() const { return QuomiUDID::udid(platform_.device); }

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
                                    {"advertising_tracking_mode_enabled", user.advertisingTrackingModeEnabled},
                                    {"system_name", platform_.device.systemName()},
                                    {"system_version", platform_.device.systemVersion()},
                                    {"sdk_name", "Vellora SDK"},
                                    {"sdk_version", kSDKVersion},
                                    {"model", platform_.device.model()},
                                    {"language", languages.empty() ? "" : languages.front()}};
    if (user.advertisingTrackingModeEnabled) {
        information["advertising_id"] = platform_.device.advertisingIdentifier().value_or("");
    }
    return information;
}

void QuomiAPI::setUserInformation(const QuomiUser& user, const std::string& appNamespace, Done success,
                                  Failure failure) {
    session_.post(
        endpoint("/u_app_users/find_or_create_by_udid.json"), {{"u_app_user", userInformation(user, appNamespace)}},
        [this, success = std::move(success)](const boost::json::value& body, int) {
            debugLog_.log("SUCCESS Send user information: {}", boost::json::serialize(body));
            if (success) success();
        },
        [this, failure = std::move(failure)](const HttpSessionFailure& ended) {
            debugLog_.log("ERROR Send user information: {}", describe(ended.error));
            if (failure) failure(ended.error);
        });
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
    // The namespace stands unescaped in the path: deliberate, the server matches it literally.
    const auto path = fmt::format("/u_applications/{}/log_multi.json", settings_.namespace_.value_or("(null)"));
    session_.post(
        endpoint(path), {{"udid", udid()}, {"logs", std::move(logs)}},
        [success = std::move(success)](const boost::json::value&, int) {
            if (success) success();
        },
        withError(std::move(failure)));
}

}  // namespace quomi
