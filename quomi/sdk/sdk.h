#pragma once

#include "quomi/model/settings.h"
#include "quomi/model/user.h"
#include "quomi/platform/platform.h"
#include "quomi/sdk/authorization_facade.h"
#include "quomi/sdk/sdk_delegate.h"
#include "quomi/util/error.h"
#include "quomi/util/export.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiAuthorizationLogger;
class Screen;
class ServerSyncs;
class Session;
struct NotificationRequest;
struct QuomiApplication;
struct RuleObserver;
struct SdkState;

/// The one object through which a host app uses the SDK: set `appNamespace` and options, perhaps a delegate, `start`.
///
/// Everything is called on the host's thread; every operation may be called in every state and from inside every
/// callback. No operation throws. Errors that an operation reports go to its out-parameter, when one is given, and to
/// the delegate.
class QUOMI_EXPORT QuomiSDK final : public AuthorizationFacade {
public:
    /// An SDK on a phone. Platform and settings outlive it.
    QuomiSDK(const Platform& platform, QuomiSettings& settings);
    /// Ends everything without a `stop`: what the phone monitors goes on, nobody is called any more.
    ~QuomiSDK();
    QuomiSDK(const QuomiSDK&) = delete;
    QuomiSDK& operator=(const QuomiSDK&) = delete;

    /// Makes the host's one phone and deployment known, once, before the first `sharedInstance`. False when that was
    /// done before. The platform's ports live as long as the process.
    static bool installPlatform(const Platform& platform, const Deployment& deployment = {});
    /// The host's one SDK, made at the first call; null before `installPlatform`. Any thread for the call itself.
    [[nodiscard]] static QuomiSDK* sharedInstance();

    /// What the phone can do, asked of it anew: geofences are circular regions with significant changes of position,
    /// beacons are monitored and ranged.
    [[nodiscard]] bool deviceSupportsGeofences() const;
    [[nodiscard]] bool deviceSupportsBeacons() const;
    /// `kSDKVersion`.
    [[nodiscard]] std::string SDKVersion() const;

    /// Opens the store, obtains the namespace's application record and begins to watch. With a stored record the result
    /// is the outcome. Without one the record is downloaded: the result is true at once, `isRunning` is true from then
    /// on and turns false when the start fails after all. A download that fails is told to the delegate; a record that
    /// cannot be used shows on the console alone. Fails with 3 when running, 7 without a namespace, 600 to 604 when the
    /// store cannot be opened, 5 and 6 when the phone lacks what is enabled; without an error object when the security
    /// mode is unknown.
    ///
    /// A failed start leaves the SDK able to start again, and does not try again by itself: without network at the
    /// first start the host starts anew when the network is back. What the failed start had begun goes on (requests,
    /// service beacons that are watched), because the next start takes it over; `stop` does nothing then. To end it,
    /// destroy the SDK or call `removeAllData`.
    bool start(std::optional<Error>* error = nullptr);
    /// Ends everything that `start` began: nothing of it calls back any more, requests are dropped. Nothing happens
    /// when not running, also after a start that failed. User and delegate stay.
    void stop();
    /// Also while a start still downloads its record.
    [[nodiscard]] bool isRunning() const override;
    /// Follows a property. A setter that refuses a value, and a write to the settings object, tell nobody.
    [[nodiscard]] std::unique_ptr<Observation> observe(
        QuomiSDKProperty property, std::function<void(bool oldValue, bool newValue)> observer) override;

    /// Who is told and asked; held weakly, so the host keeps it. Null for nobody.
    void setDelegate(std::weak_ptr<QuomiSDKDelegate> delegate);
    /// Null when none was set or it has died.
    [[nodiscard]] std::shared_ptr<QuomiSDKDelegate> delegate() const;

    /// The app's namespace at the back office; empty text is nil. Refused with error 3 while running. The stored
    /// application record stays: the next start takes it whatever its namespace, until `removeAllData`.
    void setAppNamespace(const std::optional<std::string>& appNamespace);
    [[nodiscard]] const std::optional<std::string>& appNamespace() const { return settings_.namespace_; }
    /// Where the back office is: an absolute http or https URL without query, fragment and blanks, else error 1.
    /// Refused with error 3 while running.
    void setBaseURL(const std::string& baseURL);
    [[nodiscard]] const std::string& baseURL() const { return settings_.baseAPIUrl; }

