#include "tools/quomi/timeline/local_clock.h"

#include <array>
#include <cmath>
#include <exception>
#include <string_view>

#include <fmt/format.h>

namespace quomi::tool {

namespace {

const date::time_zone* findZone(const std::string& name) {
    try {
        return date::locate_zone(name);
    } catch (const std::exception&) {
        return nullptr;
    }
}

}  // namespace

LocalClock::LocalClock(WallTime start, const std::string& timeZone) : start_(start), zone_(findZone(timeZone)) {}

date::local_time<Duration> LocalClock::localTime(double seconds) const {
    // Floating-point seconds such as 0.3 lie a hair below their tenth; the millisecond is what counts.
    const auto time = start_ + std::chrono::milliseconds(std::llround(seconds * 1000));
    return zone_ != nullptr ? zone_->to_local(time) : date::local_time<Duration>(time.time_since_epoch());
}

date::local_days LocalClock::day(double seconds) const {
    return date::floor<date::days>(localTime(seconds));
}

std::string LocalClock::clock(double seconds, bool withTenths) const {
    const auto tenths = (localTime(seconds) - day(seconds)) / std::chrono::milliseconds(100);
    const auto whole = tenths / 10;
    auto text = fmt::format("{:02}:{:02}:{:02}", whole / 3600, whole / 60 % 60, whole % 60);
    return withTenths ? text + fmt::format(".{}", tenths % 10) : text;
}

std::string LocalClock::date(double seconds) const {
    static constexpr std::array<std::string_view, 7> names = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                              "Thursday", "Friday", "Saturday"};
    const auto local = day(seconds);
    const date::year_month_day ymd{local};
    return fmt::format("{} {:04}-{:02}-{:02}", names[date::weekday{local}.c_encoding()], static_cast<int>(ymd.year()),
                       static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
}

}  // namespace quomi::tool
