#include "quomi/location/location_utils.h"

#include <GeographicLib/Geodesic.hpp>
#include <algorithm>
#include <cmath>

namespace quomi {

namespace {

constexpr double kSphereRadius = 6372797.6;  // metres
constexpr double kDegreesPerRadian = 57.29577951308232;

}  // namespace

bool QuomiLocationUtils::pointIsInRegion(double pointLatitude, double pointLongitude, double regionCenterLatitude,
                                         double regionCenterLongitude, double regionRadius) {
    return calculateDistance(pointLatitude, pointLongitude, regionCenterLatitude, regionCenterLongitude) <=
           regionRadius;
}

bool QuomiLocationUtils::pointIsInRegion(const Coordinate& point, const CircularRegion& region) {
    return calculateDistance(point, region.center) <= region.radius;
}

double QuomiLocationUtils::calculateDistance(double latA, double lngA, double latB, double lngB) {
    double metres = 0;
    GeographicLib::Geodesic::WGS84().Inverse(latA, lngA, latB, lngB, metres);
    return metres;
}

double QuomiLocationUtils::calculateDistance(const Coordinate& a, const Coordinate& b) {
    return calculateDistance(a.latitude, a.longitude, b.latitude, b.longitude);
}

void QuomiLocationUtils::calculateLocation(Coordinate* location, double metres, const Coordinate& from) {
    if (location == nullptr) return;
    constexpr double cosineOfBearing = 1;
    constexpr double sineOfBearing = 0;
    const double angle = metres / kSphereRadius;
    const double sine =
        std::sin(from.latitude) * std::cos(angle) + std::cos(from.latitude) * std::sin(angle) * cosineOfBearing;
    const double latitude = std::asin(std::clamp(sine, -1.0, 1.0));  // rounding may carry it past 1 at the pole
    const double longitude =
        from.longitude + std::atan2(std::sin(angle) * sineOfBearing * std::cos(from.latitude),
                                    std::cos(angle) - std::sin(from.latitude) * std::sin(latitude));
    *location = {latitude * kDegreesPerRadian, longitude * kDegreesPerRadian};
}

}  // namespace quomi
