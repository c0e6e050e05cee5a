#include "quomi/sdk/session.h"

#include "quomi/api/api_client.h"
#include "quomi/beacons/beacon_manager.h"
#include "quomi/beacons/beacon_service_manager.h"
#include "quomi/beacons/secure_beacon.h"
#include "quomi/data/data.h"
#include "quomi/data/data_updater.h"
#include "quomi/data/parser.h"
#include "quomi/location/location_manager.h"
#include "quomi/model/user.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device_helpers.h"
#include "quomi/platform/notification_center.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/beacon_rule_executor.h"
#include "quomi/rules/geofence_rule_executor.h"
#include "quomi/rules/notification_helpers.h"
#include "quomi/sdk/battery_alerts.h"
#include "quomi/sdk/beacon_router.h"
#include "quomi/sdk/event_upload.h"
#include "quomi/sdk/geofence_router.h"
#include "quomi/sdk/sdk_state.h"
#include "quomi/sdk/server_sync.h"

#include <utility>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

/// An observer whose calls hold back what `stop` lets go of, for as long as it is held.
struct HeldObserver {
    HeldObserver(const DeferredRelease& graveyard, std::shared_ptr<const RuleObserver> held)
        : hold(graveyard), observer(std::move(held)) {}

    const DeferredRelease::Hold hold;
    const std::shared_ptr<const RuleObserver> observer;
};

Uuid uuidOf(const std::string& text) {
    return Uuid::parse(text).value_or(Uuid());
}

}  // namespace

Session::Session(SdkState& sdk)
    : sdk_(sdk), eventUpload_(std::make_unique<EventUploadLoop>(sdk.platform, sdk.debugLog)) {}

Session::~Session() = default;

// Opening

bool Session::openData(bool allowStoreDeletion, std::optional<Error>* error) {
    if (data_ != nullptr) return true;
    const auto file = QuomiData::dataStorageDirectory(sdk_.platform) / kQuomiSQLiteStoreFile;
    data_ = QuomiData::create(file, allowStoreDeletion, sdk_.platform, sdk_.errors, error);
    if (data_ == nullptr) return false;
    batteryAlerts_ = std::make_unique<BatteryAlertQueue>(*data_, sdk_.platform.console);
    return true;
}

bool Session::open(std::optional<Error>* error) {
    openClient();
    if (!openData(false, error)) return false;
    setUploader(api_.get());
    if (apiResponseParser_ == nullptr) {
        apiResponseParser_ =
            std::make_unique<QuomiDataApiResponseParser>(*data_, sdk_.errors, sdk_.platform, sdk_.settings);
    }
    if (dataUpdater_ == nullptr) {
        dataUpdater_ = std::make_unique<QuomiDataUpdater>(*data_, *api_, *apiResponseParser_, sdk_.platform,
                                                          sdk_.settings, sdk_.debugLog);
    }
    dataUpdater_->setApiClient(*api_);
    makeExecutors();
    makeRouters();
    return true;
}

/// A client of another server takes the place of the one there was.
void Session::openClient() {
    if (api_ != nullptr && api_->baseURL() == sdk_.settings.baseAPIUrl) return api_->forgetFailedDownloads();
    setUploader(nullptr);
    if (genericActionExecutor_ != nullptr) genericActionExecutor_->setApiClient(nullptr);
    if (api_ != nullptr) {
        api_->cancelAllRequests();
        // Perhaps one of its own callbacks led here.
        sdk_.graveyard.release(std::move(api_));
    }
    api_ = std::make_unique<QuomiAPI>(sdk_.settings.baseAPIUrl, sdk_.platform, sdk_.settings, sdk_.debugLog);
}

void Session::setUploader(Uploader* uploader) {
    eventUpload_->setUploader(uploader);
    if (batteryAlerts_ != nullptr) batteryAlerts_->setUploader(uploader);
}

