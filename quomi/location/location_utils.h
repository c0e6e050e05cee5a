#pragma once

#include "quomi/platform/location.h"
#include "quomi/util/export.h"

namespace quomi {

/// Geometry on the ground. Latitudes and longitudes in degrees on WGS 84, distances along the geodesic in metres. Any
/// thread; nothing fails.
struct QUOMI_EXPORT QuomiLocationUtils {
    /// Whether the point is at most `regionRadius` metres from the centre. No where the distance is no number.
    [[nodiscard]] static bool pointIsInRegion(double pointLatitude, double pointLongitude, double regionCenterLatitude,
                                              double regionCenterLongitude, double regionRadius);
    [[nodiscard]] static bool pointIsInRegion(const Coordinate& point, const CircularRegion& region);

    /// 0 for equal points; NaN for a latitude beyond the poles and for a value that is not finite.
    [[nodiscard]] static double calculateDistance(double latA, double lngA, double latB, double lngB);
    [[nodiscard]] static double calculateDistance(const Coordinate& a, const Coordinate& b);

    /// The point that lies `metres` due north of `from` on a sphere; nothing when `location` is null. Deliberately,
    /// `from` is read as radians and the result is in degrees: callers rely on both.
    static void calculateLocation(Coordinate* location, double metres, const Coordinate& from);
};

}  // namespace quomi
