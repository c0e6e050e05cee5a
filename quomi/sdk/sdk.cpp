#include "quomi/sdk/sdk.h"

#include "quomi/api/url.h"
#include "quomi/data/records.h"
#include "quomi/model/version.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/action_executor.h"
#include "quomi/sdk/sdk_state.h"
#include "quomi/sdk/server_sync.h"
#include "quomi/sdk/session.h"
#include "quomi/util/text.h"

#include <utility>

#include <boost/json/object.hpp>

namespace quomi {

QuomiSDK::QuomiSDK(const Platform& platform, QuomiSettings& settings)
    : settings_(settings),
      state_(std::make_unique<SdkState>(*this, platform, settings)),
      syncs_(std::make_unique<ServerSyncs>(state_->host)) {
    state_->authorizationLogger = std::make_unique<QuomiAuthorizationLogger>(
        platform, [this](const boost::json::object& event) { logEvent(event); });
}

QuomiSDK::~QuomiSDK() = default;

std::string QuomiSDK::SDKVersion() const {
    return kSDKVersion;
}

bool QuomiSDK::deviceSupportsGeofences() const {
    return state_->capabilities.deviceSupportsGeofences();
}

bool QuomiSDK::deviceSupportsBeacons() const {
    return state_->capabilities.deviceSupportsBeacons();
}

void QuomiSDK::setDelegate(std::weak_ptr<QuomiSDKDelegate> delegate) {
    state_->host.set(std::move(delegate));
}

std::shared_ptr<QuomiSDKDelegate> QuomiSDK::delegate() const {
    return state_->host.get();
}

// Starting and stopping

bool QuomiSDK::fail(std::optional<Error>* error, Error failure) {
    assign(error, failure);
    forwardErrorToDelegate(failure);
    return false;
}

bool QuomiSDK::start(std::optional<Error>* error) {
    if (state_->running) {
        return fail(error,
                    state_->errors.errorWithCode(ErrorCode::alreadyStarted, "Cannot start SDK if already started"));
    }
    if (!appNamespace()) {
        return fail(error, state_->errors.errorWithCode(ErrorCode::namespaceNotSet,
                                                        "App namespace must be set before starting the SDK"));
    }
    if (state_->user == nullptr) state_->user = std::make_shared<QuomiUser>();
    if (session_ == nullptr) session_ = std::make_shared<Session>(*state_);
    std::optional<Error> failure;
    if (!session_->open(&failure)) return fail(error, failure.value_or(state_->errors.errorWithCode(ErrorCode::data)));
    const auto session = session_;
    session->setupNotifications();
    setRunning(true);
    // The host may have stopped, and started anew, when it heard that the SDK runs.
    if (session->hasEnded()) return state_->running;
    if (const auto application = session->application()) {
        session->configure(*application);
        return completeStart(error);
    }
    if (error != nullptr) error->reset();
    startAsynchronously();
    return true;
}

void QuomiSDK::startAsynchronously() {
    session_->downloadApplication(
        [this](const Session::Application& application, const std::optional<Error>& requestError) {
            startEnded(application, requestError);
        });
}

void QuomiSDK::startEnded(const std::shared_ptr<QuomiApplication>& application,
                          const std::optional<Error>& requestError) {
    const auto session = session_;
    if (application) {
        session->configure(*application);
        completeStart(nullptr);
        return;
    }
    if (requestError) forwardErrorToDelegate(requestError);
    // The host may have stopped, and started anew, when it heard of the error.
    if (!session->hasEnded()) setRunning(false);
    // An answer that cannot be stored deliberately reaches the system log only.
    state_->platform.console.log(requestError ? "Quomi SDK Error: Failed to retrieve Quomi application data"
                                              : "Quomi SDK Error: Failed to parse Quomi application data");
}

bool QuomiSDK::completeStart(std::optional<Error>* error) {
    const auto session = session_;
    session->downloadEventLimits();
    std::optional<Error> failure;
    if (geofencesEnabled() && !session->startLocation(&failure)) return abandonStart(*session, error, failure);
    if (beaconsEnabled() && !session->startBeacon(&failure)) {
        session->stopLocation();
        return abandonStart(*session, error, failure);
    }
    session->setForceFullGeofencesUpdate();
    updateUserInformation();
    session->registerForNotifications();
    session->setSdkIsStarted(true);
    state_->debugLog.log("Quomi SDK successfully started");
    session->forceLogNotificationAuthorizationStatus();
    if (error != nullptr) error->reset();
    return true;
}

bool QuomiSDK::abandonStart(Session& session, std::optional<Error>* error, const std::optional<Error>& failure) {
    if (error != nullptr) *error = failure;
    forwardErrorToDelegate(failure);
    // The host may have stopped and started anew when it heard of the error.
    if (!session.hasEnded()) setRunning(false);
    return false;
}

bool QuomiSDK::isRunning() const {
    return state_->running;
}

void QuomiSDK::stop() {
    // A host that is called back while the SDK stops finds it stopping.
    if (!state_->running || session_ == nullptr) return;
    const auto session = std::exchange(session_, nullptr);
    session->shutDown();
    state_->graveyard.release(session);
    state_->debugLog.log("Quomi SDK stopped");
    const auto syncs = syncs_->take();
    setRunning(false);
    syncs_->finish(syncs);
}

// What can be observed

void QuomiSDK::setRunning(bool running) {
    tellOfProperty(runningObservers_, std::exchange(state_->running, running), running);
}

void QuomiSDK::tellOfProperty(const Observers<bool>& observers, bool oldValue, bool newValue) const {
    const DeferredRelease::Hold hold(state_->graveyard);
    observers.tell(oldValue, newValue);
}

std::unique_ptr<Observation> QuomiSDK::observe(QuomiSDKProperty property,
                                               std::function<void(bool oldValue, bool newValue)> observer) {
    switch (property) {
        case QuomiSDKProperty::beaconsEnabled:
            return beaconsEnabledObservers_.observe(std::move(observer));
        case QuomiSDKProperty::geofencesEnabled:
            return geofencesEnabledObservers_.observe(std::move(observer));
        case QuomiSDKProperty::isRunning:
            break;
    }
    return runningObservers_.observe(std::move(observer));
}

// Configuration

void QuomiSDK::setAppNamespace(const std::optional<std::string>& appNamespace) {
    if (state_->running) {
        forwardErrorToDelegate(
            state_->errors.errorWithCode(ErrorCode::alreadyStarted, "Cannot set appNamespace when SDK is started"));
        return;
    }
    const auto wanted = QuomiUtils::isEmpty(appNamespace) ? std::nullopt : appNamespace;
    if (wanted && wanted == settings_.namespace_) return;
    const auto before = std::exchange(settings_.namespace_, wanted);
    if (const auto session = session_) session->changeNamespace(before, wanted);
}

void QuomiSDK::setBaseURL(const std::string& baseURL) {
    if (state_->running) {
        forwardErrorToDelegate(
            state_->errors.errorWithCode(ErrorCode::alreadyStarted, "Cannot set baseURL when SDK is started"));
        return;
    }
    if (baseURL.find_first_of(" ?#") != std::string::npos || !normalizedHttpUrl(baseURL)) {
        forwardErrorToDelegate(state_->errors.errorWithCode(ErrorCode::unknown, "Invalid baseURL provided"));
        return;
    }
    // The next start drops the downloads from the other server, and with them those who wait for their end.
    if (std::exchange(settings_.baseAPIUrl, baseURL) != baseURL) syncs_->finish(syncs_->take());
}

void QuomiSDK::warn(const char* message) const {
    state_->platform.console.log(message);
}

void QuomiSDK::setBeaconsEnabled(bool enabled) {
    if (enabled && !deviceSupportsBeacons()) {
        warn("Quomi SDK Error: can't turn beaconsEnabled property to YES because device does not support beacons");
        return;
    }
    const bool before = std::exchange(settings_.beaconEnabled, enabled);
    if (state_->running && session_ != nullptr) {
        std::optional<Error> failure;
        if (!enabled) {
            session_->stopBeacon();
        } else if (!session_->startBeacon(&failure)) {
            forwardErrorToDelegate(failure);
        }
    }
    tellOfProperty(beaconsEnabledObservers_, before, enabled);
}

void QuomiSDK::setGeofencesEnabled(bool enabled) {
    if (enabled && !deviceSupportsGeofences()) {
        warn("Quomi SDK Error: can't turn geofencesEnabled property to YES because device does not support geofences");
        return;
    }
    const bool before = std::exchange(settings_.geofencingEnabled, enabled);
    switchGeofences(enabled);
    tellOfProperty(geofencesEnabledObservers_, before, enabled);
}

void QuomiSDK::switchGeofences(bool enabled) {
    if (state_->running && session_ != nullptr) {
        std::optional<Error> failure;
        if (!enabled) {
            session_->stopLocation();
            return;
        }
        if (!session_->startLocation(&failure)) forwardErrorToDelegate(failure);
    }
    if (enabled && requestWhenInUseAuthorization()) {
        warn(
            "Quomi SDK Warning: Setting geofencesEnabled to YES but requestWhenInUseAuthorization value is YES as "
            "well. Geofencing features won't work. Set geofencesEnabled to NO if you don't plan on using geofence "
            "rules in your app, or use 'Always' location authorization by setting requestWhenInUseAuthorization to "
            "NO.");
    }
}

void QuomiSDK::setRequestWhenInUseAuthorization(bool request) {
    settings_.requestWhenInUseAuthorization = request;
    if (request && geofencesEnabled()) {
        warn(
            "Quomi SDK Warning: Setting requestWhenInUseAuthorization to YES but geofencesEnabled value is YES as "
            "well. Geofencing features won't work. Set geofencesEnabled to NO if you don't plan on using geofence "
            "rules in your app.");
    }
}

void QuomiSDK::setUseExtendedBackgroundRangingTime(bool use) {
    settings_.useExtendedBackgroundRangingTime = use;
    if (session_ != nullptr) session_->setUseExtendedBackgroundRangingTime(use);
}

void QuomiSDK::setEventLogsEnabled(bool enabled) {
    state_->eventLogsEnabled = enabled;
}

bool QuomiSDK::isEventLogEnabled() const {
    return state_->eventLogsEnabled;
}

void QuomiSDK::setEnableIDFACollection(bool enabled) {
    state_->enableIDFACollection = enabled;
}

bool QuomiSDK::isIDFACollectionEnabled() const {
    return state_->enableIDFACollection;
}

void QuomiSDK::setRuleObserver(std::weak_ptr<const RuleObserver> observer) {
    state_->ruleObserver = std::move(observer);
}

// User, events, diagnostics

std::shared_ptr<QuomiUser> QuomiSDK::user() const {
    return state_->user;
}

bool QuomiSDK::enableIDFACollection() const {
    return isIDFACollectionEnabled() && state_->platform.device.isAdvertisingTrackingEnabled();
}

void QuomiSDK::setUser(std::shared_ptr<QuomiUser> user, const std::function<void()>& success,
                       const std::function<void(const Error&)>& failure) {
    const bool isAnother = user != state_->user;
    const auto previous = std::exchange(state_->user, std::move(user));
    if (isAnother) observeUser();
    // No user equals no other, none included.
    const bool isEqual = state_->user != nullptr && previous != nullptr && state_->user->isEqualToQuomiUser(*previous);
    if (isEqual) {
        state_->host.call(success);
    } else {
        updateUserInformation(success, failure);
    }
}

void QuomiSDK::observeUser() {
    userObservations_.clear();
    if (state_->user == nullptr) return;
    const auto sendChange = [this](const auto& oldValue, const auto& newValue) {
        if (oldValue != newValue) updateUserInformation();
    };
    userObservations_.push_back(state_->user->observeUserID(sendChange));
    userObservations_.push_back(state_->user->observeProperties([this](const auto& oldValue, const auto& newValue) {
        if (!QuomiUser::areEqual(oldValue, newValue)) updateUserInformation();
    }));
    userObservations_.push_back(state_->user->observeTags(sendChange));
}

void QuomiSDK::updateUserInformation(const std::function<void()>& success,
                                     const std::function<void(const Error&)>& failure) {
    if (session_ == nullptr) return;
    if (state_->user == nullptr) {
        // No user is told to the server like one without any description.
        session_->updateUserInformation(QuomiUser(), success, failure);
        return;
    }
    state_->user->setAdvertisingTrackingModeEnabled(isIDFACollectionEnabled());
    session_->updateUserInformation(*state_->user, success, failure);
}

void QuomiSDK::registerCloudMessagingPushNotificationsDeviceToken(const std::string& token,
                                                                  std::function<void()> success,
                                                                  std::function<void(const Error&)> failure) {
    const auto application = session_ != nullptr ? session_->application() : nullptr;
    if (!application && failure) {
        state_->host.call(failure, state_->errors.errorWithCode(ErrorCode::namespaceNotSet));
        return;
    }
    if (session_ == nullptr) return;
    session_->registerDeviceToken(token, application != nullptr ? application->appNamespace : std::nullopt,
                                  std::move(success), std::move(failure));
}

void QuomiSDK::setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value) {
    if (session_ != nullptr) session_->setServerNotificationRequestHeader(name, std::move(value));
}

