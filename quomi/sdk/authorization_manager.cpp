#include "quomi/sdk/authorization_manager.h"

#include "quomi/model/notification_rights.h"
#include "quomi/platform/application.h"
#include "quomi/platform/bluetooth.h"
#include "quomi/platform/localization.h"
#include "quomi/platform/run_loop.h"
#include "quomi/platform/screens.h"
#include "quomi/util/host_call.h"

#include <optional>
#include <string>
#include <utility>

namespace quomi {

QuomiAuthorizationManager::QuomiAuthorizationManager(const Platform& platform, AuthorizationFacade& sdk)
    : platform_(platform),
      sdk_(sdk),
      bluetoothManager_(platform.bluetooth.makeCentral(false,
                                                       [this](BluetoothState) {
                                                           report(&QuomiAuthorizationDelegate::bluetoothStatusDidChange,
                                                                  isBluetoothEnabled());
                                                       })),
      coreLocationManager_(platform.location.makeLocationService(*this)),
      applicationObservation_(platform.application.observe([this](ApplicationEvent event) {
          if (event != ApplicationEvent::backgroundRefreshStatusDidChange) return;
          report(&QuomiAuthorizationDelegate::backgroundRefreshStatusDidChange, isBackgroundRefreshEnabled());
      })) {
    observeFacade();
}

QuomiAuthorizationManager::~QuomiAuthorizationManager() = default;

void QuomiAuthorizationManager::setAuthorizationDelegate(std::weak_ptr<QuomiAuthorizationDelegate> delegate) {
    delegate_ = std::move(delegate);
}

void QuomiAuthorizationManager::report(Report operation, bool isEnabled) const noexcept {
    if (const auto delegate = delegate_.lock()) callHost((*delegate).*operation, isEnabled);
}

// Changes

void QuomiAuthorizationManager::observeFacade() {
    const auto reportBeacons = [this] {
        report(&QuomiAuthorizationDelegate::quomiBeaconsServiceStatusDidChange, isQuomiBeaconsServiceEnabled());
    };
    const auto reportGeofences = [this] {
        report(&QuomiAuthorizationDelegate::quomiGeofencesServiceStatusDidChange, isQuomiGeofencesServiceEnabled());
    };
    const auto observe = [this](QuomiSDKProperty property, const auto& told) {
        // Only a start and a stop are compared with what was before: deliberate, a switch that the host sets again is
        // reported again.
        const bool onlyChanges = property == QuomiSDKProperty::isRunning;
        observations_.push_back(sdk_.observe(property, [told, onlyChanges](bool oldValue, bool newValue) {
            if (!onlyChanges || oldValue != newValue) told();
        }));
    };
    // Two observations of one property: the second ends when the host destroys the manager in the first.
    observe(QuomiSDKProperty::isRunning, reportBeacons);
    observe(QuomiSDKProperty::isRunning, reportGeofences);
    observe(QuomiSDKProperty::beaconsEnabled, reportBeacons);
    observe(QuomiSDKProperty::geofencesEnabled, reportGeofences);
}

void QuomiAuthorizationManager::didChangeAuthorizationStatus(AuthorizationStatus /*status*/) {
    report(&QuomiAuthorizationDelegate::locationServiceStatusDidChange, isLocationServiceEnabled());
}

// Questions

bool QuomiAuthorizationManager::isQuomiBeaconsServiceEnabled() const {
    return sdk_.isRunning() && sdk_.beaconsEnabled();
}

bool QuomiAuthorizationManager::isQuomiGeofencesServiceEnabled() const {
    return sdk_.isRunning() && sdk_.geofencesEnabled();
}

bool QuomiAuthorizationManager::isLocationServiceEnabled() const {
    const auto status = platform_.location.authorizationStatus();
    return platform_.location.locationServicesEnabled() &&
           (status == AuthorizationStatus::authorizedAlways || status == AuthorizationStatus::authorizedWhenInUse);
}

bool QuomiAuthorizationManager::isBluetoothEnabled() const {
    return bluetoothManager_->state() == BluetoothState::poweredOn;
}

bool QuomiAuthorizationManager::isBackgroundRefreshEnabled() const {
    return platform_.application.backgroundRefreshStatus() == BackgroundRefreshStatus::available;
}

bool QuomiAuthorizationManager::areAllNotificationRightsGranted() const {
    return waitForRights(allNotificationRights);
}

bool QuomiAuthorizationManager::isBannerNotificationRightGranted() const {
    return waitForRights(bannerNotificationRight);
}

bool QuomiAuthorizationManager::waitForRights(bool (*areGranted)(const NotificationSettings&)) const {
    auto& loop = platform_.runLoop;
    if (!loop.isHostThread()) return false;
    const auto answer = std::make_shared<std::optional<bool>>();
    platform_.notifications.getSettings(
        [answer, areGranted](const NotificationSettings& settings) { *answer = areGranted(settings); });
    // From here on the host may destroy this object. Nobody but this function holding the answer means that the phone
    // has dropped the question.
    while (!*answer && answer.use_count() > 1 && loop.runOneSource()) {
    }
    return answer->value_or(false);
}

// Prompts

void QuomiAuthorizationManager::showEnableBluetoothAlert() {
    if (isBluetoothEnabled()) return;
    powerAlert_ = platform_.bluetooth.makeCentral(true, [](BluetoothState) {});
}

void QuomiAuthorizationManager::showEnableLocationServiceUI() const {
    openSettings("Enable Location Service",
                 "Enabling the location service will allow you to get a better shopping experience.\nGo to Settings > "
                 "Privacy > Location Services > Switch On");
}

void QuomiAuthorizationManager::showEnableBackgroundRefreshUI() const {
    openSettings("Enable Background Refresh",
                 "Enabling the background refresh will allow you to get a better shopping experience.\nGo to Settings "
                 "> General > Background App Refresh > Switch On");
}

void QuomiAuthorizationManager::openSettings(const char* title, const char* message) const {
    if (const auto url = platform_.application.settingsURL()) {
        platform_.application.openURL(*url);
        return;
    }
    const auto screen = platform_.screens.rootScreen();
    if (screen == nullptr) return;
    const auto localized = [this](const char* text) {
        return platform_.localization.localizedString(text).value_or(text);
    };
    platform_.screens.presentAlert(screen, localized(title), localized(message), localized("OK"));
}

}  // namespace quomi
