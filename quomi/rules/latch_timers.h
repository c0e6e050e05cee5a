#pragma once

#include "quomi/util/time.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>

namespace quomi {

class RunLoop;
class Timer;

/// What a rule leaves behind when it waits its latch time: identifiers, because its objects may be gone by then.
struct Latch {
    std::string latchTimeRegionID;  ///< identifier of the beacon or geofence
    std::string latchTimeRuleID;
    std::string trigger;
};

/// The latch times that run, by beacon or geofence: each is one one-shot timer on the host's run loop. To start one
/// and to end one costs O(log n). Host's thread.
class LatchTimers {
public:
    using Handler = std::function<void(const Latch&)>;

    /// `expired` is called when a latch time has passed; its timer is gone by then. `cancelled` is called for each
    /// that is cleared, when all of that clearing are gone; it may be empty. Both may use the timers. The run loop
    /// outlives them.
    LatchTimers(RunLoop& runLoop, Handler expired, Handler cancelled);
    ~LatchTimers();
    LatchTimers(const LatchTimers&) = delete;
    LatchTimers& operator=(const LatchTimers&) = delete;

    /// Two events for one rule make two timers.
    void start(Latch latch, Duration latchTime);
    void clearAll();
    void clear(const std::string& regionID);
    [[nodiscard]] std::size_t count() const;

private:
    struct Pending;
    using PendingByNumber = std::map<std::uint64_t, std::unique_ptr<Pending>>;  // in order of starting

    void fire(const std::string& regionID, std::uint64_t number);
    void cancelTimers(const PendingByNumber& pending) const;

    RunLoop& runLoop_;
    const Handler expired_;
    const Handler cancelled_;
    std::uint64_t started_ = 0;
    std::unordered_map<std::string, PendingByNumber> delayedRulesExecutionTimers_;
};

}  // namespace quomi
