#include "hosts/simulated/simulated_phone.h"

#include "hosts/simulated/temporary_directory.h"
#include "quomi/platform/screens.h"
#include "quomi/platform/user_defaults.h"
#include "tests/support/prelude.h"

namespace quomi::simulated {
namespace {

using Log = std::vector<std::string>;

const Uuid kShop = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1");
const Uuid kOther = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A2");

BeaconRegion beacons(const std::string& identifier = "beacons", const Uuid& uuid = kShop) {
    return {identifier, uuid, true, true, true};
}

CircularRegion circle(const std::string& identifier) {
    return {identifier, {53.5, -2.25}, 100};
}

/// Writes down what its location service tells.
class Listener final : public LocationServiceDelegate {
public:
    Listener(SimulatedPhone& phone, Log& log, std::string name)
        : log_(log), name_(std::move(name)), service_(phone.platform().location.makeLocationService(*this)) {}

    [[nodiscard]] LocationService& service() { return *service_; }
    void end() { service_.reset(); }

    void didChangeAuthorizationStatus(AuthorizationStatus status) override {
        note("authorization", static_cast<int>(status));
    }
    void didUpdateLocations(const std::vector<Location>& locations) override {
        note("location", locations.front().coordinate.latitude);
    }
    void didFailWithError(const PlatformError& error) override { note("location failure", error.code); }
    void didStartMonitoring(const Region& region) override { note("monitoring", regionIdentifier(region)); }
    void monitoringDidFail(const Region& region, const PlatformError& error) override {
        note("monitoring failure " + regionIdentifier(region), error.code);
    }
    void didDetermineState(RegionState state, const Region& region) override {
        note("state " + regionIdentifier(region), static_cast<int>(state));
    }
    void didEnterRegion(const Region& region) override { note("enter", regionIdentifier(region)); }
    void didExitRegion(const Region& region) override { note("exit", regionIdentifier(region)); }
    void didRangeBeacons(const std::vector<RangedBeacon>& ranged, const BeaconRegion& region) override {
        std::string minors;
        for (const auto& beacon : ranged) minors += fmt::format(" {}", beacon.minor);
        note("range", region.identifier + minors);
    }
    void rangingBeaconsDidFail(const BeaconRegion& region, const PlatformError& error) override {
        note("ranging failure " + region.identifier, error.code);
    }

private:
    template <class Value>
    void note(const std::string& what, const Value& value) {
        log_.push_back(fmt::format("{} {} {}", name_, what, value));
    }

    Log& log_;
    std::string name_;
    std::unique_ptr<LocationService> service_;
};

class SimulatedPhoneTest : public testing::Test {
protected:
    /// What was told since the last call, after everything that needs no time.
    Log news(SimulatedPhone& phone) {
        phone.runTurns();
        return std::exchange(log_, {});
    }
    Log news() { return news(phone_); }
    void forget() { news(); }

    PhoneObserver observer() {
        PhoneObserver told;
        told.monitor = [this](const Region& region) { asked_.push_back("monitor " + regionIdentifier(region)); };
        told.unmonitor = [this](const Region& region) { asked_.push_back("unmonitor " + regionIdentifier(region)); };
        told.range = [this](const BeaconRegion& region) { asked_.push_back("range " + region.identifier); };
        told.unrange = [this](const BeaconRegion& region) { asked_.push_back("unrange " + region.identifier); };
        told.updates = [this](std::string_view kind, bool on) { asked_.push_back(fmt::format("{} {}", kind, on)); };
        return told;
    }
    Log asked() { return std::exchange(asked_, {}); }

