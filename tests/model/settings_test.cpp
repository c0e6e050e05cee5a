#include "quomi/model/settings.h"

#include "quomi/platform/location.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

/// Location services that answer capability questions as a test says.
struct Capabilities final : LocationPlatform {
    std::optional<bool> circular = true;
    std::optional<bool> beacon = true;
    std::optional<bool> ranging = true;
    bool significant = true;

    std::optional<bool> isMonitoringAvailable(RegionClass regionClass) const override {
        return regionClass == RegionClass::circular ? circular : beacon;
    }
    std::optional<bool> isRangingAvailable() const override { return ranging; }
    bool significantLocationChangeMonitoringAvailable() const override { return significant; }
    bool locationServicesEnabled() const override { return true; }
    AuthorizationStatus authorizationStatus() const override { return AuthorizationStatus::authorizedAlways; }
    std::unique_ptr<LocationService> makeLocationService(LocationServiceDelegate&) override { return nullptr; }
};

/// Leaves no value of the settings at its default.
void changeEverything(QuomiSettings& s) {
    s.apiVersion = s.serverNotificationNumberOfRetry = s.significantLocationUpdateInterval = s.beaconSecurityMode = 9;
    s.requestTimeout = s.serverNotificationRequestTimeout = s.serverNotificationMaxRetryPeriod = 1;
    s.serverNotificationRetrySlotDuration = s.proximityFarSplitThreshold = 1;
    s.namespace_ = "shop";
    for (auto* text : {&s.baseAPIUrl, &s.beaconProximityIdentifier, &s.beaconProximityIdentifierService}) *text = "new";
    s.beaconProximityUUIDNormal = s.beaconProximityUUIDSecure = s.beaconProximityUUIDService = "new";
    for (bool* flag : {&s.stopUpdatingLocationAfterFirstUpdate, &s.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion,
                       &s.localNotificationActionsEnabled, &s.serverNotificationActionsEnabled, &s.fileLogEnabled,
                       &s.openWebPageActionsEnabled, &s.openPassBookActionsEnabled, &s.openDeepLinkActionsEnabled,
                       &s.beaconEnabled, &s.beaconServiceMonitorinEnabled, &s.requestWhenInUseAuthorization,
                       &s.useExtendedBackgroundRangingTime, &s.geofencingEnabled}) {
        *flag = !*flag;
    }
}

/// Every value but the namespace.
auto valuesOf(const QuomiSettings& s) {
    return std::tuple(
        s.baseAPIUrl, s.apiVersion, s.requestTimeout, s.serverNotificationRequestTimeout,
        s.serverNotificationNumberOfRetry, s.serverNotificationMaxRetryPeriod, s.serverNotificationRetrySlotDuration,
        s.significantLocationUpdateInterval, s.stopUpdatingLocationAfterFirstUpdate,
        s.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion, s.localNotificationActionsEnabled,
        s.serverNotificationActionsEnabled, s.openWebPageActionsEnabled, s.openPassBookActionsEnabled,
        s.openDeepLinkActionsEnabled, s.beaconEnabled, s.beaconSecurityMode, s.beaconServiceMonitorinEnabled,
        s.beaconProximityIdentifier, s.beaconProximityIdentifierService, s.beaconProximityUUIDNormal,
        s.beaconProximityUUIDSecure, s.beaconProximityUUIDService, s.proximityFarSplitThreshold,
        s.requestWhenInUseAuthorization, s.useExtendedBackgroundRangingTime, s.geofencingEnabled, s.fileLogEnabled);
}

TEST(Settings, BeginWithTheDefaultsAndReturnToThem) {
    const Capabilities phone;
    QuomiSettings settings({"https://api.shop.test", "normal", "secure", "service"}, phone);
    const auto defaults = std::tuple("https://api.shop.test", 3U, 25.0, 5.0, 4U, 40.0, 2.0, 180U, true, false, true,
                                     true, true, true, true, true, 0U, true, "Quomi beacon", "Quomi beacon service",
                                     "normal", "secure", "service", 10.0, false, false, true, false);
    EXPECT_TRUE(valuesOf(settings) == defaults);
    EXPECT_EQ(settings.namespace_, std::nullopt);
    changeEverything(settings);
    settings.resetToDefaults();
    EXPECT_TRUE(valuesOf(settings) == defaults);
    EXPECT_EQ(settings.namespace_, "shop") << "the namespace is the host's";
}

TEST(Settings, ResetAsksThePhoneAnew) {
    Capabilities phone;
    QuomiSettings settings({}, phone);
    phone.ranging = phone.significant = false;
    settings.resetToDefaults();
    EXPECT_FALSE(settings.beaconEnabled);
    EXPECT_FALSE(settings.geofencingEnabled);
}

TEST(Settings, CapabilitiesNeedEveryQuestionAnsweredYes) {
    const Table<std::optional<bool>, std::optional<bool>, bool> rows = {
        {true, true, true},    {true, false, false},        {false, true, false},
        {false, false, false}, {std::nullopt, true, false}, {true, std::nullopt, false},
    };
    for (const auto& [monitoring, second, supported] : rows) {
        Capabilities phone;
        phone.beacon = monitoring;
        phone.ranging = second;
        const DeviceCapabilities beacons(phone);
        EXPECT_EQ(beacons.deviceSupportsBeacons(), supported);
        EXPECT_TRUE(beacons.deviceSupportsGeofences()) << "the two have nothing to do with each other";
        EXPECT_EQ(QuomiSettings({}, phone).beaconEnabled, supported);
    }
    for (const auto& [monitoring, second, supported] : rows) {
        Capabilities phone;
        phone.circular = monitoring;
        phone.significant = second.value_or(false);
        EXPECT_EQ(DeviceCapabilities(phone).deviceSupportsGeofences(), supported);
        EXPECT_TRUE(DeviceCapabilities(phone).deviceSupportsBeacons());
        EXPECT_EQ(QuomiSettings({}, phone).geofencingEnabled, supported);
    }
}

}  // namespace
}  // namespace quomi
