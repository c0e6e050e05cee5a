#include "hosts/simulated/simulated_location.h"

#include "quomi/location/location_utils.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

namespace {

auto identified(std::string_view identifier) {
    return [identifier](const BeaconRegion& region) { return region.identifier == identifier; };
}

/// Whether a text names the region: by its identifier, or by its UUID in either case.
bool isNamed(const Region& region, std::string_view text) {
    if (regionIdentifier(region) == text) return true;
    const auto* beacons = std::get_if<BeaconRegion>(&region);
    return beacons != nullptr && Uuid::parse(text) == beacons->proximityUUID;
}

PlatformError failure(std::int64_t code) {
    return {kLocationErrorDomain, code, {}};
}

}  // namespace

/// One location service as the phone knows it; without a delegate it has ended.
struct SimulatedLocation::Client {
    LocationServiceDelegate* delegate = nullptr;
    bool standard = false;
    bool significant = false;

    void hear(const News& news) const {
        if (delegate != nullptr) tell(news, *delegate);
    }
};

class SimulatedLocation::Service final : public LocationService {
public:
    Service(SimulatedLocation& phone, ClientPointer client) : phone_(phone), client_(std::move(client)) {}
    ~Service() override { phone_.remove(client_); }
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;

    void requestAlwaysAuthorization() override {
        phone_.requestAuthorization("always", AuthorizationStatus::authorizedAlways);
    }
    void requestWhenInUseAuthorization() override {
        phone_.requestAuthorization("whenInUse", AuthorizationStatus::authorizedWhenInUse);
    }
    void startMonitoring(const Region& region) override { phone_.startMonitoring(region); }
    void stopMonitoring(const std::string& identifier) override { phone_.stopMonitoring(std::string(identifier)); }
    void requestState(const Region& region) override { phone_.requestState(region); }
    [[nodiscard]] std::vector<Region> monitoredRegions() const override { return phone_.monitoredRegions(); }
    void startRangingBeacons(const BeaconRegion& region) override { phone_.startRanging(region); }
    void stopRangingBeacons(const std::string& identifier) override { phone_.stopRanging(std::string(identifier)); }
    [[nodiscard]] std::vector<BeaconRegion> rangedRegions() const override { return phone_.rangedRegions(); }
    void startUpdatingLocation() override { phone_.setUpdates(client_, &Client::standard, true); }
    void stopUpdatingLocation() override { phone_.setUpdates(client_, &Client::standard, false); }
    void startMonitoringSignificantLocationChanges() override {
        phone_.setUpdates(client_, &Client::significant, true);
    }
    void stopMonitoringSignificantLocationChanges() override {
        phone_.setUpdates(client_, &Client::significant, false);
    }
    // Every position reaches whoever runs updates, whatever accuracy and distance were asked for.
    void setDesiredAccuracy(double /*metres*/) override {}
    void setDistanceFilter(double /*metres*/) override {}
    void setPausesLocationUpdatesAutomatically(bool /*pauses*/) override {}
    void setAllowsBackgroundLocationUpdates(bool /*allows*/) override {}

private:
    SimulatedLocation& phone_;
    ClientPointer client_;
};

SimulatedLocation::SimulatedLocation(VirtualLoop& loop, const PhoneConfig& config, const PhoneObserver& observer,
                                     Files& files, std::filesystem::path phoneFile)
    : loop_(loop),
      config_(config),
      observer_(observer),
      monitored_(files, std::move(phoneFile)),
      servicesOn_(config.locationServices),
      status_(config.authorization) {
    for (const auto& region : monitored_.regions()) {
        if (const auto* circle = std::get_if<CircularRegion>(&region)) circles_.watch(*circle, std::nullopt);
    }
}

SimulatedLocation::~SimulatedLocation() = default;

// Levers

void SimulatedLocation::setAuthorization(AuthorizationStatus status) {
    if (std::exchange(status_, status) != status) postAuthorization();
}

void SimulatedLocation::setLocationServices(bool on) {
    servicesOn_ = on;
    postAuthorization();
}

void SimulatedLocation::setLocation(const Coordinate& coordinate, double accuracy, Duration age) {
    location_ = Location{coordinate, loop_.now() - age, accuracy};
    loop_.post([this, position = *location_] {
        tellUpdating([&](LocationServiceDelegate& delegate) { delegate.didUpdateLocations({position}); });
    });
}

void SimulatedLocation::moveTo(const Coordinate& coordinate, double accuracy, Duration age) {
    setLocation(coordinate, accuracy, age);
    const auto crossings = circles_.moveTo(coordinate);
    for (const auto& identifier : crossings.entered) cross(identifier, true);
    for (const auto& identifier : crossings.left) cross(identifier, false);
}

void SimulatedLocation::locationFails(std::int64_t code) {
    loop_.post([this, code] {
        tellAll([&](LocationServiceDelegate& delegate) { delegate.didFailWithError(failure(code)); });
    });
}

