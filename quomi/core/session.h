#pragma once

#include "quomi/platform/application.h"
#include "quomi/platform/platform.h"
#include "quomi/util/error.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

class BeaconRouter;
class DebugLog;
class DeferredRelease;
class DeviceCapabilities;
class HostDelegate;
class QuomiAPI;
class QuomiActionExecutor;
class QuomiBeaconManager;
class QuomiBeaconServiceManager;
struct QuomiBeaconServiceManagerDelegate;
class QuomiData;
class QuomiDataApiResponseParser;
class QuomiErrors;
class QuomiLocationManager;
class QuomiNotificationHelpers;
class WebPagePresenter;
struct NotificationRequest;
struct QuomiLocationDelegate;
struct QuomiApplication;
struct QuomiSettings;
struct QuomiUser;
struct RuleObserver;

/// What the facade holds for good and lends to each of its sessions.
struct SessionContext {
    const Platform& platform;
    QuomiSettings& settings;
    const DeviceCapabilities& capabilities;
    const QuomiErrors& errors;
    DebugLog& debugLog;
    HostDelegate& host;
    DeferredRelease& graveyard;
    const bool& eventLogsEnabled;
    const std::shared_ptr<QuomiUser>& user;
    WebPagePresenter& webPages;
    const std::weak_ptr<const RuleObserver>& ruleObserver;
};

/// What lives from start to stop: the SDK's components and the router of beacon events, made where they are missing and
/// let go of together.
///
/// A start that fails half-way leaves its session to the next start, which goes on with what is there. A session that
/// was shut down calls nobody any more; it is destroyed in a later turn, because `stop` may come from one of its own
/// callbacks. Host's thread only.
class Session : public std::enable_shared_from_this<Session> {
public:
    using Application = std::shared_ptr<QuomiApplication>;
    using Downloaded = std::function<void(const Application&, const std::optional<Error>& requestError)>;

    explicit Session(const SessionContext& context);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Makes the server's client, the store, the parser and the action executor where they are missing; the client anew
    /// when the base URL has changed. Fails with the store's error.
    bool open(std::optional<Error>* error);
    /// Asks the user for notification rights, unless granted, and registers the SDK's categories; in later turns.
    void setupNotifications();
    /// The stored application record; null when there is none.
    [[nodiscard]] Application application() const;
    /// Downloads the application record and stores it. `done` is called in a later turn: with the record, with null
    /// and the request's error, or with neither when the answer could not be stored.
    void downloadApplication(const Downloaded& done);
    /// Takes UUIDs, security mode and split distance of the record into the settings.
    void configure(const QuomiApplication& application);
    /// Downloads the device-wide event limits and stores them; errors go to the host.
    void downloadEventLimits();

    /// Fails with 5 on a phone without geofences. No geofence of an earlier run is monitored afterwards.
    bool startLocation(std::optional<Error>* error);
    void stopLocation();
    /// False without an error when the security mode is one that the SDK does not know.
    bool startBeacon(std::optional<Error>* error);
    void stopBeacon();
    void setUseExtendedBackgroundRangingTime(bool use);

    void registerForNotifications();
    void setSdkIsStarted(bool isStarted);
    /// Ends everything in the order of `stop`.
    void shutDown();

    /// Appends the event to the event log and tells the host of it, when event logs are enabled.
    void logEvent(const boost::json::object& event);
    /// Sends the user to the server.
    void updateUserInformation(const QuomiUser& user, std::function<void()> success,
                               std::function<void(const Error&)> failure);

    /// The single actions; null before `open`.
    [[nodiscard]] QuomiActionExecutor* actionExecutor() const { return genericActionExecutor_.get(); }
    /// Logs that the user opened one of the SDK's notifications, and does what it carries.
    void executeNotificationRequestActions(const NotificationRequest& request);

private:
    [[nodiscard]] std::shared_ptr<QuomiActionExecutor> makeActionExecutor();
    void startLocationMonitoringWithBackgroundModeSupport();
    [[nodiscard]] std::unique_ptr<QuomiBeaconManager> makeBeaconManager() const;
    bool startBeaconServiceMonitoring(std::optional<Error>* error);
    void stopBeaconServiceMonitoring();
    void applicationChanged(ApplicationEvent event);

    const SessionContext context_;
    std::unique_ptr<QuomiData> data_;
    std::unique_ptr<QuomiAPI> api_;
    std::unique_ptr<QuomiDataApiResponseParser> apiResponseParser_;
    std::shared_ptr<QuomiActionExecutor> genericActionExecutor_;
    std::unique_ptr<QuomiNotificationHelpers> notificationHelpers_;
    std::shared_ptr<BeaconRouter> beaconRouter_;
    std::shared_ptr<QuomiLocationDelegate> locationDelegate_;
    std::unique_ptr<QuomiLocationManager> locationManager_;
    std::unique_ptr<QuomiBeaconManager> beaconManager_;
    std::shared_ptr<QuomiBeaconServiceManagerDelegate> beaconServiceDelegate_;
    std::unique_ptr<QuomiBeaconServiceManager> beaconServiceManager_;
    std::unique_ptr<ApplicationObservation> applicationObservation_;
    bool isShutDown_ = false;
};

}  // namespace quomi
