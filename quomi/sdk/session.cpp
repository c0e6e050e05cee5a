#include "quomi/sdk/session.h"

#include "quomi/api/api_client.h"
#include "quomi/beacons/beacon_manager.h"
#include "quomi/beacons/beacon_service_manager.h"
#include "quomi/beacons/secure_beacon.h"
#include "quomi/data/data.h"
#include "quomi/data/data_updater.h"
#include "quomi/data/parser.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/location/location_manager.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/model/user.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device_helpers.h"
#include "quomi/platform/notification_center.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/beacon_rule_executor.h"
#include "quomi/rules/geofence_rule_executor.h"
#include "quomi/rules/notification_helpers.h"
#include "quomi/sdk/authorization_logger.h"
#include "quomi/sdk/battery_alerts.h"
#include "quomi/sdk/beacon_router.h"
#include "quomi/sdk/deferred_release.h"
#include "quomi/sdk/event_upload.h"
#include "quomi/sdk/geofence_router.h"
#include "quomi/sdk/host_delegate.h"

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

Session::Session(const SessionContext& context)
    : context_(context), eventUpload_(std::make_unique<EventUploadLoop>(context.platform, context.debugLog)) {}

Session::~Session() = default;

// Opening

bool Session::openData(bool allowStoreDeletion, std::optional<Error>* error) {
    if (data_ != nullptr) return true;
    const auto file = QuomiData::dataStorageDirectory(context_.platform) / kQuomiSQLiteStoreFile;
    data_ = QuomiData::create(file, allowStoreDeletion, context_.platform, context_.errors, error);
    if (data_ == nullptr) return false;
    batteryAlerts_ = std::make_unique<BatteryAlertQueue>(*data_);
    return true;
}

bool Session::open(std::optional<Error>* error) {
    openClient();
    if (!openData(false, error)) return false;
    setUploader(api_.get());
    if (apiResponseParser_ == nullptr) {
        apiResponseParser_ =
            std::make_unique<QuomiDataApiResponseParser>(*data_, context_.errors, context_.platform, context_.settings);
    }
    if (dataUpdater_ == nullptr) {
        dataUpdater_ = std::make_unique<QuomiDataUpdater>(*data_, *api_, *apiResponseParser_, context_.platform,
                                                          context_.settings, context_.debugLog);
    }
    dataUpdater_->setApiClient(*api_);
    makeExecutors();
    makeRouters();
    return true;
}

/// A client of another server takes the place of the one there was.
void Session::openClient() {
    if (api_ != nullptr && api_->baseURL() == context_.settings.baseAPIUrl) return api_->forgetFailedDownloads();
    setUploader(nullptr);
    if (genericActionExecutor_ != nullptr) genericActionExecutor_->setApiClient(nullptr);
    if (api_ != nullptr) {
        api_->cancelAllRequests();
        // Perhaps one of its own callbacks led here.
        context_.graveyard.release(std::move(api_));
    }
    api_ = std::make_unique<QuomiAPI>(context_.settings.baseAPIUrl, context_.platform, context_.settings,
                                      context_.debugLog);
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
    geofenceRouter_ = std::make_shared<GeofenceRouter>(
        routingContext(),
        GeofenceRouting{*geofenceActionExecutor_, context_.errors, [this] { return locationManager_.get(); },
                        [this] { return api_ != nullptr ? api_->getRequestQueueCount() : 0; }});
}

// What the executors and routers ask for lives in the session, which ends them.

std::unique_ptr<QuomiActionExecutor> Session::makeActionExecutor() {
    return std::make_unique<QuomiActionExecutor>(ActionExecutorContext{
        context_.platform, context_.webPages, context_.host,
        [this](const boost::json::object& event) { logEvent(event); },
        [this] {
            const auto& user = context_.user;
            return user != nullptr && user->properties() ? *user->properties() : boost::json::object();
        }});
}

RuleExecutorContext Session::ruleExecutorContext() {
    return {*data_,
            context_.platform,
            context_.settings,
            context_.errors,
            context_.debugLog,
            [this](const boost::json::object& event) { logEvent(event); },
            [this] { return context_.user != nullptr ? context_.user->userID() : std::nullopt; },
            [this] { return QuomiUDID::udid(context_.platform.device); },
            [this]() -> std::shared_ptr<const RuleObserver> {
                auto observer = context_.ruleObserver.lock();
                if (observer == nullptr) return nullptr;
                return {std::make_shared<HeldObserver>(context_.graveyard, observer), observer.get()};
            }};
}

RoutingContext Session::routingContext() {
    return {context_.platform,
            context_.settings,
            context_.host,
            *data_,
            *dataUpdater_,
            [this](const boost::json::object& event) { logEvent(event); },
            [this] { logNotificationAuthorizationStatusIfNeeded(); }};
}

void Session::setupNotifications() {
    if (notificationHelpers_ == nullptr) {
        notificationHelpers_ = std::make_unique<QuomiNotificationHelpers>(context_.platform.notifications);
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
        context_.settings.namespace_.value_or(""),
        [this, done](const boost::json::value& answer) {
            const bool stored = apiResponseParser_->parseAndSaveApiApplicationResponseData(answer);
            done(stored ? application() : nullptr, std::nullopt);
        },
        [done](const Error& error) { done(nullptr, error); });
}

