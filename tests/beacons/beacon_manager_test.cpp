#include "quomi/platform/clock.h"
#include "tests/beacons/manager_bench.h"

namespace quomi::test {
namespace {

constexpr auto kUnknown = PlatformProximity::unknown;
constexpr auto kImmediate = PlatformProximity::immediate;
constexpr auto kFar = PlatformProximity::far;

TEST(BeaconManager, FindsThenUpdatesAndPingsEachTimeInTheOrderOfTheReport) {
    const auto bench = ManagerBench::started();
    EXPECT_THAT(bench->report({heard(2), heard(1)}), ElementsAre("found 2 at 2", "ping 2", "found 1 at 2", "ping 1"));
    EXPECT_THAT(bench->report({heard(1), heard(2, kImmediate, 0.25)}),
                ElementsAre("updated 1 from 2 2 to 2 2", "ping 1", "updated 2 from 2 2 to 1 0.25", "ping 2"));
    EXPECT_THAT(bench->report({}), IsEmpty());
}

TEST(BeaconManager, ABeaconTwiceInOneReportIsFoundAndThenUpdated) {
    const auto bench = ManagerBench::started();
    EXPECT_THAT(bench->report({heard(7), heard(7, kImmediate, 0.5)}),
                ElementsAre("found 7 at 2", "ping 7", "updated 7 from 2 2 to 1 0.5", "ping 7"));
}

TEST(BeaconManager, UnknownReportsNeitherFindNorKeepABeacon) {
    const auto bench = ManagerBench::started();
    EXPECT_THAT(bench->report({heard(1, kUnknown, -1), heard(2)}), ElementsAre("found 2 at 2", "ping 2"));
    Log told;
    for (int second = 0; second < 5; ++second) {
        for (const auto& line : bench->after(1s)) told.push_back(line);
        EXPECT_THAT(bench->report({heard(1, kUnknown, -1), heard(2, kUnknown, -1)}), IsEmpty());
    }
    EXPECT_THAT(told, ElementsAre("lost 2"));
}

TEST(BeaconManager, LosesABeaconAtTheFirstTickAfterFourSeconds) {
    // Ticks come with each full second; a beacon that is exactly 4 s old stays.
    for (const auto& [heardAt, lostAt] :
         Table<Duration, Duration>{{0s, 5s}, {1us, 5s}, {500ms, 5s}, {999'999us, 5s}, {1s, 6s}, {1s + 1us, 6s}}) {
        SCOPED_TRACE(heardAt.count());
        const auto bench = ManagerBench::started();
        bench->after(heardAt);
        bench->report({heard(1)});
        EXPECT_THAT(bench->after(lostAt - heardAt - 1us), IsEmpty());
        EXPECT_THAT(bench->after(1us), ElementsAre("lost 1"));
        EXPECT_THAT(bench->after(60s), IsEmpty());
    }
}

TEST(BeaconManager, FindsALostBeaconAsNewAndLosesItAgain) {
    const auto bench = ManagerBench::started();
    bench->report({heard(1)});
    const auto first = bench->manager->getNearbyBeacons().at(0);
    EXPECT_THAT(bench->after(9500ms), ElementsAre("lost 1"));
    EXPECT_EQ(first->proximity(), QuomiProximityNear) << "the record as it was when it was lost";
    EXPECT_THAT(bench->report({heard(1, kImmediate, 0.1)}), ElementsAre("found 1 at 1", "ping 1"));
    EXPECT_NE(bench->manager->getNearbyBeacons().at(0), first);
    EXPECT_THAT(bench->after(4499ms), IsEmpty());
    EXPECT_THAT(bench->after(1ms), ElementsAre("lost 1"));
}

TEST(BeaconManager, LosesSeveralBeaconsAtOnceInTheOrderOfFinding) {
    const auto bench = ManagerBench::started();
    Log expected;
    for (const auto minor : std::initializer_list<std::uint16_t>{9, 3, 40, 1, 22, 7, 65535, 0, 12}) {
        bench->report({heard(minor)});
        expected.push_back(fmt::format("lost {}", minor));
    }
    // Being heard again does not change the order, and who was heard later is lost later.
    bench->report({heard(12), heard(9)});
    bench->after(200ms);
    bench->report({heard(100)});
    bench->after(1s);
    bench->report({heard(200)});
    expected.push_back("lost 100");
    EXPECT_THAT(bench->after(3800ms), testing::ElementsAreArray(expected));
    EXPECT_THAT(bench->after(1s), ElementsAre("lost 200"));
}

TEST(BeaconManager, GivesTheBeaconsHeardLessThanFourSecondsAgoInTheOrderOfFinding) {
    const auto bench = ManagerBench::started();
    EXPECT_THAT(bench->nearby(), IsEmpty());
    bench->report({heard(8), heard(3)});
    bench->after(1s);
    bench->report({heard(5), heard(3)});
    EXPECT_THAT(bench->nearby(), ElementsAre(8, 3, 5));
    bench->after(2'999'999us);
    EXPECT_THAT(bench->nearby(), ElementsAre(8, 3, 5));
    EXPECT_THAT(bench->after(1us), IsEmpty());
    EXPECT_THAT(bench->nearby(), ElementsAre(3, 5)) << "one of exactly 4 s is neither nearby nor lost";
    EXPECT_THAT(bench->after(1s), ElementsAre("lost 8"));
    EXPECT_THAT(bench->nearby(), IsEmpty());
}

TEST(BeaconManager, AClockThatJumpsNeitherLosesNorKeepsABeacon) {
    for (const double jump : {600.0, -600.0}) {
        const auto bench = ManagerBench::started();
        bench->report({heard(1)});
        const auto seenAt = bench->manager->getNearbyBeacons().at(0)->lastSeenAt();
        bench->phone.jumpClock(Seconds(jump));
        EXPECT_THAT(bench->after(3900ms), IsEmpty());
        EXPECT_THAT(bench->nearby(), ElementsAre(1));
        bench->report({heard(1)});
        EXPECT_EQ(bench->manager->getNearbyBeacons().at(0)->lastSeenAt() - seenAt, toDuration(Seconds(jump + 3.9)));
        EXPECT_THAT(bench->after(4s), IsEmpty());
        EXPECT_THAT(bench->nearby(), IsEmpty());
        EXPECT_THAT(bench->after(1s), ElementsAre("lost 1"));
    }
}

TEST(BeaconManager, WhatWasSilentWhileTheAppStoodStillIsLostWhenItGoesOn) {
    const auto bench = ManagerBench::started();
    bench->report({heard(1)});
    bench->phone.suspend();
    EXPECT_THAT(bench->after(60s), IsEmpty());
    EXPECT_THAT(bench->nearby(), IsEmpty());
    bench->phone.resume();
    EXPECT_THAT(bench->news(), ElementsAre("lost 1"));
}

TEST(BeaconManager, GivesItsSplitThresholdToTheBeaconsThatItFinds) {
    const auto bench = ManagerBench::started();
    EXPECT_EQ(bench->manager->farDistanceSplitThreshold(), 0);
    EXPECT_THAT(bench->report({heard(1, kFar, 0.001), heard(2, kFar, 0), heard(3, kFar, -1)}),
                ElementsAre("found 1 at 5", "ping 1", "found 2 at 4", "ping 2", "found 3 at 4", "ping 3"));
    bench->manager->setFarDistanceSplitThreshold(10);
    const double nan = std::numeric_limits<double>::quiet_NaN();
    EXPECT_THAT(bench->report({heard(4, kFar, 10), heard(5, kFar, 10.001), heard(6, kFar, nan)}),
                ElementsAre("found 4 at 4", "ping 4", "found 5 at 5", "ping 5", "found 6 at 5", "ping 6"));
    EXPECT_THAT(bench->report({heard(1, kFar, 9)}), ElementsAre("updated 1 from 5 0.001 to 5 9", "ping 1"))
        << "a beacon keeps what it was found with";
}

}  // namespace
}  // namespace quomi::test
