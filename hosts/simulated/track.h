#pragma once

#include "quomi/platform/location.h"
#include "quomi/util/time.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace quomi::simulated {

/// How sure a position of a track is, in metres; tracks do not say it themselves.
inline constexpr double kTrackAccuracy = 5;

/// A point as a recorder wrote it down.
struct RecordedPoint {
    Coordinate coordinate;
    std::optional<WallTime> time;
};

/// A point as it is played: when, counted from the track's beginning, and how old the position is by then.
struct TrackPoint {
    Duration offset{};
    Coordinate coordinate;
    Duration age{};
    bool operator==(const TrackPoint&) const = default;
};

/// In the order of playing; offsets never go back.
using Track = std::vector<TrackPoint>;

/// Plays recorded points in their own order. The first point that has a time begins the track. A point whose time lies
/// before that of an earlier one follows at once, with the age that it has by then. Points without a time lie evenly
/// between their neighbours that have one; those before the first or after the last such point go with it. Empty when
/// no point has a time.
[[nodiscard]] Track trackOf(const std::vector<RecordedPoint>& points);

/// What becomes of the device at a point: it is at `from`, and then moves evenly to `to`, or stays.
struct Leg {
    Coordinate from;
    Duration age{};  ///< of the position `from`
    std::optional<Coordinate> to;
    Duration duration{};  ///< until it is at `to`
};

/// The leg that begins at a point of a track which is played at a speed (above zero; 2: in half its time).
[[nodiscard]] Leg legOf(const Track& track, std::size_t point, double speed);

/// How long a recorded time takes at a speed.
[[nodiscard]] Duration playedTime(Duration recorded, double speed);

}  // namespace quomi::simulated
