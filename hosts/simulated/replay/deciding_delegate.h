#pragma once

#include "hosts/simulated/replay/trace.h"
#include "quomi/platform/run_loop.h"

#include <memory>
#include <vector>

namespace quomi {
struct QuomiSDKDelegate;
}

namespace quomi::simulated {

struct DelegateAnswer;
struct DelegateConfig;

/// The operations with which a visit's host decides on actions or performs them. Each writes its record, with the
/// answer where it gives one, at the moment when it is asked.
class DecidingDelegate {
public:
    /// Both outlive the object.
    DecidingDelegate(const Trace& trace, RunLoop& runLoop) : trace_(trace), runLoop_(runLoop) {}

    /// Gives the delegate the operations that the visit names. The object outlives the delegate.
    void implement(const DelegateConfig& config, QuomiSDKDelegate& delegate);
    /// Lets the app's own delegate hear what the delegate hears, and decide and perform in its place.
    void join(const QuomiSDKDelegate& own, QuomiSDKDelegate& delegate);

private:
    void decideNotifications(const DelegateAnswer& answer, QuomiSDKDelegate& delegate);
    void joinDecisions(const QuomiSDKDelegate& own, QuomiSDKDelegate& delegate);
    void later(Duration delay, Task task);

    const Trace& trace_;
    RunLoop& runLoop_;
    std::vector<std::unique_ptr<Timer>> timers_;
};

}  // namespace quomi::simulated