void SimulatedLocation::range(const std::vector<RangedBeacon>& beacons) {
    for (const auto& region : ranged_) {
        std::vector<RangedBeacon> own;
        std::copy_if(beacons.begin(), beacons.end(), std::back_inserter(own),
                     [&](const auto& beacon) { return beacon.proximityUUID == region.proximityUUID; });
        report(region.identifier, std::move(own));
    }
}

void SimulatedLocation::report(const std::string& identifier, std::vector<RangedBeacon> beacons) {
    loop_.post([this, identifier, beacons = std::move(beacons)] {
        const auto found = std::ranges::find_if(ranged_, identified(identifier));
        if (found == ranged_.end()) return;
        tellAll([&, region = *found](LocationServiceDelegate& delegate) { delegate.didRangeBeacons(beacons, region); });
    });
}

void SimulatedLocation::rangingFails(std::string_view region, std::int64_t code) {
    const auto found = std::ranges::find_if(ranged_, [&](const BeaconRegion& some) { return isNamed(some, region); });
    if (found == ranged_.end()) return;
    loop_.post([this, failed = *found, code] {
        tellAll([&](LocationServiceDelegate& delegate) { delegate.rangingBeaconsDidFail(failed, failure(code)); });
    });
}

void SimulatedLocation::enterBeaconRegion(const Uuid& proximityUUID) {
    postToMonitored(proximityUUID,
                    [](LocationServiceDelegate& delegate, const Region& region) { delegate.didEnterRegion(region); });
}

void SimulatedLocation::exitBeaconRegion(const Uuid& proximityUUID) {
    postToMonitored(proximityUUID,
                    [](LocationServiceDelegate& delegate, const Region& region) { delegate.didExitRegion(region); });
}

void SimulatedLocation::beaconRegionState(const Uuid& proximityUUID, RegionState state) {
    states_[proximityUUID] = state;
    postToMonitored(proximityUUID, [state](LocationServiceDelegate& delegate, const Region& region) {
        delegate.didDetermineState(state, region);
    });
}

void SimulatedLocation::enterRegion(const std::string& identifier) {
    circles_.setInside(identifier, true);
    cross(identifier, true);
}

void SimulatedLocation::exitRegion(const std::string& identifier) {
    circles_.setInside(identifier, false);
    cross(identifier, false);
}

void SimulatedLocation::cross(const std::string& identifier, bool enters) {
    const auto* region = monitored_.find(identifier);
    if (region == nullptr || !std::holds_alternative<CircularRegion>(*region)) return;
    postToMonitored(identifier, [enters](LocationServiceDelegate& delegate, const Region& some) {
        enters ? delegate.didEnterRegion(some) : delegate.didExitRegion(some);
    });
}

void SimulatedLocation::monitoringFails(std::string_view region, std::int64_t code) {
    const auto& regions = monitored_.regions();
    const auto found = std::ranges::find_if(regions, [&](const Region& some) { return isNamed(some, region); });
    if (found == regions.end()) return;
    postToMonitored(regionIdentifier(*found), [code](LocationServiceDelegate& delegate, const Region& failed) {
        delegate.monitoringDidFail(failed, failure(code));
    });
}

bool SimulatedLocation::isMonitored(const Uuid& proximityUUID) const {
    return std::ranges::any_of(monitored_.regions(), [&](const Region& region) {
        const auto* beacons = std::get_if<BeaconRegion>(&region);
        return beacons != nullptr && beacons->proximityUUID == proximityUUID;
    });
}

// What the app asks

std::optional<bool> SimulatedLocation::isMonitoringAvailable(RegionClass regionClass) const {
    return regionClass == RegionClass::beacon ? config_.supportsBeacons : config_.supportsGeofences;
}

bool SimulatedLocation::significantLocationChangeMonitoringAvailable() const {
    return config_.supportsGeofences;
}

std::unique_ptr<LocationService> SimulatedLocation::makeLocationService(LocationServiceDelegate& delegate) {
    auto client = std::make_shared<Client>();
    client->delegate = &delegate;
    clients_.push_back(client);
    loop_.post([this, client] {
        client->hear([this](LocationServiceDelegate& some) { some.didChangeAuthorizationStatus(status_); });
    });
    return std::make_unique<Service>(*this, std::move(client));
}

void SimulatedLocation::requestAuthorization(std::string_view level, AuthorizationStatus granted) {
    tell(observer_.authorizationRequest, level);
    if (status_ != AuthorizationStatus::notDetermined) return;
    loop_.post([this, granted] {
        if (status_ != AuthorizationStatus::notDetermined) return;
        status_ = granted;
        const auto clients = clients_;
        for (const auto& client : clients) {
            client->hear([&](LocationServiceDelegate& some) { some.didChangeAuthorizationStatus(granted); });
        }
    });
}