void Session::configure(const QuomiApplication& application) {
    auto& settings = context_.settings;
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
        context_.settings.namespace_.value_or(""),
        [this](const boost::json::value& answer) {
            std::optional<Error> failure;
            if (!apiResponseParser_->parseAndSaveApiApplicationLimitsResponseData(answer, &failure)) {
                context_.host.forwardErrorToDelegate(failure);
            }
        },
        [this](const Error& error) { context_.host.forwardErrorToDelegate(error); });
}

// Location

bool Session::startLocation(std::optional<Error>* error) {
    if (!context_.capabilities.deviceSupportsGeofences()) {
        assign(error, context_.errors.errorWithCode(ErrorCode::regionMonitoringUnsupported));
        return false;
    }
    if (locationManager_ == nullptr) {
        locationManager_ =
            std::make_unique<QuomiLocationManager>(context_.platform, context_.settings, context_.debugLog);
    }
    locationManager_->setDelegate(geofenceRouter_);
    startLocationMonitoringWithBackgroundModeSupport();
    locationManager_->removeAllRegions();
    return locationManager_->regionMonitoringStarted() || locationManager_->startRegionMonitoring(error);
}

void Session::startLocationMonitoringWithBackgroundModeSupport() {
    // Shared by the expiry and the work itself: whichever is first ends the task, the other finds it ended.
    auto& application = context_.platform.application;
    const auto task = std::make_shared<BackgroundTaskIdentifier>(kBackgroundTaskInvalid);
    const auto end = [&application, task] {
        application.endBackgroundTask(std::exchange(*task, kBackgroundTaskInvalid));
    };
    *task = application.beginBackgroundTask(end);
    context_.platform.runLoop.postToGlobalQueue([weak = weak_from_this(), end] {
        const auto session = weak.lock();
        if (session != nullptr && session->locationManager_ != nullptr) {
            session->locationManager_->startLocationMonitoring();
        }
        end();
    });
}

void Session::stopLocation() {
    if (locationManager_ == nullptr) return;
    locationManager_->stopLocationMonitoring();
    locationManager_->stopRegionMonitoring();
    locationManager_->removeAllRegions();
    locationManager_->setDelegate({});
    context_.graveyard.release(std::move(locationManager_));
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
    if (!data_->saveContext() || !context_.settings.geofencingEnabled) return;
    if (locationManager_ != nullptr) locationManager_->removeAllRegions();
    const auto location = currentLocation();
    if (location && geofenceRouter_ != nullptr) geofenceRouter_->handleLocation(*location);
}

// Beacons

std::unique_ptr<QuomiBeaconManager> Session::makeBeaconManager() const {
    const auto& settings = context_.settings;
    switch (settings.beaconSecurityMode) {
        case kBeaconSecurityModeNone:
            return std::make_unique<QuomiBeaconManager>(uuidOf(settings.beaconProximityUUIDNormal), context_.platform,
                                                        settings, context_.debugLog);
        case kBeaconSecurityModeRotatingAdvertisement:
            return std::make_unique<QuomiSecureBeaconManager>(uuidOf(settings.beaconProximityUUIDSecure),
                                                              context_.platform, settings, context_.debugLog);
        default:
            context_.platform.console.log(
                fmt::format("Quomi SDK Error: Unsupported beacon security mode ({})", settings.beaconSecurityMode));
            return nullptr;
    }
}

bool Session::startBeacon(std::optional<Error>* error) {
    if (!context_.capabilities.deviceSupportsBeacons()) {
        assign(error, context_.errors.errorWithCode(ErrorCode::beaconsUnsupported));
        return false;
    }
    if (beaconManager_ == nullptr) beaconManager_ = makeBeaconManager();
    if (beaconManager_ != nullptr) {
        beaconManager_->setFarDistanceSplitThreshold(context_.settings.proximityFarSplitThreshold);
        beaconManager_->setRequestWhenInUseAuthorization(context_.settings.requestWhenInUseAuthorization);
        beaconManager_->setUseExtendedBackgroundRangingTime(context_.settings.useExtendedBackgroundRangingTime);
        beaconManager_->setDelegate(beaconRouter_);
    }
    if (context_.settings.beaconServiceMonitorinEnabled && !startBeaconServiceMonitoring(error)) return false;
    // A start without an error object: deliberate, hosts take it as "this security mode is not for this version".
    if (beaconManager_ == nullptr) return false;
    return beaconManager_->isStarted() || beaconManager_->start(error);
}

bool Session::startBeaconServiceMonitoring(std::optional<Error>* error) {
    if (beaconServiceManager_ == nullptr) {
        beaconServiceManager_ = std::make_unique<QuomiBeaconServiceManager>(
            uuidOf(context_.settings.beaconProximityUUIDService), context_.platform, context_.settings);
    }
    beaconServiceManager_->setDelegate(beaconServiceRouter_);
    // One that a failed start left running is no failure of the next start.
    return beaconServiceManager_->isStarted() || beaconServiceManager_->start(error);
}

