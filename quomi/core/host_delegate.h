#pragma once

#include "quomi/core/sdk_delegate.h"
#include "quomi/rules/action_host.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace quomi {

class DebugLog;

/// Calls a function of the host's; an empty one and one that throws are the same as none.
template <class... Parameters, class... Arguments>
void callHost(const std::function<void(Parameters...)>& function, Arguments&&... arguments) noexcept {
    try {
        if (function) function(std::forward<Arguments>(arguments)...);
    } catch (...) {  // NOLINT(bugprone-empty-catch): a host's exception is the host's affair
    }
}

/// The host's delegate, held weakly, and the one way to call it: a missing delegate, an empty operation and one that
/// throws are all the same as none. Host's thread.
class HostDelegate {
public:
    /// The facade is handed to every operation; it and the log outlive the object.
    HostDelegate(QuomiSDK& facade, DebugLog& debugLog) : facade_(facade), debugLog_(debugLog) {}

    void set(std::weak_ptr<QuomiSDKDelegate> delegate) { delegate_ = std::move(delegate); }
    [[nodiscard]] std::shared_ptr<QuomiSDKDelegate> get() const { return delegate_.lock(); }

    /// Whether the host implements the operation: worth asking before arguments that cost are made.
    template <class Operation>
    [[nodiscard]] bool implements(Operation QuomiSDKDelegate::*operation) const {
        const auto delegate = delegate_.lock();
        return delegate != nullptr && static_cast<bool>((*delegate).*operation);
    }

    /// Calls a notifying operation. The host may stop the SDK in it: whoever goes on afterwards looks.
    template <class Operation, class... Arguments>
    void tell(Operation QuomiSDKDelegate::*operation, Arguments&&... arguments) const noexcept {
        const auto delegate = delegate_.lock();
        if (delegate != nullptr) callHost((*delegate).*operation, facade_, std::forward<Arguments>(arguments)...);
    }

    /// What the host decides and performs of actions, as its delegate is now. Keeps the delegate while it is held.
    [[nodiscard]] ActionHost actionHost() const;

    /// Logs the error and tells the host of it; nothing is logged as "(null)" and goes no further.
    void forwardErrorToDelegate(const std::optional<Error>& error) const;

private:
    QuomiSDK& facade_;
    DebugLog& debugLog_;
    std::weak_ptr<QuomiSDKDelegate> delegate_;
};

}  // namespace quomi
