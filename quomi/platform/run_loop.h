#pragma once

#include "quomi/util/time.h"

#include <functional>
#include <memory>

namespace quomi {

/// Work handed to a run loop: called once (a repeating timer's: once a firing). It must not throw; a loop that meets an
/// exception all the same drops it and goes on.
using Task = std::function<void()>;

/// An owned timer. Dropping it cancels it; a cancelled timer never fires again, not even when it was already due. Both
/// happen on the host's thread, and a timer may be dropped from inside its own task.
class Timer {
public:
    virtual ~Timer() = default;
};

/// Port: the host's event loop. The library never owns one.
///
/// "The host's thread" is the one thread on which the host calls the SDK and on which every callback of every port
/// arrives. Tasks of the global queue never run at the same time as the host's thread is inside
/// the SDK; a host without spare threads runs them as later turns of the same loop. A task posted from inside a task
/// runs in a later turn, never before the running one has returned.
class RunLoop {
public:
    virtual ~RunLoop() = default;

    /// Runs the task on the host's thread in a later turn, after those posted before. Any thread.
    virtual void post(Task task) = 0;

    /// Runs the task as work of the global concurrent queue. Any thread. No order among such tasks is promised.
    virtual void postToGlobalQueue(Task task) = 0;

    /// A timer that fires once, on the host's thread, `delay` from now on the monotonic clock (a delay below zero
    /// counts as zero; even then it fires in a later turn). Timers due at the same moment fire in order of creation.
    [[nodiscard]] virtual std::unique_ptr<Timer> scheduleOnce(Duration delay, Task task) = 0;

    /// A timer that fires every `interval` (above zero) until it is dropped. Firings that the loop was too busy or too
    /// asleep for are made up for by one; the later ones stay on the original beat.
    [[nodiscard]] virtual std::unique_ptr<Timer> scheduleRepeating(Duration interval, Task task) = 0;

    /// Whether the caller runs on the host's thread. Any thread.
    [[nodiscard]] virtual bool isHostThread() const = 0;

    /// Runs one source (a posted task, a due timer, an arrived answer), waiting for one when none is ready. False when
    /// there is nothing to wait for or the host cannot run its loop from inside. Host's thread.
    virtual bool runOneSource() = 0;
};

}  // namespace quomi
