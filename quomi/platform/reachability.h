#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace quomi {

/// Whether the network can be reached, as the transport layer numbers it.
enum class NetworkStatus : std::int64_t { unknown = -1, notReachable = 0, reachableViaWWAN = 1, reachableViaWiFi = 2 };

/// An owned observation; dropping it ends it.
class ReachabilityObservation {
public:
    virtual ~ReachabilityObservation() = default;
};

/// Port: network reachability. Host's thread only; callbacks are on the host's thread in a turn of their own.
class Reachability {
public:
    virtual ~Reachability() = default;
    [[nodiscard]] virtual NetworkStatus status() const = 0;
    /// `changed` is called at every change; never for the status as it stands.
    [[nodiscard]] virtual std::unique_ptr<ReachabilityObservation> observe(
        std::function<void(NetworkStatus)> changed) = 0;
};

}  // namespace quomi
