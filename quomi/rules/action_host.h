#pragma once

#include "quomi/util/error.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace quomi {

struct NotificationRequest;

/// What the host is asked about an action, or asked to do in the SDK's place. An empty function is an operation that
/// the host does not implement, and so is one that throws. `triggeredBy` is 1 for a geofence and 2 for a beacon. All
/// are called on the host's thread; each may call every operation of the SDK, `stop` included.
struct ActionHost {
    /// Asked before the one without a block, which is then not asked. The block takes the answer, once, on the host's
    /// thread, at once or later; later calls of it are ignored. Without an answer the notification waits for ever.
    std::function<void(const NotificationRequest&, int triggeredBy, std::function<void(bool)> completionBlock)>
        shouldExecuteNotificationRequestCompletionBlock{};
    /// False: no such action.
    std::function<bool(const NotificationRequest&, int triggeredBy)> shouldExecuteNotificationRequest{};
    std::function<bool(const std::string& url, int triggeredBy)> shouldExecuteOpenWebPageRequest{};
    std::function<bool(const std::string& url, int triggeredBy)> shouldExecuteOpenDeepLinkRequest{};
    std::function<bool(const std::string& url, int triggeredBy)> shouldExecuteServerNotificationRequest{};
    /// The host does it, and the SDK does not.
    std::function<void(const NotificationRequest&, int triggeredBy)> executeNotificationRequest{};
    std::function<void(const std::string& url, int triggeredBy)> executeOpenWebPageRequest{};
    std::function<void(const std::string& url, int triggeredBy)> executeOpenDeepLinkRequest{};
    /// The host reports through one of the two blocks, once, on the host's thread, at once or later. Both are there.
    std::function<void(const std::string& url, int triggeredBy, std::function<void()> success,
                       std::function<void(const Error&)> failure)>
        executeServerNotificationRequest{};
};

/// Asks the host; nothing when it does not implement the operation or throws.
template <class... Parameters, class... Arguments>
[[nodiscard]] std::optional<bool> askHost(const std::function<bool(Parameters...)>& question,
                                          Arguments&&... arguments) noexcept {
    try {
        if (question) return question(std::forward<Arguments>(arguments)...);
    } catch (...) {  // NOLINT(bugprone-empty-catch): a host's exception is the host's affair
    }
    return std::nullopt;
}

/// Hands something over to the host; false when it does not implement the operation or throws.
template <class... Parameters, class... Arguments>
[[nodiscard]] bool handToHost(const std::function<void(Parameters...)>& operation, Arguments&&... arguments) noexcept {
    try {
        if (!operation) return false;
        operation(std::forward<Arguments>(arguments)...);
        return true;
    } catch (...) {
        return false;
    }
}

}  // namespace quomi
