#include "quomi/core/settings.h"

#include "quomi/platform/location.h"

#include <gtest/gtest.h>

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
void changeEverything(QuomiSettings& settings) {
    settings.baseAPIUrl = "https://elsewhere.test";
    settings.apiVersion = 9;
    settings.requestTimeout = settings.serverNotificationRequestTimeout = 1;
    settings.serverNotificationMaxRetryPeriod = settings.serverNotificationRetrySlotDuration = 1;
    settings.serverNotificationNumberOfRetry = 1;
    settings.namespace_ = "shop";
    settings.significantLocationUpdateInterval = 1;
    settings.beaconSecurityMode = 7;
    settings.proximityFarSplitThreshold = 1;
    for (auto* text : {&settings.beaconProximityIdentifier, &settings.beaconProximityIdentifierService,
                       &settings.beaconProximityUUIDNormal, &settings.beaconProximityUUIDSecure,
                       &settings.beaconProximityUUIDService}) {
        *text = "changed";
    }
    for (bool* flag :
         {&settings.stopUpdatingLocationAfterFirstUpdate,
          &settings.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion, &settings.localNotificationActionsEnabled,
          &settings.serverNotificationActionsEnabled, &settings.openWebPageActionsEnabled,
          &settings.openPassBookActionsEnabled, &settings.openDeepLinkActionsEnabled, &settings.beaconEnabled,
          &settings.beaconServiceMonitorinEnabled, &settings.requestWhenInUseAuthorization,
          &settings.useExtendedBackgroundRangingTime, &settings.geofencingEnabled, &settings.fileLogEnabled}) {
        *flag = !*flag;
    }
}

void expectDefaults(const QuomiSettings& settings) {
    EXPECT_EQ(settings.baseAPIUrl, "https://api.shop.test");
    EXPECT_EQ(settings.apiVersion, 3U);
    EXPECT_EQ(settings.requestTimeout, 25.0);
    EXPECT_EQ(settings.serverNotificationRequestTimeout, 5.0);
    EXPECT_EQ(settings.serverNotificationNumberOfRetry, 4U);
    EXPECT_EQ(settings.serverNotificationMaxRetryPeriod, 40.0);
    EXPECT_EQ(settings.serverNotificationRetrySlotDuration, 2.0);
    EXPECT_EQ(settings.significantLocationUpdateInterval, 180U);
    EXPECT_TRUE(settings.stopUpdatingLocationAfterFirstUpdate);
    EXPECT_FALSE(settings.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion);
    EXPECT_TRUE(settings.localNotificationActionsEnabled);
    EXPECT_TRUE(settings.serverNotificationActionsEnabled);
    EXPECT_TRUE(settings.openWebPageActionsEnabled);
    EXPECT_TRUE(settings.openPassBookActionsEnabled);
    EXPECT_TRUE(settings.openDeepLinkActionsEnabled);
    EXPECT_TRUE(settings.beaconEnabled);
    EXPECT_EQ(settings.beaconSecurityMode, 0U);
    EXPECT_TRUE(settings.beaconServiceMonitorinEnabled);
    EXPECT_EQ(settings.beaconProximityIdentifier, "Quomi beacon");
    EXPECT_EQ(settings.beaconProximityIdentifierService, "Quomi beacon service");
    EXPECT_EQ(settings.beaconProximityUUIDNormal, "normal");
    EXPECT_EQ(settings.beaconProximityUUIDSecure, "secure");
    EXPECT_EQ(settings.beaconProximityUUIDService, "service");
    EXPECT_EQ(settings.proximityFarSplitThreshold, 10.0);
    EXPECT_FALSE(settings.requestWhenInUseAuthorization);
    EXPECT_FALSE(settings.useExtendedBackgroundRangingTime);
    EXPECT_TRUE(settings.geofencingEnabled);
    EXPECT_FALSE(settings.isFileLogEnabled());
}

TEST(Settings, BeginWithTheDefaultsAndReturnToThem) {
    const Capabilities phone;
    QuomiSettings settings({"https://api.shop.test", "normal", "secure", "service"}, phone);
    EXPECT_EQ(settings.namespace_, std::nullopt);
    expectDefaults(settings);
    changeEverything(settings);
    settings.resetToDefaults();
    expectDefaults(settings);
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
    const struct {
        std::optional<bool> monitoring;
        std::optional<bool> second;
        bool supported;
    } rows[] = {
        {true, true, true},    {true, false, false},        {false, true, false},
        {false, false, false}, {std::nullopt, true, false}, {true, std::nullopt, false},
    };
    for (const auto& row : rows) {
        Capabilities phone;
        phone.beacon = row.monitoring;
        phone.ranging = row.second;
        const DeviceCapabilities beacons(phone);
        EXPECT_EQ(beacons.deviceSupportsBeacons(), row.supported);
        EXPECT_TRUE(beacons.deviceSupportsGeofences()) << "the two have nothing to do with each other";
        EXPECT_EQ(QuomiSettings({}, phone).beaconEnabled, row.supported);
    }
    for (const auto& row : rows) {
        Capabilities phone;
        phone.circular = row.monitoring;
        phone.significant = row.second.value_or(false);
        EXPECT_EQ(DeviceCapabilities(phone).deviceSupportsGeofences(), row.supported);
        EXPECT_TRUE(DeviceCapabilities(phone).deviceSupportsBeacons());
        EXPECT_EQ(QuomiSettings({}, phone).geofencingEnabled, row.supported);
    }
}

}  // namespace
}  // namespace quomi
