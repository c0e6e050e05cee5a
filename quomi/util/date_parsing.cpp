#include "quomi/util/dates.h"
#include "quomi/util/text_scanner.h"

#include <date/date.h>
#include <fmt/format.h>

namespace quomi::QuomiUtils {

namespace {

using namespace std::chrono;

constexpr microseconds kMicrosecondsPerHour = hours(1);

std::optional<date::sys_days> dayOf(int year, int month, int day) {
    const auto calendarDay = date::year(year) / month / day;
    if (!calendarDay.ok()) return std::nullopt;
    return date::sys_days(calendarDay);
}

/// Year, month and day, with dashes or without.
std::optional<date::sys_days> takeDay(TextScanner& scanner) {
    const auto year = scanner.takeNumber(4, 0, 9999);
    if (!year) return std::nullopt;
    const bool isExtended = scanner.take('-');
    const auto month = scanner.takeNumber(2, 1, 12);
    if (!month || isExtended != scanner.take('-')) return std::nullopt;
    const auto day = scanner.takeNumber(2, 1, 31);
    return day ? dayOf(*year, *month, *day) : std::nullopt;
}

/// Decimals of a field that lasts `unit`, if there are any; those below a microsecond are cut off.
std::optional<Duration> takeDecimals(TextScanner& scanner, Duration unit) {
    if (scanner.takeOneOf(".,") == 0) return Duration::zero();
    const std::string_view digits = scanner.takeDigits();
    if (digits.empty()) return std::nullopt;
    std::int64_t numerator = 0;
    std::int64_t denominator = 1;
    for (const char digit : digits.substr(0, 9)) {
        numerator = numerator * 10 + (digit - '0');
        denominator *= 10;
    }
    return Duration(numerator * unit.count() / denominator);
}

/// Hour, perhaps minute, perhaps second, the last with decimals; at most the end of the day.
std::optional<Duration> takeTimeOfDay(TextScanner& scanner) {
    const auto hour = scanner.takeNumber(2, 0, 24);
    if (!hour) return std::nullopt;
    Duration time = hours(*hour);
    Duration unit = kMicrosecondsPerHour;
    const bool isExtended = scanner.take(':');
    if (isExtended || scanner.atDigit()) {
        const auto minute = scanner.takeNumber(2, 0, 59);
        if (!minute) return std::nullopt;
        time += minutes(*minute);
        unit = minutes(1);
        const bool hasColon = scanner.take(':');
        if (hasColon && !isExtended) return std::nullopt;
        if (hasColon || (!isExtended && scanner.atDigit())) {
            const auto second = scanner.takeNumber(2, 0, 60);
            if (!second) return std::nullopt;
            time += seconds(*second);
            unit = seconds(1);
        }
    }
    const auto decimals = takeDecimals(scanner, unit);
    if (!decimals || (*hour == 24 && time + *decimals != hours(24))) return std::nullopt;
    return time + *decimals;
}

/// Sign, hours, perhaps minutes.
std::optional<Duration> takeOffset(TextScanner& scanner, bool allowsShort) {
    const char sign = scanner.takeOneOf("+-");
    const auto hour = scanner.takeNumber(2, 0, 23);
    if (sign == 0 || !hour) return std::nullopt;
    Duration offset = hours(*hour);
    const bool hasColon = allowsShort && scanner.take(':');
    if (hasColon || !allowsShort || !scanner.atEnd()) {
        const auto minute = scanner.takeNumber(2, 0, 59);
        if (!minute) return std::nullopt;
        offset += minutes(*minute);
    }
    return sign == '-' ? -offset : offset;
}

std::optional<Duration> takeZone(TextScanner& scanner) {
    if (scanner.atEnd() || scanner.takeOneOf("Zz") != 0) return Duration::zero();
    return takeOffset(scanner, true);
}

/// The day that log lines give with this year, that of its week. One that none would give so is the calendar's.
std::optional<date::sys_days> dayOfWeekYear(int weekYear, int month, int dayOfMonth) {
    const bool isNearNewYear = (month == 12 && dayOfMonth > 28) || (month == 1 && dayOfMonth < 4);
    if (!isNearNewYear) return dayOf(weekYear, month, dayOfMonth);
    for (const int year : {weekYear, weekYear - 1, weekYear + 1}) {
        const auto day = dayOf(year, month, dayOfMonth);
        if (day && logDateString(*day, "UTC").starts_with(fmt::format("{:04}-", weekYear))) return day;
    }
    return dayOf(weekYear, month, dayOfMonth);
}

}  // namespace

std::optional<WallTime> isoDate(std::string_view text) {
    TextScanner scanner(text);
    const auto day = takeDay(scanner);
    if (!day) return std::nullopt;
    if (scanner.atEnd()) return *day;
    if (scanner.takeOneOf("Tt ") == 0) return std::nullopt;
    const auto time = takeTimeOfDay(scanner);
    if (!time) return std::nullopt;
    const auto offset = takeZone(scanner);
    if (!offset || !scanner.atEnd()) return std::nullopt;
    return *day + *time - *offset;
}

std::optional<WallTime> parseLogDate(std::string_view text) {
    TextScanner scanner(text);
    const auto year = scanner.takeNumber(4, 1, 9999);
    if (!year || !scanner.take('-')) return std::nullopt;
    const auto month = scanner.takeNumber(2, 1, 12);
    if (!month || !scanner.take('-')) return std::nullopt;
    const auto dayOfMonth = scanner.takeNumber(2, 1, 31);
    if (!dayOfMonth || !scanner.take(' ')) return std::nullopt;
    const auto hour = scanner.takeNumber(2, 0, 23);
    if (!hour || !scanner.take(':')) return std::nullopt;
    const auto minute = scanner.takeNumber(2, 0, 59);
    if (!minute || !scanner.take(':')) return std::nullopt;
    const auto second = scanner.takeNumber(2, 0, 59);
    if (!second || !scanner.take(' ')) return std::nullopt;
    const auto offset = takeOffset(scanner, false);
    const auto day = dayOfWeekYear(*year, *month, *dayOfMonth);
    if (!offset || !day || !scanner.atEnd()) return std::nullopt;
    return *day + hours(*hour) + minutes(*minute) + seconds(*second) - *offset;
}

}  // namespace quomi::QuomiUtils
