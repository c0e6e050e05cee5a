#include "quomi/data/data_updater.h"

#include "quomi/data/data.h"
#include "quomi/data/parser.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/util/uuid.h"

#include <fmt/format.h>

namespace quomi {

QuomiDataUpdater::QuomiDataUpdater(QuomiData& data, RulesSource& apiClient,
                                   QuomiDataApiResponseParser& apiResponseParser, const Platform& platform,
                                   const QuomiSettings& settings)
    : data_(data),
      apiClient_(&apiClient),
      apiResponseParser_(apiResponseParser),
      platform_(platform),
      settings_(settings) {}

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
        settings_.namespace_.value_or(""), beacons.proximityUUID, beacons.major, beacons.minor, updatedAt,
        store(&QuomiDataApiResponseParser::parseAndSaveApiBeaconsResponseData, success), report(failure));
}

bool QuomiDataUpdater::updateGeofencesData(const UpdateArea& area, std::optional<WallTime> updatedAt,
                                           const Success& success, const Failure& failure) {
    return apiClient_->getGeofencesRulesWithNamespace(
        settings_.namespace_.value_or(""), area.latitude.value_or(0), area.longitude.value_or(0),
        area.radius.value_or(0), updatedAt,
        store(&QuomiDataApiResponseParser::parseAndSaveApiGeofencesResponseData, success), report(failure));
}

RulesSource::Success QuomiDataUpdater::store(Parse parse, const Success& success) {
    return [this, parse, success, alive = std::weak_ptr(alive_)](const boost::json::value& response) {
        if (alive.expired()) return;
        data_.startBackgroundObjectContext();
        (apiResponseParser_.*parse)(response, nullptr);
        data_.finishBackgroundObjectContext();
        if (success) success(true);
    };
}

RulesSource::Failure QuomiDataUpdater::report(const Failure& failure) {
    return [this, failure, alive = std::weak_ptr(alive_)](const Error& error) {
        if (alive.expired()) return;
        platform_.console.log(fmt::format("Quomi SDK Error: {}", describe(error)));
        if (failure) failure(error);
    };
}

}  // namespace quomi