    /// Switches beacons on or off, also while running. On a phone without beacons YES changes nothing.
    void setBeaconsEnabled(bool enabled);
    [[nodiscard]] bool beaconsEnabled() const override { return settings_.beaconEnabled; }
    /// Switches geofences on or off, also while running. On a phone without geofences YES changes nothing.
    void setGeofencesEnabled(bool enabled);
    [[nodiscard]] bool geofencesEnabled() const override { return settings_.geofencingEnabled; }
    /// Which location permission is asked for when beacons start next. Geofences need the other one.
    void setRequestWhenInUseAuthorization(bool request);
    [[nodiscard]] bool requestWhenInUseAuthorization() const { return settings_.requestWhenInUseAuthorization; }
    /// Whether coarse position updates run beside the ranging, only so that the app, and the ranging, goes on in the
    /// background. Takes effect at once.
    void setUseExtendedBackgroundRangingTime(bool use);
    [[nodiscard]] bool useExtendedBackgroundRangingTime() const { return settings_.useExtendedBackgroundRangingTime; }
    /// Whether debug lines go to the debug log file.
    void setFileLogEnabled(bool enabled) { settings_.fileLogEnabled = enabled; }
    [[nodiscard]] bool isFileLogEnabled() const { return settings_.fileLogEnabled; }
    /// Whether events are logged.
    void setEventLogsEnabled(bool enabled);
    [[nodiscard]] bool isEventLogEnabled() const;
    /// Whether the advertising identifier may be sent with the user.
    void setEnableIDFACollection(bool enabled);
    [[nodiscard]] bool isIDFACollectionEnabled() const;
    /// Whether it may be, and the phone's user allows tracking too.
    [[nodiscard]] bool enableIDFACollection() const;

    /// Stored for the host, held weakly; the SDK makes no use of it.
    void setAdPlaceholderView(std::weak_ptr<void> view) { adPlaceholderView_ = std::move(view); }
    [[nodiscard]] std::shared_ptr<void> adPlaceholderView() const { return adPlaceholderView_.lock(); }

    /// What writes the user's permissions into the event log, for the whole life of the SDK; null when the host has
    /// taken it away.
    [[nodiscard]] QuomiAuthorizationLogger* authorizationLogger() const;
    void setAuthorizationLogger(std::unique_ptr<QuomiAuthorizationLogger> logger);

