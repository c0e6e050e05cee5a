#include "hosts/posix/run_loop.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

namespace quomi::posix {
namespace {

using Steady = std::chrono::steady_clock;
using Moment = Steady::time_point;

/// Longer than any process runs, and short enough that no sum of moments overflows.
constexpr Duration kLongestDelay = std::chrono::hours(24 * 365 * 100);

struct TimerEntry {
    Duration interval{};  // zero: fires once
    Task task;
    Moment due;
    std::uint64_t order = 0;
};

void runDroppingExceptions(const Task& task) {
    try {
        if (task) task();
    } catch (...) {  // NOLINT(bugprone-empty-catch): a task's fault must not end the host's loop
    }
}

/// The first moment of the timer's beat after `now`.
Moment nextBeat(const TimerEntry& timer, Moment now) {
    const auto missed = (now - timer.due) / timer.interval;
    return timer.due + (missed + 1) * timer.interval;
}

}  // namespace

struct RunLoop::State {
    struct Posted {
        Moment at;
        Task task;
    };

    const std::thread::id hostThread = std::this_thread::get_id();

    std::mutex mutex;  // guards the three below
    std::condition_variable changed;
    std::deque<Posted> posted;
    bool stopRequested = false;

    // Host's thread only.
    std::map<std::pair<Moment, std::uint64_t>, std::shared_ptr<TimerEntry>> timers;
    std::uint64_t nextOrder = 0;
    int runs = 0;  // nested in each other

    void post(Task task);
    void insert(const std::shared_ptr<TimerEntry>& timer) {
        timers.emplace(std::pair(timer->due, timer->order), timer);
    }
    void remove(const TimerEntry& timer) { timers.erase({timer.due, timer.order}); }

    /// What runs next, waiting for it until `limit`. Empty at the limit and after `stop`.
    Task next(Moment limit);

private:
    [[nodiscard]] Moment firstDue() const { return timers.empty() ? Moment::max() : timers.begin()->first.first; }
    Task takeTimer(Moment now);
    Task takePosted();
};

void RunLoop::State::post(Task task) {
    const std::lock_guard lock(mutex);
    posted.push_back({Steady::now(), std::move(task)});
    changed.notify_one();
}

Task RunLoop::State::takeTimer(Moment now) {
    auto timer = timers.begin()->second;
    timers.erase(timers.begin());
    if (timer->interval == Duration::zero()) return std::move(timer->task);
    timer->due = nextBeat(*timer, now);
    insert(timer);
    return [timer = std::move(timer)] { timer->task(); };
}

Task RunLoop::State::takePosted() {
    Task task = std::move(posted.front().task);
    posted.pop_front();
    return task ? std::move(task) : [] {};
}

Task RunLoop::State::next(Moment limit) {
    std::unique_lock lock(mutex);
    for (;;) {
        if (stopRequested) return {};
        const Moment now = Steady::now();
        const Moment due = firstDue();
        if (due <= now && (posted.empty() || due < posted.front().at)) return takeTimer(now);
        if (!posted.empty()) return takePosted();
        if (now >= limit) return {};
        const Moment wake = std::min(limit, due);
        if (wake == Moment::max()) {
            changed.wait(lock);
        } else {
            changed.wait_until(lock, wake);
        }
    }
}

/// A run under way. A stop holds for all that are nested, so the outermost one uses it up.
class RunLoop::Run {
public:
    explicit Run(State& state) : state_(state) { ++state_.runs; }
    ~Run() {
        if (--state_.runs > 0) return;
        const std::lock_guard lock(state_.mutex);
        state_.stopRequested = false;
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

private:
    State& state_;
};

class RunLoop::OwnedTimer final : public Timer {
public:
    OwnedTimer(std::weak_ptr<State> state, std::shared_ptr<TimerEntry> entry)
        : state_(std::move(state)), entry_(std::move(entry)) {}
    ~OwnedTimer() override {
        if (const auto state = state_.lock()) state->remove(*entry_);
    }
    OwnedTimer(const OwnedTimer&) = delete;
    OwnedTimer& operator=(const OwnedTimer&) = delete;

private:
    std::weak_ptr<State> state_;
    std::shared_ptr<TimerEntry> entry_;
};

RunLoop::RunLoop() : state_(std::make_shared<State>()) {}
RunLoop::~RunLoop() = default;

void RunLoop::run() {
    const Run underWay(*state_);
    while (const Task task = state_->next(Moment::max())) runDroppingExceptions(task);
}

void RunLoop::runUntilIdle() {
    const Run underWay(*state_);
    while (const Task task = state_->next(Moment::min())) runDroppingExceptions(task);
}

bool RunLoop::runUntil(const std::function<bool()>& done, Duration atMost) {
    const Run underWay(*state_);
    const Moment limit = Steady::now() + std::clamp(atMost, Duration::zero(), kLongestDelay);
    bool isDone = done();
    while (!isDone) {
        const Task task = state_->next(limit);
        if (!task) break;
        runDroppingExceptions(task);
        isDone = done();
    }
    return isDone;
}

void RunLoop::stop() {
    const std::lock_guard lock(state_->mutex);
    state_->stopRequested = true;
    state_->changed.notify_one();
}

void RunLoop::post(Task task) {
    state_->post(std::move(task));
}

void RunLoop::postToGlobalQueue(Task task) {
    state_->post(std::move(task));
}

std::unique_ptr<Timer> RunLoop::schedule(Duration delay, Duration interval, Task task) {
    auto entry = std::make_shared<TimerEntry>();
    entry->interval = interval;
    entry->task = task ? std::move(task) : [] {};
    entry->due = Steady::now() + std::clamp(delay, Duration::zero(), kLongestDelay);
    entry->order = state_->nextOrder++;
    state_->insert(entry);
    return std::make_unique<OwnedTimer>(state_, std::move(entry));
}

std::unique_ptr<Timer> RunLoop::scheduleOnce(Duration delay, Task task) {
    return schedule(delay, Duration::zero(), std::move(task));
}

std::unique_ptr<Timer> RunLoop::scheduleRepeating(Duration interval, Task task) {
    const Duration beat = std::clamp(interval, Duration(1), kLongestDelay);
    return schedule(beat, beat, std::move(task));
}

bool RunLoop::isHostThread() const {
    return std::this_thread::get_id() == state_->hostThread;
}

bool RunLoop::runOneSource() {
    if (!isHostThread()) return false;
    const Task task = state_->next(Moment::max());
    if (!task) return false;
    runDroppingExceptions(task);
    return true;
}

}  // namespace quomi::posix