    Log log_;
    Log asked_;
    SimulatedPhone phone_{{}, observer()};
};

TEST_F(SimulatedPhoneTest, CirclesBeyondTheLimitAreRefused) {
    SimulatedPhone phone({.maxMonitoredRegions = 2}, observer());
    Listener a(phone, log_, "a");
    news(phone);
    a.service().startMonitoring(beacons());
    a.service().startMonitoring(circle("1"));
    a.service().startMonitoring(circle("2"));
    a.service().startMonitoring(circle("1"));
    a.service().startMonitoring(beacons("others", kOther));
    EXPECT_THAT(news(phone), ElementsAre("a monitoring beacons", "a monitoring 1", "a monitoring failure 2 5",
                                         "a monitoring 1", "a monitoring others"));
    EXPECT_EQ(phone.monitoredRegions().size(), 3u);
    EXPECT_THAT(asked(), ElementsAre("monitor beacons", "monitor 1", "monitor 2", "monitor 1", "monitor others"));
}

TEST_F(SimulatedPhoneTest, NothingIsReportedWithoutRightsOrWithServicesOff) {
    Listener a(phone_, log_, "a");
    forget();
    const auto everything = [&] {
        a.service().startMonitoring(beacons());
        a.service().startMonitoring(circle("shop"));
        a.service().requestState(beacons());
        a.service().startRangingBeacons(beacons());
        a.service().startUpdatingLocation();
        phone_.setLocation({1, 2}, 5);
        phone_.locationFails(0);
        phone_.range({{kShop, 1, 7}});
        phone_.enterRegion("shop");
        phone_.monitoringFails("shop", 4);
        phone_.rangingFails("beacons", 4);
        a.service().stopUpdatingLocation();
        return news();
    };
    phone_.setAuthorization(AuthorizationStatus::denied);
    EXPECT_THAT(news(), ElementsAre("a authorization 2"));
    EXPECT_THAT(everything(), IsEmpty());
    EXPECT_EQ(phone_.monitoredRegions().size(), 2u) << "listed all the same";
    phone_.setAuthorization(AuthorizationStatus::authorizedWhenInUse);
    phone_.setLocationServices(false);
    EXPECT_THAT(news(), ElementsAre("a authorization 4", "a authorization 4"));
    EXPECT_THAT(everything(), IsEmpty());
    phone_.setLocationServices(true);
    EXPECT_THAT(news(), ElementsAre("a authorization 4"));
    EXPECT_EQ(everything().size(), 8u);
}

TEST_F(SimulatedPhoneTest, UpdatesDeliverThePositionOnceWhenTheyStartAndThenEveryChange) {
    Listener a(phone_, log_, "a");
    Listener b(phone_, log_, "b");
    forget();
    a.service().startUpdatingLocation();
    EXPECT_THAT(news(), IsEmpty()) << "there is no position yet";
    phone_.setLocation({1, 2}, 5);
    EXPECT_THAT(news(), ElementsAre("a location 1"));
    b.service().startMonitoringSignificantLocationChanges();
    b.service().startMonitoringSignificantLocationChanges();
    a.service().startUpdatingLocation();
    a.service().startMonitoringSignificantLocationChanges();
    EXPECT_THAT(news(), ElementsAre("b location 1", "a location 1"));
    phone_.setLocation({3, 2}, 5);
    phone_.locationFails(2);
    EXPECT_THAT(news(), ElementsAre("a location 3", "b location 3", "a location failure 2", "b location failure 2"));
    a.service().stopUpdatingLocation();
    b.service().stopMonitoringSignificantLocationChanges();
    b.service().stopMonitoringSignificantLocationChanges();
    phone_.setLocation({4, 2}, 5);
    EXPECT_THAT(news(), ElementsAre("a location 4"));
    EXPECT_THAT(asked(), ElementsAre("standard true", "significant true", "significant true", "standard false",
                                     "significant false"));
}

TEST_F(SimulatedPhoneTest, TheModelRangesOnTheBeatAndTellsEntryAndExit) {
    Listener a(phone_, log_, "a");
    a.service().startMonitoring(beacons());
    forget();
    phone_.advanceBy(300ms);
    a.service().startRangingBeacons(beacons());
    phone_.advanceBy(2500ms);
    EXPECT_THAT(news(), IsEmpty()) << "no model yet";
    phone_.attachModel();
    phone_.advanceBy(499ms);
    EXPECT_THAT(news(), IsEmpty());
    phone_.advanceBy(1ms);
    EXPECT_THAT(news(), ElementsAre("a range beacons")) << "3 s after ranging began";
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    phone_.hearPacket({kShop, 1, 8, -59, -60});
    EXPECT_THAT(news(), ElementsAre("a enter beacons", "a state beacons 1"));
    phone_.advanceBy(1s);
    EXPECT_THAT(news(), ElementsAre("a range beacons 8 7"));
    a.service().stopRangingBeacons("beacons");
    phone_.advanceBy(19s);
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    phone_.advanceBy(30s - 1us);
    EXPECT_THAT(news(), IsEmpty());
    phone_.advanceBy(1us);
    EXPECT_THAT(news(), ElementsAre("a exit beacons", "a state beacons 2"));
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    EXPECT_THAT(news(), ElementsAre("a enter beacons", "a state beacons 1"));
    a.service().requestState(beacons());
    EXPECT_THAT(news(), ElementsAre("a state beacons 1"));
}

TEST_F(SimulatedPhoneTest, ThePhoneGoesOnWhileTheAppIsSuspended) {
    Listener a(phone_, log_, "a");
    a.service().startMonitoring(beacons());
    a.service().startRangingBeacons(beacons());
    phone_.attachModel();
    forget();
    auto timer = phone_.loop().scheduleOnce(1500ms, [this] { log_.emplace_back("timer"); });
    phone_.suspend();
    phone_.advanceBy(1s);
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    phone_.advanceBy(1s);
    phone_.setBluetooth(BluetoothState::poweredOff);
    EXPECT_THAT(news(), IsEmpty());
    phone_.resume();
    EXPECT_THAT(news(),
                ElementsAre("a range beacons", "a enter beacons", "a state beacons 1", "timer", "a range beacons 7"));
}

TEST_F(SimulatedPhoneTest, ARelaunchedAppFindsItsMonitoredRegions) {
    const TemporaryDirectory directory;
    const PhoneConfig config{.container = directory.path() / "state"};
    {
        SimulatedPhone phone(config);
        Listener a(phone, log_, "a");
        a.service().startMonitoring(beacons());
        a.service().startMonitoring(circle("one"));
        a.service().startMonitoring(circle("two"));
        a.service().stopMonitoring("one");
        a.service().startRangingBeacons(beacons());
        phone.platform().defaults.setBool("key", true);
    }
    {
        SimulatedPhone phone(config);
        EXPECT_THAT(phone.monitoredRegions(), ElementsAre(Region(beacons()), Region(circle("two"))));
        EXPECT_THAT(phone.rangedRegions(), IsEmpty());
        EXPECT_EQ(phone.platform().defaults.boolForKey("key"), true);
    }
    std::ofstream(config.container / "phone.json") << R"({"monitoredRegions": [7, {"identifier": "x"}]})";
    EXPECT_THAT(SimulatedPhone(config).monitoredRegions(), IsEmpty());
}

TEST_F(SimulatedPhoneTest, AScreenPresentsOneOtherAtATime) {
    auto& screens = phone_.platform().screens;
    const auto root = screens.rootScreen();
    const auto page = screens.presentWebPage(root, {});
    phone_.runTurns();
    ASSERT_TRUE(page && root->presentedScreen());
    EXPECT_EQ(screens.presentWebPage(root, {}), nullptr);
    EXPECT_TRUE(screens.presentWebPage(root->presentedScreen()->visibleChild(), {}));
}

TEST_F(SimulatedPhoneTest, WhatTheAppLeftWaitingGoesWhileThePhoneIsThere) {
    auto log = std::make_shared<Log>();
    auto phone = std::make_unique<SimulatedPhone>();
    auto listener = std::make_shared<Listener>(*phone, *log, "a");
    phone->loop().post([log, listener] {});
    listener.reset();
    phone.reset();
    EXPECT_THAT(*log, IsEmpty());
}

}  // namespace
}  // namespace quomi::simulated
