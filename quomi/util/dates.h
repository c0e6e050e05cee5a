#pragma once

#include "quomi/util/export.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quomi {

/// Dates as texts and as calendar facts. Zones are IANA names ("Europe/Berlin"); an unknown one counts as UTC. The
/// calendar is the Gregorian one, before its introduction too. Dates outside the years 1 to 9999 are handled as the
/// nearest one inside. Callable on any thread; nothing throws.
namespace QuomiUtils {

/// Reads ISO 8601: a calendar date, extended (2026-11-21) or basic (20261121), alone or with a time after "T" or a
/// blank: hh, hh:mm, hh:mm:ss or without colons, the last part with any number of decimals ("." or ","), of which
/// microseconds are kept; then perhaps "Z", ±hh, ±hhmm or ±hh:mm. Without a zone the time is UTC. 24:00 is the end of
/// the day and second 60 the first of the next minute; any other field out of its range, and any other text, gives
/// nothing.
[[nodiscard]] QUOMI_EXPORT std::optional<WallTime> isoDate(std::string_view text);

/// "2026-11-21T04:33:48.000Z", in local time of the zone. The Z is written whatever the zone: deliberate, the servers
/// read it so.
[[nodiscard]] QUOMI_EXPORT std::string stringUTCForDate(WallTime date, std::string_view zone);

/// The local day as "2026-11-21".
[[nodiscard]] std::string dayStringForDate(WallTime date, std::string_view zone);

/// Local day of the week: 1 is Sunday, 7 is Saturday.
[[nodiscard]] int weekdayForDate(WallTime date, std::string_view zone);

/// Whole seconds that have passed since the local day began. On days on which clocks change, they are not what a clock
/// shows. A day whose midnight the zone skips begins with its first moment, one with two midnights with the first.
[[nodiscard]] int secondsSinceMidnightOfDate(WallTime date, std::string_view zone);

/// A moment as calendar and clock of a zone show it. `weekday` as in `weekdayForDate`.
struct CalendarTime {
    int year = 0;
    int month = 0;  ///< 1 to 12
    int day = 0;    ///< 1 to 31
    int hour = 0;
    int minute = 0;
    int second = 0;
    int weekday = 0;
    bool operator==(const CalendarTime&) const = default;
};
[[nodiscard]] CalendarTime calendarTimeOfDate(WallTime date, std::string_view zone);
/// The moment; `weekday` is not looked at. Of a time that comes twice the first, of one that is skipped the moment of
/// the change. Empty when there is no such day or time.
[[nodiscard]] std::optional<WallTime> dateOfCalendarTime(const CalendarTime& time, std::string_view zone);

/// The date, or the given moment in its place.
[[nodiscard]] inline WallTime nowDateIfNil(std::optional<WallTime> date, WallTime now) {
    return date.value_or(now);
}

/// A log line's time, "2026-11-21 04:33:48 +0100": the pattern "YYYY-MM-dd HH:mm:ss ZZZ" in local time. The year is
/// that of the ISO week, so around New Year it may be one off: deliberate, the back office reads log lines in this
/// form.
[[nodiscard]] std::string logDateString(WallTime date, std::string_view zone);

/// Reads exactly what `logDateString` writes; written again it is the same text. Of two days that are written alike
/// around New Year it is the one in that calendar year; all others come back as they were, to the second.
[[nodiscard]] std::optional<WallTime> parseLogDate(std::string_view text);

/// A date's plain description, always UTC: "2026-11-21 03:33:48 +0000".
[[nodiscard]] std::string descriptionOfDate(WallTime date);

}  // namespace QuomiUtils

}  // namespace quomi
