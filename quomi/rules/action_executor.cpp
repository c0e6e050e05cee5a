#include "quomi/rules/action_executor.h"

#include "quomi/api/api_client.h"
#include "quomi/platform/application.h"
#include "quomi/platform/application_helpers.h"
#include "quomi/platform/console.h"
#include "quomi/platform/files.h"
#include "quomi/platform/run_loop.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/bundle_page.h"
#include "quomi/rules/notification_content.h"
#include "quomi/rules/web_page.h"
#include "quomi/util/host_call.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <iterator>
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

std::optional<std::string> pageOf(const std::string& param) {
    return param.empty() ? std::nullopt : std::optional(param);
}

/// How a kind of action that opens something is performed.
struct OpenAction {
    ActionKind kind;
    std::optional<std::string> (*urlOf)(const std::string& param);
    bool (QuomiActionExecutor::*open)(const std::string& url);
};

constexpr OpenAction kOpenActions[] = {
    {ActionKind::openUrl, pageOf, &QuomiActionExecutor::executeOpenWebPageActionWithURL},
    {ActionKind::openDeepLink, &QuomiActionExecutor::getDeepLinkURLFromJSON,
     &QuomiActionExecutor::executeOpenDeepLinkActionWithURL},
};

}  // namespace

QuomiActionExecutor::QuomiActionExecutor(ActionExecutorContext context)
    : context_(std::move(context)),
      attachments_(context_.platform.http, context_.platform.files),
      notificationHelpers_(std::make_unique<QuomiNotificationHelpers>(context_.platform.notifications)) {}

QuomiActionExecutor::~QuomiActionExecutor() = default;

void QuomiActionExecutor::end() {
    lifetime_.end();
    apiClient_ = nullptr;
    presentationViewController_ = nullptr;
    notificationHelpers_.reset();
    attachments_.cancelAll();
}

void QuomiActionExecutor::setPresentationViewController(std::shared_ptr<Screen> screen) {
    if (!lifetime_.hasEnded()) presentationViewController_ = std::move(screen);
}

// Notifications

void QuomiActionExecutor::executeNotifyUserAction(const std::string& param, const json::object& userInfo,
                                                  int triggeredBy, std::function<void(bool)> completionBlock) {
    generateUserNotificationRequest(param, userInfo,
                                    lifetime_.guard([this, triggeredBy, completionBlock = std::move(completionBlock)](
                                                        const NotificationRequest& request) {
                                        askToNotify(request, triggeredBy, completionBlock);
                                    }));
}

void QuomiActionExecutor::generateUserNotificationRequest(const std::string& param, const json::object& userInfo,
                                                          RequestBuilt completionBlock) {
    if (lifetime_.hasEnded()) return;
    auto content =
        notificationContent(param, userInfo, context_.platform.application.badgeNumber(), context_.userProperties());
    if (content.category) notificationHelpers_->registerCategory(*content.category);
    if (!content.imageUrl) return callHost(completionBlock, content.request);
    attachments_.download(*content.imageUrl,
                          [request = std::move(content.request), completionBlock = std::move(completionBlock)](
                              const std::optional<std::filesystem::path>& file) {
                              auto withImage = request;
                              if (file) withImage.attachments.push_back(file->string());
                              callHost(completionBlock, withImage);
                          });
}

void QuomiActionExecutor::askToNotify(const NotificationRequest& request, int triggeredBy,
                                      const std::function<void(bool)>& completionBlock) {
    const auto isAnswered = std::make_shared<bool>(false);
    const auto decide = lifetime_.guard([this, request, triggeredBy, completionBlock](bool mayNotify) {
        if (mayNotify) return notify(request, triggeredBy);
        callHost(completionBlock, false);
    });
    const auto answer = [isAnswered, decide](bool mayNotify) {
        if (!std::exchange(*isAnswered, true)) decide(mayNotify);
    };
    const bool isAsked = context_.host.shouldExecuteNotificationRequest(request, triggeredBy, answer);
    // One that throws after it has answered has answered; any other exception is no question asked.
    if (isAsked || std::exchange(*isAnswered, true) || lifetime_.hasEnded()) return;
    decide(context_.host.shouldExecuteNotificationRequest(request, triggeredBy).value_or(true));
}

void QuomiActionExecutor::notify(const NotificationRequest& request, int triggeredBy) {
    context_.logEvent(notifyEvent(request.userInfo));
    if (lifetime_.hasEnded() || context_.host.executeNotificationRequest(request, triggeredBy)) return;
    if (!lifetime_.hasEnded()) context_.platform.notifications.add(request);
}

void QuomiActionExecutor::executeNotificationRequestActions(const NotificationRequest& request) {
    const auto& info = request.userInfo;
    const auto* kind = actionKind(QuomiUtils::stringForKey(info, "type", ""));
    if (kind == nullptr || !kind->opens) return;
    executeOpenAction(kind->kind, QuomiUtils::stringForKey(info, "param", ""),
                      QuomiUtils::numberForKey(info, "triggeredBy", 0).as<int>());
}

// What opens something

