#pragma once

#include "quomi/rules/action_host.h"
#include "quomi/sdk/deferred_release.h"
#include "quomi/sdk/sdk_delegate.h"
#include "quomi/util/host_call.h"

#include <functional>
#include <memory>
#include <optional>
#include <utility>

namespace quomi {

class DebugLog;

/// The host's delegate, held weakly, and the one way to call it: a missing delegate, an empty operation and one that
/// throws are all the same as none. Host's thread.
///
/// While the host is being called nothing is released: it may run the loop inside of its function.
class HostDelegate final : public ActionHost {
public:
    /// The facade is handed to every operation; it, the log and the graveyard outlive the object.
    HostDelegate(QuomiSDK& facade, DebugLog& debugLog, const DeferredRelease& graveyard)
        : facade_(facade), debugLog_(debugLog), graveyard_(graveyard) {}

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
        if (delegate != nullptr) call((*delegate).*operation, facade_, std::forward<Arguments>(arguments)...);
    }

    /// Calls another function of the host's, such as a block that it gave to a call.
    template <class... Parameters, class... Arguments>
    void call(const std::function<void(Parameters...)>& function, Arguments&&... arguments) const noexcept {
        const DeferredRelease::Hold hold(graveyard_);
        callHost(function, std::forward<Arguments>(arguments)...);
    }

    [[nodiscard]] std::optional<bool> shouldExecute(ActionKind kind, const std::string& url,
                                                    int triggeredBy) const override;
    [[nodiscard]] bool execute(ActionKind kind, const std::string& url, int triggeredBy) const override;
    [[nodiscard]] bool shouldExecuteNotificationRequest(const NotificationRequest& request, int triggeredBy,
                                                        std::function<void(bool)> completionBlock) const override;
    [[nodiscard]] std::optional<bool> shouldExecuteNotificationRequest(const NotificationRequest& request,
                                                                       int triggeredBy) const override;
    [[nodiscard]] bool executeNotificationRequest(const NotificationRequest& request, int triggeredBy) const override;
    [[nodiscard]] bool executeServerNotificationRequest(const std::string& url, int triggeredBy,
                                                        std::function<void()> success,
                                                        std::function<void(const Error&)> failure) const override;

    /// Logs the error and tells the host of it; nothing is logged as "(null)" and goes no further.
    void forwardErrorToDelegate(const std::optional<Error>& error) const;

private:
    /// Calls one of the operations of actions; whether the host implements it, or what it answers.
    template <class Operation, class... Arguments>
    [[nodiscard]] auto callAction(Operation QuomiSDKDelegate::*operation, Arguments&&... arguments) const;

    QuomiSDK& facade_;
    DebugLog& debugLog_;
    const DeferredRelease& graveyard_;
    std::weak_ptr<QuomiSDKDelegate> delegate_;
};

}  // namespace quomi
