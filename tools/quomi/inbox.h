#pragma once

#include "quomi/util/time.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

namespace quomi::tool {

/// What a device sent: a user's record, or one event of its log.
enum class ReceivedKind { user, event };

struct Received {
    ReceivedKind kind = ReceivedKind::event;
    /// When the back office received it.
    WallTime at;
    /// The device that sent it.
    std::string udid;
    /// The date that an event carries, as written; empty for a user.
    std::string date;
    /// JSON text: an event's "data" (null where it had none), a user's "u_app_user".
    std::string content;
};

/// What a back office has received, oldest first, up to a bound on number and size; beyond it the oldest go. Any
/// thread may call.
class Inbox {
public:
    struct Bounds {
        std::size_t entries = 10'000;
        std::size_t bytes = std::size_t{64} * 1024 * 1024;
    };

    struct Counts {
        std::uint64_t users = 0;
        std::uint64_t events = 0;
        /// How many of them are no longer kept.
        std::uint64_t dropped = 0;
    };

    Inbox() = default;
    explicit Inbox(const Bounds& bounds) : bounds_(bounds) {}

    /// Takes all entries of one request, together: no reader sees a part of them.
    void add(std::vector<Received> entries);

    /// The newest `most` entries, oldest of them first.
    [[nodiscard]] std::vector<Received> newest(std::size_t most) const;
    [[nodiscard]] std::vector<Received> all() const;
    /// Of everything ever received.
    [[nodiscard]] Counts counts() const;

private:
    void keep(Received entry);

    Bounds bounds_;
    mutable std::mutex mutex_;
    std::deque<Received> entries_;
    std::size_t bytes_ = 0;
    Counts counts_;
};

}  // namespace quomi::tool
