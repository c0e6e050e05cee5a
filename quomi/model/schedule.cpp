#include "quomi/model/schedule.h"

#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <array>
#include <utility>

#include <boost/json/serialize.hpp>

namespace quomi {

namespace {

constexpr std::array<std::string_view, 7> kWeekdays{"sun", "mon", "tue", "wed", "thu", "fri", "sat"};

constexpr std::string_view kDefaultSchedule =
    R"({"week":{"sun":{"close":0,"open":0},"mon":{"close":68400,"open":32400},"tue":{"close":68400,"open":32400},)"
    R"("wed":{"close":68400,"open":32400},"thu":{"close":68400,"open":32400},"fri":{"close":68400,"open":32400},)"
    R"("sat":{"close":68400,"open":32400}},"specific_days":{"2010-12-25":{"close":0,"open":0},)"
    R"("2013-12-25":{"close":0,"open":0},"2013-10-27":{"close":54000,"open":32400},)"
    R"("2013-12-27":{"close":54000,"open":36000}},"breaks":{"fri":{"close":48600,"open":46800}}})";

/// Whether the second lies in a leaf's interval; a missing end is 0, which makes the interval empty.
bool contains(const boost::json::object& leaf, int seconds) {
    return QuomiSchedule::isHour(seconds, QuomiUtils::numberForKey(leaf, "open", 0).as<std::int64_t>(),
                                 QuomiUtils::numberForKey(leaf, "close", 0).as<std::int64_t>());
}

}  // namespace

bool QuomiSchedule::setFromDictionary(boost::json::object dictionary) {
    scheduleDictionary_ = std::move(dictionary);
    return true;
}

bool QuomiSchedule::setFromJSONString(std::string_view text, std::optional<Error>* error) {
    if (QuomiUtils::trim(text).empty()) return false;
    const auto parsed = parseJson(text, error);
    if (!parsed) return false;
    scheduleDictionary_ = parsed->is_object()
                              ? QuomiUtils::replaceNSNullFromDictionnary(parsed->get_object(), std::nullopt)
                              : boost::json::object();
    return true;
}

std::string QuomiSchedule::toJSONString() const {
    return boost::json::serialize(scheduleDictionary_);
}

const boost::json::object* QuomiSchedule::entry(std::string_view table, std::string_view key) const {
    const auto* entries = QuomiUtils::dictionaryForKey(scheduleDictionary_, table);
    return entries == nullptr ? nullptr : QuomiUtils::dictionaryForKey(*entries, key);
}

bool QuomiSchedule::isHour(std::int64_t hour, std::int64_t start, std::int64_t end) {
    return start < end && start <= hour && hour < end;
}

bool QuomiSchedule::isClosedBecauseBreakOnWeekday(int weekday, int seconds) const {
    const auto* leaf = entry("breaks", getWeekdayAbbrevation(weekday));
    return leaf != nullptr && contains(*leaf, seconds);
}

bool QuomiSchedule::isOpenOnRegularWeekday(int weekday, int seconds) const {
    if (isClosedBecauseBreakOnWeekday(weekday, seconds)) return false;
    const auto* leaf = entry("week", getWeekdayAbbrevation(weekday));
    return leaf == nullptr || contains(*leaf, seconds);
}

bool QuomiSchedule::isOpenOnRegularWeekdayOfDate(WallTime date, int seconds, std::string_view zone) const {
    return isOpenOnRegularWeekday(getWeekdayEnum(QuomiUtils::weekdayForDate(date, zone)), seconds);
}

bool QuomiSchedule::isOpenOnSpecificDate(WallTime date, int seconds, std::string_view zone) const {
    if (isClosedBecauseBreakOnWeekday(getWeekdayEnum(QuomiUtils::weekdayForDate(date, zone)), seconds)) return false;
    const auto* leaf = entry("specific_days", QuomiUtils::dayStringForDate(date, zone));
    return leaf == nullptr || contains(*leaf, seconds);
}

bool QuomiSchedule::isOpen(WallTime date, int seconds, std::string_view zone) const {
    return isOpenOnSpecificDate(date, seconds, zone) && isOpenOnRegularWeekdayOfDate(date, seconds, zone);
}

boost::json::object QuomiSchedule::getDefaultScheduleData() {
    QuomiSchedule schedule;
    schedule.setFromJSONString(kDefaultSchedule);
    return schedule.toDictionary();
}

std::string_view QuomiSchedule::getWeekdayAbbrevation(int weekday) {
    return getWeekdayEnum(weekday) == 0 ? std::string_view() : kWeekdays[static_cast<std::size_t>(weekday - 1)];
}

int QuomiSchedule::getWeekdayEnum(int weekday) {
    return weekday >= 1 && weekday <= 7 ? weekday : 0;
}

}  // namespace quomi
