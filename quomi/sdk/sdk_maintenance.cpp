// The facade's upkeep of the stored data: synchronisation with the server, counters, removal.
#include "quomi/data/data.h"
#include "quomi/sdk/sdk.h"
#include "quomi/sdk/sdk_state.h"
#include "quomi/sdk/server_sync.h"
#include "quomi/sdk/session.h"

#include <utility>

namespace quomi {

void QuomiSDK::performServerSync(SyncHandler completionHandler) {
    if (!completionHandler) {
        warn("QuomiSDK Error: completionHandler for performServerSync not provided! Aborting server sync...");
        return;
    }
    if (!state_->running || session_ == nullptr) {
        state_->host.call(completionHandler, kServerSyncDone);
        return;
    }
    if (!appNamespace()) {
        warn("QuomiSDK Error: app namespace not set! Aborting server sync...");
        state_->host.call(completionHandler, kServerSyncWithoutNamespace);
        return;
    }
    syncs_->begin(std::move(completionHandler), *session_->dataUpdater(), settings_, session_->currentLocation());
}

void QuomiSDK::updateAllRulesData() {
    if (const auto session = session_) session->updateAllRulesData();
}

void QuomiSDK::triggerLocationUpdate() {
    if (const auto session = session_) session->triggerLocationUpdate();
}

bool QuomiSDK::updateLocation(std::optional<Error>* error) {
    if (const auto session = session_) return session->updateLocation(error);
    assign(error, state_->errors.errorWithCode(ErrorCode::notStarted));
    return false;
}

bool QuomiSDK::openStore(bool allowStoreDeletion, std::optional<Error>* error) {
    // Without a session the SDK runs only while it stops, and its store is not to be opened behind its back.
    if (state_->running && session_ == nullptr) return fail(error, state_->errors.errorWithCode(ErrorCode::notStarted));
    if (session_ == nullptr) session_ = std::make_shared<Session>(*state_);
    const auto session = session_;
    std::optional<Error> failure;
    if (session->openData(allowStoreDeletion, &failure)) return true;
    return fail(error, failure.value_or(state_->errors.errorWithCode(ErrorCode::data)));
}

bool QuomiSDK::resetCounters(std::optional<Error>* error) {
    state_->debugLog.log("resetCounters");
    if (!openStore(false, error)) return false;
    auto& data = *session_->data();
    // All three, whatever becomes of one.
    const bool isGlobalReset = data.resetGlobalCounters(error);
    const bool areBeaconsReset = data.resetAllBeaconsCounters(error);
    const bool areGeofencesReset = data.resetAllGeofencesCounters(error);
    return isGlobalReset && areBeaconsReset && areGeofencesReset;
}

bool QuomiSDK::removeAllData(std::optional<Error>* error) {
    state_->debugLog.log("Quomi SDK removeAllData");
    const bool wasRunning = state_->running;
    stop();
    // A start that failed leaves downloads behind; those who wait for them wait no longer.
    syncs_->finish(syncs_->take());
    // The host started anew when it heard of the end.
    if (state_->running) return fail(error, state_->errors.errorWithCode(ErrorCode::dataRemoval));
    if (const auto session = std::exchange(session_, nullptr)) {
        session->drop();
        state_->graveyard.release(session);
    }
    if (!openStore(true, error)) return false;
    if (!session_->data()->removeEverything()) {
        return fail(error, state_->errors.errorWithCode(ErrorCode::dataRemoval));
    }
    return wasRunning ? start(error) : true;
}

}  // namespace quomi
