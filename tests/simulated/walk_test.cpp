#include "hosts/simulated/circle_watch.h"
#include "hosts/simulated/simulated_phone.h"
#include "hosts/simulated/world_radio.h"
#include "quomi/location/location_utils.h"
#include "tests/support/prelude.h"

#include <cmath>
#include <random>

namespace quomi::simulated {
namespace {

using Log = std::vector<std::string>;

const Uuid kTown = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1");
constexpr double kDegree = 111319.49079;  // metres of a degree of the equator

/// So many metres east of a place on the equator.
Coordinate east(double metres) {
    return {0, 10 + metres / kDegree};
}

/// A walk along the equator, a point a second.
Track along(const std::vector<double>& metres) {
    Track track;
    for (std::size_t i = 0; i < metres.size(); ++i) track.push_back({i * 1s, east(metres[i]), {}});
    return track;
}

class WalkTest : public testing::Test, public LocationServiceDelegate {
protected:
    void didUpdateLocations(const std::vector<Location>& locations) override {
        const auto age = toSeconds(phone_.loop().now() - locations.back().timestamp);
        const auto metres = std::lround((locations.back().coordinate.longitude - 10) * kDegree);
        log_.push_back(fmt::format("at {}{}", metres, age == 0 ? "" : fmt::format(", {} s old", age)));
    }
    void didDetermineState(RegionState state, const Region& region) override {
        log_.push_back(fmt::format("state {} {}", regionIdentifier(region), static_cast<int>(state)));
    }
    void didEnterRegion(const Region& region) override { log_.push_back("enter " + regionIdentifier(region)); }
    void didExitRegion(const Region& region) override { log_.push_back("exit " + regionIdentifier(region)); }
    void didRangeBeacons(const std::vector<RangedBeacon>& beacons, const BeaconRegion&) override {
        const auto now = toSeconds(phone_.loop().monotonicNow().time_since_epoch());
        std::string all = fmt::format("{}:", now);
        for (const auto& beacon : beacons) all += fmt::format(" {} {}", beacon.minor, beacon.rssi);
        ranged_.push_back(all);
    }

    CircularRegion watch(const std::string& identifier, double metres, double radius) {
        CircularRegion region{identifier, east(metres), radius};
        service_->startMonitoring(region);
        phone_.runTurns();
        return region;
    }
    Log news() {
        phone_.runTurns();
        return std::exchange(log_, {});
    }
    Log walk(const std::vector<double>& metres) {
        EXPECT_TRUE(phone_.follow(along(metres)));
        return news();
    }

