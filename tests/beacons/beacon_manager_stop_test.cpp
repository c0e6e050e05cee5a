#include "tests/beacons/manager_bench.h"

namespace quomi::test {
namespace {

using Delegate = QuomiBeaconManagerDelegate;

TEST(BeaconStop, EndsTheRangingOfEveryRegionAndTheMonitoringOfItsOwn) {
    const auto bench = ManagerBench::started();
    LocationServiceDelegate deaf;
    const auto service = bench->platform.location.makeLocationService(deaf);
    service->startMonitoring(BeaconRegion{"theirs", kOther, true, true, true});
    service->startRangingBeacons({"theirs", kOther, true, true, true});
    bench->report({heard(1)});
    bench->manager->stop();
    EXPECT_THAT(bench->nearby(), IsEmpty());
    EXPECT_THAT(bench->news(), ElementsAre("unrange Quomi beacon", "unrange theirs", "unmonitor Quomi beacon"));
    service->startRangingBeacons({"theirs", kOther, true, true, true});
    bench->manager->stop();
    EXPECT_THAT(bench->news(), ElementsAre("range theirs", "unrange theirs")) << "a stop that has nothing to stop";
    EXPECT_EQ(bench->phone.monitoredRegions().size(), 1U);
}

TEST(BeaconStop, WhatThePhoneHadOnItsWayIsIgnored) {
    const auto bench = ManagerBench::started();
    bench->settings.fileLogEnabled = true;
    bench->phone.range({heard(1)});
    bench->phone.enterBeaconRegion(kShop);
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    bench->phone.monitoringFails("Quomi beacon", 4);
    bench->phone.setAuthorization(AuthorizationStatus::denied);
    bench->phone.active();
    bench->manager->stop();
    EXPECT_THAT(bench->news(), ElementsAre("unrange Quomi beacon", "unmonitor Quomi beacon"));
    EXPECT_THAT(bench->debugLines(), IsEmpty());
}

/// Every news of a delegate, what brings it about in a manager that has heard the beacons 1 to 3, and what is told
/// then.
struct News {
    const char* name;
    std::function<void(Delegate&, std::function<void()>)> replace;
    std::function<void(ManagerBench&)> happen;
    Log told;
};

template <class... Arguments>
auto replacing(std::function<void(Arguments...)> Delegate::*operation) {
    return [operation](Delegate& delegate, const std::function<void()>& action) {
        delegate.*operation = [before = delegate.*operation, action](Arguments... arguments) {
            before(arguments...);
            action();
        };
    };
}

const std::vector<News>& allNews() {
    using Bench = ManagerBench;
    const auto hears = [](std::initializer_list<std::uint16_t> minors) {
        std::vector<RangedBeacon> report;
        for (const auto minor : minors) report.push_back(heard(minor));
        return [report](Bench& bench) { bench.phone.range(report); };
    };
    static const std::vector<News> kNews = {
        {"monitoring began",
         replacing(&Delegate::beaconRegionMonitoringStarted),
         [](Bench& bench) { bench.manager->stop(), bench.manager->start(), bench.log.clear(); },
         {"began Quomi beacon"}},
        {"monitoring failed",
         replacing(&Delegate::beaconRegionMonitoringFailed),
         [](Bench& bench) { bench.phone.monitoringFails("Quomi beacon", 5); },
         {"failed 5"}},
        {"state",
         replacing(&Delegate::beaconRegionStateChanged),
         [](Bench& bench) { bench.phone.beaconRegionState(kShop, RegionState::outside); },
         {"state 2"}},
        {"simulated entry",
         replacing(&Delegate::didEnterBeaconRegion),
         [](Bench& bench) { bench.phone.background(), bench.phone.beaconRegionState(kShop, RegionState::inside); },
         {"range Quomi beacon", "enter"}},
        {"entry",
         replacing(&Delegate::didEnterBeaconRegion),
         [](Bench& bench) { bench.phone.enterBeaconRegion(kShop); },
         {"range Quomi beacon", "enter"}},
        {"exit",
         replacing(&Delegate::didExitBeaconRegion),
         [](Bench& bench) { bench.phone.exitBeaconRegion(kShop); },
         {"exit"}},
        {"find", replacing(&Delegate::didFindBeacon), hears({4, 5, 1}), {"found 4 at 2"}},
        {"update", replacing(&Delegate::didUpdateBeacon), hears({2, 1, 4}), {"updated 2 from 2 2 to 2 2"}},
        {"ping",
         replacing(&Delegate::didReceivePingFromBeacon),
         hears({3, 4, 1}),
         {"updated 3 from 2 2 to 2 2", "ping 3"}},
        {"loss", replacing(&Delegate::didLoseBeacon), [](Bench& bench) { bench.phone.advanceBy(10s); }, {"lost 1"}}};
    return kNews;
}

std::unique_ptr<ManagerBench> benchWithThreeBeacons() {
    auto bench = ManagerBench::started();
    bench->report({heard(1), heard(2), heard(3)});
    return bench;
}

TEST(BeaconStop, MayComeFromInsideEveryNewsAndIsTheLastOfThem) {
    for (const auto& news : allNews()) {
        SCOPED_TRACE(news.name);
        const auto bench = benchWithThreeBeacons();
        news.replace(*bench->delegate, [&] { bench->manager->stop(); });
        news.happen(*bench);
        bench->phone.range({heard(1), heard(9)});
        bench->phone.advanceBy(60s);
        auto expected = news.told;
        expected.insert(expected.end(), {"unrange Quomi beacon", "unmonitor Quomi beacon"});
        EXPECT_EQ(bench->news(), expected);
        EXPECT_FALSE(bench->manager->isStarted());
        EXPECT_THAT(bench->nearby(), IsEmpty());
        EXPECT_EQ(bench->phone.runningBackgroundTasks(), 0U);
        EXPECT_EQ(bench->phone.loop().pendingEvents(), 0U);
    }
}

TEST(BeaconStop, AStartFromInsideTheSameNewsBeginsAfresh) {
    for (const auto& news : allNews()) {
        SCOPED_TRACE(news.name);
        const auto bench = benchWithThreeBeacons();
        int restarts = 0;
        news.replace(*bench->delegate, [&] {
            if (restarts++ > 0) return;
            bench->manager->stop();
            bench->manager->start();
            bench->log.emplace_back("restarted");
        });
        news.happen(*bench);
        auto told = bench->news();
        told.erase(told.begin(), std::ranges::find(told, "restarted") + 1);
        // Nothing of the old run: only what the new one brings by itself.
        const std::string_view name = news.name;
        Log expected = {"began Quomi beacon", "state 0"};
        if (name == "state") expected.back() = "state 2";
        if (name == "monitoring began") expected.insert(expected.begin(), "state 0");  // asked for by the old run
        if (name == "simulated entry") {
            expected = {"began Quomi beacon", "range Quomi beacon", "enter", "begin task 1", "state 1"};
        }
        EXPECT_EQ(told, expected);
        EXPECT_THAT(bench->nearby(), IsEmpty());
        EXPECT_THAT(bench->report({heard(1)}), ElementsAre("found 1 at 2", "ping 1"));
        EXPECT_THAT(bench->after(5s), ElementsAre("lost 1"));
    }
}

TEST(BeaconStop, AManagerThatIsDestroyedHearsNothingOfWhatWasOnItsWay) {
    const auto bench = benchWithThreeBeacons();
    bench->settings.fileLogEnabled = true;
    bench->manager->setUseExtendedBackgroundRangingTime(true);
    bench->phone.background();
    bench->manager->beginBackgroundRangingTask();
    bench->news();
    bench->phone.range({heard(1), heard(4)});
    bench->phone.enterBeaconRegion(kShop);
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    bench->phone.setAuthorization(AuthorizationStatus::authorizedWhenInUse);
    bench->phone.locationFails(0);
    bench->phone.expireBackgroundTasks();
    bench->phone.active();
    bench->manager.reset();
    EXPECT_THAT(bench->after(60s), ElementsAre("end task 1"));
    EXPECT_THAT(bench->debugLines(), IsEmpty());
    EXPECT_EQ(bench->phone.loop().pendingEvents(), 0U);
    EXPECT_EQ(bench->phone.rangedRegions().size(), 1U) << "what the phone does for the app goes on";
}

TEST(BeaconDelegate, WhatACallbackThrowsCostsNobodyTheRest) {
    const auto bench = ManagerBench::started();
    for (const auto& news : allNews()) {
        news.replace(*bench->delegate, [] { throw std::runtime_error("a bad day"); });
    }
    EXPECT_THAT(bench->report({heard(1), heard(2)}), ElementsAre("found 1 at 2", "ping 1", "found 2 at 2", "ping 2"));
    EXPECT_THAT(bench->report({heard(1)}), ElementsAre("updated 1 from 2 2 to 2 2", "ping 1"));
    bench->phone.beaconRegionState(kShop, RegionState::inside);
    EXPECT_THAT(bench->news(), ElementsAre("range Quomi beacon", "enter", "state 1"));
    EXPECT_THAT(bench->after(5s), ElementsAre("lost 1", "lost 2"));
}

TEST(BeaconDelegate, MayLetTimePassFromInside) {
    const auto bench = benchWithThreeBeacons();
    const auto lost = bench->delegate->didLoseBeacon;
    bench->delegate->didLoseBeacon = [&](const QuomiBeacon& beacon) {
        lost(beacon);
        bench->phone.advanceBy(1s);
    };
    EXPECT_THAT(bench->after(10s), ElementsAre("lost 1", "lost 2", "lost 3")) << "each of them once";
}

}  // namespace
}  // namespace quomi::test
