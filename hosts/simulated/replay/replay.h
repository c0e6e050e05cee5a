#pragma once

#include "hosts/simulated/replay/trace.h"
#include "hosts/simulated/simulated_phone.h"
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

namespace quomi {
struct QuomiSDKDelegate;
}

namespace quomi::simulated {

/// Servers that are no part of the phone.
struct Servers {
    /// The base URL under which they are reached.
    std::string url;
    /// Makes what reaches them, for a phone with that loop, which outlives it.
    std::function<std::unique_ptr<HttpTransport>(VirtualLoop& loop)> connect;
};

struct ReplayOptions {
    /// The app's own delegate. It hears and decides in place of the visit's `app.delegate` with every function that it
    /// has when the replay is prepared; the trace has what it was told and what it answered.
    std::shared_ptr<const QuomiSDKDelegate> delegate{};
    /// Which of the operations that tell the host something are traced. The others are not implemented, unless by the
    /// app's own delegate, and cost next to nothing: most records of a long visit are pings and updates of beacons.
    TracedOperations traces{};
    /// The app's container; empty for a fresh temporary one that is removed at the end.
    std::filesystem::path state{};
    /// Opens servers that take the place of the visit's back office. An empty result is a failure, of which it tells
    /// the reason. Without it a campaign is served inside of the replay, without a socket.
    std::function<std::optional<Servers>(const Visit& visit, VisitError& error)> openServers{};
    /// Reads the track of a `walk`: `readGpxFile` of quomi::gpx, for those who link it. Without it a visit that walks
    /// is refused.
    std::function<std::optional<Track>(const std::string& path, std::optional<Error>* error)> readTrack{};
    /// Told of every position of the device as it comes, before anybody else hears of it.
    std::function<void(const Coordinate& place, Duration at)> moved{};
    /// Asked again and again how far it is; false ends it there.
    std::function<bool(Duration at, Duration end)> goesOn{};
};

/// Plays one visit through the real SDK on a simulated phone under its virtual clock, and writes the trace.
///
/// The same visit on the same state gives the same trace, byte for byte, unless a running server was named. One thread;
/// a replay is played once.
class Replay {
public:
    /// Reads a visit and all that it names and sets up phone, back office and SDK; nothing is played yet. Null when
    /// that cannot be done, with what was wrong.
    [[nodiscard]] static std::unique_ptr<Replay> load(const std::filesystem::path& visit, const ReplayOptions& options,
                                                      VisitError* error);
    /// The same of a visit that was read already and outlives the replay. The sink, where there is one, gets the trace.
    [[nodiscard]] static std::unique_ptr<Replay> prepare(const Visit& visit, const ReplayOptions& options,
                                                         TraceSink sink, VisitError* error);
    ~Replay();
    Replay(const Replay&) = delete;
    Replay& operator=(const Replay&) = delete;

    /// Plays to the visit's end. False when the app did not come to rest at some instant, or when it shall not go on.
    bool play();

    /// The phone, which shows what the app did to it.
    [[nodiscard]] SimulatedPhone& phone();
    /// The phone's wall clock.
    [[nodiscard]] WallTime now() const;

private:
    class Player;
    explicit Replay(std::unique_ptr<Player> player);
    std::unique_ptr<const Visit> visit_;  // empty where it is somebody else's
    std::unique_ptr<Player> player_;
};

}  // namespace quomi::simulated
