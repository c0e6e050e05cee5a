#include "quomi/sdk/host_delegate.h"

#include "quomi/diagnostics/debug_log.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace quomi {

namespace {

/// The operations of one kind of action that has a URL.
struct UrlOperations {
    ActionKind kind;
    std::function<bool(QuomiSDK&, const std::string&, int)> QuomiSDKDelegate::*shouldExecute;
    std::function<void(QuomiSDK&, const std::string&, int)> QuomiSDKDelegate::*execute;  // null: none of that form
};

constexpr UrlOperations kUrlOperations[] = {
    {ActionKind::openUrl, &QuomiSDKDelegate::shouldExecuteOpenWebPageRequest,
     &QuomiSDKDelegate::executeOpenWebPageRequest},
    {ActionKind::openDeepLink, &QuomiSDKDelegate::shouldExecuteOpenDeepLinkRequest,
     &QuomiSDKDelegate::executeOpenDeepLinkRequest},
    {ActionKind::notifyServer, &QuomiSDKDelegate::shouldExecuteServerNotificationRequest, nullptr},
};

const UrlOperations* urlOperationsOf(ActionKind kind) {
    const auto* found = std::ranges::find(kUrlOperations, kind, &UrlOperations::kind);
    return found != std::end(kUrlOperations) ? found : nullptr;
}

template <class... Parameters, class... Arguments>
bool callOrAsk(const std::function<void(Parameters...)>& operation, Arguments&&... arguments) {
    return handToHost(operation, std::forward<Arguments>(arguments)...);
}
template <class... Parameters, class... Arguments>
std::optional<bool> callOrAsk(const std::function<bool(Parameters...)>& operation, Arguments&&... arguments) {
    return askHost(operation, std::forward<Arguments>(arguments)...);
}

}  // namespace

template <class Operation, class... Arguments>
auto HostDelegate::callAction(Operation QuomiSDKDelegate::*operation, Arguments&&... arguments) const {
    using Answer =
        decltype(callOrAsk(std::declval<const Operation&>(), facade_, std::forward<Arguments>(arguments)...));
    const auto delegate = delegate_.lock();
    if (delegate == nullptr) return Answer{};
    const DeferredRelease::Hold hold(graveyard_);
    return callOrAsk((*delegate).*operation, facade_, std::forward<Arguments>(arguments)...);
}

std::optional<bool> HostDelegate::shouldExecute(ActionKind kind, const std::string& url, int triggeredBy) const {
    const auto* operations = urlOperationsOf(kind);
    if (operations == nullptr) return std::nullopt;
    return callAction(operations->shouldExecute, url, triggeredBy);
}

bool HostDelegate::execute(ActionKind kind, const std::string& url, int triggeredBy) const {
    const auto* operations = urlOperationsOf(kind);
    if (operations == nullptr || operations->execute == nullptr) return false;
    return callAction(operations->execute, url, triggeredBy);
}

bool HostDelegate::shouldExecuteNotificationRequest(const NotificationRequest& request, int triggeredBy,
                                                    std::function<void(bool)> completionBlock) const {
    return callAction(&QuomiSDKDelegate::shouldExecuteNotificationRequestCompletionBlock, request, triggeredBy,
                      std::move(completionBlock));
}

std::optional<bool> HostDelegate::shouldExecuteNotificationRequest(const NotificationRequest& request,
                                                                   int triggeredBy) const {
    return callAction(&QuomiSDKDelegate::shouldExecuteNotificationRequest, request, triggeredBy);
}

bool HostDelegate::executeNotificationRequest(const NotificationRequest& request, int triggeredBy) const {
    return callAction(&QuomiSDKDelegate::executeNotificationRequest, request, triggeredBy);
}

bool HostDelegate::executeServerNotificationRequest(const std::string& url, int triggeredBy,
                                                    std::function<void()> success,
                                                    std::function<void(const Error&)> failure) const {
    return callAction(&QuomiSDKDelegate::executeServerNotificationRequest, url, triggeredBy, std::move(success),
                      std::move(failure));
}

void HostDelegate::forwardErrorToDelegate(const std::optional<Error>& error) const {
    debugLog_.log("Quomi SDK Error: {}", error ? describe(*error) : "(null)");
    if (error) tell(&QuomiSDKDelegate::didReceiveErrorNotification, *error);
}

}  // namespace quomi
