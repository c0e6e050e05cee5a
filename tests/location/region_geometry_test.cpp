#include "quomi/location/location_utils.h"
#include "quomi/location/region_type_converter.h"

#include <cmath>
#include <limits>
#include <memory>
#include <numbers>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kDegrees = 57.29577951308232;

TEST(LocationUtils, MeasuresAlongTheEllipsoid) {
    struct Case {
        const char* what;
        Coordinate a;
        Coordinate b;
        double metres;
    };
    // Lengths of WGS 84: a quarter of a meridian, half the equator's shortest way over a pole, arcs of one degree.
    for (const auto& [what, a, b, metres] : {
             Case{"equator to pole", {0, 0}, {90, 0}, 10'001'965.729},
             Case{"pole to pole", {90, 12}, {-90, -77}, 20'003'931.459},
             Case{"to the other side", {0, 0}, {0, 180}, 20'003'931.459},
             Case{"one degree of the equator", {0, 0}, {0, 1}, 111'319.491},
             Case{"one degree of latitude at the equator", {0, 0}, {1, 0}, 110'574.389},
             Case{"one degree of latitude at the pole", {89, 0}, {90, 0}, 111'693.865},
             Case{"over the date line", {0, 179.5}, {0, -179.5}, 111'319.491},
             Case{"every longitude is the pole", {90, 0}, {90, 123}, 0},
         }) {
        EXPECT_NEAR(QuomiLocationUtils::calculateDistance(a, b), metres, 0.001) << what;
        EXPECT_NEAR(QuomiLocationUtils::calculateDistance(b, a), metres, 0.001) << what;
    }
}

TEST(LocationUtils, EqualPointsAreNoDistanceApart) {
    for (const Coordinate& point : {Coordinate{0, 0}, Coordinate{53.4808, -2.2426}, Coordinate{-90, 180},
                                    Coordinate{37.331686, -122.030656}, Coordinate{1e-9, -179.999999999}}) {
        EXPECT_EQ(QuomiLocationUtils::calculateDistance(point, point), 0) << point.latitude;
    }
}

TEST(LocationUtils, APointThatIsNoneIsInNoRegion) {
    for (const Coordinate& point : {Coordinate{91, 0}, Coordinate{kNaN, 0}, Coordinate{0, kNaN},
                                    Coordinate{kInfinity, 0}, Coordinate{0, kInfinity}}) {
        EXPECT_TRUE(std::isnan(QuomiLocationUtils::calculateDistance(point, {0, 0})));
        EXPECT_FALSE(QuomiLocationUtils::pointIsInRegion(point, {"", {0, 0}, kInfinity}));
    }
}

TEST(LocationUtils, ThePointOnTheCircleIsInside) {
    const double metres = QuomiLocationUtils::calculateDistance(53.48, -2.24, 53.481, -2.239);
    for (const auto& [radius, isInside] : {std::pair{metres, true},
                                           {std::nextafter(metres, kInfinity), true},
                                           {std::nextafter(metres, 0), false},
                                           {-metres, false},
                                           {kNaN, false}}) {
        EXPECT_EQ(QuomiLocationUtils::pointIsInRegion(53.48, -2.24, 53.481, -2.239, radius), isInside) << radius;
        EXPECT_EQ(QuomiLocationUtils::pointIsInRegion({53.48, -2.24}, {"", {53.481, -2.239}, radius}), isInside);
    }
    EXPECT_TRUE(QuomiLocationUtils::pointIsInRegion(1, 2, 1, 2, 0)) << "the centre of a circle without extent";
}

TEST(LocationUtils, MovesNorthFromRadiansToDegrees) {
    constexpr double sphereRadius = 6372797.6;
    constexpr double pi = std::numbers::pi;
    struct Case {
        const char* what;
        double metres;
        Coordinate from;
        Coordinate to;
    };
    for (const auto& [what, metres, from, to] : {
             Case{"nowhere", 0, {0.5, -1.25}, {0.5 * kDegrees, -1.25 * kDegrees}},
             Case{"nowhere from the pole", 0, {pi / 2, 1}, {90, kDegrees}},
             Case{"a tenth of a radian", sphereRadius / 10, {0.5, 2}, {0.6 * kDegrees, 2 * kDegrees}},
             Case{"south", -sphereRadius / 10, {0.5, 2}, {0.4 * kDegrees, 2 * kDegrees}},
             Case{"over the pole", sphereRadius, {1, 0}, {(pi - 2) * kDegrees, 180}},
         }) {
        Coordinate reached{-1, -1};
        QuomiLocationUtils::calculateLocation(&reached, metres, from);
        EXPECT_NEAR(reached.latitude, to.latitude, 1e-6) << what;
        EXPECT_NEAR(reached.longitude, to.longitude, 1e-6) << what;
    }
    QuomiLocationUtils::calculateLocation(nullptr, 1, {0.5, 0.5});
}

TEST(LocationUtils, NoStepEndsNowhere) {
    for (int step = 0; step <= 1000; ++step) {
        const double latitude = std::numbers::pi / 2 * step / 1000;
        Coordinate reached;
        QuomiLocationUtils::calculateLocation(&reached, (std::numbers::pi / 2 - latitude) * 6372797.6, {latitude, 0});
        EXPECT_NEAR(reached.latitude, 90, 1e-5) << latitude;
    }
}

struct StoredGeofence {
    std::string geofenceId;
    double latitude;
    double longitude;
    double radius;

    [[nodiscard]] std::string dictionary() const { return "dictionary of " + geofenceId; }
};

TEST(RegionTypeConverter, MakesMetresOfKilometresInTheOrderOfTheInput) {
    const std::vector<StoredGeofence> stored{{"shop", 53.48, -2.24, 0.1}, {"country", 54, -3, 5000}, {"", 0, 0, 1e308}};
    const auto regions = QuomiRegionTypeConverter::convertRegionsToCLRegions(stored);
    EXPECT_THAT(regions,
                ElementsAre(CircularRegion{"shop", {53.48, -2.24}, 100}, CircularRegion{"country", {54, -3}, 5e6},
                            CircularRegion{"", {}, std::numeric_limits<double>::max()}));
    EXPECT_THAT(QuomiRegionTypeConverter::convertRegionsToNSDictinaries(stored),
                ElementsAre("dictionary of shop", "dictionary of country", "dictionary of "));
    EXPECT_THAT(QuomiRegionTypeConverter::convertRegionsToCLRegions(std::vector<StoredGeofence>{}), IsEmpty());
    EXPECT_THAT(QuomiRegionTypeConverter::convertRegionsToNSDictinaries(std::vector<StoredGeofence>{}), IsEmpty());
}

TEST(RegionTypeConverter, TakesArraysOfPointers) {
    const StoredGeofence shop{"shop", 53.48, -2.24, 0.1};
    const std::vector<const StoredGeofence*> borrowed{&shop};
    const std::vector<std::shared_ptr<StoredGeofence>> shared{std::make_shared<StoredGeofence>(shop)};
    EXPECT_EQ(QuomiRegionTypeConverter::convertRegionsToCLRegions(borrowed),
              QuomiRegionTypeConverter::convertRegionsToCLRegions(shared));
    EXPECT_THAT(QuomiRegionTypeConverter::convertRegionsToNSDictinaries(shared), ElementsAre("dictionary of shop"));
}

TEST(RegionTypeConverter, AgreesWithTheInsideTestInMetres) {
    const StoredGeofence shop{"shop", 53.48, -2.24, 0.1};
    const auto region = QuomiRegionTypeConverter::convertQuomiRegionToCLRegion(shop);
    for (int step = 0; step <= 20; ++step) {
        const double latitude = 53.48 + 0.0001 * step;  // 11.13 metres further
        EXPECT_EQ(QuomiLocationUtils::pointIsInRegion({latitude, -2.24}, region), step < 9) << step;
        EXPECT_EQ(QuomiLocationUtils::pointIsInRegion(latitude, -2.24, 53.48, -2.24, 100), step < 9) << step;
    }
}

}  // namespace
}  // namespace quomi
