#include "hosts/simulated/circle_watch.h"

#include "quomi/location/location_utils.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quomi::simulated {

namespace {

// A little less than the shortest degree of a meridian, and of the equator: both err towards the exact test.
constexpr double kMetresOfLatitude = 110'500;
constexpr double kMetresOfLongitude = 111'000;
constexpr double kNearestToPole = 89;
constexpr double kAllAround = 360;

}  // namespace

double longitudeBetween(double from, double to) {
    return std::remainder(to - from, kAllAround);
}

Extent extentOf(double metres, double lowestLatitude, double highestLatitude) {
    const double latitudes = metres / kMetresOfLatitude;
    const double farthest = std::max(std::abs(lowestLatitude), std::abs(highestLatitude)) + latitudes;
    if (!(farthest < kNearestToPole)) return {latitudes, kAllAround};
    return {latitudes, metres / (kMetresOfLongitude * std::cos(farthest * std::numbers::pi / 180))};
}

bool CircleWatch::Watched::contains(const Coordinate& point) const {
    return std::abs(point.latitude - region.center.latitude) <= latitudes &&
           std::abs(longitudeBetween(region.center.longitude, point.longitude)) <= longitudes &&
           QuomiLocationUtils::pointIsInRegion(point, region);
}

std::vector<CircleWatch::Watched>::iterator CircleWatch::find(std::string_view identifier) {
    return std::ranges::find_if(watched_, [&](const Watched& some) { return some.region.identifier == identifier; });
}

void CircleWatch::watch(const CircularRegion& region, const std::optional<Coordinate>& device) {
    auto found = find(region.identifier);
    if (found != watched_.end() && found->region == region) return;
    const auto extent = extentOf(region.radius, region.center.latitude, region.center.latitude);
    Watched fresh{region, extent.latitudes, extent.longitudes, std::nullopt};
    if (device) fresh.inside = fresh.contains(*device);
    if (found == watched_.end()) {
        watched_.push_back(std::move(fresh));
    } else {
        *found = std::move(fresh);
    }
}

void CircleWatch::forget(std::string_view identifier) {
    if (const auto found = find(identifier); found != watched_.end()) watched_.erase(found);
}

void CircleWatch::setInside(std::string_view identifier, bool inside) {
    if (const auto found = find(identifier); found != watched_.end()) found->inside = inside;
}

CircleWatch::Crossings CircleWatch::moveTo(const Coordinate& device) {
    Crossings crossings;
    for (auto& some : watched_) {
        const bool inside = some.contains(device);
        const bool crossed = some.inside && *some.inside != inside;
        some.inside = inside;
        if (crossed) (inside ? crossings.entered : crossings.left).push_back(some.region.identifier);
    }
    return crossings;
}

std::optional<bool> CircleWatch::isInside(std::string_view identifier) const {
    const auto found =
        std::ranges::find_if(watched_, [&](const Watched& some) { return some.region.identifier == identifier; });
    return found == watched_.end() ? std::nullopt : found->inside;
}

}  // namespace quomi::simulated
