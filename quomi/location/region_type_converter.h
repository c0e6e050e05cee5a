#pragma once

#include "quomi/platform/location.h"

#include <algorithm>
#include <concepts>
#include <limits>
#include <string>
#include <vector>

namespace quomi {

/// A stored geofence, as far as its place goes: centre in degrees, `radius` in kilometres.
template <class Record>
concept GeofenceRecord = requires(const Record& record) {
    { record.geofenceId } -> std::convertible_to<std::string>;
    { record.latitude } -> std::convertible_to<double>;
    { record.longitude } -> std::convertible_to<double>;
    { record.radius } -> std::convertible_to<double>;
};

/// Turns stored geofences into regions that the phone can watch, and records into dictionaries. Arrays hold records or
/// pointers to records, none of them null; results are in the order of the input.
struct QuomiRegionTypeConverter {
    /// The circle around the same centre, with the radius in metres, however large but finite, and the geofence's
    /// identifier.
    template <GeofenceRecord Record>
    [[nodiscard]] static CircularRegion convertQuomiRegionToCLRegion(const Record& record) {
        constexpr double largest = std::numeric_limits<double>::max();
        const double radius = std::clamp(record.radius * 1000.0, -largest, largest);
        return {record.geofenceId, {record.latitude, record.longitude}, radius};
    }

    template <class Records>
    [[nodiscard]] static std::vector<CircularRegion> convertRegionsToCLRegions(const Records& records) {
        std::vector<CircularRegion> regions;
        regions.reserve(records.size());
        for (const auto& record : records) regions.push_back(convertQuomiRegionToCLRegion(recordOf(record)));
        return regions;
    }

    /// Each record's `dictionary()`. The spelling of the name is deliberate: it is part of the interface.
    template <class Records>
    [[nodiscard]] static auto convertRegionsToNSDictinaries(const Records& records) {
        std::vector<decltype(recordOf(*records.begin()).dictionary())> dictionaries;
        dictionaries.reserve(records.size());
        for (const auto& record : records) dictionaries.push_back(recordOf(record).dictionary());
        return dictionaries;
    }

private:
    template <class Element>
    [[nodiscard]] static const auto& recordOf(const Element& element) {
        if constexpr (requires { *element; }) {
            return *element;
        } else {
            return element;
        }
    }
};

}  // namespace quomi
