#pragma once

#include "quomi/util/export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace quomi {

class LocationPlatform;

/// What the operator of the service supplies once for every app: where the service lives and which beacons are its own.
struct Deployment {
    std::string apiBaseUrl = "https://api.quomi.test";                                ///< kAPIBaseUrl
    std::string beaconProximityUUIDNormal = "6B6E1B5A-0C0D-4A6E-9E62-0000000000A1";   ///< of normal beacons
    std::string beaconProximityUUIDSecure = "6B6E1B5A-0C0D-4A6E-9E62-0000000000A2";   ///< of secure beacons
    std::string beaconProximityUUIDService = "6B6E1B5A-0C0D-4A6E-9E62-0000000000A3";  ///< of service beacons
    /// The longest answer that a phone takes from a server, in bytes of uncompressed text.
    std::uint64_t maxResponseBytes = std::uint64_t{16} << 20;
};

/// What the phone can do, asked of it anew at each call. Host's thread.
class QUOMI_EXPORT DeviceCapabilities {
public:
    /// The platform outlives the object.
    explicit DeviceCapabilities(const LocationPlatform& location) : location_(location) {}

    /// Whether the phone monitors circular regions and significant location changes.
    [[nodiscard]] bool deviceSupportsGeofences() const;
    /// Whether the phone monitors and ranges beacons; no on a system that does not offer one of the questions.
    [[nodiscard]] bool deviceSupportsBeacons() const;

private:
    const LocationPlatform& location_;
};

// The defaults, by the names that the system gives them.
inline constexpr std::uint64_t kAPIVersion = 3;
inline constexpr double kAPIRequestTimeout = 25.0;                   // seconds
inline constexpr double kAPIServerNotificationRequestTimeout = 5.0;  // seconds
inline constexpr std::uint64_t kAPIServerNotificationDefaultNumberOfRetry = 4;
inline constexpr double kAPIServerNotificationDefaultMaxRetryPeriod = 40.0;    // seconds
inline constexpr double kAPIServerNotificationDefaultRetrySlotDuration = 2.0;  // seconds
inline constexpr double kAPIMinimumRefreshInterval = 7200;                     // seconds
inline constexpr std::uint64_t kSignificantLocationUpdateInterval = 180;       // seconds
inline constexpr std::int64_t kBeaconAliveTimeout = 4;                         // seconds
inline constexpr double kLocationDistanceFilter = 10;                          // metres
inline constexpr std::uint64_t kLocationHistoryMaxEntries = 10;
inline constexpr std::uint64_t kGeofenceDownloadRadius = 100;       // kilometres
inline constexpr double kProximityDefaultFarSplitThreshold = 10.0;  // metres
inline constexpr const char* kBeaconDefaultProximityIdentifier = "Quomi beacon";
inline constexpr const char* kBeaconDefaultProximityIdentifierService = "Quomi beacon service";
inline constexpr const char* kQuomiSQLiteStoreFile = "QuomiData.sqlite";

// "Quimo" is deliberate in these two names: they are part of the interface.
inline constexpr const char* kQuimoApplicationSecurityProtocolNone = "none";
inline constexpr const char* kQuimoApplicationSecurityProtocolRotatingAdvertisement = "rotating_advertisement";

/// Values of `QuomiSettings::beaconSecurityMode`.
inline constexpr std::uint64_t kBeaconSecurityModeNone = 0;
inline constexpr std::uint64_t kBeaconSecurityModeRotatingAdvertisement = 1;

/// The SDK's tunables, read by every component at each use. Plain data without logic: writes take effect where the
/// value is next read. Host's thread.
struct QUOMI_EXPORT QuomiSettings {
    /// Defaults as the deployment and the phone give them; the platform outlives the settings.
    QuomiSettings(Deployment deployment, const LocationPlatform& location);

    /// The settings of the host's one SDK, made at the first call from what `QuomiSDK::installPlatform` was given. A
    /// convenience for hosts; null before that.
    [[nodiscard]] static QuomiSettings* sharedInstance();

    /// Writes every default; `namespace_` stays as it is.
    void resetToDefaults();

    [[nodiscard]] bool isFileLogEnabled() const { return fileLogEnabled; }

    /// What the operator of the service supplied; the host's writes do not change it.
    [[nodiscard]] const Deployment& deployment() const { return deployment_; }

    /// Absolute http or https URL. At first the deployment's.
    std::string baseAPIUrl;
    std::uint64_t apiVersion{};  ///< sent with the downloads of beacons and of geofences; 3
    double requestTimeout{};     ///< seconds; 25. Read when `start` makes the server's client
    /// Seconds; 5. Reaches no request: deliberate, server notifications go out through the client that all share, with
    /// its `requestTimeout`.
    double serverNotificationRequestTimeout{};
    std::uint64_t serverNotificationNumberOfRetry{};  ///< attempts after the first; 4
    double serverNotificationMaxRetryPeriod{};        ///< seconds that the pauses take together at most; 40
    double serverNotificationRetrySlotDuration{};     ///< seconds, the unit of the pauses between attempts; 2
    /// The app's namespace; unset until the host sets it.
    std::optional<std::string> namespace_;
    std::uint64_t significantLocationUpdateInterval{};  ///< seconds; 180. Kept for hosts, no component reads it
    bool stopUpdatingLocationAfterFirstUpdate{};        ///< a position that was asked for is measured once; true
    /// Where no enabled geofence is near, geofences are downloaded although the last download still holds; false.
    bool downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion{};
    // Kinds of actions that rules may perform; all true.
    bool localNotificationActionsEnabled{};
    bool serverNotificationActionsEnabled{};
    bool openWebPageActionsEnabled{};
    bool openPassBookActionsEnabled{};  ///< kept for hosts, no component reads it
    bool openDeepLinkActionsEnabled{};
    /// Read at `start`; later it is switched through the facade. At first whether the phone supports beacons.
    bool beaconEnabled{};
    /// kBeaconSecurityMode…; at first none. Every start overwrites it with what the application record says.
    std::uint64_t beaconSecurityMode{};
    /// Whether service beacons are watched too; true. The missing letter is deliberate: hosts set it by this name.
    bool beaconServiceMonitorinEnabled{};
    std::string beaconProximityIdentifier;  ///< of the region under which the phone watches the beacons; "Quomi beacon"
    std::string beaconProximityIdentifierService;  ///< of the region of the service beacons; "Quomi beacon service"
    // UUID texts, at first the deployment's. Every start overwrites them with those of the application record.
    std::string beaconProximityUUIDNormal;
    std::string beaconProximityUUIDSecure;
    std::string beaconProximityUUIDService;
    /// Metres; the border between medium and far; 10. Every start overwrites it with that of the application record.
    double proximityFarSplitThreshold{};
    // As the facade's properties of these names. False, and for geofences whether the phone supports them.
    bool requestWhenInUseAuthorization{};
    bool useExtendedBackgroundRangingTime{};
    bool geofencingEnabled{};
    bool fileLogEnabled{};

private:
    const Deployment deployment_;
    const DeviceCapabilities capabilities_;
};

}  // namespace quomi
