#pragma once

#include "tools/quomi/replay/trace.h"
#include "tools/quomi/visit/visit.h"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quomi::tool {

struct ReplayOptions {
    /// The app's container; empty for a fresh temporary one that is removed at the end.
    std::filesystem::path state;
    /// Base URL of a running server to use instead of the visit's back office.
    std::optional<std::string> backoffice;
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

}  // namespace quomi::tool
