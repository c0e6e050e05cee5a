#include "quomi/rules/latch_timers.h"

#include "quomi/platform/run_loop.h"

#include <utility>

namespace quomi {

struct LatchTimers::Pending {
    Latch latch;
    std::unique_ptr<Timer> timer;
};

LatchTimers::LatchTimers(RunLoop& runLoop, Handler expired, Handler cancelled)
    : runLoop_(runLoop), expired_(std::move(expired)), cancelled_(std::move(cancelled)) {}

LatchTimers::~LatchTimers() = default;

void LatchTimers::start(Latch latch, Duration latchTime) {
    const auto number = ++started_;
    const auto regionID = latch.latchTimeRegionID;
    auto timer = runLoop_.scheduleOnce(latchTime, [this, regionID, number] { fire(regionID, number); });
    delayedRulesExecutionTimers_[regionID].emplace(
        number, std::make_unique<Pending>(Pending{std::move(latch), std::move(timer)}));
}

void LatchTimers::fire(const std::string& regionID, std::uint64_t number) {
    const auto region = delayedRulesExecutionTimers_.find(regionID);
    auto fired = region->second.extract(number);
    if (region->second.empty()) delayedRulesExecutionTimers_.erase(region);
    const Latch latch = std::move(fired.mapped()->latch);
    // With the timer goes the closure that this call came from, and with it what the arguments refer to.
    fired = {};
    expired_(latch);
}

void LatchTimers::clearAll() {
    PendingByNumber all;
    for (auto& [regionID, pending] : std::exchange(delayedRulesExecutionTimers_, {})) all.merge(pending);
    cancelTimers(all);
}

void LatchTimers::clear(const std::string& regionID) {
    auto pending = delayedRulesExecutionTimers_.extract(regionID);
    if (!pending.empty()) cancelTimers(pending.mapped());
}

void LatchTimers::cancelTimers(const PendingByNumber& pending) const {
    for (const auto& [number, each] : pending) each->timer.reset();
    if (!cancelled_) return;
    for (const auto& [number, each] : pending) cancelled_(each->latch);
}

std::size_t LatchTimers::count() const {
    std::size_t count = 0;
    for (const auto& [regionID, pending] : delayedRulesExecutionTimers_) count += pending.size();
    return count;
}

}  // namespace quomi
