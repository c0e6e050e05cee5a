#pragma once

#include "quomi/platform/location.h"
#include "quomi/platform/platform.h"
#include "quomi/util/error.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi {

class DebugLog;
struct QuomiSettings;

/// What the location manager tells its owner; an empty function is news that the owner does not want. All on the host's
/// thread. A callback may use the manager, but not destroy it. What a callback throws is dropped.
struct QuomiLocationDelegate {
    /// The newest position of an update.
    std::function<void(const Location&)> locationChanged;
    std::function<void(const PlatformError&)> locationUpdateFailed;
    std::function<void(const CircularRegion&)> locationRegionMonitoringStarted;
    /// Not told of beacon regions.
    std::function<void(const Region&, const PlatformError&)> locationRegionMonitoringFailed;
    /// Entry into a region other than the current one. Told too after monitoring has started inside the region.
    std::function<void(const CircularRegion&)> locationDidEnterRegion;
    /// Not told of beacon regions.
    std::function<void(const Region&)> locationDidExitRegion;
};

/// Follows where the device is by significant changes, with a short history of positions and speeds, and watches
/// geofences through the phone's location service. Beacon regions, which other managers watch through the same service,
/// it leaves alone. Host's thread only.
class QuomiLocationManager : private LocationServiceDelegate {
public:
    /// What it is given outlives the manager.
    QuomiLocationManager(const Platform& platform, const QuomiSettings& settings, DebugLog& debugLog);
    ~QuomiLocationManager() override;
    QuomiLocationManager(const QuomiLocationManager&) = delete;
    QuomiLocationManager& operator=(const QuomiLocationManager&) = delete;

    /// Held weakly.
    void setDelegate(std::weak_ptr<QuomiLocationDelegate> delegate) { delegate_ = std::move(delegate); }
    [[nodiscard]] std::shared_ptr<QuomiLocationDelegate> delegate() const { return delegate_.lock(); }

    // Positions

    /// Significant changes only: about one update per 500 metres. Stops by itself after the first update when the
    /// setting `stopUpdatingLocationAfterFirstUpdate` says so.
    void startLocationMonitoring();
    void stopLocationMonitoring();

    /// The last position that was reported, or the centre of the geofence that was entered since.
    [[nodiscard]] const std::optional<Location>& currentLocation() const { return currentLocation_; }
    /// The last 10 positions and speeds (km/h), oldest first. Standing still and timestamps that do not grow add no
    /// speed.
    [[nodiscard]] const std::vector<Location>& locationHistory() const { return locationHistory_; }
    [[nodiscard]] const std::vector<double>& speedHistory() const { return speedHistory_; }
    /// The newest speed in km/h; -1 when there is none.
    [[nodiscard]] double currentSpeed() const { return speedHistory_.empty() ? -1.0 : speedHistory_.back(); }
    /// Takes the position as current one, and the speed since the position before it.
    void addLocationToHistory(const Location& location);
    /// Forgets positions and speeds, the current position and the current region.
    void clearLocationHistory();

    // Geofences. The phone keeps them across launches of the app, so those of earlier runs are among them.

    /// Asks for the permission for always, if the user has not been asked for any. Never fails.
    bool startRegionMonitoring(std::optional<Error>* error = nullptr);
    /// Ends the monitoring of every geofence.
    void stopRegionMonitoring();
    [[nodiscard]] bool regionMonitoringStarted() const { return regionMonitoringStarted_; }

    /// Has the region monitored, starting region monitoring if need be; what the phone makes of it is told later. Fails
    /// with 800 when there is no region.
    bool addRegion(const std::optional<Region>& region, std::optional<Error>* error = nullptr);
    /// Ends the monitoring of the geofence of that identifier; nothing when there is none.
    void removeRegionById(std::string_view identifier);
    void removeAllRegions();
    [[nodiscard]] std::vector<CircularRegion> getCurrentlyMonitoredRegions() const;
    [[nodiscard]] bool regionIsMonitored(std::string_view identifier) const;
    /// The geofence that was entered last and not left since.
    [[nodiscard]] const std::optional<CircularRegion>& currentRegion() const { return currentRegion_; }

private:
    void didUpdateLocations(const std::vector<Location>& oldestFirst) override;
    void didFailWithError(const PlatformError& error) override;
    void didStartMonitoring(const Region& region) override;
    void monitoringDidFail(const Region& region, const PlatformError& error) override;
    void didEnterRegion(const Region& region) override;
    void didExitRegion(const Region& region) override;

    void addSpeed(const Location& from, const Location& to);
    void handleEntry(const CircularRegion& region);
    [[nodiscard]] bool isCurrentRegion(std::string_view identifier) const;
    template <class Operation, class... Arguments>
    void tell(Operation QuomiLocationDelegate::*operation, const Arguments&... arguments) const noexcept;

    const Platform& platform_;
    const QuomiSettings& settings_;
    bool regionMonitoringStarted_ = false;
    std::optional<Location> currentLocation_;
    std::optional<CircularRegion> currentRegion_;
    std::vector<Location> locationHistory_;
    std::vector<double> speedHistory_;
    std::weak_ptr<QuomiLocationDelegate> delegate_;
    std::unique_ptr<LocationService> locationManager_;  // last: its callbacks end first
};

}  // namespace quomi