void Session::stopBeaconServiceMonitoring() {
    if (beaconServiceManager_ == nullptr) return;
    if (beaconServiceManager_->isStarted()) beaconServiceManager_->stop();
    beaconServiceManager_->setDelegate({});
    context_.graveyard.release(std::move(beaconServiceManager_));
}

void Session::stopBeacon() {
    stopBeaconServiceMonitoring();
    if (beaconManager_ == nullptr) return;
    if (beaconManager_->isStarted()) beaconManager_->stop();
    beaconManager_->setDelegate({});
    // Perhaps one of its own callbacks led here.
    context_.graveyard.release(std::move(beaconManager_));
}

void Session::setUseExtendedBackgroundRangingTime(bool use) {
    if (beaconManager_ != nullptr) beaconManager_->setUseExtendedBackgroundRangingTime(use);
}

// The app's state

void Session::registerForNotifications() {
    applicationObservation_ =
        context_.platform.application.observe([this](ApplicationEvent event) { applicationChanged(event); });
}

void Session::applicationChanged(ApplicationEvent event) {
    switch (event) {
        case ApplicationEvent::didBecomeActive:
            context_.debugLog.log("applicationDidBecomeActive");
            break;
        case ApplicationEvent::willResignActive:
            context_.debugLog.log("applicationWillResignActive");
            break;
        case ApplicationEvent::didEnterBackground:
            context_.debugLog.log("applicationDidEnterBackground");
            if (context_.settings.beaconEnabled && beaconManager_ != nullptr) {
                beaconManager_->beginBackgroundRangingTask();
            }
            break;
        case ApplicationEvent::willEnterForeground:
            context_.debugLog.log("applicationWillEnterForeground");
            break;
        case ApplicationEvent::willTerminate:
            context_.debugLog.log("applicationWillTerminate");
            break;
        case ApplicationEvent::backgroundRefreshStatusDidChange:
            break;
    }
}

void Session::setSdkIsStarted(bool isStarted) {
    data_->setSdkIsStarted(isStarted);
}

void Session::shutDown() {
    const bool wasShutDown = isShutDown_;
    drop();
    if (!wasShutDown && data_ != nullptr) setSdkIsStarted(false);
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
    isShutDown_ = true;
}

// Events and user

void Session::logEvent(const boost::json::object& event) {
    if (isShutDown_ || data_ == nullptr || !context_.eventLogsEnabled) return;
    const WallTime now = context_.platform.clock.now();
    std::optional<Error> failure;
    if (eventUpload_->logEvent(event, now, &failure)) {
        context_.host.tell(&QuomiSDKDelegate::didLogEvent, event, now);
        return;
    }
    // A host that logs an event for every error would be told of that event too, and so on.
    if (std::exchange(isTellingOfLostEvent_, true)) return;
    const auto self = shared_from_this();
    context_.host.forwardErrorToDelegate(failure);
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
    if (context_.authorizationLogger != nullptr) {
        context_.authorizationLogger->logNotificationAuthorizationStatusIfNeeded();
    }
}

void Session::forceLogNotificationAuthorizationStatus() {
    if (context_.authorizationLogger != nullptr) {
        context_.authorizationLogger->forceLogNotificationAuthorizationStatus();
    }
}

void Session::updateUserInformation(const QuomiUser& user, const std::function<void()>& success,
                                    const std::function<void(const Error&)>& failure) {
    if (isShutDown_ || api_ == nullptr) return;
    api_->setUserInformation(
        user, context_.settings.namespace_.value_or(""),
        [weak = weak_from_this(), success] {
            const auto session = weak.lock();
            if (session == nullptr) return;
            callHost(session->userUploadHooks_.updateAllRulesData);
            if (!session->isShutDown_) session->context_.host.call(success);
        },
        [weak = weak_from_this(), failure](const Error& error) {
            const auto session = weak.lock();
            if (session == nullptr) return;
            if (session->context_.settings.geofencingEnabled) callHost(session->userUploadHooks_.triggerLocationUpdate);
            if (!session->isShutDown_) session->context_.host.call(failure, error);
        });
}

void Session::setUserUploadHooks(UserUploadHooks hooks) {
    userUploadHooks_ = std::move(hooks);
}

void Session::registerDeviceToken(const std::string& token, const std::optional<std::string>& appNamespace,
                                  std::function<void()> success, std::function<void(const Error&)> failure) {
    if (isShutDown_ || api_ == nullptr) return;
    auto& host = context_.host;
    api_->registerUdid(
        QuomiUser::quomiUserID(context_.platform.device), appNamespace, token,
        [&host, success = std::move(success)] { host.call(success); },
        [&host, failure = std::move(failure)](const Error& error) { host.call(failure, error); });
}

void Session::setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value) {
    if (!isShutDown_ && api_ != nullptr) api_->setServerNotificationRequestHeader(name, std::move(value));
}

}  // namespace quomi
