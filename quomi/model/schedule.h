#pragma once

#include "quomi/util/error.h"
#include "quomi/util/time.h"

#include <optional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace quomi {

/// Opening hours of a place: per weekday (`week`), on calendar days (`specific_days`), and what is closed in between
/// (`breaks`). Every leaf has `open` and `close` in seconds since local midnight; the opening second is inside, the
/// closing one outside. What is not listed is open. docs/campaign.md has the JSON.
///
/// A specific day can only narrow the weekday's hours, and hours that run past midnight are never open: both
/// deliberate.
class QuomiSchedule {
public:
    /// Open at any time.
    QuomiSchedule() = default;

    /// Takes over the dictionary; always true.
    bool setFromDictionary(boost::json::object dictionary);
    /// Takes over a JSON text; nulls are removed, and a text that is no object leaves no hours. False, and the schedule
    /// as it was, for an empty text (without an error) and for one that is no JSON.
    bool setFromJSONString(std::string_view text, std::optional<Error>* error = nullptr);
    /// Compact JSON.
    [[nodiscard]] std::string toJSONString() const;
    [[nodiscard]] const boost::json::object& toDictionary() const { return scheduleDictionary_; }

    /// Whether the place is open. `seconds` are those elapsed since the date's local midnight, `zone` is the device's
    /// IANA time zone.
    [[nodiscard]] bool isOpen(WallTime date, int seconds, std::string_view zone) const;
    [[nodiscard]] bool isOpenOnSpecificDate(WallTime date, int seconds, std::string_view zone) const;
    [[nodiscard]] bool isOpenOnRegularWeekdayOfDate(WallTime date, int seconds, std::string_view zone) const;
    /// Weekdays as in the Gregorian calendar: 1 Sunday to 7 Saturday.
    [[nodiscard]] bool isOpenOnRegularWeekday(int weekday, int seconds) const;
    [[nodiscard]] bool isClosedBecauseBreakOnWeekday(int weekday, int seconds) const;
    /// Whether start < end and start <= hour < end.
    [[nodiscard]] static bool isHour(std::int64_t hour, std::int64_t start, std::int64_t end);

    /// A schedule as an example of the format, with its old dates.
    [[nodiscard]] static boost::json::object getDefaultScheduleData();
    /// "sun" for 1 to "sat" for 7; empty for any other number. The name's spelling is deliberate: callers know it so.
    [[nodiscard]] static std::string_view getWeekdayAbbrevation(int weekday);
    /// The number itself from 1 to 7, else 0.
    [[nodiscard]] static int getWeekdayEnum(int weekday);

private:
    [[nodiscard]] const boost::json::object* entry(std::string_view table, std::string_view key) const;

    boost::json::object scheduleDictionary_;
};

}  // namespace quomi
