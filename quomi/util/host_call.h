#pragma once

#include <functional>
#include <utility>

namespace quomi {

/// Calls a function of the host's; an empty one and one that throws are the same as none.
template <class... Parameters, class... Arguments>
void callHost(const std::function<void(Parameters...)>& function, Arguments&&... arguments) noexcept {
    try {
        if (function) function(std::forward<Arguments>(arguments)...);
    } catch (...) {  // NOLINT(bugprone-empty-catch): a host's exception is the host's affair
    }
}

}  // namespace quomi
