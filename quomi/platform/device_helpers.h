#pragma once

#include "quomi/platform/device.h"

#include <cstdint>
#include <string>
#include <vector>

namespace quomi {

namespace QuomiUDID {

/// The identifier under which the server knows this device: the per-vendor identifier, as it stands.
[[nodiscard]] std::string udid(const Device& device);

}  // namespace QuomiUDID

namespace QuomiUtils {

/// The system version's parts between the points ("17.4.1": "17", "4", "1").
[[nodiscard]] std::vector<std::string> iOSVersionCompounds(const Device& device);
/// First and second part as numbers; 0 for a part that is missing or no number.
[[nodiscard]] std::int64_t majoriOSVersion(const Device& device);
[[nodiscard]] std::int64_t minoriOSVersion(const Device& device);

}  // namespace QuomiUtils

}  // namespace quomi
