#pragma once

#include "quomi/platform/run_loop.h"

#include <memory>
#include <utility>
#include <vector>

namespace quomi {

/// Lets go of objects in a later turn of the run loop, because one of their own functions may still be running. What is
/// held when this object ends goes with it. Host's thread.
///
/// A later turn may run inside the present one: a host that is called back may run the loop itself, or ask something
/// that does. So nothing is let go while the host is being called, which a Hold says; then it waits for a turn after
/// the outermost of these calls.
class DeferredRelease {
    struct Held {
        std::vector<std::shared_ptr<void>> objects;
        int holds = 0;
    };

public:
    /// The run loop outlives the object.
    explicit DeferredRelease(RunLoop& runLoop) : runLoop_(runLoop) {}

    void release(std::shared_ptr<void> object) {
        held_->objects.push_back(std::move(object));
        postRelease(runLoop_, held_);
    }

    /// While one lives, nothing is let go. It may outlive the object, not the run loop.
    class Hold {
    public:
        explicit Hold(const DeferredRelease& release) : runLoop_(release.runLoop_), held_(release.held_) {
            ++held_->holds;
        }
        ~Hold() {
            if (--held_->holds == 0 && !held_->objects.empty()) postRelease(runLoop_, held_);
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        RunLoop& runLoop_;
        std::shared_ptr<Held> held_;
    };

private:
    static void postRelease(RunLoop& runLoop, const std::shared_ptr<Held>& held) {
        runLoop.post([weak = std::weak_ptr(held)] {
            const auto some = weak.lock();
            if (some != nullptr && some->holds == 0) std::vector<std::shared_ptr<void>>().swap(some->objects);
        });
    }

    RunLoop& runLoop_;
    std::shared_ptr<Held> held_ = std::make_shared<Held>();
};

}  // namespace quomi
