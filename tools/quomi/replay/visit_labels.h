#pragma once

#include "tools/quomi/timeline/beacon_names.h"

namespace quomi::simulated {
struct Visit;
}

namespace quomi::tool {

/// People's names for the beacons and geofences of the visit's campaign; none without a campaign.
[[nodiscard]] Labels labelsOf(const simulated::Visit& visit);

}  // namespace quomi::tool
