#pragma once

#include "quomi/rules/action_host.h"
#include "quomi/util/host_call.h"

#include <functional>
#include <optional>
#include <string>
#include <utility>

namespace quomi::test {

/// What a test's host decides and performs; an empty function is an operation that it does not implement.
struct HostHooks {
    using Should = std::function<bool(const std::string& url, int triggeredBy)>;
    using Execute = std::function<void(const std::string& url, int triggeredBy)>;
    std::function<void(const NotificationRequest&, int, std::function<void(bool)>)>
        shouldExecuteNotificationRequestCompletionBlock{};
    std::function<bool(const NotificationRequest&, int)> shouldExecuteNotificationRequest{};
    Should shouldExecuteOpenWebPageRequest{};
    Should shouldExecuteOpenDeepLinkRequest{};
    Should shouldExecuteServerNotificationRequest{};
    std::function<void(const NotificationRequest&, int)> executeNotificationRequest{};
    Execute executeOpenWebPageRequest{};
    Execute executeOpenDeepLinkRequest{};
    std::function<void(const std::string&, int, std::function<void()>, std::function<void(const Error&)>)>
        executeServerNotificationRequest{};
};

class HookedHost final : public ActionHost {
public:
    explicit HookedHost(const HostHooks& hooks) : hooks_(hooks) {}

    std::optional<bool> shouldExecute(ActionKind kind, const std::string& url, int triggeredBy) const override {
        if (kind == ActionKind::openUrl) return askHost(hooks_.shouldExecuteOpenWebPageRequest, url, triggeredBy);
        if (kind == ActionKind::openDeepLink) return askHost(hooks_.shouldExecuteOpenDeepLinkRequest, url, triggeredBy);
        return askHost(hooks_.shouldExecuteServerNotificationRequest, url, triggeredBy);
    }
    bool execute(ActionKind kind, const std::string& url, int triggeredBy) const override {
        const auto& page = hooks_.executeOpenWebPageRequest;
        return handToHost(kind == ActionKind::openUrl ? page : hooks_.executeOpenDeepLinkRequest, url, triggeredBy);
    }
    bool shouldExecuteNotificationRequest(const NotificationRequest& request, int triggeredBy,
                                          std::function<void(bool)> block) const override {
        return handToHost(hooks_.shouldExecuteNotificationRequestCompletionBlock, request, triggeredBy,
                          std::move(block));
    }
    std::optional<bool> shouldExecuteNotificationRequest(const NotificationRequest& request,
                                                         int triggeredBy) const override {
        return askHost(hooks_.shouldExecuteNotificationRequest, request, triggeredBy);
    }
    bool executeNotificationRequest(const NotificationRequest& request, int triggeredBy) const override {
        return handToHost(hooks_.executeNotificationRequest, request, triggeredBy);
    }
    bool executeServerNotificationRequest(const std::string& url, int triggeredBy, std::function<void()> success,
                                          std::function<void(const Error&)> failure) const override {
        return handToHost(hooks_.executeServerNotificationRequest, url, triggeredBy, std::move(success),
                          std::move(failure));
    }

private:
    const HostHooks& hooks_;
};

}  // namespace quomi::test