void Session::makeExecutors() {
    if (genericActionExecutor_ == nullptr) genericActionExecutor_ = makeActionExecutor();
    genericActionExecutor_->setApiClient(api_.get());
    if (geofenceActionExecutor_ == nullptr) {
        geofenceActionExecutor_ = std::make_unique<QuomiGeofenceActionExecutor>(
            ruleExecutorContext(),
            RulePosition{[this] { return locationManager_ != nullptr ? locationManager_->currentSpeed() : 0.0; },
                         [this] { return currentLocation(); }});
    }
    if (beaconActionExecutor_ == nullptr) {
        beaconActionExecutor_ = std::make_unique<QuomiBeaconActionExecutor>(ruleExecutorContext(), [this] {
            return beaconManager_ != nullptr ? beaconManager_->getNearbyBeacons()
                                             : std::vector<std::shared_ptr<const QuomiBeacon>>();
        });
    }
    geofenceActionExecutor_->setActionExecutor(genericActionExecutor_.get());
    beaconActionExecutor_->setActionExecutor(genericActionExecutor_.get());
}

void Session::makeRouters() {
    if (beaconRouter_ != nullptr) return;
    beaconRouter_ = std::make_shared<BeaconRouter>(routingContext(), *beaconActionExecutor_);
    beaconServiceRouter_ = std::make_shared<BeaconServiceRouter>(routingContext(), *batteryAlerts_);
    geofenceRouter_ = std::make_shared<GeofenceRouter>(routingContext(), *geofenceActionExecutor_, sdk_.errors);
}

// What the executors and routers ask for lives in the session, which ends them.

std::unique_ptr<QuomiActionExecutor> Session::makeActionExecutor() {
    return std::make_unique<QuomiActionExecutor>(ActionExecutorContext{
        sdk_.platform, sdk_.webPages, sdk_.host, [this](const boost::json::object& event) { logEvent(event); },
        [this] {
            const auto& user = sdk_.user;
            return user != nullptr && user->properties() ? *user->properties() : boost::json::object();
        }});
}

RuleExecutorContext Session::ruleExecutorContext() {
    return {*data_,
            sdk_.platform,
            sdk_.settings,
            sdk_.errors,
            sdk_.debugLog,
            [this](const boost::json::object& event) { logEvent(event); },
            [this] { return sdk_.user != nullptr ? sdk_.user->userID() : std::nullopt; },
            [this] { return QuomiUDID::udid(sdk_.platform.device); },
            [this]() -> std::shared_ptr<const RuleObserver> {
                auto observer = sdk_.ruleObserver.lock();
                if (observer == nullptr) return nullptr;
                return {std::make_shared<HeldObserver>(sdk_.graveyard, observer), observer.get()};
            }};
}

RoutingContext Session::routingContext() {
    return {sdk_.platform, sdk_.settings, sdk_.host, *data_, *dataUpdater_, *this};
}

std::size_t Session::requestQueueCount() const {
    return api_ != nullptr ? api_->getRequestQueueCount() : 0;
}

void Session::setupNotifications() {
    if (notificationHelpers_ == nullptr) {
        notificationHelpers_ = std::make_unique<QuomiNotificationHelpers>(sdk_.platform.notifications);
    }
    notificationHelpers_->requestNotificationRightsIfNeeded();
    notificationHelpers_->registerCustomActionsCategories();
}

Session::Application Session::application() const {
    return data_ != nullptr ? data_->getApplication() : nullptr;
}

void Session::downloadApplication(const Downloaded& done) {
    // The client goes with the session, and its requests with the client: both outlive every answer.
    api_->getApplicationWithNamespace(
        sdk_.settings.namespace_.value_or(""),
        [this, done](const boost::json::value& answer) {
            const bool stored = apiResponseParser_->parseAndSaveApiApplicationResponseData(answer);
            done(stored ? application() : nullptr, std::nullopt);
        },
        [done](const Error& error) { done(nullptr, error); });
}

void Session::configure(const QuomiApplication& application) {
    auto& settings = sdk_.settings;
    settings.beaconProximityUUIDNormal = application.proximityUUIDNormal.value_or("");
    settings.beaconProximityUUIDSecure = application.proximityUUIDSecure.value_or("");
    settings.beaconProximityUUIDService = application.proximityUUIDService.value_or("");
    if (application.antiHackingProtocol == kQuimoApplicationSecurityProtocolNone) {
        settings.beaconSecurityMode = kBeaconSecurityModeNone;
    } else if (application.antiHackingProtocol == kQuimoApplicationSecurityProtocolRotatingAdvertisement) {
        settings.beaconSecurityMode = kBeaconSecurityModeRotatingAdvertisement;
    }
    settings.proximityFarSplitThreshold = application.proximityFarSplitThreshold;
}

