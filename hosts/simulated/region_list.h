#pragma once

#include "quomi/platform/files.h"
#include "quomi/platform/location.h"

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// The regions that a phone monitors for the app, in the order in which they were added. The phone remembers them
/// across launches, in one JSON file:
///
///     {"monitoredRegions": [
///         {"identifier": "shop", "lat": 53.48, "lng": -2.24, "radius": 100},
///         {"identifier": "Quomi beacon", "uuid": "…", "notifyEntryStateOnDisplay": true,
///          "notifyOnEntry": true, "notifyOnExit": true}]}
///
/// It is read once, at construction, and replaced as a whole at every change, so that a process killed at any moment
/// leaves the old file or the new one. A file that is missing or no such JSON counts as empty, an entry that is no
/// region is left out; a write that fails leaves the old file.
class RegionList {
public:
    /// `files` outlives the list.
    RegionList(Files& files, std::filesystem::path path);

    [[nodiscard]] const std::vector<Region>& regions() const { return regions_; }
    [[nodiscard]] const Region* find(std::string_view identifier) const;
    /// Adds the region, or puts it in the place of that of its identifier.
    void put(const Region& region);
    bool remove(std::string_view identifier);

private:
    void write();

    Files& files_;
    std::filesystem::path path_;
    std::vector<Region> regions_;
};

}  // namespace quomi::simulated