    /// The device user; null before the first start, which makes an empty one.
    [[nodiscard]] std::shared_ptr<QuomiUser> user() const;
    /// Holds another user, or none, and sends it to the server as `updateUserInformation` does, unless it equals the
    /// one before: then `success` is called at once. From now on its changes are sent, until another is held; those of
    /// the user that `start` makes are not.
    void setUser(std::shared_ptr<QuomiUser> user, const std::function<void()>& success = {},
                 const std::function<void(const Error&)>& failure = {});
    /// Sends the user to the server. Nothing happens, and no block is called, unless the SDK has a server client: from
    /// `start` to `stop`. Errors reach the block alone.
    void updateUserInformation(const std::function<void()>& success = {},
                               const std::function<void(const Error&)>& failure = {});
    /// Registers the device for pushes under the stored application record's namespace; the token is text, hexadecimal
    /// where the phone gave bytes. Without a record `failure` is called at once with error 7. Without that block the
    /// token is registered under no namespace, from `start` to `stop`.
    void registerCloudMessagingPushNotificationsDeviceToken(const std::string& token,
                                                            std::function<void()> success = {},
                                                            std::function<void(const Error&)> failure = {});
    /// Keeps a header for server notifications; without a value it goes. No request carries it: deliberate, server
    /// notifications go out with the headers of all other requests.
    void setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value);

    // Upkeep of the stored data

    /// How a synchronisation ended: always done, whether its downloads succeeded or not, except without a namespace.
    static constexpr std::uint64_t kServerSyncDone = 0;
    static constexpr std::uint64_t kServerSyncWithoutNamespace = 1;
    using SyncHandler = std::function<void(std::uint64_t)>;

    /// Downloads all beacons and the geofences around the device. The handler is called exactly once: when both have
    /// ended, at once when there is nothing to do, or by `stop`. Without a handler nothing is done.
    void performServerSync(SyncHandler completionHandler);
    /// Downloads all beacons; geofences follow the next position, which is asked for.
    void updateAllRulesData();
    /// Asks the phone for the position; it downloads the geofences around it in full.
    void triggerLocationUpdate();
    /// Asks the phone for the position. Fails with 2 when not running and 8 while geofences are switched off; the
    /// delegate is not told.
    bool updateLocation(std::optional<Error>* error = nullptr);
    /// Sets every counter of events, device-wide and of all rules, to zero. Opens the store if need be. An error of a
    /// single reset is not told to the delegate.
    bool resetCounters(std::optional<Error>* error = nullptr);
    /// Empties the store, also one that cannot be migrated, down to its free pages; the log files stay. Stops the SDK
    /// and starts it again when it was running. Fails with the store's error, or with 609 when something could not be
    /// removed, and stays stopped then.
    bool removeAllData(std::optional<Error>* error = nullptr);

    /// Who is told what becomes of each rule, for tools that explain rules; null for nobody. Held weakly, across starts
    /// and stops.
    void setRuleObserver(std::weak_ptr<const RuleObserver> observer);

    /// Logs the error and tells the delegate; nothing is logged as such and goes no further.
    void forwardErrorToDelegate(const std::optional<Error>& error);
    /// Logs an event of the host's, with the time as it is now, and tells the delegate when it was accepted. When it
    /// was not (its JSON has more than 64 KiB, a text in it is not UTF-8, the event log cannot be written or another
    /// process holds it for a second) the delegate gets error 600, which says why. Nothing happens while the SDK has no
    /// store or event logs are switched off.
    void logEvent(const boost::json::object& event);

    /// The screen over which web pages of actions are shown; null for the app's top screen. It belongs to the run: set
    /// before `start` it has no effect, and `stop` forgets it.
    void setPresentationViewController(std::shared_ptr<Screen> screen);
    [[nodiscard]] std::shared_ptr<Screen> presentationViewController() const;
    /// To be called when the user has opened a notification of the SDK, with its request: logs an event "open_notif"
    /// and does what the notification carries. No effect before `start` and after `stop`.
    void executeNotificationRequestActions(const NotificationRequest& request);
    /// Shows a page as an action of a rule would, without asking the delegate; it appears in a later turn. False when
    /// the screen presents another one already, for a "file" URL that names no resource of the app's bundle, and
    /// before `start` and after `stop`.
    bool openWebPageForUrl(const std::string& url);
    /// Hands a link to the phone, in a later turn, without asking the delegate. False when no app opens it, and before
    /// `start` and after `stop`.
    bool openDeepLinkForURL(const std::string& url);

    /// The debug log's text; empty when there is none.
    [[nodiscard]] std::string getDebugFileContent() const;
    /// Empties the debug log.
    void clearDebugFile();

private:
    bool openStore(bool allowStoreDeletion, std::optional<Error>* error);
    bool fail(std::optional<Error>* error, Error failure);
    bool completeStart(std::optional<Error>* error);
    bool abandonStart(Session& session, std::optional<Error>* error, const std::optional<Error>& failure);
    void startAsynchronously();
    void startEnded(const std::shared_ptr<QuomiApplication>& application, const std::optional<Error>& requestError);
    void setRunning(bool running);
    void tellOfProperty(const Observers<bool>& observers, bool oldValue, bool newValue) const;
    void observeUser();
    void switchGeofences(bool enabled);
    void warn(const char* message) const;

    QuomiSettings& settings_;
    const std::unique_ptr<SdkState> state_;
    const std::unique_ptr<ServerSyncs> syncs_;
    std::vector<std::unique_ptr<Observation>> userObservations_;
    Observers<bool> runningObservers_;
    Observers<bool> beaconsEnabledObservers_;
    Observers<bool> geofencesEnabledObservers_;
    std::weak_ptr<void> adPlaceholderView_;
    std::shared_ptr<Session> session_;
};

}  // namespace quomi
