#pragma once

#include "quomi/util/time.h"

#include <cstdint>
#include <string>

#include <date/tz.h>

namespace quomi::tool {

/// The device's clock during a visit. Moments are seconds since the visit's start; jumps of the clock are not shown.
class LocalClock {
public:
    /// IANA name of the zone; UTC where it is unknown.
    LocalClock(WallTime start, const std::string& timeZone);

    /// "10:43:59", with tenths of seconds when asked for.
    [[nodiscard]] std::string clock(double seconds, bool withTenths = false) const;
    /// "Friday 2025-05-09".
    [[nodiscard]] std::string date(double seconds) const;
    [[nodiscard]] date::local_days day(double seconds) const;
    [[nodiscard]] bool knowsZone() const { return zone_ != nullptr; }
    [[nodiscard]] double secondsOf(WallTime date) const { return toSeconds(date - start_); }

private:
    [[nodiscard]] date::local_time<Duration> localTime(double seconds) const;

    WallTime start_;
    const date::time_zone* zone_;
};

}  // namespace quomi::tool
