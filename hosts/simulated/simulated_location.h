#pragma once

#include "hosts/simulated/circle_watch.h"
#include "hosts/simulated/phone_config.h"
#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/region_list.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/location.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// Domain of the failures that the simulated phone reports.
inline constexpr const char* kLocationErrorDomain = "kCLErrorDomain";

/// Is told which beacons the app wants to hear of. Host's thread, from inside the app's call.
class BeaconInterest {
public:
    virtual ~BeaconInterest() = default;
    /// Ranging of that region began; not told again when the app asks once more.
    virtual void rangingBegan(const BeaconRegion& region) = 0;
    virtual void rangingEnded(const std::string& identifier) = 0;
    /// A region of that UUID is monitored, and none was before.
    virtual void monitoringBegan(const Uuid& proximityUUID) = 0;
};

/// The phone's location services: what the app asks of them, and levers for what happens to them.
///
/// A lever changes the phone at once and posts the callbacks as turns; `VirtualLoop::runTurns` runs them. No region,
/// ranging or location callback, failures included, comes while location services are off or the authorization is
/// neither always nor when in use at the moment of the turn; it is not made up for later. What is monitored, ranged or
/// started meanwhile is listed all the same. A setting that a lever leaves as it was is not reported.
class SimulatedLocation final : public LocationPlatform {
public:
    /// What it refers to outlives it. `phoneFile` keeps the monitored regions.
    SimulatedLocation(VirtualLoop& loop, const PhoneConfig& config, const PhoneObserver& observer, Files& files,
                      std::filesystem::path phoneFile);
    ~SimulatedLocation() override;

    /// Every service reports the new status.
    void setAuthorization(AuthorizationStatus status);
    /// The user's global switch. Every service then reports the authorization as it stands, also when the switch
    /// stands as before.
    void setLocationServices(bool on);

    /// The device is there now; services that run updates are told. `accuracy` in metres; the time stamp is now less
    /// `age`. Circular regions are not entered or left.
    void setLocation(const Coordinate& coordinate, double accuracy, Duration age = {});
    /// The same, and then the entry and exit callbacks of the circular regions whose border the device has crossed:
    /// first those entered, then those left, each in the order of monitoring.
    void moveTo(const Coordinate& coordinate, double accuracy, Duration age = {});
    [[nodiscard]] const std::optional<Location>& location() const { return location_; }
    /// Services that run updates are told.
    void locationFails(std::int64_t code);

    /// One report per ranged region, of those beacons that have its UUID, in the order given.
    void range(const std::vector<RangedBeacon>& beacons);
    /// One report for the ranged region of that identifier.
    void report(const std::string& identifier, std::vector<RangedBeacon> beacons);
    /// A failure of the ranged region of that identifier or UUID; nothing when there is none.
    void rangingFails(std::string_view region, std::int64_t code);

    /// Entry and exit callbacks of the monitored beacon regions of that UUID. The region state is a matter of its own.
    void enterBeaconRegion(const Uuid& proximityUUID);
    void exitBeaconRegion(const Uuid& proximityUUID);
    /// State callback of the monitored regions of that UUID; from now on state requests are answered so.
    void beaconRegionState(const Uuid& proximityUUID, RegionState state);
    /// Entry and exit callbacks of the monitored circular region of that identifier, whatever its border and the
    /// device's position say. A later move that ends on the same side does not repeat them.
    void enterRegion(const std::string& identifier);
    void exitRegion(const std::string& identifier);
    /// A failure of the monitored region of that identifier or UUID; it stays monitored. Nothing when there is none.
    void monitoringFails(std::string_view region, std::int64_t code);

    [[nodiscard]] const std::vector<Region>& monitoredRegions() const { return monitored_.regions(); }
    [[nodiscard]] const std::vector<BeaconRegion>& rangedRegions() const { return ranged_; }
    [[nodiscard]] bool isMonitored(const Uuid& proximityUUID) const;
    /// One listener, or none (null).
    void setBeaconInterest(BeaconInterest* interest) { interest_ = interest; }

    [[nodiscard]] std::optional<bool> isMonitoringAvailable(RegionClass regionClass) const override;
    [[nodiscard]] std::optional<bool> isRangingAvailable() const override { return config_.supportsBeacons; }
    [[nodiscard]] bool significantLocationChangeMonitoringAvailable() const override;
    [[nodiscard]] bool locationServicesEnabled() const override { return servicesOn_; }
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return status_; }
    [[nodiscard]] std::unique_ptr<LocationService> makeLocationService(LocationServiceDelegate& delegate) override;

private:
    class Service;
    struct Client;
    using ClientPointer = std::shared_ptr<Client>;
    using News = std::function<void(LocationServiceDelegate&)>;

    void requestAuthorization(std::string_view level, AuthorizationStatus granted);
    void startMonitoring(const Region& region);
    void stopMonitoring(const std::string& identifier);
    void requestState(const Region& region);
    void startRanging(const BeaconRegion& region);
    void stopRanging(const std::string& identifier);
    void setUpdates(const ClientPointer& client, bool Client::*kind, bool on);
    void remove(const ClientPointer& client);

    [[nodiscard]] bool mayReport() const;
    [[nodiscard]] bool isRanged(std::string_view identifier) const;
    [[nodiscard]] RegionState stateOf(const Region& region) const;
    [[nodiscard]] std::optional<Coordinate> place() const;
    void cross(const std::string& identifier, bool enters);
    void tellAll(const News& news);
    void tellUpdating(const News& news);
    void postAuthorization();
    void postToMonitored(const std::string& identifier,
                         std::function<void(LocationServiceDelegate&, const Region&)> news);
    void postToMonitored(const Uuid& uuid, const std::function<void(LocationServiceDelegate&, const Region&)>& news);

    VirtualLoop& loop_;
    const PhoneConfig& config_;
    const PhoneObserver& observer_;
    RegionList monitored_;
    CircleWatch circles_;
    std::vector<BeaconRegion> ranged_;
    std::map<Uuid, RegionState> states_;
    std::vector<ClientPointer> clients_;
    BeaconInterest* interest_ = nullptr;
    bool servicesOn_;
    AuthorizationStatus status_;
    std::optional<Location> location_;
};

}  // namespace quomi::simulated