void Session::downloadEventLimits() {
    api_->getApplicationEventLimits(
        sdk_.settings.namespace_.value_or(""),
        [this](const boost::json::value& answer) {
            std::optional<Error> failure;
            if (!apiResponseParser_->parseAndSaveApiApplicationLimitsResponseData(answer, &failure)) {
                sdk_.host.forwardErrorToDelegate(failure);
            }
        },
        [this](const Error& error) { sdk_.host.forwardErrorToDelegate(error); });
}

// Location

bool Session::startLocation(std::optional<Error>* error) {
    if (!sdk_.capabilities.deviceSupportsGeofences()) {
        assign(error, sdk_.errors.errorWithCode(ErrorCode::regionMonitoringUnsupported));
        return false;
    }
    if (locationManager_ == nullptr) {
        locationManager_ = std::make_unique<QuomiLocationManager>(sdk_.platform, sdk_.settings, sdk_.debugLog);
    }
    locationManager_->setDelegate(geofenceRouter_);
    startLocationMonitoringWithBackgroundModeSupport();
    locationManager_->removeAllRegions();
    return locationManager_->regionMonitoringStarted() || locationManager_->startRegionMonitoring(error);
}

void Session::startLocationMonitoringWithBackgroundModeSupport() {
    // Shared by the expiry and the work itself: whichever is first ends the task, the other finds it ended.
    auto& application = sdk_.platform.application;
    const auto task = std::make_shared<BackgroundTaskIdentifier>(kBackgroundTaskInvalid);
    const auto end = [&application, task] {
        application.endBackgroundTask(std::exchange(*task, kBackgroundTaskInvalid));
    };
    *task = application.beginBackgroundTask(end);
    const auto begin = lifetime_.guard([this] {
        if (locationManager_ != nullptr) locationManager_->startLocationMonitoring();
    });
    sdk_.platform.runLoop.postToGlobalQueue([begin, end] {
        begin();
        end();
    });
}

void Session::stopLocation() {
    if (locationManager_ == nullptr) return;
    locationManager_->stopLocationMonitoring();
    locationManager_->stopRegionMonitoring();
    locationManager_->removeAllRegions();
    locationManager_->setDelegate({});
    sdk_.graveyard.release(std::move(locationManager_));
}

std::optional<Location> Session::currentLocation() const {
    return locationManager_ != nullptr ? locationManager_->currentLocation() : std::nullopt;
}

void Session::setForceFullGeofencesUpdate() {
    if (geofenceRouter_ != nullptr) geofenceRouter_->setForceFullGeofencesUpdate();
}

void Session::changeNamespace(const std::optional<std::string>& from, const std::optional<std::string>& to) {
    if (data_ == nullptr) return;
    data_->enableGeofencesWithNamespace(from.value_or(""), false);
    data_->enableGeofencesWithNamespace(to.value_or(""), true);
    data_->enableBeaconsWithNamespace(from.value_or(""), false);
    data_->enableBeaconsWithNamespace(to.value_or(""), true);
    if (!data_->saveContext() || !sdk_.settings.geofencingEnabled) return;
    if (locationManager_ != nullptr) locationManager_->removeAllRegions();
    const auto location = currentLocation();
    if (location && geofenceRouter_ != nullptr) geofenceRouter_->handleLocation(*location);
}

// Beacons

std::unique_ptr<QuomiBeaconManager> Session::makeBeaconManager() const {
    const auto& settings = sdk_.settings;
    switch (settings.beaconSecurityMode) {
        case kBeaconSecurityModeNone:
            return std::make_unique<QuomiBeaconManager>(uuidOf(settings.beaconProximityUUIDNormal), sdk_.platform,
                                                        settings, sdk_.debugLog);
        case kBeaconSecurityModeRotatingAdvertisement:
            return std::make_unique<QuomiSecureBeaconManager>(uuidOf(settings.beaconProximityUUIDSecure), sdk_.platform,
                                                              settings, sdk_.debugLog);
        default:
            sdk_.platform.console.log(
                fmt::format("Quomi SDK Error: Unsupported beacon security mode ({})", settings.beaconSecurityMode));
            return nullptr;
    }
}