    SimulatedPhone phone_;
    Log log_;
    Log ranged_;
    std::unique_ptr<LocationService> service_ = phone_.platform().location.makeLocationService(*this);
};

TEST(TrackTest, PointsArePlayedInTheirOwnOrderAtTheTimesThatTheyAllow) {
    constexpr int none = -1000;
    const Table<std::vector<int>, std::vector<std::pair<double, double>>> cases = {
        {{}, {}},
        {{none, none}, {}},
        {{7}, {{0, 0}}},
        {{100, 101, 500}, {{0, 0}, {1, 0}, {400, 0}}},
        {{100, 110, 103, 110, 99, 111}, {{0, 0}, {10, 0}, {10, 7}, {10, 0}, {10, 11}, {11, 0}}},
        {{none, 10, none, none, 16, none}, {{0, 0}, {0, 0}, {2, 0}, {4, 0}, {6, 0}, {6, 0}}},
        {{10, 20, none, 10, none, 40}, {{0, 0}, {10, 0}, {10, 5}, {10, 10}, {15, 0}, {30, 0}}},
    };
    for (const auto& [recorded, expected] : cases) {
        std::vector<RecordedPoint> points;
        for (const int at : recorded) {
            points.push_back({{}, at == none ? std::nullopt : std::optional(WallTime(std::chrono::seconds(at)))});
        }
        std::vector<std::pair<double, double>> played;
        for (const auto& point : trackOf(points)) played.emplace_back(toSeconds(point.offset), toSeconds(point.age));
        EXPECT_EQ(played, expected) << testing::PrintToString(recorded);
    }
}

TEST_F(WalkTest, APointTellsItsPositionThenTheRegionsEnteredThenThoseLeft) {
    service_->startUpdatingLocation();
    watch("a", 0, 50);
    watch("b", 200, 50);
    EXPECT_THAT(walk({-100, -50.01, -49.99, 0, 50.01, 200, 0}),
                ElementsAre("at -100", "at -50", "at -50", "enter a", "at 0", "at 50", "exit a", "at 200", "enter b",
                            "at 0", "enter a", "exit b"));
    EXPECT_TRUE(phone_.follow({{0s, east(1), {}}, {10s, east(2), {}}, {10s, east(3), 4s}}, 2));
    EXPECT_THAT(news(), ElementsAre("at 1", "at 2", "at 3, 2 s old"));
}

TEST_F(WalkTest, OnlyABorderThatIsCrossedIsReported) {
    watch("first", 0, 50);
    EXPECT_THAT(walk({0, 10}), IsEmpty()) << "nothing was known of it before";
    const auto later = watch("later", 0, 40);
    service_->requestState(later);
    EXPECT_THAT(news(), ElementsAre("state later 1")) << "monitoring began inside";
    EXPECT_THAT(walk({0, 45}), ElementsAre("exit later"));
    service_->requestState(later);
    EXPECT_THAT(news(), ElementsAre("state later 2"));

    phone_.enterRegion("later");
    EXPECT_THAT(news(), ElementsAre("enter later"));
    EXPECT_THAT(walk({0, 45}), ElementsAre("exit later")) << "it was told to be inside";
    phone_.setLocation(east(0), 5);
    EXPECT_THAT(news(), IsEmpty()) << "a position alone crosses nothing";
    watch("later", 0, 44);
    EXPECT_THAT(walk({0}), IsEmpty()) << "another circle begins anew";
    service_->stopMonitoring("later");
    phone_.setLocationServices(false);
    EXPECT_THAT(walk({100}), IsEmpty());
    phone_.setLocationServices(true);
    EXPECT_THAT(walk({101, 0}), ElementsAre("enter first"));
}

TEST(CircleWatchTest, AgreesWithTheExactDistanceEverywhere) {
    std::mt19937 chance(7);
    const auto upTo = [&](double most) { return most * static_cast<double>(chance()) / 4294967296.0; };
    int inside = 0;
    for (int i = 0; i < 20000; ++i) {
        const double radius = std::pow(10.0, upTo(6.9));
        const Coordinate center{upTo(180) - 90, i % 2 == 0 ? upTo(360) - 180 : 180 - upTo(0.01)};
        const double spread = 2 * radius / kDegree;
        const double stretch = 1 / std::max(std::cos(center.latitude / 57.3), 0.001);
        Coordinate point{std::clamp(center.latitude + upTo(2 * spread) - spread, -90.0, 90.0),
                         longitudeBetween(0, center.longitude + (upTo(2 * spread) - spread) * stretch)};
        CircleWatch watch;
        watch.watch({"some", center, radius}, point);
        const bool exact = QuomiLocationUtils::pointIsInRegion(point, {"some", center, radius});
        ASSERT_EQ(watch.isInside("some"), exact) << fmt::format("{} {} {} {} {}", center.latitude, center.longitude,
                                                                radius, point.latitude, point.longitude);
        inside += exact ? 1 : 0;
    }
    EXPECT_GT(inside, 3000);
    EXPECT_LT(inside, 17000);
}

TEST_F(WalkTest, BeaconsAreHeardAlongTheWayAndWhereItEnds) {
    service_->startMonitoring(BeaconRegion{"town", kTown});
    service_->startRangingBeacons({"town", kTown});
    phone_.placeBeacons({{kTown, 1, 1, east(0), -59}, {kTown, 1, 2, east(100), -59}});
    // Ten metres a second between two points that are ten seconds apart.
    EXPECT_TRUE(phone_.follow({{0s, east(0), {}}, {10s, east(100), {}}, {100s, east(100), {}}, {110s, east(200), {}}}));
    EXPECT_THAT(news(), ElementsAre("enter town", "state town 1"));
    EXPECT_EQ(ranged_.size(), 110U);
    EXPECT_THAT(std::vector(ranged_.begin(), ranged_.begin() + 3), ElementsAre("1: 1 -34", "2: 1 -84", "3: 1 -92"));
    EXPECT_EQ(ranged_[6], "7: 2 -99 1 0") << "in reach at 60 m, and the first one silent";
    EXPECT_EQ(ranged_[59], "60: 2 -34");
    phone_.advanceBy(23s);
    EXPECT_THAT(news(), IsEmpty());
    phone_.advanceBy(1s);
    EXPECT_THAT(news(), ElementsAre("exit town", "state town 2")) << "30 s after the last packet, at 140 m";
    phone_.setLocation(east(99), 5);
    phone_.advanceBy(60s);
    EXPECT_THAT(news(), ElementsAre("enter town", "state town 1"));
    EXPECT_EQ(ranged_.back(), "194: 2 -59");
}

TEST_F(WalkTest, AtAPointThePositionComesFirstAndThenTheBeacons) {
    service_->startMonitoring(BeaconRegion{"town", kTown});
    service_->startUpdatingLocation();
    watch("a", 10, 5);
    phone_.placeBeacons({{kTown, 1, 1, east(0), -59}});
    EXPECT_THAT(walk({200, 10}), ElementsAre("at 200", "at 10", "enter a", "enter town", "state town 1"));
    phone_.setLocation(east(500), 5);
    phone_.advanceBy(31s);
    EXPECT_THAT(news(), ElementsAre("at 500", "exit town", "state town 2"));
    EXPECT_TRUE(phone_.follow({{0s, east(0), {}}, {0s, east(500), {}}}));
    EXPECT_THAT(news(), ElementsAre("at 0", "exit a", "at 500")) << "no time to hear anything";
}

TEST_F(WalkTest, NothingIsTimedFarFromEveryBeacon) {
    phone_.placeBeacons({{kTown, 1, 1, east(0), -59}});
    EXPECT_TRUE(phone_.follow(along({500, 300, 100})));
    EXPECT_EQ(phone_.loop().pendingEvents(), 0U);
    EXPECT_TRUE(phone_.follow({{0s, {0, 179.9999}, {}}, {100s, {0, -179.9999}, {}}}));
    phone_.placeBeacons({{kTown, 1, 1, {0, -179.9999}, -59}});
    EXPECT_EQ(phone_.loop().pendingEvents(), 1U) << "across the 180th meridian";
}

TEST(WorldRadioTest, TheSignalComesFromTheDistanceAndIsAlwaysOne) {
    const Table<double, std::int32_t, std::int32_t> cases = {
        {1, -59, -59}, {10, -59, -84}, {2, -59, -67}, {0, -59, -34}, {0.05, -59, -34}, {0, -20, -1}, {43, -59, -100}};
    for (const auto& [metres, power, rssi] : cases) EXPECT_EQ(WorldRadio::rssiAt(metres, power), rssi) << metres;
}

}  // namespace
}  // namespace quomi::simulated