void SimulatedLocation::startMonitoring(const Region& region) {
    tell(observer_.monitor, region);
    const bool isCircle = std::holds_alternative<CircularRegion>(region);
    const bool isNew = monitored_.find(regionIdentifier(region)) == nullptr;
    if (isCircle && isNew && monitored_.regions().size() >= config_.maxMonitoredRegions) {
        loop_.post([this, region] {
            tellAll([&](LocationServiceDelegate& delegate) {
                delegate.monitoringDidFail(region, failure(kCLErrorRegionMonitoringFailure));
            });
        });
        return;
    }
    const auto* beacons = std::get_if<BeaconRegion>(&region);
    const bool begins = beacons != nullptr && !isMonitored(beacons->proximityUUID);
    monitored_.put(region);
    // An identifier that changes its kind ends the region that it was.
    if (const auto* circle = std::get_if<CircularRegion>(&region)) {
        circles_.watch(*circle, place());
    } else {
        circles_.forget(regionIdentifier(region));
    }
    if (begins && interest_ != nullptr) interest_->monitoringBegan(beacons->proximityUUID);
    postToMonitored(regionIdentifier(region),
                    [](LocationServiceDelegate& delegate, const Region& some) { delegate.didStartMonitoring(some); });
}

void SimulatedLocation::stopMonitoring(const std::string& identifier) {
    const auto* found = monitored_.find(identifier);
    if (found == nullptr) return;
    tell(observer_.unmonitor, Region(*found));
    monitored_.remove(identifier);
    circles_.forget(identifier);
}

void SimulatedLocation::requestState(const Region& region) {
    loop_.post([this, region] {
        const auto state = stateOf(region);
        tellAll([&](LocationServiceDelegate& delegate) { delegate.didDetermineState(state, region); });
    });
}

void SimulatedLocation::startRanging(const BeaconRegion& region) {
    tell(observer_.range, region);
    const auto found = std::ranges::find_if(ranged_, identified(region.identifier));
    if (found != ranged_.end()) {
        *found = region;
        return;
    }
    ranged_.push_back(region);
    if (interest_ != nullptr) interest_->rangingBegan(region);
}

void SimulatedLocation::stopRanging(const std::string& identifier) {
    const auto found = std::ranges::find_if(ranged_, identified(identifier));
    if (found == ranged_.end()) return;
    tell(observer_.unrange, BeaconRegion(*found));
    ranged_.erase(found);
    if (interest_ != nullptr) interest_->rangingEnded(identifier);
}

void SimulatedLocation::setUpdates(const ClientPointer& client, bool Client::*kind, bool on) {
    if (std::exchange((*client).*kind, on) == on) return;
    tell(observer_.updates, kind == &Client::standard ? "standard" : "significant", on);
    if (!on || !location_) return;
    loop_.post([this, client, kind] {
        if (!mayReport() || !((*client).*kind)) return;
        client->hear([this](LocationServiceDelegate& delegate) { delegate.didUpdateLocations({*location_}); });
    });
}

void SimulatedLocation::remove(const ClientPointer& client) {
    client->delegate = nullptr;
    std::erase(clients_, client);
}

// Callbacks

bool SimulatedLocation::mayReport() const {
    return servicesOn_ &&
           (status_ == AuthorizationStatus::authorizedAlways || status_ == AuthorizationStatus::authorizedWhenInUse);
}

std::optional<Coordinate> SimulatedLocation::place() const {
    return location_ ? std::optional(location_->coordinate) : std::nullopt;
}

RegionState SimulatedLocation::stateOf(const Region& region) const {
    if (const auto* circle = std::get_if<CircularRegion>(&region)) {
        const auto inside = location_ ? QuomiLocationUtils::pointIsInRegion(location_->coordinate, *circle)
                                      : circles_.isInside(circle->identifier);
        if (!inside) return RegionState::unknown;
        return *inside ? RegionState::inside : RegionState::outside;
    }
    const auto* beacons = std::get_if<BeaconRegion>(&region);
    const auto found = states_.find(beacons->proximityUUID);
    return found == states_.end() ? RegionState::unknown : found->second;
}

void SimulatedLocation::tellAll(const News& news) {
    const auto clients = clients_;
    for (const auto& client : clients) {
        if (mayReport()) client->hear(news);
    }
}

void SimulatedLocation::tellUpdating(const News& news) {
    const auto clients = clients_;
    for (const auto& client : clients) {
        if (mayReport() && (client->standard || client->significant)) client->hear(news);
    }
}

void SimulatedLocation::postAuthorization() {
    loop_.post([this, status = status_] {
        const auto clients = clients_;
        for (const auto& client : clients) {
            client->hear([&](LocationServiceDelegate& delegate) { delegate.didChangeAuthorizationStatus(status); });
        }
    });
}

void SimulatedLocation::postToMonitored(const std::string& identifier,
                                        std::function<void(LocationServiceDelegate&, const Region&)> news) {
    loop_.post([this, identifier, news = std::move(news)] {
        const auto* found = monitored_.find(identifier);
        if (found == nullptr) return;
        tellAll([&, region = *found](LocationServiceDelegate& delegate) { news(delegate, region); });
    });
}

void SimulatedLocation::postToMonitored(const Uuid& uuid,
                                        const std::function<void(LocationServiceDelegate&, const Region&)>& news) {
    for (const auto& region : monitored_.regions()) {
        const auto* beacons = std::get_if<BeaconRegion>(&region);
        if (beacons != nullptr && beacons->proximityUUID == uuid) postToMonitored(regionIdentifier(region), news);
    }
}

}  // namespace quomi::simulated
