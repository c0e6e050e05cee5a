#pragma once

#include "quomi/platform/application.h"
#include "quomi/platform/location.h"
#include "quomi/platform/platform.h"
#include "quomi/sdk/routing_context.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

class BatteryAlertQueue;
class BeaconRouter;
class BeaconServiceRouter;
class EventUploadLoop;
class GeofenceRouter;
class QuomiAPI;
class QuomiActionExecutor;
class QuomiBeaconActionExecutor;
class QuomiBeaconManager;
class QuomiBeaconServiceManager;
class QuomiDataApiResponseParser;
class QuomiGeofenceActionExecutor;
class QuomiNotificationHelpers;
struct RuleExecutorContext;
struct NotificationRequest;
struct QuomiApplication;
class QuomiUser;
struct SdkState;
class Uploader;

/// What lives from start to stop: the SDK's components and the routers of events, made where they are missing and
/// let go of together.
///
/// A start that fails half-way leaves its session to the next start, which goes on with what is there. A session that
/// was shut down calls nobody any more; it is destroyed in a later turn, because `stop` may come from one of its own
/// callbacks. Host's thread only.
class Session final : private RoutingSession {
public:
    using Application = std::shared_ptr<QuomiApplication>;
    using Downloaded = std::function<void(const Application&, const std::optional<Error>& requestError)>;

    /// `sdk` outlives the session.
    explicit Session(SdkState& sdk);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Opens the store unless it is open. Fails with the store's error. A store that cannot be migrated is deleted and
    /// made anew where that is allowed.
    bool openData(bool allowStoreDeletion, std::optional<Error>* error);
    /// The store; null before it is opened.
    [[nodiscard]] QuomiData* data() const { return data_.get(); }
    /// Opens the store and makes the server's client, parser, updater, executors and routers where they are missing;
    /// the client anew when the base URL has changed. Fails with the store's error.
    bool open(std::optional<Error>* error);
    /// Decides what is downloaded when; null before `open`.
    [[nodiscard]] QuomiDataUpdater* dataUpdater() const { return dataUpdater_.get(); }
    /// Asks the user for notification rights, unless granted, and registers the SDK's categories; in later turns.
    void setupNotifications();
    /// The stored application record; null when there is none, or no store.
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
    /// Begins to follow where the device is, as work under a background task.
    void startLocationMonitoringWithBackgroundModeSupport();
    /// The last position; nothing when none is known or location is off.
    [[nodiscard]] std::optional<Location> currentLocation() const;
    /// The next position downloads the geofences around it in full.
    void setForceFullGeofencesUpdate();
    /// Enables the new namespace's records in place of the old one's, and chooses regions anew.
    void changeNamespace(const std::optional<std::string>& from, const std::optional<std::string>& to);
    /// False without an error when the security mode is one that the SDK does not know.
    bool startBeacon(std::optional<Error>* error);
    void stopBeacon();
    void setUseExtendedBackgroundRangingTime(bool use);

    void registerForNotifications();
    void setSdkIsStarted(bool isStarted);
    /// Ends everything in the order of `stop`.
    void shutDown();
    /// The same without a word in the store.
    void drop();
    /// Whether it was shut down or dropped: for whoever has called out to the host meanwhile.
    [[nodiscard]] bool hasEnded() const { return lifetime_.hasEnded(); }

    /// Appends the event to the event log and tells the host of it, or of the error, when event logs are enabled.
    void logEvent(const boost::json::object& event) override;
    /// Logs the notification rights in any case.
    void forceLogNotificationAuthorizationStatus();

    /// Sends the user to the server. Before the block, a success updates all rules, because they may depend on the
    /// user; a failure asks for the position.
    void updateUserInformation(const QuomiUser& user, const std::function<void()>& success,
                               const std::function<void(const Error&)>& failure);
    // As the facade's operations of these names.
    void updateAllRulesData();
    void triggerLocationUpdate();
    bool updateLocation(std::optional<Error>* error = nullptr);
    /// Registers the device's push token, given as text, under the namespace.
    void registerDeviceToken(const std::string& token, const std::optional<std::string>& appNamespace,
                             std::function<void()> success, std::function<void(const Error&)> failure);
    /// A header for server notifications; without a value it goes.
    void setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value);

    /// The single actions; null before `open`.
    [[nodiscard]] QuomiActionExecutor* actionExecutor() const { return genericActionExecutor_.get(); }
    /// Logs that the user opened one of the SDK's notifications, and does what it carries.
    void executeNotificationRequestActions(const NotificationRequest& request);

private:
    void logNotificationAuthorizationStatusIfNeeded() override;
    [[nodiscard]] QuomiLocationManager* locationManager() const override { return locationManager_.get(); }
    [[nodiscard]] std::size_t requestQueueCount() const override;
    void openClient();
    void setUploader(Uploader* uploader);
    void makeExecutors();
    void makeRouters();
    [[nodiscard]] std::unique_ptr<QuomiActionExecutor> makeActionExecutor();
    [[nodiscard]] RuleExecutorContext ruleExecutorContext();
    [[nodiscard]] RoutingContext routingContext();
    [[nodiscard]] std::unique_ptr<QuomiBeaconManager> makeBeaconManager() const;
    bool startBeaconServiceMonitoring(std::optional<Error>* error);
    void stopBeaconServiceMonitoring();
    void applicationChanged(ApplicationEvent event);

    SdkState& sdk_;
    const std::unique_ptr<EventUploadLoop> eventUpload_;
    std::unique_ptr<QuomiData> data_;
    std::unique_ptr<BatteryAlertQueue> batteryAlerts_;  // there with the store
    std::unique_ptr<QuomiAPI> api_;
    std::unique_ptr<QuomiDataApiResponseParser> apiResponseParser_;
    std::unique_ptr<QuomiDataUpdater> dataUpdater_;
    std::unique_ptr<QuomiActionExecutor> genericActionExecutor_;
    std::unique_ptr<QuomiGeofenceActionExecutor> geofenceActionExecutor_;
    std::unique_ptr<QuomiBeaconActionExecutor> beaconActionExecutor_;
    std::unique_ptr<QuomiNotificationHelpers> notificationHelpers_;
    std::shared_ptr<BeaconRouter> beaconRouter_;
    std::shared_ptr<GeofenceRouter> geofenceRouter_;
    std::unique_ptr<QuomiLocationManager> locationManager_;
    std::unique_ptr<QuomiBeaconManager> beaconManager_;
    std::shared_ptr<BeaconServiceRouter> beaconServiceRouter_;
    std::unique_ptr<QuomiBeaconServiceManager> beaconServiceManager_;
    std::unique_ptr<ApplicationObservation> applicationObservation_;
    bool isTellingOfLostEvent_ = false;
    Lifetime lifetime_;
};

}  // namespace quomi
