#pragma once

#include "quomi/platform/location.h"
#include "quomi/platform/platform.h"
#include "quomi/sdk/authorization_facade.h"
#include "quomi/util/export.h"

#include <functional>
#include <memory>
#include <vector>

namespace quomi {

class ApplicationObservation;
class BluetoothCentral;
struct NotificationSettings;

/// What a host may want to hear of its user's permissions: each with the new answer of the question of that name. An
/// empty function is an operation that the host does not implement; one that throws counts as empty. Called on the
/// host's thread; every operation of SDK and manager may be called from inside, and the manager may be destroyed.
struct QuomiAuthorizationDelegate {
    std::function<void(bool isEnabled)> bluetoothStatusDidChange;
    std::function<void(bool isEnabled)> locationServiceStatusDidChange;
    std::function<void(bool isEnabled)> backgroundRefreshStatusDidChange;
    std::function<void(bool isEnabled)> quomiBeaconsServiceStatusDidChange;
    std::function<void(bool isEnabled)> quomiGeofencesServiceStatusDidChange;
};

/// Tells a host whether what the SDK depends on is usable, and when that changes, and leads the user to the settings.
///
/// Made and owned by the host, as many as it likes. The phone reports Bluetooth and location once after the manager has
/// been made, so the delegate hears of both unasked. Host's thread only.
class QUOMI_EXPORT QuomiAuthorizationManager : private LocationServiceDelegate {
public:
    /// What the platform refers to, and the facade, outlive the manager.
    QuomiAuthorizationManager(const Platform& platform, AuthorizationFacade& sdk);
    ~QuomiAuthorizationManager() override;
    QuomiAuthorizationManager(const QuomiAuthorizationManager&) = delete;
    QuomiAuthorizationManager& operator=(const QuomiAuthorizationManager&) = delete;

    /// Held weakly.
    void setAuthorizationDelegate(std::weak_ptr<QuomiAuthorizationDelegate> delegate);
    [[nodiscard]] std::shared_ptr<QuomiAuthorizationDelegate> authorizationDelegate() const { return delegate_.lock(); }

    /// Whether the SDK runs with beacons switched on.
    [[nodiscard]] bool isQuomiBeaconsServiceEnabled() const;
    /// Whether the SDK runs with geofences switched on.
    [[nodiscard]] bool isQuomiGeofencesServiceEnabled() const;
    /// Whether location services are on and the app may use them, always or when in use.
    [[nodiscard]] bool isLocationServiceEnabled() const;
    /// Whether the radio is on.
    [[nodiscard]] bool isBluetoothEnabled() const;
    /// Whether the phone may start the app in the background.
    [[nodiscard]] bool isBackgroundRefreshEnabled() const;

    /// Whether the user allows notifications with alert, sound and badge.
    ///
    /// Waits for the phone's answer without a limit and runs the host's loop meanwhile, one source at a time: whatever
    /// waits there may happen inside of this call. NO when no answer can come: when the loop has nothing to run, cannot
    /// be run from inside or was stopped, when the phone drops the question, and off the host's thread.
    [[nodiscard]] bool areAllNotificationRightsGranted() const;
    /// Whether the user allows notifications with alert. Waits in the same way.
    [[nodiscard]] bool isBannerNotificationRightGranted() const;

    /// Lets the phone ask the user to switch Bluetooth on; nothing when it is on.
    void showEnableBluetoothAlert();
    /// Opens the app's page in the phone's settings. On a phone without one an alert over the app's root screen says
    /// what to do; nothing without a screen.
    void showEnableLocationServiceUI() const;
    void showEnableBackgroundRefreshUI() const;

private:
    using Report = std::function<void(bool)> QuomiAuthorizationDelegate::*;

    void didChangeAuthorizationStatus(AuthorizationStatus status) override;
    void observeFacade();
    void report(Report operation, bool isEnabled) const noexcept;
    [[nodiscard]] bool waitForRights(bool (*areGranted)(const NotificationSettings&)) const;
    void openSettings(const char* title, const char* message) const;

    const Platform platform_;
    AuthorizationFacade& sdk_;
    std::weak_ptr<QuomiAuthorizationDelegate> delegate_;
    std::unique_ptr<BluetoothCentral> bluetoothManager_;
    std::unique_ptr<BluetoothCentral> powerAlert_;
    std::unique_ptr<LocationService> coreLocationManager_;
    std::unique_ptr<ApplicationObservation> applicationObservation_;
    std::vector<std::unique_ptr<Observation>> observations_;
};

}  // namespace quomi
