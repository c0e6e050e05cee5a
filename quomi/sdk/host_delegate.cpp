#include "quomi/sdk/host_delegate.h"

#include "quomi/diagnostics/debug_log.h"

#include <utility>

namespace quomi {

namespace {

/// The delegate's operation without its first argument; empty when it is not implemented. Nothing is released while it
/// runs.
template <class Result, class... Parameters>
std::function<Result(Parameters...)> withFacade(
    QuomiSDK& facade, const DeferredRelease& graveyard, const std::shared_ptr<QuomiSDKDelegate>& delegate,
    std::function<Result(QuomiSDK&, Parameters...)> QuomiSDKDelegate::*operation) {
    if (!((*delegate).*operation)) return {};
    return [&facade, &graveyard, delegate, operation](Parameters... arguments) {
        const DeferredRelease::Hold hold(graveyard);
        return ((*delegate).*operation)(facade, std::forward<Parameters>(arguments)...);
    };
}

}  // namespace

ActionHost HostDelegate::actionHost() const {
    const auto delegate = delegate_.lock();
    if (delegate == nullptr) return {};
    const auto operation = [this, &delegate](auto member) { return withFacade(facade_, graveyard_, delegate, member); };
    ActionHost host;
    host.shouldExecuteNotificationRequestCompletionBlock =
        operation(&QuomiSDKDelegate::shouldExecuteNotificationRequestCompletionBlock);
    host.shouldExecuteNotificationRequest = operation(&QuomiSDKDelegate::shouldExecuteNotificationRequest);
    host.shouldExecuteOpenWebPageRequest = operation(&QuomiSDKDelegate::shouldExecuteOpenWebPageRequest);
    host.shouldExecuteOpenDeepLinkRequest = operation(&QuomiSDKDelegate::shouldExecuteOpenDeepLinkRequest);
    host.shouldExecuteServerNotificationRequest = operation(&QuomiSDKDelegate::shouldExecuteServerNotificationRequest);
    host.executeNotificationRequest = operation(&QuomiSDKDelegate::executeNotificationRequest);
    host.executeOpenWebPageRequest = operation(&QuomiSDKDelegate::executeOpenWebPageRequest);
    host.executeOpenDeepLinkRequest = operation(&QuomiSDKDelegate::executeOpenDeepLinkRequest);
    host.executeServerNotificationRequest = operation(&QuomiSDKDelegate::executeServerNotificationRequest);
    return host;
}

void HostDelegate::forwardErrorToDelegate(const std::optional<Error>& error) const {
    debugLog_.log("Quomi SDK Error: {}", error ? describe(*error) : "(null)");
    if (error) tell(&QuomiSDKDelegate::didReceiveErrorNotification, *error);
}

}  // namespace quomi
