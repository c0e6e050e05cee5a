#pragma once

#include "quomi/platform/application.h"
#include "quomi/platform/bluetooth.h"
#include "quomi/platform/location.h"
#include "quomi/platform/notification_center.h"
#include "quomi/platform/reachability.h"
#include "quomi/util/time.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace quomi::simulated {

/// What a simulated phone is when it is switched on. The defaults are a phone on which everything is allowed.
struct PhoneConfig {
    /// Wall clock at virtual time 0.
    WallTime start{};
    /// IANA name.
    std::string timeZone = "UTC";

    std::string udid = "00000000-0000-0000-0000-000000000001";
    std::string systemName = "iOS";
    std::string systemVersion = "17.1";
    std::string model = "iPhone";
    /// Preferred one first.
    std::vector<std::string> languages = {"en"};
    std::optional<std::string> advertisingId{};
    bool advertisingTracking = false;

    /// Whether the phone monitors and ranges beacon regions.
    bool supportsBeacons = true;
    /// Whether it monitors circular regions and significant changes of position.
    bool supportsGeofences = true;
    bool locationServices = true;
    AuthorizationStatus authorization = AuthorizationStatus::authorizedAlways;
    /// Beacon and circular regions together; beyond it a circular one is refused.
    std::size_t maxMonitoredRegions = 20;

    BluetoothState bluetooth = BluetoothState::poweredOn;
    NotificationSettings notificationRights = {NotificationAuthorization::authorized, true, true, true};
    BackgroundRefreshStatus backgroundRefresh = BackgroundRefreshStatus::available;
    NetworkStatus network = NetworkStatus::reachableViaWiFi;

    ApplicationState state = ApplicationState::active;
    std::int64_t badge = 0;
    /// URL schemes that some app on the phone opens, in lower case.
    std::vector<std::string> opensSchemes = {"http", "https"};
    /// Whether the phone offers a page of settings for the app.
    bool settingsURL = true;

    /// The app's container, made when needed: `Library/`, `Documents/`. What the phone itself remembers lies in it too,
    /// in `phone.json`; a phone made on the same container later is the same phone after a relaunch of the app. Empty:
    /// a fresh temporary directory that goes with the phone.
    std::filesystem::path container{};
    /// Translations of the app, by English text.
    std::map<std::string, std::string, std::less<>> localization{};
    /// Texts of the app's bundle, by path.
    std::map<std::string, std::string, std::less<>> resources{};
};

}  // namespace quomi::simulated
