#include "quomi/core/session.h"

#include "quomi/api/api_client.h"
#include "quomi/beacons/beacon_manager.h"
#include "quomi/beacons/beacon_service_manager.h"
#include "quomi/beacons/secure_beacon.h"
#include "quomi/core/beacon_router.h"
#include "quomi/core/deferred_release.h"
#include "quomi/core/errors.h"
#include "quomi/core/host_delegate.h"
#include "quomi/core/settings.h"
#include "quomi/core/user.h"
#include "quomi/data/data.h"
#include "quomi/data/parser.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/location/location_manager.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/notification_center.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/notification_helpers.h"

#include <utility>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

Uuid uuidOf(const std::string& text) {
    return Uuid::parse(text).value_or(Uuid());
}

}  // namespace

Session::Session(const SessionContext& context)
    : context_(context),
      beaconRouter_(
          std::make_shared<BeaconRouter>(context.host, [this](const boost::json::object& event) { logEvent(event); })),
      locationDelegate_(std::make_shared<QuomiLocationDelegate>()),
      beaconServiceDelegate_(std::make_shared<QuomiBeaconServiceManagerDelegate>()) {}

Session::~Session() = default;

// Opening

bool Session::open(std::optional<Error>* error) {
    if (api_ == nullptr || api_->baseURL() != context_.settings.baseAPIUrl) {
        if (data_ != nullptr) data_->setApiClient(nullptr);
        if (genericActionExecutor_ != nullptr) genericActionExecutor_->setApiClient(nullptr);
        api_ = std::make_unique<QuomiAPI>(context_.settings.baseAPIUrl, context_.platform, context_.settings,
                                          context_.debugLog);
    }
    if (data_ == nullptr) {
        const auto file = QuomiData::dataStorageDirectory(context_.platform) / kQuomiSQLiteStoreFile;
        data_ = QuomiData::create(file, false, context_.platform, context_.errors, error);
        if (data_ == nullptr) return false;
    }
    data_->setApiClient(api_.get());
    if (apiResponseParser_ == nullptr) {
        apiResponseParser_ =
            std::make_unique<QuomiDataApiResponseParser>(*data_, context_.errors, context_.platform, context_.settings);
    }
    if (genericActionExecutor_ == nullptr) genericActionExecutor_ = makeActionExecutor();
    genericActionExecutor_->setApiClient(api_.get());
    return true;
}

std::shared_ptr<QuomiActionExecutor> Session::makeActionExecutor() {
    // What it asks for lives in the session, which ends it.
    return std::make_shared<QuomiActionExecutor>(ActionExecutorContext{
        context_.platform, context_.webPages, [this] { return context_.host.actionHost(); },
        [this](const boost::json::object& event) { logEvent(event); },
        [this] {
            const auto& user = context_.user;
            return user != nullptr && user->properties ? *user->properties : boost::json::object();
        }});
}

void Session::setupNotifications() {
    if (notificationHelpers_ == nullptr) {
        notificationHelpers_ = std::make_unique<QuomiNotificationHelpers>(context_.platform.notifications);
    }
    notificationHelpers_->requestNotificationRightsIfNeeded();
    notificationHelpers_->registerCustomActionsCategories();
}

Session::Application Session::application() const {
    return data_->getApplication();
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
    locationManager_->setDelegate(locationDelegate_);
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
    beaconServiceManager_->setDelegate(beaconServiceDelegate_);
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
    applicationObservation_.reset();
    stopLocation();
    stopBeacon();
    beaconRouter_->end();
    genericActionExecutor_->end();
    notificationHelpers_.reset();
    api_->cancelAllRequests();
    data_->setApiClient(nullptr);
    setSdkIsStarted(false);
    isShutDown_ = true;
}

// Events and user

void Session::logEvent(const boost::json::object& event) {
    if (isShutDown_ || data_ == nullptr || !context_.eventLogsEnabled) return;
    const WallTime now = context_.platform.clock.now();
    if (data_->logEvent(event, now)) context_.host.tell(&QuomiSDKDelegate::didLogEvent, event, now);
}

void Session::executeNotificationRequestActions(const NotificationRequest& request) {
    if (genericActionExecutor_ == nullptr) return;
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
    genericActionExecutor_->executeNotificationRequestActions(request);
}

void Session::updateUserInformation(const QuomiUser& user, std::function<void()> success,
                                    std::function<void(const Error&)> failure) {
    if (isShutDown_ || api_ == nullptr) return;
    api_->setUserInformation(user, context_.settings.namespace_.value_or(""), std::move(success), std::move(failure));
}

}  // namespace quomi
