#include "quomi/rules/action_executor.h"

#include "quomi/api/api_client.h"
#include "quomi/api/callback.h"
#include "quomi/model/action.h"
#include "quomi/platform/application.h"
#include "quomi/platform/application_helpers.h"
#include "quomi/platform/console.h"
#include "quomi/platform/files.h"
#include "quomi/platform/run_loop.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/bundle_page.h"
#include "quomi/rules/notification_content.h"
#include "quomi/rules/web_page.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <string_view>
#include <utility>

#include <fmt/format.h>

namespace quomi {

namespace {

namespace json = boost::json;

/// The event of a notification that is about to be shown. Area type and keys are those of beacons for geofences too:
/// deliberate, the back office counts every notification under them.
json::object notifyEvent(const json::object& userInfo) {
    const auto valueOf = [&userInfo](const char* key) {
        const auto* value = userInfo.if_contains(key);
        return value != nullptr ? *value : json::value("");
    };
    return {{"type", "action"},
            {"action", kActionNotifyUser},
            {"area_type", "beacon"},
            {"rule_id", valueOf("rule_id")},
            {"beacon_id", valueOf("beacon_id")}};
}

/// What a screen is called in the system log.
std::string_view screenName(const Screen& screen) {
    switch (screen.kind()) {
        case Screen::Kind::navigation:
            return "<UINavigationController>";
        case Screen::Kind::tabs:
            return "<UITabBarController>";
        case Screen::Kind::plain:
            break;
    }
    return "<UIViewController>";
}

bool isDone(ActionOutcome outcome) {
    return outcome == ActionOutcome::performed || outcome == ActionOutcome::performedByHost;
}

bool report(ActionOutcome outcome, ActionOutcome* slot) {
    if (slot != nullptr) *slot = outcome;
    return isDone(outcome);
}

}  // namespace

QuomiActionExecutor::QuomiActionExecutor(ActionExecutorContext context)
    : context_(std::move(context)),
      attachments_(context_.platform.http, context_.platform.files),
      notificationHelpers_(std::make_unique<QuomiNotificationHelpers>(context_.platform.notifications)) {}

QuomiActionExecutor::~QuomiActionExecutor() = default;

void QuomiActionExecutor::end() {
    hasEnded_ = true;
    apiClient_ = nullptr;
    presentationViewController_ = nullptr;
    notificationHelpers_.reset();
    attachments_.cancelAll();
}

void QuomiActionExecutor::setPresentationViewController(std::shared_ptr<Screen> screen) {
    if (!hasEnded_) presentationViewController_ = std::move(screen);
}

void QuomiActionExecutor::postUnlessEnded(std::function<void(QuomiActionExecutor&)> work) {
    context_.platform.runLoop.post([weak = weak_from_this(), work = std::move(work)] {
        const auto executor = weak.lock();
        if (executor != nullptr && !executor->hasEnded_) work(*executor);
    });
}

// Notifications

void QuomiActionExecutor::executeNotifyUserAction(const std::string& param, const json::object& userInfo,
                                                  int triggeredBy, std::function<void(bool)> completionBlock) {
    generateUserNotificationRequest(param, userInfo,
                                    [weak = weak_from_this(), triggeredBy,
                                     completionBlock = std::move(completionBlock)](const NotificationRequest& request) {
                                        if (const auto executor = weak.lock())
                                            executor->askToNotify(request, triggeredBy, completionBlock);
                                    });
}

void QuomiActionExecutor::generateUserNotificationRequest(const std::string& param, const json::object& userInfo,
                                                          RequestBuilt completionBlock) {
    if (hasEnded_) return;
    auto content =
        notificationContent(param, userInfo, context_.platform.application.badgeNumber(), context_.userProperties());
    if (content.category) notificationHelpers_->registerCategory(*content.category);
    if (!content.imageUrl) return callBack(completionBlock, content.request);
    attachments_.download(*content.imageUrl,
                          [request = std::move(content.request), completionBlock = std::move(completionBlock)](
                              const std::optional<std::filesystem::path>& file) {
                              auto withImage = request;
                              if (file) withImage.attachments.push_back(file->string());
                              callBack(completionBlock, withImage);
                          });
}

void QuomiActionExecutor::askToNotify(const NotificationRequest& request, int triggeredBy,
                                      const std::function<void(bool)>& completionBlock) {
    const auto host = context_.host();
    const auto isAnswered = std::make_shared<bool>(false);
    const auto answer = [weak = weak_from_this(), isAnswered, request, triggeredBy, completionBlock](bool mayNotify) {
        if (std::exchange(*isAnswered, true)) return;
        const auto executor = weak.lock();
        if (executor == nullptr || executor->hasEnded_) return;
        if (mayNotify) return executor->notify(request, triggeredBy);
        callBack(completionBlock, false);
    };
    const bool isAsked = handToHost(host.shouldExecuteNotificationRequestCompletionBlock, request, triggeredBy, answer);
    // One that throws after it has answered has answered; any other exception is no question asked.
    if (isAsked || std::exchange(*isAnswered, true) || hasEnded_) return;
    const bool mayNotify = askHost(host.shouldExecuteNotificationRequest, request, triggeredBy).value_or(true);
    if (hasEnded_) return;
    if (mayNotify) return notify(request, triggeredBy);
    callBack(completionBlock, false);
}

void QuomiActionExecutor::notify(const NotificationRequest& request, int triggeredBy) {
    const auto self = shared_from_this();
    context_.logEvent(notifyEvent(request.userInfo));
    if (hasEnded_ || handToHost(context_.host().executeNotificationRequest, request, triggeredBy)) return;
    if (!hasEnded_) context_.platform.notifications.add(request);
}

void QuomiActionExecutor::executeNotificationRequestActions(const NotificationRequest& request) {
    const auto& info = request.userInfo;
    const auto type = QuomiUtils::stringForKey(info, "type", "");
    const auto param = QuomiUtils::stringForKey(info, "param", "");
    const int triggeredBy = QuomiUtils::numberForKey(info, "triggeredBy", 0).as<int>();
    if (type == kActionOpenUrl) executeOpenWebPageAction(param, triggeredBy);
    if (type == kActionOpenDeepLink) executeOpenDeepLinkAction(param, triggeredBy);
}

// What the host decides

bool QuomiActionExecutor::isVetoed(ShouldExecute question, Url url, int triggeredBy) const {
    return !askHost(context_.host().*question, url, triggeredBy).value_or(true);
}

std::optional<ActionOutcome> QuomiActionExecutor::leaveToHost(ShouldExecute question, Execute operation, Url url,
                                                              int triggeredBy) const {
    if (isVetoed(question, url, triggeredBy)) return ActionOutcome::vetoed;
    if (hasEnded_) return ActionOutcome::impossible;
    if (handToHost(context_.host().*operation, url, triggeredBy)) return ActionOutcome::performedByHost;
    return std::nullopt;
}

// Web pages

bool QuomiActionExecutor::executeOpenWebPageAction(const std::string& url, int triggeredBy) {
    return executeOpenWebPageAction(url, triggeredBy, nullptr);
}

bool QuomiActionExecutor::executeOpenWebPageAction(const std::string& url, int triggeredBy, ActionOutcome* outcome) {
    return report(openWebPage(url, triggeredBy), outcome);
}

ActionOutcome QuomiActionExecutor::openWebPage(Url url, int triggeredBy) {
    const auto self = shared_from_this();
    if (hasEnded_ || url.empty()) return ActionOutcome::impossible;
    const auto decided = leaveToHost(&ActionHost::shouldExecuteOpenWebPageRequest,
                                     &ActionHost::executeOpenWebPageRequest, url, triggeredBy);
    if (decided) return *decided;
    return executeOpenWebPageActionWithURL(url) ? ActionOutcome::performed : ActionOutcome::impossible;
}

bool QuomiActionExecutor::executeOpenWebPageActionWithURL(const std::string& url) {
    if (hasEnded_) return false;
    const auto& platform = context_.platform;
    const auto page = getWebPageURL(url);
    const auto presenter = presentationViewController_ != nullptr
                               ? presentationViewController_
                               : QuomiApplicationHelpers(platform.screens).topViewController();
    if (presenter == nullptr) return false;
    if (presenter->presentedScreen() != nullptr) {
        platform.console.log(
            fmt::format("Quomi SDK Warning: can't present view controller for web page action, a UIVIewController is "
                        "already presented by UIVIewController {}",
                        screenName(*presenter)));
        return false;
    }
    if (!page) return false;
    postUnlessEnded([presenter, page = *page](QuomiActionExecutor& executor) {
        executor.context_.webPages.present(presenter, page);
    });
    return true;
}

std::optional<std::string> QuomiActionExecutor::getWebPageURL(const std::string& url) const {
    const auto resource = bundleResourceOf(url);
    if (!resource || context_.platform.files.bundleResource(resource->path())) return url;
    context_.platform.console.log(
        fmt::format("Quomi SDK Warning: Unable to load file '{}' in folder '{}' (URL = '{}') for open web page action",
                    resource->file, resource->folder.value_or("(null)"), url));
    return std::nullopt;
}

// Deep links

bool QuomiActionExecutor::executeOpenDeepLinkAction(const std::string& param, int triggeredBy) {
    return executeOpenDeepLinkAction(param, triggeredBy, nullptr);
}

bool QuomiActionExecutor::executeOpenDeepLinkAction(const std::string& param, int triggeredBy, ActionOutcome* outcome) {
    return report(openDeepLink(param, triggeredBy), outcome);
}

ActionOutcome QuomiActionExecutor::openDeepLink(const std::string& param, int triggeredBy) {
    const auto self = shared_from_this();
    const auto url = getDeepLinkURLFromJSON(param);
    if (hasEnded_ || !url) return ActionOutcome::impossible;
    const auto decided = leaveToHost(&ActionHost::shouldExecuteOpenDeepLinkRequest,
                                     &ActionHost::executeOpenDeepLinkRequest, *url, triggeredBy);
    if (decided) return *decided;
    return executeOpenDeepLinkActionWithURL(*url) ? ActionOutcome::performed : ActionOutcome::impossible;
}

bool QuomiActionExecutor::executeOpenDeepLinkActionWithURL(const std::string& url) {
    if (hasEnded_ || !context_.platform.application.canOpenURL(url)) return false;
    postUnlessEnded([url](QuomiActionExecutor& executor) { executor.context_.platform.application.openURL(url); });
    return true;
}

std::optional<std::string> QuomiActionExecutor::getDeepLinkURLFromJSON(const std::string& json) {
    const auto parsed = parseJson(json);
    const auto* links = parsed ? parsed->if_object() : nullptr;
    if (links == nullptr) return std::nullopt;
    for (const char* key : {"iosURL", "genericURL"}) {
        const auto* url = links->if_contains(key);
        if (!QuomiUtils::isEmpty(url)) return std::string(url->get_string());
    }
    return std::nullopt;
}

// Servers

bool QuomiActionExecutor::executeNotifyServerAction(const std::string& url, int triggeredBy,
                                                    const json::object& infoDict, Done success, Failure failure,
                                                    Done enableBlock, ActionOutcome* outcome, ServerAnswered ended) {
    return report(notifyServer(url, triggeredBy, infoDict, std::move(success), std::move(failure),
                               std::move(enableBlock), std::move(ended)),
                  outcome);
}

bool QuomiActionExecutor::executeNotifyServerAction(const std::string& url, int triggeredBy, Done success,
                                                    Failure failure, Done enableBlock) {
    return executeNotifyServerAction(url, triggeredBy, {}, std::move(success), std::move(failure),
                                     std::move(enableBlock), nullptr);
}

ActionOutcome QuomiActionExecutor::notifyServer(Url url, int triggeredBy, const json::object& infoDict, Done success,
                                                Failure failure, Done enableBlock, ServerAnswered ended) {
    const auto self = shared_from_this();
    if (hasEnded_ || QuomiUtils::isEmpty(url)) return ActionOutcome::impossible;
    if (isVetoed(&ActionHost::shouldExecuteServerNotificationRequest, url, triggeredBy)) return ActionOutcome::vetoed;
    if (hasEnded_) return ActionOutcome::impossible;
    if (hostNotifiesServer(url, triggeredBy, success, failure)) return ActionOutcome::performedByHost;
    if (hasEnded_ || apiClient_ == nullptr) return ActionOutcome::impossible;
    apiClient_->sendServerNotificationToURL({url, weak_from_this(), triggeredBy, infoDict, std::move(success),
                                             std::move(failure), std::move(enableBlock), std::move(ended)});
    return ActionOutcome::performed;
}

bool QuomiActionExecutor::hostNotifiesServer(Url url, int triggeredBy, const Done& success, const Failure& failure) {
    const auto isReported = std::make_shared<bool>(false);
    const auto mayReport = [weak = weak_from_this(), isReported] {
        const auto executor = weak.lock();
        return !std::exchange(*isReported, true) && executor != nullptr && !executor->hasEnded_;
    };
    const bool isHandedOver = handToHost(
        context_.host().executeServerNotificationRequest, url, triggeredBy,
        [mayReport, success] {
            if (mayReport()) callBack(success);
        },
        [mayReport, failure](const Error& error) {
            if (mayReport()) callBack(failure, error);
        });
    // As in a notification's question: a host that has reported has done it, exception or not.
    return isHandedOver || std::exchange(*isReported, true);
}

}  // namespace quomi
