#pragma once

#include <chrono>

namespace quomi {

/// Every span of time in the system, in microseconds.
using Duration = std::chrono::microseconds;

/// A date as people and servers know it: microseconds since 1970-01-01 00:00 UTC, leap seconds not counted.
using WallTime = std::chrono::sys_time<Duration>;

/// Tag of the monotonic time line. It has no `now`: the time comes from the Clock port.
struct MonotonicTimeline {
    using rep = Duration::rep;
    using period = Duration::period;
    using duration = Duration;
    using time_point = std::chrono::time_point<MonotonicTimeline>;
    static constexpr bool is_steady = true;
};

/// A moment that only ever grows while the device runs. Its zero has no meaning.
using MonotonicTime = MonotonicTimeline::time_point;

/// Seconds as a floating-point number, the unit of settings and of arithmetic on intervals.
using Seconds = std::chrono::duration<double>;

/// The nearest span in microseconds; spans beyond what fits saturate, NaN gives zero.
[[nodiscard]] constexpr Duration toDuration(Seconds seconds) {
    constexpr double limit = 9.0e12;  // 285,000 years, far inside 64 bits of microseconds
    const double value = seconds.count();
    if (value != value) return Duration::zero();
    const double bounded = value > limit ? limit : (value < -limit ? -limit : value);
    return Duration(static_cast<Duration::rep>(bounded * 1e6 + (bounded < 0 ? -0.5 : 0.5)));
}

/// The span as seconds.
[[nodiscard]] constexpr double toSeconds(Duration span) {
    return std::chrono::duration_cast<Seconds>(span).count();
}

}  // namespace quomi
