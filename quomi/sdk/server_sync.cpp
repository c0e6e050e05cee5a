#include "quomi/sdk/server_sync.h"

#include "quomi/data/data_updater.h"
#include "quomi/model/settings.h"
#include "quomi/sdk/host_delegate.h"
#include "quomi/util/uuid.h"

#include <utility>

namespace quomi {

struct ServerSyncs::Sync {
    Handler handler;
    int pendingDownloads = 0;
};

int downloadAllBeacons(QuomiDataUpdater& updater, const QuomiSettings& settings, const std::function<void()>& ended) {
    std::vector uuids{settings.beaconProximityUUIDNormal};
    if (settings.beaconSecurityMode == kBeaconSecurityModeRotatingAdvertisement) {
        uuids.push_back(settings.beaconProximityUUIDSecure);
    }
    QuomiDataUpdater::Success success;
    QuomiDataUpdater::Failure failure;
    if (ended) {
        success = [ended](bool) { ended(); };
        failure = [ended](const Error&) { ended(); };
    }
    for (const auto& text : uuids) {
        updater.performFullBeaconsDataUpdate({Uuid::parse(text).value_or(Uuid())}, success, failure);
    }
    return static_cast<int>(uuids.size());
}

void ServerSyncs::begin(Handler handler, QuomiDataUpdater& updater, const QuomiSettings& settings,
                        const std::optional<Location>& here) {
    const auto sync = std::make_shared<Sync>(Sync{std::move(handler)});
    waiting_.push_back(sync);
    const auto ended = lifetime_.guard([this, sync] {
        --sync->pendingDownloads;
        finishIfDone(sync);
    });
    if (settings.beaconEnabled) sync->pendingDownloads += downloadAllBeacons(updater, settings, ended);
    if (settings.geofencingEnabled) {
        const auto place = here ? here->coordinate : Coordinate{};
        const bool isBegun = updater.performFullGeofencesDataUpdate(
            {place.latitude, place.longitude, static_cast<double>(kGeofenceDownloadRadius)}, [ended](bool) { ended(); },
            [ended](const Error&) { ended(); });
        if (isBegun) ++sync->pendingDownloads;
    }
    finishIfDone(sync);
}

/// Failures are not told apart: deliberate, a host's slot in the background ends the same way.
void ServerSyncs::finishIfDone(const std::shared_ptr<Sync>& sync) {
    if (sync->pendingDownloads == 0 && std::erase(waiting_, sync) > 0) host_.call(sync->handler, kDone);
}

ServerSyncs::List ServerSyncs::take() {
    return std::exchange(waiting_, {});
}

void ServerSyncs::finish(const List& syncs) const {
    for (const auto& sync : syncs) host_.call(sync->handler, kDone);
}

}  // namespace quomi
