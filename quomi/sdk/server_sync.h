#pragma once

#include "quomi/platform/location.h"
#include "quomi/util/lifetime.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quomi {

class HostDelegate;
class QuomiDataUpdater;
struct QuomiSettings;

/// Downloads all beacons that the settings watch: those of the normal UUID, in the rotating mode those of the secure
/// one as well. `ended`, which may be empty, is called at the end of each download, good or bad; the result is how many
/// there are.
int downloadAllBeacons(QuomiDataUpdater& updater, const QuomiSettings& settings, const std::function<void()>& ended);

/// The host's synchronisations with the server that wait for their downloads. Host's thread only.
class ServerSyncs {
public:
    using Handler = std::function<void(std::uint64_t)>;
    struct Sync;
    using List = std::vector<std::shared_ptr<Sync>>;

    /// How a synchronisation ended.
    static constexpr std::uint64_t kDone = 0;

    /// The host outlives the object.
    explicit ServerSyncs(const HostDelegate& host) : host_(host) {}

    /// Downloads what the settings switch on; geofences around the place, or around the zero point when none is known.
    /// The handler is called once, with `kDone`: when all downloads have ended, at once when there are none.
    void begin(Handler handler, QuomiDataUpdater& updater, const QuomiSettings& settings,
               const std::optional<Location>& here);
    /// Those that wait; they wait no longer for their downloads, but for `finish`.
    [[nodiscard]] List take();
    /// Calls their handlers.
    void finish(const List& syncs) const;

private:
    void finishIfDone(const std::shared_ptr<Sync>& sync);

    const HostDelegate& host_;
    List waiting_;
    const Lifetime lifetime_;
};

}  // namespace quomi
