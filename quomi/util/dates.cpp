#include "quomi/util/dates.h"

#include <algorithm>
#include <exception>

#include <date/tz.h>
#include <fmt/compile.h>
#include <fmt/format.h>

namespace quomi::QuomiUtils {

namespace {

using namespace std::chrono;

constexpr WallTime kEarliest = date::sys_days(date::year(1) / 1 / 2);
constexpr WallTime kLatest = date::sys_days(date::year(9999) / 12 / 30);

/// A zone's rules; null stands for UTC. The last zone is remembered by thread, because a search that fails throws and a
/// log asks for the same one with every line.
const date::time_zone* zoneNamed(std::string_view name) {
    static thread_local std::string lastName = "UTC";
    static thread_local const date::time_zone* lastZone = nullptr;
    if (name == lastName) return lastZone;
    const date::time_zone* zone = nullptr;
    try {
        zone = date::locate_zone(name);
    } catch (const std::exception&) {
        zone = nullptr;
    }
    lastZone = zone;
    lastName = name;
    return zone;
}

/// A moment as a clock in the zone shows it.
struct LocalMoment {
    date::local_time<Duration> time;
    date::local_days day;
    seconds offset{0};
};

seconds offsetAt(WallTime date, const date::time_zone* zone) {
    if (zone == nullptr) return seconds(0);
    try {
        return zone->get_info(date).offset;
    } catch (const std::exception&) {
        return seconds(0);
    }
}

LocalMoment localMoment(WallTime date, std::string_view zone) {
    const WallTime bounded = std::clamp(date, kEarliest, kLatest);
    const seconds offset = offsetAt(bounded, zoneNamed(zone));
    const date::local_time<Duration> time((bounded + offset).time_since_epoch());
    return {time, date::floor<date::days>(time), offset};
}

/// The moment at which the zone's clocks first show a time, or skip it.
date::sys_seconds momentOf(date::local_seconds time, const date::time_zone* zone) {
    const date::sys_seconds asUTC(time.time_since_epoch());
    if (zone == nullptr) return asUTC;
    try {
        const date::local_info info = zone->get_info(time);
        return info.result == date::local_info::nonexistent ? info.first.end : asUTC - info.first.offset;
    } catch (const std::exception&) {
        return asUTC;
    }
}

/// The year to which the day's week belongs: that of the week's Thursday.
date::year isoWeekYear(date::local_days day) {
    const date::weekday weekday(day);
    const date::local_days thursday = day - (weekday - date::Monday) + date::days(3);
    return date::year_month_day(thursday).year();
}

std::string dateAndTime(const LocalMoment& moment, date::year year, char sign, minutes offset) {
    const date::year_month_day day(moment.day);
    const date::hh_mm_ss clock(date::floor<seconds>(moment.time - moment.day));
    return fmt::format(FMT_COMPILE("{:04}-{:02}-{:02} {:02}:{:02}:{:02} {}{:02}{:02}"), static_cast<int>(year),
                       static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count(), sign, offset.count() / 60,
                       offset.count() % 60);
}

}  // namespace

std::string stringUTCForDate(WallTime date, std::string_view zone) {
    const LocalMoment moment = localMoment(date, zone);
    const date::year_month_day day(moment.day);
    const date::hh_mm_ss clock(date::floor<milliseconds>(moment.time - moment.day));
    return fmt::format(FMT_COMPILE("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}.{:03}Z"), static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()), clock.hours().count(),
                       clock.minutes().count(), clock.seconds().count(), clock.subseconds().count());
}

std::string dayStringForDate(WallTime date, std::string_view zone) {
    const date::year_month_day day(localMoment(date, zone).day);
    return fmt::format(FMT_COMPILE("{:04}-{:02}-{:02}"), static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
}

int weekdayForDate(WallTime date, std::string_view zone) {
    return static_cast<int>(date::weekday(localMoment(date, zone).day).c_encoding()) + 1;
}

int secondsSinceMidnightOfDate(WallTime date, std::string_view zone) {
    const WallTime bounded = std::clamp(date, kEarliest, kLatest);
    const auto beginning = momentOf(localMoment(bounded, zone).day, zoneNamed(zone));
    return static_cast<int>(date::floor<seconds>(bounded - beginning).count());
}

CalendarTime calendarTimeOfDate(WallTime date, std::string_view zone) {
    const LocalMoment moment = localMoment(date, zone);
    const date::year_month_day day(moment.day);
    const date::hh_mm_ss clock(date::floor<seconds>(moment.time - moment.day));
    return {static_cast<int>(day.year()),
            static_cast<int>(static_cast<unsigned>(day.month())),
            static_cast<int>(static_cast<unsigned>(day.day())),
            static_cast<int>(clock.hours().count()),
            static_cast<int>(clock.minutes().count()),
            static_cast<int>(clock.seconds().count()),
            static_cast<int>(date::weekday(moment.day).c_encoding()) + 1};
}

std::optional<WallTime> dateOfCalendarTime(const CalendarTime& time, std::string_view zone) {
    const auto isIn = [](int value, int least, int most) { return value >= least && value <= most; };
    if (!isIn(time.year, 1, 9999) || !isIn(time.month, 1, 12) || !isIn(time.day, 1, 31) || !isIn(time.hour, 0, 23) ||
        !isIn(time.minute, 0, 59) || !isIn(time.second, 0, 59)) {
        return std::nullopt;
    }
    const auto day = date::year(time.year) / time.month / time.day;
    if (!day.ok()) return std::nullopt;
    return momentOf(date::local_days(day) + hours(time.hour) + minutes(time.minute) + seconds(time.second),
                    zoneNamed(zone));
}

std::string logDateString(WallTime date, std::string_view zone) {
    const LocalMoment moment = localMoment(date, zone);
    const minutes offset = duration_cast<minutes>(date::abs(moment.offset));
    return dateAndTime(moment, isoWeekYear(moment.day), moment.offset < seconds(0) ? '-' : '+', offset);
}

std::string descriptionOfDate(WallTime date) {
    const LocalMoment moment = localMoment(date, "UTC");
    return dateAndTime(moment, date::year_month_day(moment.day).year(), '+', minutes(0));
}

}  // namespace quomi::QuomiUtils
