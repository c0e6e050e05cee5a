#pragma once

#include "quomi/util/time.h"

#include <chrono>
#include <csignal>
#include <iosfwd>

namespace quomi::tool {

/// What stands around a replay while it is played: SIGINT, SIGTERM and SIGHUP end it instead of the process, and what
/// takes longer than a second shows on a terminal how far it is. One at a time.
class Playing {
public:
    /// `err` is written to only when it shows progress; it outlives the object.
    Playing(std::ostream& err, bool showsProgress);
    ~Playing();
    Playing(const Playing&) = delete;
    Playing& operator=(const Playing&) = delete;

    /// The visit is at a time of so many in all. False when it shall end.
    [[nodiscard]] bool goesOn(Duration at, Duration end);
    /// Something else is about to be written.
    void hideProgress();

    /// The signal that came first since the latest object was made; 0 for none.
    [[nodiscard]] static int signal();

private:
    using Clock = std::chrono::steady_clock;

    std::ostream& err_;
    const bool showsProgress_;
    bool isShown_ = false;
    unsigned calls_ = 0;
    Clock::time_point next_;
    struct sigaction before_[3] = {};
};

}  // namespace quomi::tool
