#pragma once

#include "hosts/simulated/simulated_phone.h"
#include "quomi/sdk/sdk.h"

#include <filesystem>
#include <memory>

namespace quomi::bench {

/// UUID of the beacons of every benchmark.
extern const Uuid kShopUuid;

/// A phone with an SDK whose back office knows the namespace "shop". Geofences are off, event logs are off. The
/// clock begins at 1970, when every store counts as just updated: no download is due.
struct BenchPhone {
    /// An empty container is a fresh one.
    explicit BenchPhone(std::filesystem::path container = {});

    simulated::SimulatedPhone phone;
    Deployment deployment;
    QuomiSettings settings;
    QuomiSDK sdk;
};

}  // namespace quomi::bench
