// The facade's upkeep of the stored data: synchronisation with the server, counters, removal.
#include "quomi/data/data.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/sdk/deferred_release.h"
#include "quomi/sdk/host_delegate.h"
#include "quomi/sdk/sdk.h"
#include "quomi/sdk/server_sync.h"
#include "quomi/sdk/session.h"

#include <utility>

namespace quomi {

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
    syncs_->begin(std::move(completionHandler), *session_->dataUpdater(), settings_, session_->currentLocation());
}

void QuomiSDK::updateAllRulesData() {
    if (geofencesEnabled()) triggerLocationUpdate();
    if (!beaconsEnabled() || session_ == nullptr || session_->dataUpdater() == nullptr) return;
    downloadAllBeacons(*session_->dataUpdater(), settings_, [] {});
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
    syncs_->finish(syncs_->take());
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
