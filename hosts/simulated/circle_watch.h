#pragma once

#include "quomi/platform/location.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// On which side of each monitored circular region the phone believes the device to be, and which borders a move
/// crosses. Inside is a geodesic distance of at most the radius. One thread at a time.
///
/// A region that the phone knows nothing of yet is not crossed by the first position: that only tells the side.
class CircleWatch {
public:
    /// Identifiers in the order in which monitoring began.
    struct Crossings {
        std::vector<std::string> entered;
        std::vector<std::string> left;
    };

    /// Monitoring begins, or begins anew for a region of that identifier that was another one. With a position of the
    /// device the side is known from the beginning.
    void watch(const CircularRegion& region, const std::optional<Coordinate>& device);
    void forget(std::string_view identifier);
    /// The phone was told by other means on which side the device is.
    void setInside(std::string_view identifier, bool inside);

    /// The device is there now. Time: in proportion to the number of regions; the exact distance is only computed where
    /// the point is in the square around the region.
    [[nodiscard]] Crossings moveTo(const Coordinate& device);

    /// Empty where the phone does not know.
    [[nodiscard]] std::optional<bool> isInside(std::string_view identifier) const;

private:
    struct Watched {
        CircularRegion region;
        double latitudes;   ///< degrees on either side of the centre beyond which no point is inside
        double longitudes;  ///< the same
        std::optional<bool> inside;

        [[nodiscard]] bool contains(const Coordinate& point) const;
    };
    [[nodiscard]] std::vector<Watched>::iterator find(std::string_view identifier);

    std::vector<Watched> watched_;
};

/// Degrees north and east (and south and west) of a point between the latitudes beyond which nothing lies within so
/// many metres of it; a little more than exact.
struct Extent {
    double latitudes;
    double longitudes;
};
[[nodiscard]] Extent extentOf(double metres, double lowestLatitude, double highestLatitude);

/// Degrees of longitude from one meridian to another, the short way: from -180 to 180, eastwards above zero.
[[nodiscard]] double longitudeBetween(double from, double to);

}  // namespace quomi::simulated
