#include "hosts/simulated/phone_model.h"

#include "tests/support/prelude.h"

#include <cmath>

namespace quomi::simulated {
namespace {

const Uuid kUuid = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1");
const Uuid kOther = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A2");

MonotonicTime at(double seconds) {
    return MonotonicTime(toDuration(Seconds(seconds)));
}

/// What `power` and a steady `rssi` make of a distance.
double distanceOf(double power, double rssi) {
    return std::pow(10.0, (power - rssi) / 25.0);
}

class PhoneModelTest : public testing::Test {
protected:
    bool hear(double seconds, int rssi, int power = -59, std::uint16_t minor = 1) {
        return model_.hear({kUuid, 1, minor, power, rssi}, at(seconds));
    }
    std::vector<RangedBeacon> report(double tick) { return model_.report(kUuid, at(tick)); }
    RangedBeacon only(double tick) {
        const auto beacons = report(tick);
        EXPECT_EQ(beacons.size(), 1U);
        return beacons.empty() ? RangedBeacon{} : beacons[0];
    }

    PhoneModel model_;
};

TEST_F(PhoneModelTest, RssiIsTheRoundedMeanOfTheSecondsSamples) {
    const Table<std::vector<int>, int> cases = {
        {{-60}, -60},         {{-60, -61}, -61},     {{-60, -60, -61}, -60},     {{-60, -61, -61}, -61},
        {{-60, 0, -62}, -61}, {{-70, 20, 127}, -70}, {{-61, -60, -61, -60}, -61}};
    double second = 0;
    for (const auto& [samples, rssi] : cases) {
        for (std::size_t i = 0; i < samples.size(); ++i) hear(second + 0.1 * static_cast<double>(i), samples[i]);
        EXPECT_EQ(only(second + 1).rssi, rssi);
        second += 10;
    }
}

TEST_F(PhoneModelTest, ASecondIncludesItsBeginningAndNotItsEnd) {
    hear(0.0, -60);
    hear(1.0, -80);
    EXPECT_EQ(only(1).rssi, -60);
    EXPECT_EQ(only(2).rssi, -80);
}

TEST_F(PhoneModelTest, SmoothsTheReportedRssi) {
    hear(0, -60);
    EXPECT_DOUBLE_EQ(only(1).accuracy, distanceOf(-59, -60));
    hear(1.0, -70);
    hear(1.5, -71);
    EXPECT_DOUBLE_EQ(only(2).accuracy, distanceOf(-59, 0.65 * -60 + 0.35 * -71));
    EXPECT_DOUBLE_EQ(only(2).accuracy, distanceOf(-59, 0.65 * -60 + 0.35 * -71)) << "the same tick smooths once";
}

TEST_F(PhoneModelTest, StartsAfreshAfterFourSecondsWithoutASample) {
    double begin = 0;
    for (const auto& [silence, afresh] : Table<double, bool>{{3.999, false}, {4.0, true}, {4.5, true}}) {
        hear(begin, -60);
        (void)report(std::floor(begin) + 1);
        hear(begin + 1, 0);  // no sample: the silence goes on
        const double again = begin + silence;
        hear(again, -80);
        const double smoothed = afresh ? -80 : 0.65 * -60 + 0.35 * -80;
        EXPECT_DOUBLE_EQ(only(std::floor(again) + 1).accuracy, distanceOf(-59, smoothed)) << silence;
        begin += 100;
    }
}

TEST(ProximityClass, IsLeftOnlyWellBeyondItsBorder) {
    using enum PlatformProximity;
    const Table<double, PlatformProximity, PlatformProximity> cases = {
        {0.49, unknown, immediate},  {0.5, unknown, near},     {2.99, unknown, near}, {3.0, unknown, far},
        {0.6, immediate, immediate}, {0.601, immediate, near}, {3.2, immediate, far}, {0.4, near, near},
        {0.399, near, immediate},    {3.6, near, near},        {3.601, near, far},    {2.4, far, far},
        {2.399, far, near},          {0.45, far, immediate},   {3.3, unknown, far},
    };
    for (const auto& [accuracy, previous, expected] : cases) {
        EXPECT_EQ(proximityClass(accuracy, previous), expected) << accuracy << " from " << static_cast<int>(previous);
    }
}

TEST_F(PhoneModelTest, ProximityClassIsKeptWhileSmoothedAndForgottenWithIt) {
    hear(0, -71);  // 3.02 m: far
    EXPECT_EQ(only(1).proximity, PlatformProximity::far);
    hear(1, -69);  // 2.82 m when smoothed: near by its border, still far by its history
    EXPECT_LT(only(2).accuracy, 3.0);
    EXPECT_EQ(only(2).proximity, PlatformProximity::far);
    hear(6, -70);  // afresh: 2.75 m
    EXPECT_EQ(only(7).proximity, PlatformProximity::near);
}

TEST_F(PhoneModelTest, AnAbsurdMeasuredPowerGivesNoDistance) {
    double second = 0;
    for (const auto& [power, usable] :
         Table<int, bool>{{-101, false}, {-100, true}, {-20, true}, {-19, false}, {0, false}}) {
        hear(second, -60, -59);
        hear(second + 0.5, -60, power);
        const auto beacon = only(second + 1);
        EXPECT_EQ(beacon.proximity != PlatformProximity::unknown, usable) << power;
        EXPECT_EQ(beacon.accuracy >= 0, usable) << power;
        EXPECT_EQ(beacon.rssi, -60);
        second += 10;
    }
}

TEST_F(PhoneModelTest, ListsNearestFirstThenThoseWithoutADistanceThenSilentOnes) {
    hear(0.1, -60, -59, 7);
    hear(0.2, -60, -59, 8);
    (void)report(1);
    hear(1.1, -60, 0, 1);
    hear(1.2, -80, -59, 2);
    hear(1.3, -60, -59, 3);
    hear(1.4, -80, -59, 4);
    hear(1.5, -50, 5, 5);
    std::vector<int> minors;
    const auto beacons = report(2);
    for (const auto& beacon : beacons) minors.push_back(beacon.minor);
    EXPECT_EQ(minors, (std::vector<int>{3, 2, 4, 1, 5, 7, 8}));
    EXPECT_EQ(beacons.back().rssi, 0);
    EXPECT_EQ(beacons.back().accuracy, -1);
    EXPECT_EQ(beacons.back().proximity, PlatformProximity::unknown);
}

TEST_F(PhoneModelTest, ASilentBeaconStaysListedForFiveSeconds) {
    hear(1.0, -60);
    EXPECT_EQ(only(2).rssi, -60);
    for (const double tick : {3, 4, 5, 6}) EXPECT_EQ(only(tick).rssi, 0);
    hear(6.2, 0);  // heard, yet not ranged
    EXPECT_TRUE(report(7).empty());
    EXPECT_TRUE(model_.report(kOther, at(7)).empty());
}

TEST_F(PhoneModelTest, RegionsOfOneUuidSmoothEachForItself) {
    hear(0.2, -60);
    hear(0.7, -70);
    (void)model_.report(kUuid, at(0.5), "a");
    EXPECT_EQ(model_.report(kUuid, at(1.0), "b").at(0).rssi, -65);
    EXPECT_EQ(model_.report(kUuid, at(1.0), "b").at(0).accuracy, distanceOf(-59, -65));
    hear(1.2, -70);
    EXPECT_EQ(model_.report(kUuid, at(1.5), "a").at(0).accuracy, distanceOf(-59, 0.65 * -60 + 0.35 * -70));
}

TEST_F(PhoneModelTest, EntryAndExitFollowThePackets) {
    EXPECT_FALSE(model_.exitDue(kUuid));
    EXPECT_TRUE(hear(1, -60));
    EXPECT_FALSE(hear(2, -60, -59, 2)) << "another beacon of the same region";
    EXPECT_FALSE(hear(3, 0)) << "a packet without a usable rssi counts here";
    EXPECT_EQ(model_.exitDue(kUuid), at(33));
    EXPECT_FALSE(model_.isInside(kOther));
    model_.setOutside(kUuid);
    EXPECT_FALSE(model_.exitDue(kUuid));
    EXPECT_TRUE(hear(40, -60));
}

}  // namespace
}  // namespace quomi::simulated
