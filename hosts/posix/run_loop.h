#pragma once

#include "quomi/platform/run_loop.h"

#include <functional>
#include <memory>

namespace quomi::posix {

/// The run loop port on real time. The thread that constructs it is the host's thread; only that thread runs it.
///
/// One line of turns carries everything: posted tasks, tasks of the global queue and timers. A
/// task takes its place when it is posted, a timer when it is due; where both are ready the earlier one runs first, so
/// neither starves the other. No two tasks ever run at the same time. What a task throws is dropped.
///
/// `post` and its like only append under a short lock and never wait for the host's thread. Destroying the loop drops
/// what waits without running it; timers that outlive it do nothing any more, while threads that post
/// to the loop itself must have ended before.
class RunLoop final : public quomi::RunLoop {
public:
    RunLoop();
    ~RunLoop() override;
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    /// Runs turns, waiting between them, until `stop`. Host's thread.
    void run();

    /// Runs what is ready, and what that makes ready, and waits for nothing. Ends early at `stop`. Host's thread.
    void runUntilIdle();

    /// Runs turns until `done` answers yes (asked before each turn), for `atMost` this long, or until `stop`. Answers
    /// what `done` said last. Host's thread.
    bool runUntil(const std::function<bool()>& done, Duration atMost);

    /// Ends the run under way after its present turn, those nested in it too; when none is under way, the next one
    /// ends before its first turn. Any thread.
    void stop();

    void post(Task task) override;
    void postToGlobalQueue(Task task) override;
    [[nodiscard]] std::unique_ptr<Timer> scheduleOnce(Duration delay, Task task) override;
    [[nodiscard]] std::unique_ptr<Timer> scheduleRepeating(Duration interval, Task task) override;
    [[nodiscard]] bool isHostThread() const override;

    /// As the port says. Another thread may post at any time, so there is always something to wait for: false comes
    /// only after `stop` or on a thread other than the host's.
    bool runOneSource() override;

private:
    struct State;
    class Run;
    class OwnedTimer;
    [[nodiscard]] std::unique_ptr<Timer> schedule(Duration delay, Duration interval, Task task);

    std::shared_ptr<State> state_;
};

}  // namespace quomi::posix
