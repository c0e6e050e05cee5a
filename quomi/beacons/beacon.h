#pragma once

#include "quomi/beacons/proximity.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

/// Names of beacons, by which every table of beacons is keyed.
struct QuomiBeaconUtils {
    /// The UUID in upper case, a slash, major, a hyphen, minor: "6B6E…A1/12-345".
    [[nodiscard]] static std::string beaconNameForProximityUUID(const Uuid& uuid, std::int32_t major,
                                                                std::int32_t minor);
    /// The same for a beacon of a ranging report.
    [[nodiscard]] static std::string CLBeaconName(const RangedBeacon& beacon);
};

/// One ranged beacon: who it is, for good, and how it was last seen.
class QuomiBeacon {
public:
    /// A beacon that was never ranged: proximity undetermined, accuracy -1, rssi -1, last seen at its creation. The
    /// split threshold is 0 until its owner sets it.
    QuomiBeacon(const Uuid& proximityUUID, std::uint16_t major, std::uint16_t minor, WallTime createdAt);
    virtual ~QuomiBeacon() = default;
    QuomiBeacon(const QuomiBeacon&) = delete;
    QuomiBeacon& operator=(const QuomiBeacon&) = delete;

    /// Takes over proximity (far divided at the split threshold), accuracy and rssi of the report, seen at `now`. Whose
    /// report it is, is not compared.
    void updateState(const RangedBeacon& report, WallTime now);

    [[nodiscard]] const Uuid& proximityUUID() const { return proximityUUID_; }
    [[nodiscard]] std::uint16_t major() const { return major_; }
    [[nodiscard]] std::uint16_t minor() const { return minor_; }
    [[nodiscard]] QuomiProximity proximity() const { return proximity_; }
    /// Estimated distance in metres, negative when the phone has none.
    [[nodiscard]] double accuracy() const { return accuracy_; }
    /// Signal strength in dBm.
    [[nodiscard]] std::int64_t rssi() const { return rssi_; }
    [[nodiscard]] WallTime lastSeenAt() const { return lastSeenAt_; }
    /// Metres.
    [[nodiscard]] double farDistanceSplitThreshold() const { return farDistanceSplitThreshold_; }
    void setFarDistanceSplitThreshold(double metres) { farDistanceSplitThreshold_ = metres; }

    /// The key of this beacon in every table.
    [[nodiscard]] virtual std::string name() const;
    [[nodiscard]] virtual bool isSecure() const { return false; }
    /// What the host and the logs get to see: "name", "proximityUUID" (text), "major", "minor", "proximity",
    /// "accuracy", "rssi", "isSecure", in this order.
    [[nodiscard]] virtual boost::json::object dictionary() const;

private:
    Uuid proximityUUID_;
    std::uint16_t major_;
    std::uint16_t minor_;
    QuomiProximity proximity_ = QuomiProximityUndetermined;
    double accuracy_ = -1.0;
    std::int64_t rssi_ = -1;
    WallTime lastSeenAt_;
    double farDistanceSplitThreshold_ = 0;
};

}  // namespace quomi
