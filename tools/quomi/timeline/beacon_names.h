#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

namespace quomi::tool {

/// People's names for beacons (key: the beacon's name) and for the owners of rules (key: their identifier).
using Labels = std::map<std::string, std::string, std::less<>>;

/// "immediate", "near", "far", "medium", "distant", "unknown"; 0 and what is out of range as "none".
[[nodiscard]] std::string_view proximityWord(std::int64_t proximity);

/// How a beacon is called on a line: its label and the short form of its name ("5D1B2C7E…4B90/1-3").
class BeaconNames {
public:
    /// With `labelsAlone` a beacon that has a label is called by that alone.
    explicit BeaconNames(Labels labels, bool labelsAlone = false);
    [[nodiscard]] std::string shortName(std::string_view name) const;
    /// Label and short name, padded so that those of all labelled beacons line up.
    [[nodiscard]] std::string fullName(std::string_view name) const;
    /// The label, or the key itself where there is none.
    [[nodiscard]] std::string label(std::string_view key) const;

private:
    [[nodiscard]] const std::string* find(std::string_view key) const;

    Labels labels_;
    const bool labelsAlone_;
    std::size_t columns_ = 0;
};

}  // namespace quomi::tool
