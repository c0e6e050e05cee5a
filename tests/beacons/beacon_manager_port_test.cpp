#include "tests/beacons/manager_bench.h"

namespace quomi::test {
namespace {

/// A location service that does nothing but write down what is asked of it.
class WritingService final : public LocationService {
public:
    explicit WritingService(Log& log) : log_(log) {}
    ~WritingService() override { log_.emplace_back("gone"); }
    WritingService(const WritingService&) = delete;
    WritingService& operator=(const WritingService&) = delete;

    void requestAlwaysAuthorization() override { log_.emplace_back("ask always"); }
    void requestWhenInUseAuthorization() override { log_.emplace_back("ask when in use"); }
    void startMonitoring(const Region& region) override { log_.push_back("monitor " + regionIdentifier(region)); }
    void stopMonitoring(const std::string& identifier) override { log_.push_back("unmonitor " + identifier); }
    void requestState(const Region& region) override { log_.push_back("state? " + regionIdentifier(region)); }
    [[nodiscard]] std::vector<Region> monitoredRegions() const override { return {}; }
    void startRangingBeacons(const BeaconRegion& region) override { log_.push_back("range " + region.identifier); }
    void stopRangingBeacons(const std::string& identifier) override { log_.push_back("unrange " + identifier); }
    [[nodiscard]] std::vector<BeaconRegion> rangedRegions() const override {
        return {{"a", kOther}, {"Quomi beacon", kShop}};
    }
    void startUpdatingLocation() override { log_.emplace_back("update"); }
    void stopUpdatingLocation() override { log_.emplace_back("no updates"); }
    void startMonitoringSignificantLocationChanges() override { log_.emplace_back("significant"); }
    void stopMonitoringSignificantLocationChanges() override { log_.emplace_back("not significant"); }
    void setDesiredAccuracy(double metres) override { log_.push_back(fmt::format("accuracy {}", metres)); }
    void setDistanceFilter(double metres) override { log_.push_back(fmt::format("filter {}", metres)); }
    void setPausesLocationUpdatesAutomatically(bool pauses) override {
        log_.push_back(fmt::format("pauses {}", pauses));
    }
    void setAllowsBackgroundLocationUpdates(bool allows) override {
        log_.push_back(fmt::format("background {}", allows));
    }

private:
    Log& log_;
};

class WritingLocation final : public LocationPlatform {
public:
    [[nodiscard]] std::optional<bool> isMonitoringAvailable(RegionClass regionClass) const override {
        return regionClass == RegionClass::beacon ? available : true;
    }
    [[nodiscard]] std::optional<bool> isRangingAvailable() const override { return false; }
    [[nodiscard]] bool significantLocationChangeMonitoringAvailable() const override { return false; }
    [[nodiscard]] bool locationServicesEnabled() const override { return true; }
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override {
        return AuthorizationStatus::authorizedAlways;
    }
    [[nodiscard]] std::unique_ptr<LocationService> makeLocationService(LocationServiceDelegate& some) override {
        delegate = &some;
        return std::make_unique<WritingService>(log);
    }

    Log news() { return std::exchange(log, {}); }

    Log log;
    std::optional<bool> available = true;
    LocationServiceDelegate* delegate = nullptr;
};

/// A manager on a phone whose location service is the writing one.
struct BeaconManagerPorts : testing::Test {
    simulated::SimulatedPhone phone;
    WritingLocation location;
    const Platform platform = phone.platform().with(location);
    const QuomiSettings settings{{}, location};
    DebugLog debugLog{platform.files, platform.clock, {}};
    std::optional<QuomiBeaconManager> manager{std::in_place, kShop, platform, settings, debugLog};
};

TEST_F(BeaconManagerPorts, AsksTheLocationServiceInThisOrder) {
    EXPECT_THAT(location.news(), ElementsAre("pauses true", "background false"));
    manager->setUseExtendedBackgroundRangingTime(true);
    EXPECT_THAT(location.news(), ElementsAre("pauses false", "background true"));
    ASSERT_TRUE(manager->start());
    EXPECT_THAT(location.news(), ElementsAre("monitor Quomi beacon", "range Quomi beacon", "accuracy 3000", "update"));
    manager->setUseExtendedBackgroundRangingTime(false);
    EXPECT_THAT(location.news(), ElementsAre("pauses true", "background false", "no updates"));
    location.delegate->didStartMonitoring(BeaconRegion{"Quomi beacon", kShop});
    EXPECT_THAT(location.news(), ElementsAre("state? Quomi beacon"));
    location.delegate->didEnterRegion(BeaconRegion{"as reported", kShop});
    EXPECT_THAT(location.news(), ElementsAre("range as reported"));
    manager->stop();
    EXPECT_THAT(location.news(),
                ElementsAre("unrange a", "unrange Quomi beacon", "no updates", "unmonitor Quomi beacon"));
    manager.reset();
    EXPECT_THAT(location.news(), ElementsAre("gone"));
}

TEST_F(BeaconManagerPorts, SkipsBeaconsOfOtherUUIDsInItsReports) {
    ASSERT_TRUE(manager->start());
    auto foreign = heard(1);
    foreign.proximityUUID = kOther;
    location.delegate->didRangeBeacons({foreign, heard(2), foreign}, {"Quomi beacon", kShop});
    location.delegate->didRangeBeacons({heard(3)}, {"Quomi beacon", kOther});
    ASSERT_EQ(manager->getNearbyBeacons().size(), 1U);
    EXPECT_EQ(manager->getNearbyBeacons()[0]->minor(), 2);
    manager->stop();
    location.available = std::nullopt;
    EXPECT_FALSE(manager->start()) << "a system that does not offer the question";
}

}  // namespace
}  // namespace quomi::test
