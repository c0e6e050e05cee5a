#include "quomi/data/data_updater.h"

#include "quomi/data/data.h"
#include "quomi/data/parser.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"

#include <fmt/format.h>

namespace quomi {

QuomiDataUpdater::QuomiDataUpdater(QuomiData& data, RulesSource& apiClient,
                                   QuomiDataApiResponseParser& apiResponseParser, const Platform& platform,
                                   const QuomiSettings& settings, DebugLog& debugLog)
    : data_(data),
      apiClient_(&apiClient),
      apiResponseParser_(apiResponseParser),
      platform_(platform),
      settings_(settings),
      debugLog_(debugLog) {}

WallTime QuomiDataUpdater::lastBeaconUpdate() {
    return data_.lastUpdateDates().beacons;
}

WallTime QuomiDataUpdater::lastGeofenceUpdate() {
    return data_.lastUpdateDates().geofences;
}

bool QuomiDataUpdater::isDue(WallTime lastUpdate) const {
    return toSeconds(platform_.clock.now() - lastUpdate) > kAPIMinimumRefreshInterval;
}

bool QuomiDataUpdater::beaconsDataNeedUpdating() {
    return isDue(lastBeaconUpdate());
}

bool QuomiDataUpdater::geofencesDataNeedUpdating() {
    return isDue(lastGeofenceUpdate());
}

void QuomiDataUpdater::performBeaconsDataUpdateIfNeeded(const UpdateBeacons& beacons, const Success& success,
                                                        const Failure& failure) {
    const WallTime lastUpdate = lastBeaconUpdate();
    if (isDue(lastUpdate)) {
        updateBeaconsData(beacons, lastUpdate, success, failure);
    } else if (success) {
        success(false);
    }
}

void QuomiDataUpdater::performGeofencesDataUpdateIfNeeded(const UpdateArea& area, const Success& success,
                                                          const Failure& failure) {
    const WallTime lastUpdate = lastGeofenceUpdate();
    if (isDue(lastUpdate)) {
        updateGeofencesData(area, lastUpdate, success, failure);
    } else if (success) {
        success(false);
    }
}

void QuomiDataUpdater::performFullBeaconsDataUpdate(const UpdateBeacons& beacons, const Success& success,
                                                    const Failure& failure) {
    updateBeaconsData(beacons, std::nullopt, success, failure);
}

bool QuomiDataUpdater::performFullGeofencesDataUpdate(const UpdateArea& area, const Success& success,
                                                      const Failure& failure) {
    return updateGeofencesData(area, std::nullopt, success, failure);
}

void QuomiDataUpdater::updateBeaconsData(const UpdateBeacons& beacons, std::optional<WallTime> updatedAt,
                                         const Success& success, const Failure& failure) {
    apiClient_->getBeaconsRulesWithNamespace(
        {settings_.namespace_.value_or(""), beacons.proximityUUID, beacons.major, beacons.minor, updatedAt},
        download(&QuomiDataApiResponseParser::parseAndSaveApiBeaconsResponseData, success, failure));
}

bool QuomiDataUpdater::updateGeofencesData(const UpdateArea& area, std::optional<WallTime> updatedAt,
                                           const Success& success, const Failure& failure) {
    return apiClient_->getGeofencesRulesWithNamespace(
        {settings_.namespace_.value_or(""), area.latitude.value_or(0), area.longitude.value_or(0),
         area.radius.value_or(0), updatedAt},
        download(&QuomiDataApiResponseParser::parseAndSaveApiGeofencesResponseData, success, failure));
}

RulesDownload QuomiDataUpdater::download(Parse parse, const Success& success, const Failure& failure) {
    RulesDownload download;
    download.take = lifetime_.guard([this, parse](const boost::json::value& response, std::optional<Error>* error) {
        store(parse, response, error);
    });
    download.failed = lifetime_.guard(
        [this](const Error& error) { platform_.console.log(fmt::format("Quomi SDK Error: {}", describe(error))); });
    if (success) download.success = lifetime_.guard([success] { success(true); });
    if (failure) download.failure = lifetime_.guard(failure);
    return download;
}

void QuomiDataUpdater::store(Parse parse, const boost::json::value& response, std::optional<Error>* error) {
    data_.startBackgroundObjectContext();
    std::optional<Error> why;
    if (!(apiResponseParser_.*parse)(response, &why)) {
        debugLog_.log("A download could not be stored: {}", why ? describe(*why) : "(null)");
    }
    data_.finishBackgroundObjectContext();
    if (why) assign(error, std::move(*why));
}

}  // namespace quomi
