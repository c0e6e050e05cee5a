#pragma once

#include "hosts/simulated/beacon_radio.h"
#include "hosts/simulated/track.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/location.h"
#include "quomi/util/uuid.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace quomi::simulated {

/// A beacon that stands somewhere and sends.
struct PlacedBeacon {
    Uuid proximityUUID;
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    Coordinate position;
    std::int32_t txPower = -59;  ///< dBm at one metre
};

/// Lets a device that moves through a world of beacons hear them: once a second, counted from its first move, one
/// packet of each beacon in reach, without noise. The radio model makes entries, exits and reports of them.
///
/// Nothing is timed while no beacon is in reach of the device's leg.
class WorldRadio {
public:
    /// Weaker packets are not heard, dBm.
    static constexpr double kWeakest = -100;
    /// Nobody carries a phone nearer to a beacon, metres.
    static constexpr double kNearest = 0.1;

    /// What it refers to outlives it.
    WorldRadio(VirtualLoop& loop, BeaconRadio& radio) : loop_(loop), radio_(radio) {}

    /// The world's beacons, in place of those before.
    void place(const std::vector<PlacedBeacon>& beacons);
    /// The device begins a leg now. At its end it stays where it is.
    void move(const Leg& leg);
    /// Whether the device has begun to move through the world.
    [[nodiscard]] bool isUsed() const { return zero_.has_value(); }

    /// What is heard of a beacon at a distance in metres, dBm: its power less 25 times the distance's logarithm,
    /// rounded, and never 0 or above.
    [[nodiscard]] static std::int32_t rssiAt(double metres, std::int32_t txPower);

private:
    struct Sender {
        PlacedBeacon beacon;
        double reach;  ///< metres
    };

    void gather();
    void schedule();
    void beat();
    [[nodiscard]] Coordinate place() const;

    VirtualLoop& loop_;
    BeaconRadio& radio_;
    std::vector<Sender> senders_;
    std::vector<const PlacedBeacon*> near_;  // that may be heard on this leg
    std::optional<MonotonicTime> zero_;      // of the beat
    Leg leg_;
    MonotonicTime began_;  // of the leg
    std::unique_ptr<Timer> timer_;
};

}  // namespace quomi::simulated
