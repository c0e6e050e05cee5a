#include "quomi/platform/region_text.h"
#include "tests/beacons/manager_bench.h"

namespace quomi::test {
namespace {

/// Another part of the app that uses the phone's location service and is deaf to it.
struct Neighbour : LocationServiceDelegate {
    explicit Neighbour(ManagerBench& bench) : service(bench.platform.location.makeLocationService(*this)) {}
    std::unique_ptr<LocationService> service;
};

// Entry and exit

TEST(BeaconRegion, AStartInsideTheRegionSimulatesExactlyOneEntry) {
    const auto bench = ManagerBench::started();
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    EXPECT_THAT(bench->news(), ElementsAre("range Quomi beacon", "enter", "state 1"));
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    EXPECT_THAT(bench->news(), ElementsAre("state 1"));
    bench->phone.beaconRegionState(kShop, RegionState::unknown);
    EXPECT_THAT(bench->news(), ElementsAre("state 0"));
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    EXPECT_THAT(bench->news(), ElementsAre("state 1")) << "an unknown state clears nothing";
    bench->phone.beaconRegionState(kShop, RegionState::outside);
    EXPECT_THAT(bench->news(), ElementsAre("state 2"));
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    EXPECT_THAT(bench->news(), ElementsAre("range Quomi beacon", "enter", "state 1"));
}

TEST(BeaconRegion, AnExitLeavesEverythingToStatesAndTimeouts) {
    const auto bench = ManagerBench::started();
    bench->phone.enterBeaconRegion(kShop);
    bench->report({heard(1)});
    bench->phone.exitBeaconRegion(kShop);
    EXPECT_THAT(bench->news(), ElementsAre("exit"));
    EXPECT_THAT(bench->nearby(), ElementsAre(1));
    EXPECT_EQ(bench->phone.rangedRegions().size(), 1U);
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    EXPECT_THAT(bench->news(), ElementsAre("state 1")) << "only an outside state re-arms the simulated entry";
    EXPECT_THAT(bench->after(5s), ElementsAre("lost 1"));
}

TEST(BeaconRegion, WhetherItIsInsideIsForgottenAtEachStart) {
    const auto bench = ManagerBench::started();
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    bench->news();
    bench->manager->stop();
    ASSERT_TRUE(bench->manager->start());
    EXPECT_THAT(bench->news(),
                ElementsAre("unrange Quomi beacon", "unmonitor Quomi beacon", "monitor Quomi beacon",
                            "range Quomi beacon", "began Quomi beacon", "range Quomi beacon", "enter", "state 1"));
}

// Regions of others

TEST(BeaconRegion, OtherUUIDsAndCirclesAreIgnored) {
    const auto bench = ManagerBench::started();
    bench->settings.fileLogEnabled = true;
    Neighbour neighbour(*bench);
    neighbour.service->startMonitoring(BeaconRegion{"theirs", kOther, true, true, true});
    neighbour.service->startMonitoring(CircularRegion{"circle", {48, 16}, 100});
    neighbour.service->startRangingBeacons({"theirs", kOther, true, true, true});
    EXPECT_THAT(bench->news(), ElementsAre("monitor theirs", "monitor circle", "range theirs"));
    auto& phone = bench->phone;
    phone.enterBeaconRegion(kOther);
    phone.beaconRegionState(kOther, RegionState::inside);
    phone.exitBeaconRegion(kOther);
    phone.enterRegion("circle");
    phone.exitRegion("circle");
    phone.monitoringFails("theirs", kCLErrorRegionMonitoringDenied);
    phone.monitoringFails("circle", kCLErrorRegionMonitoringDenied);
    phone.rangingFails("theirs", 16);
    auto foreign = heard(5);
    foreign.proximityUUID = kOther;
    EXPECT_THAT(bench->report({foreign, heard(1)}), ElementsAre("found 1 at 2", "ping 1"));
    EXPECT_THAT(bench->debugLines(), ElementsAre(testing::HasSubstr("# beacons: 1) region: CLBeaconRegion")));
}

TEST(BeaconRegion, AnyBeaconRegionOfTheSameUUIDCounts) {
    const auto bench = ManagerBench::started();
    Neighbour neighbour(*bench);
    neighbour.service->startMonitoring(BeaconRegion{"old name", kShop, true, true, true});
    bench->phone.enterBeaconRegion(kShop);
    EXPECT_THAT(bench->news(), testing::IsSupersetOf({"began old name", "range old name"}));
}

// Monitoring

TEST(BeaconRegion, WhetherItIsMonitoredIsAskedByIdentifierAlone) {
    ManagerBench bench;
    bench.settings.beaconProximityIdentifier = "door";
    Neighbour neighbour(bench);
    neighbour.service->startMonitoring(CircularRegion{"door", {48, 16}, 100});
    bench.news();
    ASSERT_TRUE(bench.manager->start());
    EXPECT_THAT(bench.news(), ElementsAre("range door"));
}

TEST(BeaconRegion, IsWatchedAtEntryExitAndWhenTheDisplayIsSwitchedOn) {
    const auto bench = ManagerBench::started();
    const BeaconRegion expected{"Quomi beacon", kShop, true, true, true};
    EXPECT_THAT(bench->phone.monitoredRegions(), ElementsAre(Region(expected)));
    EXPECT_THAT(bench->phone.rangedRegions(), ElementsAre(expected));
}

// Time in the background

TEST(BeaconRegion, AStateInTheBackgroundBeginsOneTaskUntilItExpires) {
    const auto bench = ManagerBench::started();
    const auto state = [&](RegionState some) {
        bench->phone.beaconRegionState(kShop, some);
        return bench->news();
    };
    EXPECT_THAT(state(RegionState::outside), ElementsAre("state 2")) << "not while the app is active";
    bench->phone.inactive();
    EXPECT_THAT(state(RegionState::outside), ElementsAre("state 2"));
    bench->phone.background();
    EXPECT_THAT(state(RegionState::outside), ElementsAre("begin task 1", "state 2"));
    EXPECT_THAT(state(RegionState::unknown), ElementsAre("state 0")) << "one is held";
    bench->phone.expireBackgroundTasks();
    EXPECT_THAT(bench->news(), ElementsAre("end task 1"));
    EXPECT_THAT(state(RegionState::inside), ElementsAre("range Quomi beacon", "enter", "begin task 2", "state 1"));
    bench->manager->stop();
    EXPECT_THAT(bench->news(), ElementsAre("unrange Quomi beacon", "unmonitor Quomi beacon", "end task 2"));
}

TEST(BeaconRegion, TheBackgroundTaskCanBeAskedForAndEndsWithTheManager) {
    const auto bench = ManagerBench::started();
    bench->manager->cancelBackgroundRangingTask();
    EXPECT_THAT(bench->news(), IsEmpty());
    bench->manager->beginBackgroundRangingTask();
    bench->manager->beginBackgroundRangingTask();
    bench->manager->cancelBackgroundRangingTask();
    bench->manager->cancelBackgroundRangingTask();
    EXPECT_THAT(bench->news(), ElementsAre("begin task 1", "end task 1"));
    bench->manager->beginBackgroundRangingTask();
    bench->manager.reset();
    EXPECT_THAT(bench->news(), ElementsAre("begin task 2", "end task 2"));
    bench->phone.expireBackgroundTasks();
    EXPECT_THAT(bench->news(), IsEmpty());
}

// The debug log

TEST(BeaconRegion, EachHappeningHasItsDebugLine) {
    const auto bench = ManagerBench::started();
    bench->settings.fileLogEnabled = true;
    bench->manager->setUseExtendedBackgroundRangingTime(true);
    const std::string region = describe(bench->phone.monitoredRegions().at(0));
    ASSERT_EQ(region,
              "CLBeaconRegion (identifier:'Quomi beacon', uuid:" + kShop.string() + ", major:(null), minor:(null))");
    const std::string simulated =
        "Got inside region state but didEnterRegion did not triggered, will simulate a didEnterRegion event";
    const auto state = [](RegionState some) {
        return [some](simulated::SimulatedPhone& phone) { phone.beaconRegionState(kShop, some); };
    };
    for (const auto& [happening, lines] : Table<std::function<void(simulated::SimulatedPhone&)>, Log>{
             {state(RegionState::unknown), {"didDetermineState UNKNOWN for region " + region}},
             {state(RegionState::inside),
              {"didDetermineState INSIDE for region " + region, simulated, "didEnterRegion " + region}},
             {state(RegionState::inside), {"didDetermineState INSIDE for region " + region}},
             {state(RegionState::outside), {"didDetermineState OUTSIDE for region " + region}},
             {[](auto& phone) { phone.enterBeaconRegion(kShop); }, {"didEnterRegion " + region}},
             {[](auto& phone) { phone.exitBeaconRegion(kShop); }, {"didExitRegion " + region}},
             {[](auto& phone) { phone.monitoringFails(kShop.string(), 4); }, {"monitoringDidFailForRegion " + region}},
             {[](auto& phone) { phone.rangingFails(kShop.string(), 16); },
              {"rangingBeaconsDidFailForRegion " + region}},
             {[](auto& phone) { phone.locationFails(1); },
              {"locationManager didFailWithError Error Domain=kCLErrorDomain Code=1 \"\""}},
             {[](auto& phone) { phone.setAuthorization(AuthorizationStatus::denied); }, {}},
         }) {
        happening(bench->phone);
        bench->phone.runTurns();
        EXPECT_EQ(bench->debugLines(), lines);
    }
}

TEST(BeaconRegion, EveryTenthReportIsWrittenCountedFromTheLatestEntry) {
    const auto bench = ManagerBench::started();
    bench->settings.fileLogEnabled = true;
    const auto line = [&](int event, int beacons) {
        return fmt::format("didRangeBeacons (range event # {}) (# beacons: {}) region: {}", event, beacons,
                           describe(Region(bench->phone.rangedRegions().at(0))));
    };
    for (int report = 0; report < 21; ++report) bench->report({heard(1), heard(2)});
    EXPECT_THAT(bench->debugLines(), ElementsAre(line(0, 2), line(10, 2), line(20, 2)));
    bench->manager->stop();
    ASSERT_TRUE(bench->manager->start());
    bench->news();
    bench->debugLines();
    bench->report({});
    EXPECT_THAT(bench->debugLines(), IsEmpty()) << "a new start goes on counting";
    bench->phone.enterBeaconRegion(kShop);
    for (int report = 0; report < 11; ++report) bench->report({heard(1, PlatformProximity::unknown)});
    EXPECT_THAT(bench->debugLines(), ElementsAre(testing::StartsWith("didEnterRegion"), line(0, 1), line(10, 1)));
}

}  // namespace
}  // namespace quomi::test
