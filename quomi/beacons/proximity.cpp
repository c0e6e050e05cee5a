#include "quomi/beacons/proximity.h"

namespace quomi {

namespace {

QuomiProximity halfOfFar(double distance, double threshold) {
    return distance <= threshold ? QuomiProximityMediumFar : QuomiProximityDistantFar;
}

bool reachesFar(QuomiProximity bound, QuomiProximity proximity) {
    return bound == QuomiProximityFar && QuomiProximityUtils::isProximityFar(proximity);
}

}  // namespace

QuomiProximity QuomiProximityUtils::mapCLProximityToQuomiProximity(PlatformProximity proximity) {
    return mapServerProximityToQuomiProximity(static_cast<std::uint64_t>(proximity));
}

QuomiProximity QuomiProximityUtils::mapServerProximityToQuomiProximity(std::uint64_t proximity) {
    if (proximity == 0) return QuomiProximityUnknown;
    return proximity <= 5 ? static_cast<QuomiProximity>(proximity) : QuomiProximityInvalid;
}

bool QuomiProximityUtils::isProximityFar(QuomiProximity proximity) {
    return proximity >= QuomiProximityFar && proximity <= QuomiProximityDistantFar;
}

QuomiProximity QuomiProximityUtils::splitFarProximity(QuomiProximity proximity, double estimatedDistance,
                                                      double splitThreshold) {
    return proximity == QuomiProximityFar ? halfOfFar(estimatedDistance, splitThreshold) : proximity;
}

QuomiProximity QuomiProximityUtils::updateProximity(QuomiProximity proximity, double estimatedDistance,
                                                    double splitThreshold) {
    const bool settled = proximity == QuomiProximityImmediate || proximity == QuomiProximityNear;
    return settled ? proximity : halfOfFar(estimatedDistance, splitThreshold);
}

bool QuomiProximityUtils::isProximityInsideRange(QuomiProximity proximity, QuomiProximity start, QuomiProximity end) {
    return proximity >= start && (proximity <= end || reachesFar(end, proximity));
}

bool QuomiProximityUtils::isProximityOutsideRange(QuomiProximity proximity, QuomiProximity start, QuomiProximity end) {
    return !isProximityInsideRange(proximity, start, end);
}

}  // namespace quomi
