#pragma once

#include "quomi/platform/location.h"
#include "quomi/util/time.h"
#include "quomi/util/uuid.h"

#include <compare>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace quomi::simulated {

/// One advertisement as a scanner hears it. `measuredPower` (dBm at one metre) and `rssi` (dBm) stand as they were
/// received, absurd values included.
struct Packet {
    Uuid proximityUUID;
    std::uint16_t major = 0;
    std::uint16_t minor = 0;
    std::int32_t measuredPower = -59;
    std::int32_t rssi = 0;
    bool operator==(const Packet&) const = default;
};

/// Turns packets into what a phone's location service reports. It has no clock: every time is the caller's, and times
/// given to `hear` never go back. Packets are of one beacon when UUID, major and minor are the same, whatever device
/// sent them. One thread at a time.
///
/// Ranging: `report` gives the beacons of the second before a tick. Monitoring: `hear` tells an entry, `exitDue` when
/// the exit comes; the caller makes the callbacks.
class PhoneModel {
public:
    /// A UUID without a packet for this long is an exit.
    static constexpr Duration kExitDelay = std::chrono::seconds(30);
    /// A beacon that falls silent stays listed as unknown for this long after its last sample.
    static constexpr Duration kListedWhileSilent = std::chrono::seconds(5);
    /// From this much silence on, smoothing and the proximity class start afresh.
    static constexpr Duration kForgetAfter = std::chrono::seconds(4);
    /// Packets older than this when another one is heard are dropped: no tick asks for them any more.
    static constexpr Duration kKept = std::chrono::seconds(60);

    /// Takes one packet. True when its UUID was outside until now, which is an entry if somebody monitors it. An exit
    /// that is due is the caller's to carry out first (`setOutside`). A packet whose rssi is 0 or above counts here,
    /// though never for ranging.
    bool hear(const Packet& packet, MonotonicTime at);

    /// Whether the UUID was heard and has not been set outside since.
    [[nodiscard]] bool isInside(const Uuid& proximityUUID) const;
    /// When the exit of the UUID comes if nothing more is heard; empty while outside.
    [[nodiscard]] std::optional<MonotonicTime> exitDue(const Uuid& proximityUUID) const;
    /// The exit was carried out, or monitoring begins anew: the next packet is an entry.
    void setOutside(const Uuid& proximityUUID);

    /// The report of one ranged region at `tick`, about packets heard in [tick - 1 s, tick): heard beacons, nearest
    /// first, then those without a distance, then silent ones; equals in the order of their first packet. Called once a
    /// second for every ranged region, in the order of ticks; asked again for the same tick it gives the same. Regions
    /// of one UUID that are ranged side by side are told apart by `region`, each smooths for itself.
    [[nodiscard]] std::vector<RangedBeacon> report(const Uuid& regionUUID, MonotonicTime tick,
                                                   const std::string& region = {});

private:
    struct Heard {
        MonotonicTime at;
        std::int32_t measuredPower;
        std::int32_t rssi;
    };
    /// What the radio knows of a beacon: its packets of the last minute, oldest first.
    struct Beacon {
        std::uint16_t major;
        std::uint16_t minor;
        std::deque<Heard> packets;
    };
    struct Area {
        std::vector<Beacon> beacons;  ///< in the order of their first packets
        std::map<std::uint32_t, std::size_t> indexOf;
        MonotonicTime lastPacket;
        bool inside = false;
    };
    /// What one ranged region makes of a beacon.
    struct Track {
        MonotonicTime tick;        ///< of the latest report with samples
        MonotonicTime lastSample;  ///< of that report
        double smoothed = 0;
        PlatformProximity proximity = PlatformProximity::unknown;
        RangedBeacon reported;  ///< as it stood in that report
    };
    using Tracks = std::map<std::size_t, Track>;

    static std::optional<RangedBeacon> heardBeacon(const Uuid& uuid, const Beacon& beacon, std::size_t index,
                                                   MonotonicTime tick, Tracks& tracks);

    std::map<Uuid, Area> areas_;
    std::map<std::pair<Uuid, std::string>, Tracks> tracks_;
};

/// The proximity class of a distance in metres when the class before was `previous` (`unknown`: none). Borders 0.5 m
/// and 3 m; a class is left outwards only beyond 1.2 times its border and inwards only below 0.8 times.
[[nodiscard]] PlatformProximity proximityClass(double accuracy, PlatformProximity previous);

}  // namespace quomi::simulated
