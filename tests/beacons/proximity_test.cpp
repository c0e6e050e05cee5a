#include "quomi/beacons/beacon.h"
#include "tests/support/prelude.h"

#include <cmath>

namespace quomi {
namespace {

const Uuid kUuid = *Uuid::parse("5d1b2c7e-30a4-4f5b-9e0d-8c6a2f714b90");

TEST(Proximity, ServerNumbersMapOntoTheScale) {
    for (const auto& [server, expected] : Table<std::uint64_t, int>{
             {0, 6}, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}, {6, 0}, {7, 0}, {static_cast<std::uint64_t>(-1), 0}}) {
        EXPECT_EQ(QuomiProximityUtils::mapServerProximityToQuomiProximity(server), expected) << server;
    }
    for (const auto& [phone, expected] : {std::pair(0, 6), {1, 1}, {2, 2}, {3, 3}, {6, 0}, {-1, 0}}) {
        const auto proximity = static_cast<PlatformProximity>(phone);
        EXPECT_EQ(QuomiProximityUtils::mapCLProximityToQuomiProximity(proximity), expected) << phone;
    }
}

TEST(Proximity, OnlyThreeToFiveAreFar) {
    for (int value = -4; value <= 8; ++value) {
        EXPECT_EQ(QuomiProximityUtils::isProximityFar(static_cast<QuomiProximity>(value)), value >= 3 && value <= 5);
    }
}

TEST(Proximity, FarIsSplitAtTheThreshold) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    for (const auto& [proximity, distance, split, updated] : Table<int, double, int, int>{
             {3, 10.0, 4, 4},
             {3, 10.001, 5, 5},
             {3, -1.0, 4, 4},
             {3, nan, 5, 5},
             {1, 99.0, 1, 1},
             {2, 99.0, 2, 2},
             {4, 99.0, 4, 5},
             {5, 1.0, 5, 4},
             {4, nan, 4, 5},
             {6, 99.0, 6, 5},
             {6, 10.0, 6, 4},
             {7, -1.0, 7, 4},
             {0, 1.0, 0, 4},
         }) {
        const auto value = static_cast<QuomiProximity>(proximity);
        EXPECT_EQ(QuomiProximityUtils::splitFarProximity(value, distance, 10.0), split) << proximity << " " << distance;
        EXPECT_EQ(QuomiProximityUtils::updateProximity(value, distance, 10.0), updated) << proximity << " " << distance;
    }
}

TEST(Proximity, RangesIncludeTheirEndsAndAnUndividedFarAdmitsBothHalves) {
    for (const auto& [start, end, inside] : Table<int, int, std::vector<int>>{
             {1, 3, {1, 2, 3, 4, 5}},
             {3, 3, {3, 4, 5}},
             {4, 4, {4}},
             {2, 4, {2, 3, 4}},
             {4, 5, {4, 5}},
             {1, 6, {1, 2, 3, 4, 5, 6}},
             {3, 1, {}},
         }) {
        std::vector<int> found;
        for (int value = 0; value <= 7; ++value) {
            const auto proximity = static_cast<QuomiProximity>(value);
            const auto from = static_cast<QuomiProximity>(start);
            const auto to = static_cast<QuomiProximity>(end);
            const bool isInside = QuomiProximityUtils::isProximityInsideRange(proximity, from, to);
            if (isInside) found.push_back(value);
            EXPECT_NE(isInside, QuomiProximityUtils::isProximityOutsideRange(proximity, from, to));
        }
        EXPECT_EQ(found, inside) << start << ".." << end;
    }
}

TEST(Beacon, BeginsUndeterminedAndTakesOverReports) {
    const WallTime created{std::chrono::hours(5)};
    QuomiBeacon beacon(kUuid, 0, 65535, created);
    EXPECT_EQ(beacon.name(), "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90/0-65535");
    EXPECT_EQ(beacon.proximity(), QuomiProximityUndetermined);
    EXPECT_EQ(beacon.accuracy(), -1.0);
    EXPECT_EQ(beacon.rssi(), -1);
    EXPECT_EQ(beacon.lastSeenAt(), created);

    // Without a threshold of its own every known distance is beyond it.
    const WallTime seen = created + std::chrono::seconds(3);
    beacon.updateState({Uuid(), 9, 9, PlatformProximity::far, 0.5, -80}, seen);
    EXPECT_EQ(beacon.proximity(), QuomiProximityDistantFar);
    beacon.setFarDistanceSplitThreshold(10);
    beacon.updateState({Uuid(), 9, 9, PlatformProximity::far, 10.0, -80}, seen);
    EXPECT_EQ(beacon.proximity(), QuomiProximityMediumFar);
    EXPECT_EQ(beacon.lastSeenAt(), seen);

    EXPECT_EQ(boost::json::serialize(beacon.dictionary()),
              R"({"name":"5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90/0-65535",)"
              R"("proximityUUID":"5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90","major":0,"minor":65535,"proximity":4,)"
              R"("accuracy":1E1,"rssi":-80,"isSecure":false})");
}

}  // namespace
}  // namespace quomi
