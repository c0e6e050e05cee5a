#include "quomi/model/settings.h"

#include "quomi/platform/location.h"

#include <utility>

namespace quomi {

bool DeviceCapabilities::deviceSupportsGeofences() const {
    return location_.isMonitoringAvailable(RegionClass::circular).value_or(false) &&
           location_.significantLocationChangeMonitoringAvailable();
}

bool DeviceCapabilities::deviceSupportsBeacons() const {
    return location_.isMonitoringAvailable(RegionClass::beacon).value_or(false) &&
           location_.isRangingAvailable().value_or(false);
}

QuomiSettings::QuomiSettings(Deployment deployment, const LocationPlatform& location)
    : deployment_(std::move(deployment)), capabilities_(location) {
    resetToDefaults();
}

void QuomiSettings::resetToDefaults() {
    baseAPIUrl = deployment_.apiBaseUrl;
    apiVersion = kAPIVersion;
    requestTimeout = kAPIRequestTimeout;
    serverNotificationRequestTimeout = kAPIServerNotificationRequestTimeout;
    serverNotificationNumberOfRetry = kAPIServerNotificationDefaultNumberOfRetry;
    serverNotificationMaxRetryPeriod = kAPIServerNotificationDefaultMaxRetryPeriod;
    serverNotificationRetrySlotDuration = kAPIServerNotificationDefaultRetrySlotDuration;
    significantLocationUpdateInterval = kSignificantLocationUpdateInterval;
    stopUpdatingLocationAfterFirstUpdate = true;
    downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion = false;
    localNotificationActionsEnabled = true;
    serverNotificationActionsEnabled = true;
    openWebPageActionsEnabled = true;
    openPassBookActionsEnabled = true;
    openDeepLinkActionsEnabled = true;
    beaconEnabled = capabilities_.deviceSupportsBeacons();
    beaconSecurityMode = kBeaconSecurityModeNone;
    beaconServiceMonitorinEnabled = true;
    beaconProximityIdentifier = kBeaconDefaultProximityIdentifier;
    beaconProximityIdentifierService = kBeaconDefaultProximityIdentifierService;
    beaconProximityUUIDNormal = deployment_.beaconProximityUUIDNormal;
    beaconProximityUUIDSecure = deployment_.beaconProximityUUIDSecure;
    beaconProximityUUIDService = deployment_.beaconProximityUUIDService;
    proximityFarSplitThreshold = kProximityDefaultFarSplitThreshold;
    requestWhenInUseAuthorization = false;
    useExtendedBackgroundRangingTime = false;
    geofencingEnabled = capabilities_.deviceSupportsGeofences();
    fileLogEnabled = false;
}

}  // namespace quomi
