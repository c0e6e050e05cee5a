#include "quomi/sdk/sdk.h"

#include "quomi/api/url.h"
#include "quomi/data/records.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/model/version.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/web_page.h"
#include "quomi/sdk/authorization_logger.h"
#include "quomi/sdk/deferred_release.h"
#include "quomi/sdk/host_delegate.h"
#include "quomi/sdk/server_sync.h"
#include "quomi/sdk/session.h"
#include "quomi/util/text.h"

#include <utility>

#include <boost/json/object.hpp>

namespace quomi {

QuomiSDK::QuomiSDK(const Platform& platform, QuomiSettings& settings)
    : platform_(platform),
      settings_(settings),
      capabilities_(platform.location),
      debugLog_(std::make_unique<DebugLog>(platform.files, platform.clock,
                                           [&settings] { return settings.isFileLogEnabled(); })),
      errors_(std::make_unique<QuomiErrors>(platform.localization)),
      graveyard_(std::make_unique<DeferredRelease>(platform.runLoop)),
      host_(std::make_unique<HostDelegate>(*this, *debugLog_, *graveyard_)),
      syncs_(std::make_unique<ServerSyncs>(*host_)),
      webPages_(std::make_unique<WebPagePresenter>(platform.screens, platform.runLoop)),
      authorizationLogger_(std::make_unique<QuomiAuthorizationLogger>(
          platform, [this](const boost::json::object& event) { logEvent(event); })) {}

QuomiSDK::~QuomiSDK() = default;

std::string QuomiSDK::SDKVersion() const {
    return kSDKVersion;
}

void QuomiSDK::setDelegate(std::weak_ptr<QuomiSDKDelegate> delegate) {
    host_->set(std::move(delegate));
}

std::shared_ptr<QuomiSDKDelegate> QuomiSDK::delegate() const {
    return host_->get();
}

// Starting and stopping

bool QuomiSDK::fail(std::optional<Error>* error, Error failure) {
    assign(error, failure);
    forwardErrorToDelegate(failure);
    return false;
}

bool QuomiSDK::start(std::optional<Error>* error) {
    if (running_) {
        return fail(error, errors_->errorWithCode(ErrorCode::alreadyStarted, "Cannot start SDK if already started"));
    }
    if (!appNamespace()) {
        return fail(error, errors_->errorWithCode(ErrorCode::namespaceNotSet,
                                                  "App namespace must be set before starting the SDK"));
    }
    if (user_ == nullptr) user_ = std::make_shared<QuomiUser>();
    if (session_ == nullptr) session_ = makeSession();
    std::optional<Error> failure;
    if (!session_->open(&failure)) return fail(error, failure.value_or(errors_->errorWithCode(ErrorCode::data)));
    const auto session = session_;
    session->setupNotifications();
    setRunning(true);
    // The host may have stopped, and started anew, when it heard that the SDK runs.
    if (!isCurrent(session)) return running_;
    if (const auto application = session->application()) {
        session->configure(*application);
        return completeStart(*application, error);
    }
    if (error != nullptr) error->reset();
    startAsynchronously();
    return true;
}

std::shared_ptr<Session> QuomiSDK::makeSession() {
    auto session = std::make_shared<Session>(SessionContext{platform_, settings_, capabilities_, *errors_, *debugLog_,
                                                            *host_, *graveyard_, eventLogsEnabled_, user_, *webPages_,
                                                            authorizationLogger_, ruleObserver_});
    session->setUserUploadHooks({[this] { updateAllRulesData(); }, [this] { triggerLocationUpdate(); }});
    return session;
}

void QuomiSDK::startAsynchronously() {
    session_->downloadApplication([this, weak = std::weak_ptr(session_)](const Session::Application& application,
                                                                         const std::optional<Error>& requestError) {
        const auto session = weak.lock();
        if (session == nullptr || !isCurrent(session)) return;
        if (application) {
            session->configure(*application);
            completeStart(*application, nullptr);
            return;
        }
        if (requestError) forwardErrorToDelegate(requestError);
        // The host may have stopped, and started anew, when it heard of the error.
        if (session == session_) setRunning(false);
        // An answer that cannot be stored deliberately reaches the system log only.
        platform_.console.log(requestError ? "Quomi SDK Error: Failed to retrieve Quomi application data"
                                           : "Quomi SDK Error: Failed to parse Quomi application data");
    });
}

bool QuomiSDK::isCurrent(const std::shared_ptr<Session>& session) const {
    return session == session_ && running_;
}

bool QuomiSDK::completeStart(const QuomiApplication& /*application*/, std::optional<Error>* error) {
    const auto session = session_;
    session->downloadEventLimits();
    std::optional<Error> failure;
    if (geofencesEnabled() && !session->startLocation(&failure)) return abandonStart(session, error, failure);
    if (beaconsEnabled() && !session->startBeacon(&failure)) {
        session->stopLocation();
        return abandonStart(session, error, failure);
    }
    session->setForceFullGeofencesUpdate();
    updateUserInformation();
    session->registerForNotifications();
    session->setSdkIsStarted(true);
    debugLog_->log("Quomi SDK successfully started");
    session->forceLogNotificationAuthorizationStatus();
    if (error != nullptr) error->reset();
    return true;
}

bool QuomiSDK::abandonStart(const std::shared_ptr<Session>& session, std::optional<Error>* error,
                            const std::optional<Error>& failure) {
    if (error != nullptr) *error = failure;
    forwardErrorToDelegate(failure);
    // The host may have stopped and started anew when it heard of the error.
    if (session == session_) setRunning(false);
    return false;
}

void QuomiSDK::stop() {
    // A host that is called back while the SDK stops finds it stopping.
    if (!running_ || session_ == nullptr) return;
    const auto session = std::exchange(session_, nullptr);
    session->shutDown();
    graveyard_->release(session);
    debugLog_->log("Quomi SDK stopped");
    const auto syncs = syncs_->take();
    setRunning(false);
    syncs_->finish(syncs);
}

// What can be observed

void QuomiSDK::setRunning(bool running) {
    tellOfProperty(runningObservers_, std::exchange(running_, running), running);
}

void QuomiSDK::tellOfProperty(const Observers<bool>& observers, bool oldValue, bool newValue) const {
    const DeferredRelease::Hold hold(*graveyard_);
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
    if (running_) {
        forwardErrorToDelegate(
            errors_->errorWithCode(ErrorCode::alreadyStarted, "Cannot set appNamespace when SDK is started"));
        return;
    }
    const auto wanted = QuomiUtils::isEmpty(appNamespace) ? std::nullopt : appNamespace;
    if (wanted && wanted == settings_.namespace_) return;
    const auto before = std::exchange(settings_.namespace_, wanted);
    if (const auto session = session_) session->changeNamespace(before, wanted);
}

void QuomiSDK::setBaseURL(const std::string& baseURL) {
    if (running_) {
        forwardErrorToDelegate(
            errors_->errorWithCode(ErrorCode::alreadyStarted, "Cannot set baseURL when SDK is started"));
        return;
    }
    if (baseURL.find_first_of(" ?#") != std::string::npos || !normalizedHttpUrl(baseURL)) {
        forwardErrorToDelegate(errors_->errorWithCode(ErrorCode::unknown, "Invalid baseURL provided"));
        return;
    }
    // The next start drops the downloads from the other server, and with them those who wait for their end.
    if (std::exchange(settings_.baseAPIUrl, baseURL) != baseURL) syncs_->finish(syncs_->take());
}

void QuomiSDK::warn(const char* message) const {
    platform_.console.log(message);
}

void QuomiSDK::setBeaconsEnabled(bool enabled) {
    if (enabled && !deviceSupportsBeacons()) {
        warn("Quomi SDK Error: can't turn beaconsEnabled property to YES because device does not support beacons");
        return;
    }
    const bool before = std::exchange(settings_.beaconEnabled, enabled);
    if (running_ && session_ != nullptr) {
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
    if (running_ && session_ != nullptr) {
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

// User, events, diagnostics

bool QuomiSDK::enableIDFACollection() const {
    return enableIDFACollection_ && platform_.device.isAdvertisingTrackingEnabled();
}

void QuomiSDK::setUser(std::shared_ptr<QuomiUser> user, const std::function<void()>& success,
                       const std::function<void(const Error&)>& failure) {
    const bool isAnother = user != user_;
    const auto previous = std::exchange(user_, std::move(user));
    if (isAnother) observeUser();
    // No user equals no other, none included.
    const bool isEqual = user_ != nullptr && previous != nullptr && user_->isEqualToQuomiUser(*previous);
    if (isEqual) {
        host_->call(success);
    } else {
        updateUserInformation(success, failure);
    }
}

void QuomiSDK::observeUser() {
    userObservations_.clear();
    if (user_ == nullptr) return;
    const auto sendChange = [this](const auto& oldValue, const auto& newValue) {
        if (oldValue != newValue) updateUserInformation();
    };
    userObservations_.push_back(user_->observeUserID(sendChange));
    userObservations_.push_back(user_->observeProperties([this](const auto& oldValue, const auto& newValue) {
        if (!QuomiUser::areEqual(oldValue, newValue)) updateUserInformation();
    }));
    userObservations_.push_back(user_->observeTags(sendChange));
}

void QuomiSDK::updateUserInformation(const std::function<void()>& success,
                                     const std::function<void(const Error&)>& failure) {
    if (session_ == nullptr) return;
    if (user_ == nullptr) {
        // No user is told to the server like one without any description.
        session_->updateUserInformation(QuomiUser(), success, failure);
        return;
    }
    user_->setAdvertisingTrackingModeEnabled(isIDFACollectionEnabled());
    session_->updateUserInformation(*user_, success, failure);
}

void QuomiSDK::registerCloudMessagingPushNotificationsDeviceToken(const std::string& token,
                                                                  std::function<void()> success,
                                                                  std::function<void(const Error&)> failure) {
    const auto application = session_ != nullptr ? session_->application() : nullptr;
    if (!application && failure) {
        host_->call(failure, errors_->errorWithCode(ErrorCode::namespaceNotSet));
        return;
    }
    if (session_ == nullptr) return;
    session_->registerDeviceToken(token, application != nullptr ? application->appNamespace : std::nullopt,
                                  std::move(success), std::move(failure));
}

void QuomiSDK::setServerNotificationRequestHeader(const std::string& name, std::optional<std::string> value) {
    if (session_ != nullptr) session_->setServerNotificationRequestHeader(name, std::move(value));
}

void QuomiSDK::setAuthorizationLogger(std::unique_ptr<QuomiAuthorizationLogger> logger) {
    // Perhaps one of its own events led here.
    graveyard_->release(std::exchange(authorizationLogger_, std::move(logger)));
}

void QuomiSDK::forwardErrorToDelegate(const std::optional<Error>& error) {
    host_->forwardErrorToDelegate(error);
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
    return QuomiFileLogger(platform_.files).getFileLogContent().value_or("");
}

void QuomiSDK::clearDebugFile() {
    QuomiFileLogger(platform_.files).clearLogFile();
}

}  // namespace quomi
