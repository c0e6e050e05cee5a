#pragma once

#include "quomi/api/server_notification.h"
#include "quomi/platform/platform.h"
#include "quomi/rules/action_host.h"
#include "quomi/rules/attachment.h"
#include "quomi/rules/notification_helpers.h"
#include "quomi/util/lifetime.h"

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

/// Whether the action is done, by whomever.
[[nodiscard]] constexpr bool isDone(ActionOutcome outcome) {
    return outcome == ActionOutcome::performed || outcome == ActionOutcome::performedByHost;
}

/// What the executor works with. All of it outlives the executor.
struct ActionExecutorContext {
    const Platform& platform;
    /// Shows the pages, and keeps them after the executor's end.
    WebPagePresenter& webPages;
    const ActionHost& host;
    /// Takes an event for the event log.
    std::function<void(const boost::json::object& event)> logEvent;
    /// Properties of the SDK's user; empty when there is none. They fill the placeholders of notifications.
    std::function<boost::json::object()> userProperties;
};

/// Performs the single actions of rules and of servers' answers: notifications, web pages, deep links and requests to
/// servers. Before each it asks the host, which may refuse or do it itself.
///
/// Host's thread only. Every operation may be called from inside every callback, and so may `end`: whatever is under
/// way then comes to nothing, and nobody is called back for it. `triggeredBy` is 1 for a geofence and 2 for a beacon;
/// it goes to the host as it is.
class QuomiActionExecutor {
public:
    using RequestBuilt = std::function<void(const NotificationRequest&)>;

    explicit QuomiActionExecutor(ActionExecutorContext context);
    ~QuomiActionExecutor();
    QuomiActionExecutor(const QuomiActionExecutor&) = delete;
    QuomiActionExecutor& operator=(const QuomiActionExecutor&) = delete;

    /// Ends it for good: drops downloads, answers that are awaited and pages that are about to be shown. Afterwards
    /// every operation does nothing, and what has an outcome is impossible. Pages on show stay.
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
                                 std::function<void(bool)> completionBlock);
    /// Builds it as `notificationContent` says, with the badge on top of the app's. The block gets it at once; with an
    /// image when that has been downloaded, or could not be. Its category is registered meanwhile, in a later turn.
    void generateUserNotificationRequest(const std::string& param, const boost::json::object& userInfo,
                                         RequestBuilt completionBlock);

    /// Asks the host and opens what an action of a kind that opens names, in a later turn.
    ActionOutcome executeOpenAction(ActionKind kind, const std::string& param, int triggeredBy);
    /// The same for a web page; whether the host does it or the page is shown.
    bool executeOpenWebPageAction(const std::string& url, int triggeredBy);
    /// The same for a link; `param` is JSON with "iosURL" or "genericURL".
    bool executeOpenDeepLinkAction(const std::string& param, int triggeredBy);

    /// Shows the page without asking. False, and a warning in the system log, when the screen presents another one
    /// already, or is about to, or a "file" URL names no resource of the app's bundle; false when there is no screen. A
    /// screen that has become busy by the later turn shows nothing, with the same warning.
    bool executeOpenWebPageActionWithURL(const std::string& url);
    /// The URL itself; nothing, and a warning, for a "file" URL that names no resource of the app's bundle.
    [[nodiscard]] std::optional<std::string> getWebPageURL(const std::string& url) const;

    /// Opens the link without asking; false when no app opens it.
    bool executeOpenDeepLinkActionWithURL(const std::string& url);
    /// "iosURL" when there is one, else "genericURL"; nothing without a text there, or when it is no JSON.
    [[nodiscard]] static std::optional<std::string> getDeepLinkURLFromJSON(const std::string& json);

    /// Asks the host and puts the question to the server; what the answer orders is performed here, with `infoDict` as
    /// user info. Impossible for an empty URL and vetoed by a refusal; then no block is ever called. With a host that
    /// asks itself only `success` and `failure` are, once: deliberate, such a host has taken over the rule's other
    /// actions.
    ActionOutcome executeNotifyServerAction(ServerNotification question, int triggeredBy,
                                            const boost::json::object& infoDict);

    /// Does what a notification that the user opened carries: its user info's "type" (of a kind that opens) with its
    /// "param" and "triggeredBy".
    void executeNotificationRequestActions(const NotificationRequest& request);

private:
    void askToNotify(const NotificationRequest& request, int triggeredBy,
                     const std::function<void(bool)>& completionBlock);
    void notify(const NotificationRequest& request, int triggeredBy);
    [[nodiscard]] bool isVetoed(ActionKind kind, const std::string& url, int triggeredBy) const;
    [[nodiscard]] bool hostNotifiesServer(const ServerNotification& question, int triggeredBy);
    void performOrdered(const QuomiAction& action, const boost::json::object& userInfo, int triggeredBy);
    void warnThatIsBusy(const Screen& presenter) const;

    const ActionExecutorContext context_;
    AttachmentDownloads attachments_;
    std::unique_ptr<QuomiNotificationHelpers> notificationHelpers_;
    std::shared_ptr<Screen> presentationViewController_;
    QuomiAPI* apiClient_ = nullptr;
    bool pageIsComing_ = false;  // in the next turn: whoever asks for another finds its screen busy
    Lifetime lifetime_;
};

}  // namespace quomi
