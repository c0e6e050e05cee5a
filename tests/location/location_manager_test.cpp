#include "quomi/location/location_manager.h"

#include "hosts/simulated/simulated_phone.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

using Log = std::vector<std::string>;

const BeaconRegion kBeacons{"beacons", *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1")};

CircularRegion circle(const std::string& identifier, double latitude = 53.5) {
    return {identifier, {latitude, -2.25}, 100};
}

/// The phone's location services, with a way to hand their latest client what this phone never sends.
class TappedLocation final : public LocationPlatform {
public:
    explicit TappedLocation(LocationPlatform& phone) : phone_(phone) {}

    [[nodiscard]] std::optional<bool> isMonitoringAvailable(RegionClass regionClass) const override {
        return phone_.isMonitoringAvailable(regionClass);
    }
    [[nodiscard]] std::optional<bool> isRangingAvailable() const override { return phone_.isRangingAvailable(); }
    [[nodiscard]] bool significantLocationChangeMonitoringAvailable() const override {
        return phone_.significantLocationChangeMonitoringAvailable();
    }
    [[nodiscard]] bool locationServicesEnabled() const override { return phone_.locationServicesEnabled(); }
    [[nodiscard]] AuthorizationStatus authorizationStatus() const override { return phone_.authorizationStatus(); }
    [[nodiscard]] std::unique_ptr<LocationService> makeLocationService(LocationServiceDelegate& delegate) override {
        client = &delegate;
        return phone_.makeLocationService(delegate);
    }

    LocationServiceDelegate* client = nullptr;

private:
    LocationPlatform& phone_;
};

/// A location manager on a simulated phone, and one log of what it tells its delegate and asks of the phone.
class LocationManagerTest : public testing::Test {
protected:
    explicit LocationManagerTest(simulated::PhoneConfig config = {}) : phone(std::move(config), observer()) {
        delegate->locationChanged = [this](const Location& location) { note("at {}", location.coordinate.latitude); };
        delegate->locationUpdateFailed = [this](const PlatformError& error) { note("lost {}", error.code); };
        delegate->locationRegionMonitoringStarted = [this](const CircularRegion& region) {
            note("began {}", region.identifier);
        };
        delegate->locationRegionMonitoringFailed = [this](const Region& region, const PlatformError& error) {
            note("failed {} {}", regionIdentifier(region), error.code);
        };
        delegate->locationDidEnterRegion = [this](const CircularRegion& region) {
            note("enter {}", region.identifier);
        };
        delegate->locationDidExitRegion = [this](const Region& region) { note("exit {}", regionIdentifier(region)); };
        manager->setDelegate(delegate);
        settings.stopUpdatingLocationAfterFirstUpdate = false;
    }

    /// What was logged since the last call, after everything that needs no time.
    Log news() {
        phone.runTurns();
        return std::exchange(log, {});
    }
    /// The same after something happened to the phone.
    Log move(double latitude, double longitude = -2.25) {
        phone.setLocation({latitude, longitude}, 5);
        return news();
    }
    Log enter(const std::string& identifier) {
        phone.enterRegion(identifier);
        return news();
    }
    Log exit(const std::string& identifier) {
        phone.exitRegion(identifier);
        return news();
    }
    /// Monitors the regions, with the news of that behind it.
    void add(const std::vector<Region>& regions) {
        for (const auto& region : regions) EXPECT_TRUE(manager->addRegion(region));
        news();
    }

    [[nodiscard]] std::string currentRegion() const {
        return manager->currentRegion() ? manager->currentRegion()->identifier : "(none)";
    }
    [[nodiscard]] Log monitored() const {
        Log identifiers;
        for (const auto& region : phone.monitoredRegions()) identifiers.push_back(regionIdentifier(region));
        return identifiers;
    }

    template <class... Arguments>
    void note(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        log.push_back(fmt::format(format, std::forward<Arguments>(arguments)...));
    }

    Log log;
    simulated::SimulatedPhone phone;
    const Platform ports = phone.platform();
    TappedLocation tapped{ports.location};
    const Platform platform = ports.with(tapped);
    QuomiSettings settings{{}, platform.location};
    DebugLog debugLog{platform.files, platform.clock, {}};
    std::shared_ptr<QuomiLocationDelegate> delegate = std::make_shared<QuomiLocationDelegate>();
    std::unique_ptr<QuomiLocationManager> manager =
        std::make_unique<QuomiLocationManager>(platform, settings, debugLog);

private:
    simulated::PhoneObserver observer() {
        return {
            .monitor = [this](const Region& region) { note("monitor {}", regionIdentifier(region)); },
            .unmonitor = [this](const Region& region) { note("unmonitor {}", regionIdentifier(region)); },
            .updates = [this](std::string_view kind, bool on) { note("{} updates {}", kind, on ? "on" : "off"); },
            .authorizationRequest = [this](std::string_view level) { note("ask {}", level); },
        };
    }
};

class UnaskedLocationManagerTest : public LocationManagerTest {
protected:
    UnaskedLocationManagerTest() : LocationManagerTest({.authorization = AuthorizationStatus::notDetermined}) {}
};

TEST_F(LocationManagerTest, FollowsSignificantChangesUntilStopped) {
    EXPECT_THAT(move(53), IsEmpty());
    manager->startLocationMonitoring();
    EXPECT_THAT(news(), ElementsAre("significant updates on", "at 53"));
    EXPECT_THAT(move(54), ElementsAre("at 54"));
    EXPECT_EQ(manager->currentLocation(), phone.location());
    phone.locationFails(1);
    EXPECT_THAT(news(), ElementsAre("lost 1"));
    manager->stopLocationMonitoring();
    EXPECT_THAT(move(55), ElementsAre("significant updates off"));
    EXPECT_EQ(manager->locationHistory().size(), 2);
}

TEST_F(LocationManagerTest, TakesTheNewestPositionOfAnUpdate) {
    tapped.client->didUpdateLocations({});
    EXPECT_THAT(news(), IsEmpty());
    tapped.client->didUpdateLocations({{{51, 0}, WallTime(1s)}, {{52, 0}, WallTime(2s)}, {{53, 0}, WallTime(3s)}});
    EXPECT_THAT(news(), ElementsAre("at 53"));
    EXPECT_THAT(manager->locationHistory(), ElementsAre(Location{{53, 0}, WallTime(3s)}));
}

TEST_F(LocationManagerTest, StopsAfterTheFirstUpdateWhenTheSettingSaysSo) {
    settings.stopUpdatingLocationAfterFirstUpdate = true;
    manager->startLocationMonitoring();
    EXPECT_THAT(move(53), ElementsAre("significant updates on", "at 53", "significant updates off"));
}

TEST_F(LocationManagerTest, KeepsTheLastTenPositionsAndSpeeds) {
    manager->startLocationMonitoring();
    for (int step = 0; step < 15; ++step) {
        phone.advanceBy(1min);
        move(step);
        EXPECT_EQ(manager->locationHistory().size(), std::min(step + 1, 10));
        EXPECT_EQ(manager->speedHistory().size(), std::min(step, 10));
    }
    EXPECT_EQ(manager->locationHistory().front().coordinate.latitude, 5);
    EXPECT_EQ(manager->locationHistory().back().coordinate.latitude, 14);
    EXPECT_EQ(manager->currentSpeed(), manager->speedHistory().back());
    EXPECT_LT(manager->speedHistory().front(), manager->speedHistory().back()) << "degrees grow towards the pole";
}

TEST_F(LocationManagerTest, DerivesASpeedWhereTimeAndPlaceAdvance) {
    const WallTime start{};
    const double degree = 111'319.49079327358;  // of the equator, in metres
    const auto add = [&](double metres, Duration after) {
        manager->addLocationToHistory({{0, metres / degree}, start + after, 5});
    };
    EXPECT_EQ(manager->currentSpeed(), -1.0);
    add(0, 0s);
    EXPECT_EQ(manager->currentSpeed(), -1.0);
    add(1000, 3600s);
    EXPECT_THAT(manager->speedHistory(), ElementsAre(DoubleNear(1, 1e-9)));
    add(2000, 3600s);
    add(3000, 1800s);
    EXPECT_EQ(manager->speedHistory().size(), 1) << "time stood still, or went back";
    add(3000, 7200s);
    EXPECT_EQ(manager->speedHistory().size(), 1) << "the device stood still";
    add(3001, 7200s + 500ms);
    EXPECT_THAT(manager->speedHistory(), ElementsAre(DoubleNear(1, 1e-9), DoubleNear(7.2, 1e-6)));
    EXPECT_EQ(manager->locationHistory().size(), 6);
    manager->addLocationToHistory({{91, 0}, start + 9000s, 5});
    EXPECT_EQ(manager->speedHistory().size(), 2) << "a position that is none has no distance";
}

TEST_F(LocationManagerTest, ForgetsWhereItWas) {
    add({circle("a")});
    manager->startLocationMonitoring();
    move(53);
    phone.advanceBy(1min);
    move(53.5);
    enter("a");
    EXPECT_EQ(currentRegion(), "a");
    manager->clearLocationHistory();
    EXPECT_THAT(manager->locationHistory(), IsEmpty());
    EXPECT_THAT(manager->speedHistory(), IsEmpty());
    EXPECT_EQ(manager->currentLocation(), std::nullopt);
    EXPECT_EQ(currentRegion(), "(none)");
    EXPECT_THAT(enter("a"), ElementsAre("enter a"));
}

TEST_F(UnaskedLocationManagerTest, AsksForPermissionUntilItIsGiven) {
    std::optional<Error> error;
    EXPECT_FALSE(manager->addRegion(std::nullopt, &error));
    EXPECT_EQ(std::exchange(error, std::nullopt).value().code, 800);
    EXPECT_FALSE(manager->regionMonitoringStarted());
    EXPECT_TRUE(manager->startRegionMonitoring(&error));
    EXPECT_TRUE(manager->startRegionMonitoring());
    EXPECT_THAT(news(), ElementsAre("ask always", "ask always"));
    EXPECT_TRUE(manager->regionMonitoringStarted());
    EXPECT_TRUE(manager->startRegionMonitoring());
    EXPECT_THAT(news(), IsEmpty());
    EXPECT_EQ(error, std::nullopt);
}

TEST_F(LocationManagerTest, RemovesGeofencesAndLeavesBeaconRegionsAlone) {
    add({circle("a"), kBeacons, circle("b"), circle("c")});
    EXPECT_THAT(manager->getCurrentlyMonitoredRegions(), ElementsAre(circle("a"), circle("b"), circle("c")));
    EXPECT_TRUE(manager->regionIsMonitored("b"));
    EXPECT_FALSE(manager->regionIsMonitored("beacons"));
    for (const char* identifier : {"b", "b", "beacons", "unknown", ""}) manager->removeRegionById(identifier);
    EXPECT_THAT(news(), ElementsAre("unmonitor b"));
    manager->removeAllRegions();
    EXPECT_TRUE(manager->regionMonitoringStarted());
    add({circle("d")});
    manager->stopRegionMonitoring();
    EXPECT_THAT(news(), ElementsAre("unmonitor d"));
    EXPECT_FALSE(manager->regionMonitoringStarted());
    EXPECT_THAT(monitored(), ElementsAre("beacons"));
}

TEST_F(LocationManagerTest, AnEntryMovesThePositionToTheCentre) {
    add({circle("a", 10), circle("b", 20)});
    phone.advanceBy(90s);
    enter("a");
    EXPECT_EQ(manager->currentLocation(), (Location{{10, -2.25}, WallTime(90s), -1}));
    manager->addLocationToHistory({{53, 0}, {}, 5});
    EXPECT_THAT(enter("a"), IsEmpty());
    EXPECT_EQ(manager->currentLocation()->coordinate.latitude, 10) << "even when the entry is dropped";
    EXPECT_EQ(manager->locationHistory().size(), 1);
}

TEST_F(LocationManagerTest, DropsRepeatedEntriesIntoTheCurrentRegionOnly) {
    add({circle("a"), circle("b")});
    EXPECT_THAT(enter("a"), ElementsAre("enter a"));
    EXPECT_THAT(enter("a"), IsEmpty());
    EXPECT_THAT(enter("b"), ElementsAre("enter b"));
    EXPECT_THAT(enter("a"), ElementsAre("enter a"));
    EXPECT_THAT(exit("b"), ElementsAre("exit b"));
    EXPECT_EQ(currentRegion(), "a");
    EXPECT_THAT(exit("a"), ElementsAre("exit a"));
    EXPECT_EQ(currentRegion(), "(none)");
    EXPECT_THAT(exit("a"), ElementsAre("exit a"));
    EXPECT_THAT(enter("a"), ElementsAre("enter a"));
}

TEST_F(LocationManagerTest, StartingInsideIsAnEntry) {
    EXPECT_TRUE(manager->addRegion(circle("unknown position")));
    EXPECT_THAT(news(), ElementsAre("monitor unknown position", "began unknown position"));
    manager->addLocationToHistory({{53.5, -2.25}, {}, 5});
    EXPECT_TRUE(manager->addRegion(circle("near", 53.5008)));
    EXPECT_THAT(news(), ElementsAre("monitor near", "began near", "enter near"));
    EXPECT_EQ(manager->currentLocation()->coordinate.latitude, 53.5008);
    EXPECT_TRUE(manager->addRegion(circle("near", 53.5008)));
    EXPECT_THAT(news(), ElementsAre("monitor near", "began near")) << "it is the current one";
    EXPECT_TRUE(manager->addRegion(circle("far", 53.5018)));
    EXPECT_THAT(news(), ElementsAre("monitor far", "began far"));
}

TEST_F(LocationManagerTest, AnUnknownPositionIsTheZeroPoint) {
    EXPECT_TRUE(manager->addRegion(CircularRegion{"gulf", {0.0005, 0}, 100}));
    EXPECT_THAT(news(), ElementsAre("monitor gulf", "began gulf", "enter gulf"));
    EXPECT_EQ(manager->currentLocation()->coordinate, (Coordinate{0.0005, 0}));
}

TEST_F(LocationManagerTest, BeaconRegionsAreNoneOfItsNews) {
    EXPECT_TRUE(manager->addRegion(kBeacons));
    phone.enterBeaconRegion(kBeacons.proximityUUID);
    phone.exitBeaconRegion(kBeacons.proximityUUID);
    phone.monitoringFails("beacons", 5);
    EXPECT_THAT(news(), ElementsAre("monitor beacons"));
    EXPECT_EQ(currentRegion(), "(none)");
    EXPECT_EQ(manager->currentLocation(), std::nullopt);
}

TEST_F(LocationManagerTest, AStartInsideIsAnEntryAlsoWhereTheCallbackEndedTheMonitoring) {
    manager->addLocationToHistory({{53.5, -2.25}, {}, 5});
    delegate->locationRegionMonitoringStarted = [this](const CircularRegion&) { manager->removeAllRegions(); };
    EXPECT_TRUE(manager->addRegion(circle("a")));
    EXPECT_THAT(news(), ElementsAre("monitor a", "unmonitor a", "enter a"));
    delegate->locationRegionMonitoringStarted = [this](const CircularRegion&) { delegate.reset(); };
    EXPECT_TRUE(manager->addRegion(circle("b")));
    EXPECT_THAT(news(), ElementsAre("monitor b")) << "nobody is left to hear of it";
}

TEST_F(LocationManagerTest, SurvivesWhatCallbacksDo) {
    manager->startLocationMonitoring();
    add({circle("a")});
    delegate->locationChanged = [](const Location&) { throw std::runtime_error("host"); };
    settings.stopUpdatingLocationAfterFirstUpdate = true;
    EXPECT_THAT(move(53), ElementsAre("significant updates off"));
    delegate->locationDidEnterRegion = [this](const CircularRegion& region) {
        manager->clearLocationHistory();
        manager->stopRegionMonitoring();
        note("still {}", region.identifier);
    };
    EXPECT_THAT(enter("a"), ElementsAre("unmonitor a", "still a"));
    *delegate = {};
    manager->startLocationMonitoring();
    add({circle("a")});
    move(53.5);
    enter("a");
    EXPECT_THAT(exit("a"), IsEmpty()) << "nothing is wanted";
}

TEST_F(LocationManagerTest, ADestroyedManagerIsSilentAndWhatItMonitorsGoesOn) {
    manager->startLocationMonitoring();
    add({circle("a")});
    phone.setLocation({53.5, -2.25}, 5);
    phone.enterRegion("a");
    manager.reset();
    EXPECT_THAT(news(), IsEmpty());
    EXPECT_THAT(monitored(), ElementsAre("a"));
}

}  // namespace
}  // namespace quomi
