#include "quomi/api/api_client.h"
#include "quomi/api/url.h"
#include "quomi/model/settings.h"
#include "quomi/util/dates.h"
#include "quomi/util/text.h"
#include "quomi/util/uuid.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

constexpr int kOk = 200;

/// The number as the server is told it: of single precision.
float single(double value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    return static_cast<float>(std::min(value, kLargest));
}

void appendNamespace(std::string& url, const std::string& appNamespace) {
    if (!QuomiUtils::isEmpty(appNamespace)) url += "&namespace=" + appNamespace;
}

void appendDate(std::string& url, std::optional<WallTime> lastUpdateDate) {
    if (lastUpdateDate) url += "&updated_at=" + QuomiUtils::stringUTCForDate(*lastUpdateDate, "UTC");
}

}  // namespace

std::string QuomiAPI::getURLForGeofencesWithNamespace(const std::string& appNamespace, float lat, float lng,
                                                      float radius, std::optional<WallTime> lastUpdateDate) const {
    auto url = fmt::format("{}?api_version={}&lat={:.6f}&lng={:.6f}&radius={:.6f}&udid={}",
                           endpoint("/u_geofences/query.json"), settings_.apiVersion, static_cast<double>(lat),
                           static_cast<double>(lng), static_cast<double>(radius), udid());
    appendNamespace(url, appNamespace);
    appendDate(url, lastUpdateDate);
    return url;
}

std::string QuomiAPI::getURLForBeaconsWithNamespace(const std::string& appNamespace, const Uuid& proximityUUID,
                                                    std::optional<int> major, std::optional<int> minor,
                                                    std::optional<WallTime> lastUpdateDate) const {
    // "proximity_uid" is deliberate: the server knows the parameter by that name.
    auto url = fmt::format("{}?api_version={}&proximity_uid={}&udid={}", endpoint("/u_beacons/query.json"),
                           settings_.apiVersion, proximityUUID.string(), udid());
    appendNamespace(url, appNamespace);
    if (major) url += fmt::format("&major={}", *major);
    if (minor) url += fmt::format("&minor={}", *minor);
    appendDate(url, lastUpdateDate);
    return url;
}

bool QuomiAPI::mayDownloadGeofences(double lat, double lng, double radius, std::optional<Error>* error) {
    // The answer to a request that was dropped never comes; it must not block downloads for ever.
    if (getRequestQueueCount() == 0) busyWithDownloadingGeofences_ = false;
    const auto refuse = [&](const Error& reason) {
        assign(error, reason);
        return false;
    };
    if (busyWithDownloadingGeofences_) return refuse(errors_.errorWithCode(ErrorCode::geofencesDownloadRunning));
    const auto refuseParameter = [&](std::string_view why) {
        return refuse(errors_.errorWithCode(ErrorCode::requestParameters, why));
    };
    if (radius < 1.0) return refuseParameter("Radius cannot be less than 1");
    if (lat > 90.0 || lat < -90.0) return refuseParameter("Latitude cannot be outside of (-90,90) range");
    if (lng > 180.0 || lng < -180.0) return refuseParameter("Longitude cannot be outside of (-180,180) range");
    return true;
}

bool QuomiAPI::getGeofencesRulesWithNamespace(const std::string& appNamespace, double atLat, double atLng,
                                              double radius, std::optional<WallTime> lastUpdateDate, Success success,
                                              Failure failure, std::optional<Error>* error) {
    if (!mayDownloadGeofences(atLat, atLng, radius, error)) return false;
    busyWithDownloadingGeofences_ = true;
    getDataAtURL(
        getURLForGeofencesWithNamespace(appNamespace, single(atLat), single(atLng), single(radius), lastUpdateDate),
        [this, success = std::move(success)](const boost::json::value& answer) {
            busyWithDownloadingGeofences_ = false;
            if (success) success(answer);
        },
        [this, failure = std::move(failure)](const DownloadResponse&, const Error& reason) {
            busyWithDownloadingGeofences_ = false;
            if (failure) failure(reason);
        });
    return true;
}

void QuomiAPI::getBeaconsRulesWithNamespace(const std::string& appNamespace, const Uuid& proximityUUID,
                                            std::optional<int> major, std::optional<int> minor,
                                            std::optional<WallTime> lastUpdateDate, Success success, Failure failure) {
    getDataAtURL(getURLForBeaconsWithNamespace(appNamespace, proximityUUID, major, minor, lastUpdateDate),
                 std::move(success), [failure = std::move(failure)](const DownloadResponse&, const Error& reason) {
                     if (failure) failure(reason);
                 });
}

void QuomiAPI::getDataAtURL(const std::string& url, Success successBlock, const DownloadFailure& failedBlock) {
    session_.getShared(
        url,
        [this, successBlock = std::move(successBlock), failedBlock](const boost::json::value& body, int status) {
            if (status == kOk) {
                if (successBlock) successBlock(body);
            } else if (failedBlock) {
                failedBlock({status, body},
                            errors_.errorWithCodeAndInfo(ErrorCode::downloadStatus, {{"responseCode", status}}));
            }
        },
        [failedBlock](const HttpSessionFailure& ended) {
            if (failedBlock) failedBlock({ended.status, nullptr}, ended.error);
        });
}

}  // namespace quomi
