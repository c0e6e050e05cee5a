#pragma once

#include "quomi/platform/platform_error.h"
#include "quomi/util/time.h"
#include "quomi/util/uuid.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace quomi {

/// The phone's own words for how near a ranged beacon is.
enum class PlatformProximity : std::int64_t { unknown = 0, immediate = 1, near = 2, far = 3 };

/// Whether the app may know where the device is. The numbers are the platform's and go into logs and comparisons as
/// they are.
enum class AuthorizationStatus : std::int64_t {
    notDetermined = 0,
    restricted = 1,
    denied = 2,
    authorizedAlways = 3,
    authorizedWhenInUse = 4,
};

/// Whether the device is in a region, as the platform numbers it.
enum class RegionState : std::int64_t { unknown = 0, inside = 1, outside = 2 };

/// Code of a monitoring failure when the user or the platform denies region monitoring.
inline constexpr std::int64_t kCLErrorRegionMonitoringDenied = 4;
/// Code of a monitoring failure when a region could not be watched, for example because the phone watches too many.
inline constexpr std::int64_t kCLErrorRegionMonitoringFailure = 5;

/// A point on the WGS 84 ellipsoid, in degrees.
struct Coordinate {
    double latitude = 0;
    double longitude = 0;
    bool operator==(const Coordinate&) const = default;
};

/// A measured position: where, when, and how sure (radius in metres; negative when unknown).
struct Location {
    Coordinate coordinate;
    WallTime timestamp;
    double horizontalAccuracy = -1;
    bool operator==(const Location&) const = default;
};

/// A circle on the ground that the phone can watch; radius in metres.
struct CircularRegion {
    std::string identifier;
    Coordinate center;
    double radius = 0;
    bool operator==(const CircularRegion&) const = default;
};

/// All beacons of one proximity UUID.
struct BeaconRegion {
    std::string identifier;
    Uuid proximityUUID;
    bool notifyEntryStateOnDisplay = false;
    bool notifyOnEntry = true;
    bool notifyOnExit = true;
    bool operator==(const BeaconRegion&) const = default;
};

using Region = std::variant<CircularRegion, BeaconRegion>;

/// The two kinds of region, for capability questions.
enum class RegionClass { circular, beacon };

/// The identifier of either kind.
[[nodiscard]] inline const std::string& regionIdentifier(const Region& region) {
    return std::visit([](const auto& r) -> const std::string& { return r.identifier; }, region);
}

/// One beacon of a ranging report. `accuracy` is the estimated distance in metres, negative when the phone has none;
/// `rssi` is in dBm, 0 when nothing was measured.
struct RangedBeacon {
    Uuid proximityUUID;
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    PlatformProximity proximity = PlatformProximity::unknown;
    double accuracy = -1;
    std::int64_t rssi = 0;
};

/// Accuracies that are asked for by name rather than in metres.
inline constexpr double kCLLocationAccuracyBest = -1.0;
inline constexpr double kCLLocationAccuracyThreeKilometers = 3000.0;

/// What a location service tells its owner. Every call is on the host's thread, in a turn of its own or in one that
/// reports the same happening to several services, never from inside a call of the service. An operation that is not
/// overridden ignores its news.
class LocationServiceDelegate {
public:
    virtual ~LocationServiceDelegate() = default;
    virtual void didChangeAuthorizationStatus(AuthorizationStatus /*status*/) {}
    /// Positions of the updates that run, at least one.
    virtual void didUpdateLocations(const std::vector<Location>& /*oldestFirst*/) {}
    virtual void didFailWithError(const PlatformError& /*error*/) {}
    /// The answers to `startMonitoring`; `monitoringDidFail` also when a watch broke later.
    virtual void didStartMonitoring(const Region& /*region*/) {}
    virtual void monitoringDidFail(const Region& /*region*/, const PlatformError& /*error*/) {}
    /// Answers `requestState`; unasked when the phone learns it by itself.
    virtual void didDetermineState(RegionState /*state*/, const Region& /*region*/) {}
    /// A monitored region was crossed.
    virtual void didEnterRegion(const Region& /*region*/) {}
    virtual void didExitRegion(const Region& /*region*/) {}
    /// What was heard in the last second; also when that is nothing.
    virtual void didRangeBeacons(const std::vector<RangedBeacon>& /*beacons*/, const BeaconRegion& /*region*/) {}
    virtual void rangingBeaconsDidFail(const BeaconRegion& /*region*/, const PlatformError& /*error*/) {}
};