bool Session::startBeacon(std::optional<Error>* error) {
    if (!sdk_.capabilities.deviceSupportsBeacons()) {
        assign(error, sdk_.errors.errorWithCode(ErrorCode::beaconsUnsupported));
        return false;
    }
    if (beaconManager_ == nullptr) beaconManager_ = makeBeaconManager();
    if (beaconManager_ != nullptr) {
        beaconManager_->setFarDistanceSplitThreshold(sdk_.settings.proximityFarSplitThreshold);
        beaconManager_->setRequestWhenInUseAuthorization(sdk_.settings.requestWhenInUseAuthorization);
        beaconManager_->setUseExtendedBackgroundRangingTime(sdk_.settings.useExtendedBackgroundRangingTime);
        beaconManager_->setDelegate(beaconRouter_);
    }
    if (sdk_.settings.beaconServiceMonitorinEnabled && !startBeaconServiceMonitoring(error)) return false;
    // A start without an error object: deliberate, hosts take it as "this security mode is not for this version".
    if (beaconManager_ == nullptr) return false;
    return beaconManager_->isStarted() || beaconManager_->start(error);
}

bool Session::startBeaconServiceMonitoring(std::optional<Error>* error) {
    if (beaconServiceManager_ == nullptr) {
        beaconServiceManager_ = std::make_unique<QuomiBeaconServiceManager>(
            uuidOf(sdk_.settings.beaconProximityUUIDService), sdk_.platform, sdk_.settings);
    }
    beaconServiceManager_->setDelegate(beaconServiceRouter_);
    // One that a failed start left running is no failure of the next start.
    return beaconServiceManager_->isStarted() || beaconServiceManager_->start(error);
}

void Session::stopBeaconServiceMonitoring() {
    if (beaconServiceManager_ == nullptr) return;
    if (beaconServiceManager_->isStarted()) beaconServiceManager_->stop();
    beaconServiceManager_->setDelegate({});
    sdk_.graveyard.release(std::move(beaconServiceManager_));
}

void Session::stopBeacon() {
    stopBeaconServiceMonitoring();
    if (beaconManager_ == nullptr) return;
    if (beaconManager_->isStarted()) beaconManager_->stop();
    beaconManager_->setDelegate({});
    // Perhaps one of its own callbacks led here.
    sdk_.graveyard.release(std::move(beaconManager_));
}

void Session::setUseExtendedBackgroundRangingTime(bool use) {
    if (beaconManager_ != nullptr) beaconManager_->setUseExtendedBackgroundRangingTime(use);
}

// The app's state

void Session::registerForNotifications() {
    applicationObservation_ =
        sdk_.platform.application.observe([this](ApplicationEvent event) { applicationChanged(event); });
}

void Session::applicationChanged(ApplicationEvent event) {
    switch (event) {
        case ApplicationEvent::didBecomeActive:
            sdk_.debugLog.log("applicationDidBecomeActive");
            break;
        case ApplicationEvent::willResignActive:
            sdk_.debugLog.log("applicationWillResignActive");
            break;
        case ApplicationEvent::didEnterBackground:
            sdk_.debugLog.log("applicationDidEnterBackground");
            if (sdk_.settings.beaconEnabled && beaconManager_ != nullptr) {
                beaconManager_->beginBackgroundRangingTask();
            }
            break;
        case ApplicationEvent::willEnterForeground:
            sdk_.debugLog.log("applicationWillEnterForeground");
            break;
        case ApplicationEvent::willTerminate:
            sdk_.debugLog.log("applicationWillTerminate");
            break;
        case ApplicationEvent::backgroundRefreshStatusDidChange:
            break;
    }
}

void Session::setSdkIsStarted(bool isStarted) {
    data_->setSdkIsStarted(isStarted);
}

void Session::shutDown() {
    drop();
    setSdkIsStarted(false);
}

void Session::drop() {
    applicationObservation_.reset();
    stopLocation();
    stopBeacon();
    if (beaconRouter_ != nullptr) beaconRouter_->end();
    if (geofenceRouter_ != nullptr) geofenceRouter_->end();
    if (geofenceActionExecutor_ != nullptr) geofenceActionExecutor_->end();
    if (beaconActionExecutor_ != nullptr) beaconActionExecutor_->end();
    if (genericActionExecutor_ != nullptr) genericActionExecutor_->end();
    notificationHelpers_.reset();
    if (api_ != nullptr) api_->cancelAllRequests();
    setUploader(nullptr);
    lifetime_.end();
}