bool QuomiActionExecutor::isVetoed(ActionKind kind, const std::string& url, int triggeredBy) const {
    return !context_.host.shouldExecute(kind, url, triggeredBy).value_or(true);
}

ActionOutcome QuomiActionExecutor::executeOpenAction(ActionKind kind, const std::string& param, int triggeredBy) {
    const auto* action = std::ranges::find(kOpenActions, kind, &OpenAction::kind);
    if (lifetime_.hasEnded() || action == std::end(kOpenActions)) return ActionOutcome::impossible;
    const auto url = action->urlOf(param);
    if (!url) return ActionOutcome::impossible;
    if (isVetoed(kind, *url, triggeredBy)) return ActionOutcome::vetoed;
    if (lifetime_.hasEnded()) return ActionOutcome::impossible;
    if (context_.host.execute(kind, *url, triggeredBy)) return ActionOutcome::performedByHost;
    return (this->*action->open)(*url) ? ActionOutcome::performed : ActionOutcome::impossible;
}

bool QuomiActionExecutor::executeOpenWebPageAction(const std::string& url, int triggeredBy) {
    return isDone(executeOpenAction(ActionKind::openUrl, url, triggeredBy));
}

bool QuomiActionExecutor::executeOpenDeepLinkAction(const std::string& param, int triggeredBy) {
    return isDone(executeOpenAction(ActionKind::openDeepLink, param, triggeredBy));
}

// Web pages

bool QuomiActionExecutor::executeOpenWebPageActionWithURL(const std::string& url) {
    if (lifetime_.hasEnded()) return false;
    const auto& platform = context_.platform;
    const auto page = getWebPageURL(url);
    const auto presenter = presentationViewController_ != nullptr
                               ? presentationViewController_
                               : QuomiApplicationHelpers(platform.screens).topViewController();
    if (presenter == nullptr) return false;
    if (pageIsComing_ || presenter->presentedScreen() != nullptr) {
        warnThatIsBusy(*presenter);
        return false;
    }
    if (!page) return false;
    pageIsComing_ = true;
    platform.runLoop.post(lifetime_.guard([this, presenter, page = *page] {
        pageIsComing_ = false;
        if (!context_.webPages.present(presenter, page)) warnThatIsBusy(*presenter);
    }));
    return true;
}

void QuomiActionExecutor::warnThatIsBusy(const Screen& presenter) const {
    context_.platform.console.log(
        fmt::format("Quomi SDK Warning: can't present view controller for web page action, a UIVIewController is "
                    "already presented by UIVIewController {}",
                    screenName(presenter)));
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

bool QuomiActionExecutor::executeOpenDeepLinkActionWithURL(const std::string& url) {
    auto& application = context_.platform.application;
    if (lifetime_.hasEnded() || !application.canOpenURL(url)) return false;
    context_.platform.runLoop.post(lifetime_.guard([&application, url] { application.openURL(url); }));
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

ActionOutcome QuomiActionExecutor::executeNotifyServerAction(ServerNotification question, int triggeredBy,
                                                             const json::object& infoDict) {
    if (lifetime_.hasEnded() || QuomiUtils::isEmpty(question.url)) return ActionOutcome::impossible;
    if (isVetoed(ActionKind::notifyServer, question.url, triggeredBy)) return ActionOutcome::vetoed;
    if (lifetime_.hasEnded()) return ActionOutcome::impossible;
    if (hostNotifiesServer(question, triggeredBy)) return ActionOutcome::performedByHost;
    if (lifetime_.hasEnded() || apiClient_ == nullptr) return ActionOutcome::impossible;
    question.perform = lifetime_.guard(
        [this, infoDict, triggeredBy](const QuomiAction& action) { performOrdered(action, infoDict, triggeredBy); });
    apiClient_->sendServerNotificationToURL(std::move(question));
    return ActionOutcome::performed;
}

bool QuomiActionExecutor::hostNotifiesServer(const ServerNotification& question, int triggeredBy) {
    const auto isReported = std::make_shared<bool>(false);
    const auto success = lifetime_.guard([report = question.success] { callHost(report); });
    const auto failure = lifetime_.guard([report = question.failure](const Error& error) { callHost(report, error); });
    const bool isHandedOver = context_.host.executeServerNotificationRequest(
        question.url, triggeredBy,
        [isReported, success] {
            if (!std::exchange(*isReported, true)) success();
        },
        [isReported, failure](const Error& error) {
            if (!std::exchange(*isReported, true)) failure(error);
        });
    // As in a notification's question: a host that has reported has done it, exception or not.
    return isHandedOver || std::exchange(*isReported, true);
}

void QuomiActionExecutor::performOrdered(const QuomiAction& action, const json::object& userInfo, int triggeredBy) {
    const auto* kind = actionKind(action.type);
    if (kind == nullptr) return;
    if (kind->opens) {
        executeOpenAction(kind->kind, action.param, triggeredBy);
    } else if (kind->kind == ActionKind::notifyUser) {
        executeNotifyUserAction(action.param, userInfo, triggeredBy, {});
    }
}

}  // namespace quomi
