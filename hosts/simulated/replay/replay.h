#pragma once

#include "hosts/simulated/replay/trace.h"
#include "hosts/simulated/track.h"
#include "hosts/simulated/virtual_loop.h"
#include "hosts/simulated/visit/visit.h"
#include "quomi/api/http_transport.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quomi::simulated {

/// The way from a phone to servers that are not part of it. Requests are sent and answered on the host's thread.
class ServerLink : public HttpTransport {
public:
    /// Runs what the phone has to do at this instant, and returns when no request waits for its answer any more.
    virtual void settle() = 0;
};

/// Makes the link for a phone with that loop, which outlives it. `baseURLs` tells the base URLs in force.
using ConnectServers =
    std::function<std::unique_ptr<ServerLink>(VirtualLoop& loop, std::function<std::vector<std::string>()> baseURLs)>;

struct ReplayOptions {
    /// The app's container; empty for a fresh temporary one that is removed at the end.
    std::filesystem::path state;
    /// Makes servers ready that take the place of the visit's back office. An empty result is a failure, of which it
    /// tells the reason.
    std::function<ConnectServers(const Visit& visit, VisitError& error)> openServers;
    /// Reads the track of a `walk`: `readGpxFile` of quomi::gpx, for those who link it. Without it a visit that walks
    /// is refused.
    std::function<std::optional<Track>(const std::string& path, std::optional<Error>* error)> readTrack;
    /// Told of every position of the device as it comes, before anybody else hears of it.
    std::function<void(const Coordinate& place, Duration at)> moved;
};

/// Plays one visit through the real SDK on a simulated phone under its virtual clock, and writes the trace.
///
/// The same visit on the same state gives the same trace, byte for byte, unless a running server was named. One thread;
/// a replay is played once.
class Replay {
public:
    /// Reads all that the visit names and sets up phone, back office and SDK; nothing is played yet. Null when that
    /// cannot be done, with what was wrong. The visit outlives the replay.
    [[nodiscard]] static std::unique_ptr<Replay> prepare(const Visit& visit, const ReplayOptions& options,
                                                         TraceSink sink, VisitError* error);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    /// Plays to the visit's end. False when the app did not come to rest at some instant.
    bool play();

    /// The phone's wall clock.
    [[nodiscard]] WallTime now() const;

private:
    class Player;
    explicit Replay(std::unique_ptr<Player> player);
    std::unique_ptr<Player> player_;
};

}  // namespace quomi::simulated
