#include "quomi/api/api_client.h"
#include "quomi/api/url.h"
#include "quomi/model/settings.h"
#include "quomi/util/dates.h"
#include "quomi/util/host_call.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

constexpr int kOk = 200;

/// The number as the server is told it: of single precision.
double single(double value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    return static_cast<double>(static_cast<float>(std::min(value, kLargest)));
}

void appendNamespace(std::string& url, const std::string& appNamespace) {
    if (!QuomiUtils::isEmpty(appNamespace)) url += "&namespace=" + appNamespace;
}

void appendDate(std::string& url, std::optional<WallTime> lastUpdateDate) {
    if (lastUpdateDate) url += "&updated_at=" + QuomiUtils::stringUTCForDate(*lastUpdateDate, "UTC");
}

}  // namespace

std::string QuomiAPI::getURLForGeofencesWithNamespace(const GeofencesQuestion& question) const {
    auto url = fmt::format("{}?api_version={}&lat={:.6f}&lng={:.6f}&radius={:.6f}&udid={}",
                           endpoint("/u_geofences/query.json"), settings_.apiVersion, single(question.latitude),
                           single(question.longitude), single(question.radius), udid());
    appendNamespace(url, question.appNamespace);
    appendDate(url, question.lastUpdateDate);
    return url;
}

std::string QuomiAPI::getURLForBeaconsWithNamespace(const BeaconsQuestion& question) const {
    // "proximity_uid" is deliberate: the server knows the parameter by that name.
    auto url = fmt::format("{}?api_version={}&proximity_uid={}&udid={}", endpoint("/u_beacons/query.json"),
                           settings_.apiVersion, question.proximityUUID.string(), udid());
    appendNamespace(url, question.appNamespace);
    if (question.major) url += fmt::format("&major={}", *question.major);
    if (question.minor) url += fmt::format("&minor={}", *question.minor);
    appendDate(url, question.lastUpdateDate);
    return url;
}

bool QuomiAPI::mayDownloadGeofences(const GeofencesQuestion& question, std::optional<Error>* error) {
    // The answer to a request that was dropped never comes, and that to one that was not sent may take hours.
    if (session_.sentCount() == 0) busyWithDownloadingGeofences_ = false;
    const auto refuse = [&](const Error& reason) {
        assign(error, reason);
        return false;
    };
    if (busyWithDownloadingGeofences_) return refuse(errors_.errorWithCode(ErrorCode::geofencesDownloadRunning));
    const auto refuseParameter = [&](std::string_view why) {
        return refuse(errors_.errorWithCode(ErrorCode::requestParameters, why));
    };
    const double lat = question.latitude;
    const double lng = question.longitude;
    if (question.radius < 1.0) return refuseParameter("Radius cannot be less than 1");
    if (lat > 90.0 || lat < -90.0) return refuseParameter("Latitude cannot be outside of (-90,90) range");
    if (lng > 180.0 || lng < -180.0) return refuseParameter("Longitude cannot be outside of (-180,180) range");
    return true;
}

bool QuomiAPI::getGeofencesRulesWithNamespace(const GeofencesQuestion& asked, RulesDownload download,
                                              std::optional<Error>* error) {
    if (!mayDownloadGeofences(asked, error)) return false;
    busyWithDownloadingGeofences_ = true;
    auto question = asked;
    // What gives way to this one may have asked for everything.
    if (areAllGeofencesWanted_) question.lastUpdateDate.reset();
    areAllGeofencesWanted_ = !question.lastUpdateDate;
    HttpSession::Download request;
    request.url = getURLForGeofencesWithNamespace(question);
    request.replacesWaiting = true;
    request.ended = [this] {
        busyWithDownloadingGeofences_ = false;
        areAllGeofencesWanted_ = false;
    };
    downloadRules(std::move(request), std::move(download));
    return true;
}

void QuomiAPI::getBeaconsRulesWithNamespace(const BeaconsQuestion& question, RulesDownload download) {
    HttpSession::Download request;
    request.url = getURLForBeaconsWithNamespace(question);
    downloadRules(std::move(request), std::move(download));
}

void QuomiAPI::downloadRules(HttpSession::Download request, RulesDownload download) {
    request.take = [this, take = std::move(download.take)](const boost::json::value& body, int status,
                                                           std::optional<Error>* error) {
        *error = statusError(status);
        if (!*error && take) take(body, error);
    };
    request.failed = std::move(download.failed);
    HttpSession::Success success;
    HttpSession::Failure failure;
    if (download.success || download.failure) {
        success = [this, succeeded = download.success, failed = download.failure](const boost::json::value&,
                                                                                  int status) {
            const auto error = statusError(status);
            error ? callHost(failed, *error) : callHost(succeeded);
        };
    }
    if (download.failure) {
        failure = [failed = download.failure](const HttpSessionFailure& ended) { failed(ended.error); };
    }
    session_.download(std::move(request), std::move(success), std::move(failure));
}

std::optional<Error> QuomiAPI::statusError(int status) const {
    if (status == kOk) return std::nullopt;
    return errors_.errorWithCodeAndInfo(ErrorCode::downloadStatus, {{"responseCode", status}});
}

void QuomiAPI::getDataAtURL(const std::string& url, const Success& successBlock, const DownloadFailure& failedBlock) {
    HttpSession::Download request;
    request.url = url;
    request.take = [this](const boost::json::value&, int status, std::optional<Error>* error) {
        *error = statusError(status);
    };
    session_.download(
        std::move(request),
        [this, successBlock, failedBlock](const boost::json::value& body, int status) {
            const auto error = statusError(status);
            error ? callHost(failedBlock, DownloadResponse{status, body}, *error) : callHost(successBlock, body);
        },
        [failedBlock](const HttpSessionFailure& ended) {
            callHost(failedBlock, DownloadResponse{ended.status, nullptr}, ended.error);
        });
}

}  // namespace quomi
