#pragma once

#include <functional>
#include <optional>
#include <utility>

namespace quomi {

/// Calls a function of the host's; whether it is there and returned. An empty one and one that throws are the same as
/// none.
template <class... Parameters, class... Arguments>
[[nodiscard]] bool handToHost(const std::function<void(Parameters...)>& function, Arguments&&... arguments) noexcept {
    try {
        if (!function) return false;
        function(std::forward<Arguments>(arguments)...);
        return true;
    } catch (...) {  // a host's exception is the host's affair
        return false;
    }
}

/// The same, where nobody asks whether it was there.
template <class... Parameters, class... Arguments>
void callHost(const std::function<void(Parameters...)>& function, Arguments&&... arguments) noexcept {
    static_cast<void>(handToHost(function, std::forward<Arguments>(arguments)...));
}

/// Asks a function of the host's; nothing when it is not there or throws.
template <class... Parameters, class... Arguments>
[[nodiscard]] std::optional<bool> askHost(const std::function<bool(Parameters...)>& question,
                                          Arguments&&... arguments) noexcept {
    try {
        if (question) return question(std::forward<Arguments>(arguments)...);
    } catch (...) {  // NOLINT(bugprone-empty-catch): a host's exception is the host's affair
    }
    return std::nullopt;
}

}  // namespace quomi
