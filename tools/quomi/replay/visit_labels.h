#pragma once

#include "tools/quomi/timeline/beacon_names.h"

namespace quomi::tool {

struct Visit;

/// People's names for the beacons and geofences of the visit's campaign; none without a campaign.
[[nodiscard]] Labels labelsOf(const Visit& visit);

}  // namespace quomi::tool
