#pragma once

#include <functional>
#include <utility>

namespace quomi {

/// Calls back whoever asked; an empty callback and one that throws are the same as none, and what waits behind it goes
/// on.
template <class... Parameters, class... Arguments>
void callBack(const std::function<void(Parameters...)>& callback, Arguments&&... arguments) noexcept {
    try {
        if (callback) callback(std::forward<Arguments>(arguments)...);
    } catch (...) {  // NOLINT(bugprone-empty-catch): one bad callback must not stop the queue
    }
}

}  // namespace quomi