// Events and user

void Session::logEvent(const boost::json::object& event) {
    if (hasEnded() || data_ == nullptr || !sdk_.eventLogsEnabled) return;
    const WallTime now = sdk_.platform.clock.now();
    std::optional<Error> failure;
    if (eventUpload_->logEvent(event, now, &failure)) {
        sdk_.host.tell(&QuomiSDKDelegate::didLogEvent, event, now);
        return;
    }
    // A host that logs an event for every error would be told of that event too, and so on.
    if (std::exchange(isTellingOfLostEvent_, true)) return;
    sdk_.host.forwardErrorToDelegate(failure);
    isTellingOfLostEvent_ = false;
}

void Session::executeNotificationRequestActions(const NotificationRequest& request) {
    const auto& info = request.userInfo;
    const auto* area = info.if_contains("area_type");
    const auto* rule = info.if_contains("rule_id");
    if (area != nullptr && rule != nullptr) {
        boost::json::object event{{"type", "open_notif"}, {"area_type", *area}, {"rule_id", *rule}};
        for (const auto& [areaType, key] : {std::pair{"beacon", "beacon_id"}, std::pair{"geofence", "geofence_id"}}) {
            const auto* identifier = *area == areaType ? info.if_contains(key) : nullptr;
            if (identifier != nullptr) event[key] = *identifier;
        }
        logEvent(event);
    }
    if (genericActionExecutor_ != nullptr) genericActionExecutor_->executeNotificationRequestActions(request);
}

void Session::logNotificationAuthorizationStatusIfNeeded() {
    if (sdk_.authorizationLogger != nullptr) {
        sdk_.authorizationLogger->logNotificationAuthorizationStatusIfNeeded();
    }
}

void Session::forceLogNotificationAuthorizationStatus() {
    if (sdk_.authorizationLogger != nullptr) {
        sdk_.authorizationLogger->forceLogNotificationAuthorizationStatus();
    }
}

void Session::updateUserInformation(const QuomiUser& user, const std::function<void()>& success,
                                    const std::function<void(const Error&)>& failure) {
    if (api_ == nullptr) return;
    api_->setUserInformation(user, sdk_.settings.namespace_.value_or(""), lifetime_.guard([this, success] {
        lifetime_.inTurn([this] { updateAllRulesData(); }, [&] { sdk_.host.call(success); });
    }),
                             lifetime_.guard([this, failure](const Error& error) {
                                 lifetime_.inTurn(
                                     [this] {
                                         if (sdk_.settings.geofencingEnabled) triggerLocationUpdate();
                                     },
                                     [&] { sdk_.host.call(failure, error); });
                             }));
}

void Session::updateAllRulesData() {
    lifetime_.inTurn(
        [this] {
            if (sdk_.settings.geofencingEnabled) triggerLocationUpdate();
        },
        [this] {
            if (!sdk_.settings.beaconEnabled || dataUpdater_ == nullptr) return;
            downloadAllBeacons(*dataUpdater_, sdk_.settings, {});
        });
}

void Session::triggerLocationUpdate() {
    setForceFullGeofencesUpdate();
    if (!updateLocation()) stopLocation();
}

bool Session::updateLocation(std::optional<Error>* error) {
    if (!sdk_.running) {
        assign(error, sdk_.errors.errorWithCode(ErrorCode::notStarted));
        return false;
    }
    if (!sdk_.settings.geofencingEnabled) {
        assign(error, sdk_.errors.errorWithCode(ErrorCode::geofencesDisabled));
        return false;
    }
    startLocationMonitoringWithBackgroundModeSupport();
    return true;
}

void Session::registerDeviceToken(const std::string& token, const std::optional<std::string>& appNamespace,
                                  std::function<void()> success, std::function<void(const Error&)> failure) {
    if (api_ == nullptr) return;
    auto& host = sdk_.host;
    api_->registerUdid(
        QuomiUser::quomiUserID(sdk_.platform.device), appNamespace, token,
        [&host, success = std::move(success)] { host.call(success); },
        [&host, failure = std::move(failure)](const Error& error) { host.call(failure, error); });
}

void Session::setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value) {
    if (api_ != nullptr) api_->setServerNotificationRequestHeader(name, std::move(value));
}

}  // namespace quomi
