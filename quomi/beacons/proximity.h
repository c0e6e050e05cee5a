#pragma once

#include "quomi/platform/location.h"

#include <cstdint>

namespace quomi {

/// How near a beacon is, as beacons, rules, logs and the store share it. The numbers are exchanged and never change.
enum QuomiProximity : std::int64_t {
    QuomiProximityInvalid = 0,  ///< a server's number that means nothing
    QuomiProximityImmediate = 1,
    QuomiProximityNear = 2,
    QuomiProximityFar = 3,         ///< far, not divided; as the end of a range it admits both halves
    QuomiProximityMediumFar = 4,   ///< far, at or below the split distance
    QuomiProximityDistantFar = 5,  ///< far, beyond the split distance or at no known distance
    QuomiProximityUnknown = 6,
    QuomiProximityUndetermined = 7,  ///< never ranged
};

/// Conversions and tests on the proximity scale. Pure functions; distances in metres.
struct QuomiProximityUtils {
    /// The phone's number on the SDK's scale.
    [[nodiscard]] static QuomiProximity mapCLProximityToQuomiProximity(PlatformProximity proximity);
    /// A server's number on the SDK's scale: 0 is unknown, 1 to 5 are themselves, everything else is invalid.
    [[nodiscard]] static QuomiProximity mapServerProximityToQuomiProximity(std::uint64_t proximity);
    /// Whether the value is in the far band (3, 4, 5).
    [[nodiscard]] static bool isProximityFar(QuomiProximity proximity);
    /// Divides an undivided far at the threshold, which itself is still medium; other values stay as they are. A
    /// distance that does not compare (NaN) is distant; an unknown one (negative) is medium.
    [[nodiscard]] static QuomiProximity splitFarProximity(QuomiProximity proximity, double estimatedDistance,
                                                          double splitThreshold);
    /// Classifies anew against another threshold: everything but immediate and near becomes one of the two halves of
    /// far, deliberately also unknown and undetermined, because a rule's own distance decides then.
    [[nodiscard]] static QuomiProximity updateProximity(QuomiProximity proximity, double estimatedDistance,
                                                        double splitThreshold);
    /// Whether the value lies in the range, both ends included. An end of 3 admits 4 and 5 too; an end of 4 does not
    /// admit 5.
    [[nodiscard]] static bool isProximityInsideRange(QuomiProximity proximity, QuomiProximity start,
                                                     QuomiProximity end);
    [[nodiscard]] static bool isProximityOutsideRange(QuomiProximity proximity, QuomiProximity start,
                                                      QuomiProximity end);
};

}  // namespace quomi