QuomiAuthorizationLogger* QuomiSDK::authorizationLogger() const {
    return state_->authorizationLogger.get();
}

void QuomiSDK::setAuthorizationLogger(std::unique_ptr<QuomiAuthorizationLogger> logger) {
    // Perhaps one of its own events led here.
    state_->graveyard.release(std::exchange(state_->authorizationLogger, std::move(logger)));
}

void QuomiSDK::forwardErrorToDelegate(const std::optional<Error>& error) {
    state_->host.forwardErrorToDelegate(error);
}

void QuomiSDK::logEvent(const boost::json::object& event) {
    const auto session = session_;
    if (session != nullptr) session->logEvent(event);
}

// Actions. The session is kept while the host's hooks run: they may stop the SDK.

void QuomiSDK::setPresentationViewController(std::shared_ptr<Screen> screen) {
    auto* const executor = session_ != nullptr ? session_->actionExecutor() : nullptr;
    if (executor != nullptr) executor->setPresentationViewController(std::move(screen));
}

std::shared_ptr<Screen> QuomiSDK::presentationViewController() const {
    const auto* const executor = session_ != nullptr ? session_->actionExecutor() : nullptr;
    return executor != nullptr ? executor->presentationViewController() : nullptr;
}

void QuomiSDK::executeNotificationRequestActions(const NotificationRequest& request) {
    const auto session = session_;
    if (session != nullptr) session->executeNotificationRequestActions(request);
}

bool QuomiSDK::openWebPageForUrl(const std::string& url) {
    auto* const executor = session_ != nullptr ? session_->actionExecutor() : nullptr;
    return executor != nullptr && executor->executeOpenWebPageActionWithURL(url);
}

bool QuomiSDK::openDeepLinkForURL(const std::string& url) {
    auto* const executor = session_ != nullptr ? session_->actionExecutor() : nullptr;
    return executor != nullptr && executor->executeOpenDeepLinkActionWithURL(url);
}

std::string QuomiSDK::getDebugFileContent() const {
    return QuomiFileLogger(state_->platform.files).getFileLogContent().value_or("");
}

void QuomiSDK::clearDebugFile() {
    QuomiFileLogger(state_->platform.files).clearLogFile();
}

}  // namespace quomi
