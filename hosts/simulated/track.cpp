#include "hosts/simulated/track.h"

#include <algorithm>

namespace quomi::simulated {

namespace {

bool hasTime(const RecordedPoint& point) {
    return point.time.has_value();
}

/// Where the `step`-th of `steps` even parts of the time between two moments ends.
WallTime between(WallTime from, WallTime to, std::ptrdiff_t step, std::ptrdiff_t steps) {
    return from + toDuration(Seconds(to - from) * static_cast<double>(step) / static_cast<double>(steps));
}

}  // namespace

Track trackOf(const std::vector<RecordedPoint>& points) {
    Track track;
    auto next = std::ranges::find_if(points, hasTime);
    if (next == points.end()) return track;
    track.reserve(points.size());
    const WallTime zero = *next->time;
    auto before = next;  // the nearest points with a time, here or before, and here or after
    for (auto point = points.begin(); point != points.end(); ++point) {
        if (hasTime(*point)) before = point;
        if (next != points.end() && next < point) next = std::find_if(point, points.end(), hasTime);
        auto time = *before->time;
        if (next != points.end() && next != before) {
            time = between(time, *next->time, point - before, next - before);
        }
        const Duration recorded = point < before ? Duration::zero() : time - zero;
        const Duration offset = std::max(recorded, track.empty() ? Duration::zero() : track.back().offset);
        track.push_back({offset, point->coordinate, offset - recorded});
    }
    return track;
}

Leg legOf(const Track& track, std::size_t point, double speed) {
    const auto& at = track[point];
    Leg leg{at.coordinate, playedTime(at.age, speed), std::nullopt, {}};
    if (point + 1 == track.size()) return leg;
    const auto& next = track[point + 1];
    leg.to = next.coordinate;
    leg.duration = playedTime(next.offset, speed) - playedTime(at.offset, speed);
    return leg;
}

Duration playedTime(Duration recorded, double speed) {
    return toDuration(Seconds(recorded) / speed);
}

}  // namespace quomi::simulated