/// One client of the phone's location service.
///
/// Monitored and ranged regions belong to the app, not to the service that asked: every service of the process sees
/// them, and region and ranging callbacks reach every service in order of creation. The phone keeps monitored regions
/// across launches of the app. Destroying a service ends its callbacks; what it monitors or ranges goes on.
/// Host's thread only.
class LocationService {
public:
    virtual ~LocationService() = default;

    /// Asks the user; the answer comes as an authorization change. Nothing happens when the question is settled.
    virtual void requestAlwaysAuthorization() = 0;
    virtual void requestWhenInUseAuthorization() = 0;

    /// Starts watching. Confirmed by `didStartMonitoring` or refused by `monitoringDidFail`, in a later turn. A region
    /// with the identifier of a watched one replaces it.
    virtual void startMonitoring(const Region& region) = 0;
    /// Ends watching the region of that identifier; nothing when there is none.
    virtual void stopMonitoring(const std::string& identifier) = 0;
    /// Answered by `didDetermineState` in a later turn, `unknown` where the phone cannot tell.
    virtual void requestState(const Region& region) = 0;
    /// Those of the whole app, also from earlier launches.
    [[nodiscard]] virtual std::vector<Region> monitoredRegions() const = 0;

    /// Reports the region's beacons about once a second while it goes on, also when there are none.
    virtual void startRangingBeacons(const BeaconRegion& region) = 0;
    /// Nothing when none of that identifier is ranged.
    virtual void stopRangingBeacons(const std::string& identifier) = 0;
    [[nodiscard]] virtual std::vector<BeaconRegion> rangedRegions() const = 0;

    /// Standard updates: a position whenever the device has moved by the distance filter.
    virtual void startUpdatingLocation() = 0;
    virtual void stopUpdatingLocation() = 0;
    /// Coarse updates that survive suspension: about one per 500 metres.
    virtual void startMonitoringSignificantLocationChanges() = 0;
    virtual void stopMonitoringSignificantLocationChanges() = 0;

    /// Metres, or one of the named accuracies.
    virtual void setDesiredAccuracy(double metres) = 0;
    virtual void setDistanceFilter(double metres) = 0;
    virtual void setPausesLocationUpdatesAutomatically(bool pauses) = 0;
    /// Nothing happens on a system that does not offer it.
    virtual void setAllowsBackgroundLocationUpdates(bool allows) = 0;
};

/// Port: the phone's location services. Host's thread only.
class LocationPlatform {
public:
    virtual ~LocationPlatform() = default;

    /// Whether regions of that class can be monitored; empty on a system that does not offer the question.
    [[nodiscard]] virtual std::optional<bool> isMonitoringAvailable(RegionClass regionClass) const = 0;
    /// Whether beacons can be ranged; empty on a system that does not offer the question.
    [[nodiscard]] virtual std::optional<bool> isRangingAvailable() const = 0;
    [[nodiscard]] virtual bool significantLocationChangeMonitoringAvailable() const = 0;
    /// The user's global switch.
    [[nodiscard]] virtual bool locationServicesEnabled() const = 0;
    [[nodiscard]] virtual AuthorizationStatus authorizationStatus() const = 0;

    /// A new service. It reports the authorization once in a later turn. The delegate outlives the service.
    [[nodiscard]] virtual std::unique_ptr<LocationService> makeLocationService(LocationServiceDelegate& delegate) = 0;
};

}  // namespace quomi
