#pragma once

#include "quomi/platform/clock.h"
#include "quomi/platform/run_loop.h"

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

namespace quomi::simulated {

/// The clock and the run loop of a simulated phone, on one virtual time that only whoever drives the phone moves.
///
/// Monotonic time begins at 0. Code takes no time: every reading at an instant gives that instant. What runs at an
/// instant runs in this order: turns (posted tasks, also those of the global queue) in order of
/// posting, then timers in order of creation, then answers in order of creation; after each of them the turns that it
/// posted. So two runs of the same program are the same.
///
/// A driver does something, calls `runTurns`, and then goes from `nextEvent` to `nextEvent` with `advanceTo`:
///
///     loop.runTurns();
///     while (auto next = loop.nextEvent(); next && *next <= end) loop.advanceTo(*next);
///
/// The thread that constructs the loop is the host's thread; it alone drives the loop. Other threads may post, read the
/// clocks and ask `isHostThread`. What a task throws is dropped. Destroying the loop drops what waits, unrun; timers
/// may outlive it and do nothing any more.
class VirtualLoop final : public Clock, public RunLoop {
public:
    /// More turns than this at one instant are taken for an endless loop.
    static constexpr std::size_t kMostTurns = 1'000'000;

    /// `start` is the wall clock at monotonic 0.
    explicit VirtualLoop(WallTime start = {}, std::string timeZone = "UTC", std::size_t mostTurns = kMostTurns);
    ~VirtualLoop() override;
    VirtualLoop(const VirtualLoop&) = delete;
    VirtualLoop& operator=(const VirtualLoop&) = delete;

    // Driving

    /// Runs everything that needs no time: turns, and timers and answers that are due. False when it gave up because
    /// tasks kept posting tasks (`mostTurns`); what waits then stays.
    bool runTurns();

    /// When the next timer or answer comes, never before now; empty when none is set. While suspended only what the
    /// phone itself does counts. Turns that wait are not counted: call `runTurns` first.
    [[nodiscard]] std::optional<MonotonicTime> nextEvent() const;

    /// Runs everything due up to and including `time` in order, the clock standing at each event's time, and leaves the
    /// clock at `time`. A time before now only runs what is due now. False when it gave up as `runTurns` does; the
    /// clock then stands at that instant.
    bool advanceTo(MonotonicTime time);
    bool advanceBy(Duration span) { return advanceTo(monotonicNow() + span); }

    /// The app's process stands still: time passes, no turn, timer or answer runs. After `resume`, the next `runTurns`
    /// runs what came due meanwhile, in the order in which it came due; what the driver did at an instant comes after
    /// the timers and answers of that instant, as it does while the app runs.
    void suspend();
    void resume();
    [[nodiscard]] bool isSuspended() const { return suspended_; }

    /// Moves the wall clock; monotonic time and timers do not notice.
    void jumpWallClock(Seconds seconds);
    /// An IANA name; it is not checked.
    void setTimeZone(std::string name);

    /// Waits in real time until another thread has posted a turn, or for `atMost`; virtual time stands still. True when
    /// a turn waits. For drivers with a real transport.
    bool waitForPost(std::chrono::milliseconds atMost);

    /// Drops everything that waits, unrun.
    void clear();

    /// Timers and answers that are set, for leak checks.
    [[nodiscard]] std::size_t pendingEvents() const;

    // What else the phone schedules

    /// Runs the task `delay` from now, after the timers of that instant: the answer of a server. Dropping the handle
    /// cancels it. Host's thread.
    [[nodiscard]] std::unique_ptr<Timer> scheduleAnswer(Duration delay, Task task);
    /// A timer of the phone rather than of the app: it runs while the app is suspended, and posts what it has to tell.
    /// An `interval` not above zero makes it a one-shot. Host's thread.
    [[nodiscard]] std::unique_ptr<Timer> schedulePhoneTimer(Duration delay, Duration interval, Task task);

    // Clock

    [[nodiscard]] WallTime now() const override;
    [[nodiscard]] MonotonicTime monotonicNow() const override;
    [[nodiscard]] std::string timeZone() const override;

    // RunLoop

    void post(Task task) override;
    void postToGlobalQueue(Task task) override { post(std::move(task)); }
    [[nodiscard]] std::unique_ptr<Timer> scheduleOnce(Duration delay, Task task) override;
    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(Duration interval, Task task) override;
    [[nodiscard]] bool isHostThread() const override { return std::this_thread::get_id() == hostThread_; }
    /// Runs one turn, or one timer or answer that is due now. It never waits and never moves the clock, since code
    /// takes no virtual time: false when nothing is due now, when suspended, and on another thread.
    bool runOneSource() override;

private:
    struct Events;
    class OwnedTimer;
    enum class Kind { turn, timer, answer, driversTurn };
    enum class Owner { app, phone };

    [[nodiscard]] std::unique_ptr<Timer> schedule(Owner owner, Kind kind, Duration delay, Duration interval, Task task);
    bool runUntil(MonotonicTime time);
    bool runNext(MonotonicTime limit);

    const std::thread::id hostThread_;
    const WallTime start_;
    const std::size_t mostTurns_;
    std::atomic<Duration::rep> now_{0};
    std::atomic<Duration::rep> jumps_{0};
    mutable std::mutex zoneMutex_;
    std::string zone_;
    bool suspended_ = false;
    std::size_t turnsAtInstant_ = 0;
    std::size_t depth_ = 0;
    std::shared_ptr<Events> events_;
};

}  // namespace quomi::simulated
