#pragma once

#include "quomi/api/server_notification.h"
#include "quomi/platform/platform.h"
#include "quomi/rules/action_host.h"
#include "quomi/rules/attachment.h"
#include "quomi/rules/notification_helpers.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/json/object.hpp>

namespace quomi {

class QuomiAPI;
class Screen;
class WebPagePresenter;
struct NotificationRequest;

/// What became of an action.
enum class ActionOutcome {
    performed,        ///< by the SDK
    performedByHost,  ///< handed to the host, which does it
    vetoed,           ///< the host refused
    impossible,       ///< nothing to do it with: no URL, no app or screen for it, or the SDK was stopped
};

/// What the executor is lent. Platform and presenter outlive it.
struct ActionExecutorContext {
    const Platform& platform;
    /// Shows the pages, and keeps them after the executor's end.
    WebPagePresenter& webPages;
    /// The host's operations as they are now; asked anew for every question.
    std::function<ActionHost()> host;
    /// Takes an event for the event log.
    std::function<void(const boost::json::object& event)> logEvent;
    /// Properties of the SDK's user; empty when there is none. They fill the placeholders of notifications.
    std::function<boost::json::object()> userProperties;
};

/// Performs the single actions of rules and of servers' answers: notifications, web pages, deep links and requests to
/// servers. Before each it asks the host, which may refuse or do it itself.
///
/// Made with `std::make_shared`. Host's thread only. Every operation may be called from inside every callback, and so
/// may `end`: whatever is under way then comes to nothing, and nobody is called back for it. `triggeredBy` is 1 for a
/// geofence and 2 for a beacon; it goes to the host as it is.
class QuomiActionExecutor final : public ServerActionPerformer,
                                  public std::enable_shared_from_this<QuomiActionExecutor> {
public:
    using Done = std::function<void()>;
    using Failure = std::function<void(const Error&)>;
    using ServerAnswered = std::function<void(const QuomiNotifyServerResponse* answer)>;
    using RequestBuilt = std::function<void(const NotificationRequest&)>;

    explicit QuomiActionExecutor(ActionExecutorContext context);
    ~QuomiActionExecutor() override;
    QuomiActionExecutor(const QuomiActionExecutor&) = delete;
    QuomiActionExecutor& operator=(const QuomiActionExecutor&) = delete;

    /// Ends it for good: drops downloads, answers that are awaited and pages that are about to be shown. Afterwards
    /// every operation does nothing and what returns a boolean returns false. Pages on show stay.
    void end();

    /// Sends the requests to servers; outlives the executor or is replaced, by null perhaps, before it goes.
    void setApiClient(QuomiAPI* apiClient) { apiClient_ = apiClient; }
    /// The screen over which web pages are shown; null for the app's top screen.
    void setPresentationViewController(std::shared_ptr<Screen> screen);
    [[nodiscard]] std::shared_ptr<Screen> presentationViewController() const { return presentationViewController_; }

    /// Builds a notification, asks the host, logs an event "action" and shows it. `param` is JSON or the plain body.
    /// `completionBlock` is called when the host refuses, with false, and never otherwise; at once, unless an image or
    /// the host's answer takes longer.
    void executeNotifyUserAction(const std::string& param, const boost::json::object& userInfo, int triggeredBy,
                                 std::function<void(bool)> completionBlock) override;
    /// Builds it as `notificationContent` says, with the badge on top of the app's. The block gets it at once; with an
    /// image when that has been downloaded, or could not be. Its category is registered meanwhile, in a later turn.
    void generateUserNotificationRequest(const std::string& param, const boost::json::object& userInfo,
                                         RequestBuilt completionBlock);

    /// Asks the host and shows the page. True when the host does it or the page is shown, in a later turn. `outcome`
    /// takes what became of it in more detail.
    bool executeOpenWebPageAction(const std::string& url, int triggeredBy) override;
    bool executeOpenWebPageAction(const std::string& url, int triggeredBy, ActionOutcome* outcome);
    /// Shows the page without asking. False, and a warning in the system log, when the screen presents another one
    /// already or a "file" URL names no resource of the app's bundle; false when there is no screen.
    bool executeOpenWebPageActionWithURL(const std::string& url);
    /// The URL itself; nothing, and a warning, for a "file" URL that names no resource of the app's bundle.
    [[nodiscard]] std::optional<std::string> getWebPageURL(const std::string& url) const;

    /// Asks the host and hands the link to the phone. `param` is JSON with "iosURL" or "genericURL". True when the host
    /// does it or some app opens the link, in a later turn.
    bool executeOpenDeepLinkAction(const std::string& param, int triggeredBy) override;
    bool executeOpenDeepLinkAction(const std::string& param, int triggeredBy, ActionOutcome* outcome);
    /// Opens the link without asking; false when no app opens it.
    bool executeOpenDeepLinkActionWithURL(const std::string& url);
    /// "iosURL" when there is one, else "genericURL"; nothing without a text there, or when it is no JSON.
    [[nodiscard]] static std::optional<std::string> getDeepLinkURLFromJSON(const std::string& json);

    /// Asks the host and tells the server, as `QuomiAPI::sendServerNotificationToURL` does; its actions come back here.
    /// True when the host or the SDK sends. False for an empty URL and a refusal; then no block is ever called. With a
    /// host that sends itself `enableBlock` never is: deliberate, such a host has taken over the rule's other actions.
    /// Blocks may be empty; each runs at most once. `ended` only looks on: see ServerNotification; a host that sends
    /// itself ends nothing.
    bool executeNotifyServerAction(const std::string& url, int triggeredBy, const boost::json::object& infoDict,
                                   Done success, Failure failure, Done enableBlock, ActionOutcome* outcome = nullptr,
                                   ServerAnswered ended = {});
    bool executeNotifyServerAction(const std::string& url, int triggeredBy, Done success, Failure failure,
                                   Done enableBlock);

    /// Does what a notification that the user opened carries: its user info's "type" ("open_url" or "open_deep_link")
    /// with its "param" and "triggeredBy".
    void executeNotificationRequestActions(const NotificationRequest& request);

private:
    using Url = const std::string&;
    using ShouldExecute = std::function<bool(Url, int)> ActionHost::*;
    using Execute = std::function<void(Url, int)> ActionHost::*;

    void askToNotify(const NotificationRequest& request, int triggeredBy,
                     const std::function<void(bool)>& completionBlock);
    void notify(const NotificationRequest& request, int triggeredBy);
    [[nodiscard]] std::optional<ActionOutcome> leaveToHost(ShouldExecute question, Execute operation, Url url,
                                                           int triggeredBy) const;
    [[nodiscard]] bool isVetoed(ShouldExecute question, Url url, int triggeredBy) const;
    [[nodiscard]] bool hostNotifiesServer(Url url, int triggeredBy, const Done& success, const Failure& failure);
    ActionOutcome openWebPage(Url url, int triggeredBy);
    ActionOutcome openDeepLink(const std::string& param, int triggeredBy);
    ActionOutcome notifyServer(Url url, int triggeredBy, const boost::json::object& infoDict, Done success,
                               Failure failure, Done enableBlock, ServerAnswered ended);
    void postUnlessEnded(std::function<void(QuomiActionExecutor&)> work);

    const ActionExecutorContext context_;
    AttachmentDownloads attachments_;
    std::unique_ptr<QuomiNotificationHelpers> notificationHelpers_;
    std::shared_ptr<Screen> presentationViewController_;
    QuomiAPI* apiClient_ = nullptr;
    bool hasEnded_ = false;
};

}  // namespace quomi
