// The facade's upkeep of the stored data: synchronisation with the server, counters, removal.
#include "quomi/data/data.h"
#include "quomi/data/data_updater.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/sdk/deferred_release.h"
#include "quomi/sdk/host_delegate.h"
#include "quomi/sdk/sdk.h"
#include "quomi/sdk/session.h"
#include "quomi/util/uuid.h"

#include <algorithm>
#include <utility>

namespace quomi {

/// One synchronisation that waits for its downloads.
struct QuomiSDK::ServerSync {
    SyncHandler handler;
    bool isBeaconsDone = false;
    bool isGeofencesDone = false;
};

namespace {

Uuid normalBeacons(const QuomiSettings& settings) {
    return Uuid::parse(settings.beaconProximityUUIDNormal).value_or(Uuid());
}

}  // namespace

void QuomiSDK::performServerSync(SyncHandler completionHandler) {
    if (!completionHandler) {
        warn("QuomiSDK Error: completionHandler for performServerSync not provided! Aborting server sync...");
        return;
    }
    if (!running_ || session_ == nullptr) {
        host_->call(completionHandler, kServerSyncDone);
        return;
    }
    if (!appNamespace()) {
        warn("QuomiSDK Error: app namespace not set! Aborting server sync...");
        host_->call(completionHandler, kServerSyncWithoutNamespace);
        return;
    }
    const auto sync =
        std::make_shared<ServerSync>(ServerSync{std::move(completionHandler), !beaconsEnabled(), !geofencesEnabled()});
    syncs_.push_back(sync);
    downloadBeaconsFor(sync);
    downloadGeofencesFor(sync);
    finishIfDone(sync);
}

void QuomiSDK::downloadBeaconsFor(const std::shared_ptr<ServerSync>& sync) {
    if (sync->isBeaconsDone) return;
    const auto done = [this, sync] {
        sync->isBeaconsDone = true;
        finishIfDone(sync);
    };
    session_->dataUpdater()->performFullBeaconsDataUpdate(
        {normalBeacons(settings_)}, [done](bool) { done(); }, [done](const Error&) { done(); });
}

void QuomiSDK::downloadGeofencesFor(const std::shared_ptr<ServerSync>& sync) {
    if (sync->isGeofencesDone) return;
    const auto done = [this, sync] {
        sync->isGeofencesDone = true;
        finishIfDone(sync);
    };
    const auto location = session_->currentLocation();
    const auto place = location ? location->coordinate : Coordinate{};
    const bool isBegun = session_->dataUpdater()->performFullGeofencesDataUpdate(
        {place.latitude, place.longitude, static_cast<double>(kGeofenceDownloadRadius)}, [done](bool) { done(); },
        [done](const Error&) { done(); });
    if (!isBegun) sync->isGeofencesDone = true;
}

/// Failures are not told apart: deliberate, a host's slot in the background ends the same way.
void QuomiSDK::finishIfDone(const std::shared_ptr<ServerSync>& sync) {
    if (!sync->isBeaconsDone || !sync->isGeofencesDone || std::erase(syncs_, sync) == 0) return;
    host_->call(sync->handler, kServerSyncDone);
}

void QuomiSDK::finishSyncs(const Syncs& syncs) {
    for (const auto& sync : syncs) host_->call(sync->handler, kServerSyncDone);
}

void QuomiSDK::updateAllRulesData() {
    if (geofencesEnabled()) triggerLocationUpdate();
    if (!beaconsEnabled() || session_ == nullptr || session_->dataUpdater() == nullptr) return;
    session_->dataUpdater()->performFullBeaconsDataUpdate({normalBeacons(settings_)});
}

void QuomiSDK::triggerLocationUpdate() {
    if (session_ != nullptr) session_->setForceFullGeofencesUpdate();
    if (!updateLocation() && session_ != nullptr) session_->stopLocation();
}

bool QuomiSDK::updateLocation(std::optional<Error>* error) {
    if (!running_ || session_ == nullptr) {
        assign(error, errors_->errorWithCode(ErrorCode::notStarted));
        return false;
    }
    if (!geofencesEnabled()) {
        assign(error, errors_->errorWithCode(ErrorCode::geofencesDisabled));
        return false;
    }
    session_->startLocationMonitoringWithBackgroundModeSupport();
    return true;
}

bool QuomiSDK::openStore(bool allowStoreDeletion, std::optional<Error>* error) {
    // Without a session the SDK runs only while it stops, and its store is not to be opened behind its back.
    if (running_ && session_ == nullptr) return fail(error, errors_->errorWithCode(ErrorCode::notStarted));
    if (session_ == nullptr) session_ = makeSession();
    const auto session = session_;
    std::optional<Error> failure;
    if (session->openData(allowStoreDeletion, &failure)) return true;
    return fail(error, failure.value_or(errors_->errorWithCode(ErrorCode::data)));
}

bool QuomiSDK::resetCounters(std::optional<Error>* error) {
    debugLog_->log("resetCounters");
    if (!openStore(false, error)) return false;
    auto& data = *session_->data();
    // All three, whatever becomes of one.
    const bool isGlobalReset = data.resetGlobalCounters(error);
    const bool areBeaconsReset = data.resetAllBeaconsCounters(error);
    const bool areGeofencesReset = data.resetAllGeofencesCounters(error);
    return isGlobalReset && areBeaconsReset && areGeofencesReset;
}

bool QuomiSDK::removeAllData(std::optional<Error>* error) {
    debugLog_->log("Quomi SDK removeAllData");
    const bool wasRunning = running_;
    stop();
    // A start that failed leaves downloads behind; those who wait for them wait no longer.
    finishSyncs(std::exchange(syncs_, {}));
    // The host started anew when it heard of the end.
    if (running_) return fail(error, errors_->errorWithCode(ErrorCode::dataRemoval));
    if (const auto session = std::exchange(session_, nullptr)) {
        session->drop();
        graveyard_->release(session);
    }
    if (!openStore(true, error)) return false;
    if (!session_->data()->removeEverything()) {
        return fail(error, errors_->errorWithCode(ErrorCode::dataRemoval));
    }
    return wasRunning ? start(error) : true;
}

}  // namespace quomi
