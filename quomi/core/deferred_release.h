#pragma once

#include "quomi/platform/run_loop.h"

#include <memory>
#include <utility>
#include <vector>

namespace quomi {

/// Lets go of objects in a later turn of the run loop, because one of their own functions may still be running. What is
/// held when this object ends goes with it. Host's thread.
class DeferredRelease {
public:
    /// The run loop outlives the object.
    explicit DeferredRelease(RunLoop& runLoop) : runLoop_(runLoop) {}

    void release(std::shared_ptr<void> object) {
        held_->push_back(std::move(object));
        runLoop_.post([weak = std::weak_ptr(held_)] {
            if (const auto held = weak.lock()) Held().swap(*held);
        });
    }

private:
    using Held = std::vector<std::shared_ptr<void>>;
    RunLoop& runLoop_;
    std::shared_ptr<Held> held_ = std::make_shared<Held>();
};

}  // namespace quomi
