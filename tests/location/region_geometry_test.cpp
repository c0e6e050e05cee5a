#include "quomi/location/location_utils.h"
#include "quomi/location/region_type_converter.h"
#include "tests/support/prelude.h"

#include <cmath>
#include <numbers>

namespace quomi {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kDegrees = 57.29577951308232;

TEST(LocationUtils, MeasuresAlongTheEllipsoid) {
    // Lengths of WGS 84: a quarter of a meridian, half the equator's shortest way over a pole, arcs of one degree.
    for (const auto& [what, a, b, metres] : Table<const char*, Coordinate, Coordinate, double>{
             {"equator to pole", {0, 0}, {90, 0}, 10'001'965.729},
             {"pole to pole", {90, 12}, {-90, -77}, 20'003'931.459},
             {"to the other side", {0, 0}, {0, 180}, 20'003'931.459},
             {"one degree of the equator", {0, 0}, {0, 1}, 111'319.491},
             {"one degree of latitude at the equator", {0, 0}, {1, 0}, 110'574.389},
             {"one degree of latitude at the pole", {89, 0}, {90, 0}, 111'693.865},
             {"over the date line", {0, 179.5}, {0, -179.5}, 111'319.491},
             {"every longitude is the pole", {90, 0}, {90, 123}, 0},
         }) {
        EXPECT_NEAR(QuomiLocationUtils::calculateDistance(a, b), metres, 0.001) << what;
        EXPECT_NEAR(QuomiLocationUtils::calculateDistance(b, a), metres, 0.001) << what;
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
    for (const auto& [what, metres, from, to] : Table<const char*, double, Coordinate, Coordinate>{
             {"nowhere", 0, {0.5, -1.25}, {0.5 * kDegrees, -1.25 * kDegrees}},
             {"nowhere from the pole", 0, {pi / 2, 1}, {90, kDegrees}},
             {"a tenth of a radian", sphereRadius / 10, {0.5, 2}, {0.6 * kDegrees, 2 * kDegrees}},
             {"south", -sphereRadius / 10, {0.5, 2}, {0.4 * kDegrees, 2 * kDegrees}},
             {"over the pole", sphereRadius, {1, 0}, {(pi - 2) * kDegrees, 180}},
         }) {
        Coordinate reached{-1, -1};
        QuomiLocationUtils::calculateLocation(&reached, metres, from);
        EXPECT_NEAR(reached.latitude, to.latitude, 1e-6) << what;
        EXPECT_NEAR(reached.longitude, to.longitude, 1e-6) << what;
    }
    QuomiLocationUtils::calculateLocation(nullptr, 1, {0.5, 0.5});
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

}  // namespace
}  // namespace quomi
