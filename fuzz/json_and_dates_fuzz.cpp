// The ground floor's readers of foreign text: JSON, dates, numbers, hexadecimal digits, URLs, patterns.
#include "fuzz/fuzz_input.h"
#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/number.h"
#include "quomi/util/regular_expression.h"
#include "quomi/util/text.h"
#include "quomi/util/uuid.h"

#include <chrono>
#include <optional>
#include <string>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace quomi::fuzz {
namespace {

void readEntry(const boost::json::object& dictionary, std::string_view key) {
    static_cast<void>(QuomiUtils::boolForKey(dictionary, key, true));
    const Number number = QuomiUtils::numberForKey(dictionary, key, 7);
    static_cast<void>(number.as<std::int8_t>());
    static_cast<void>(number.as<std::uint64_t>());
    require(doubleOfText(number.text()) == number.doubleValue());
    static_cast<void>(QuomiUtils::stringForKey(dictionary, key, "none"));
    static_cast<void>(QuomiUtils::isoDateForKey(dictionary, key, WallTime()));
    static_cast<void>(QuomiUtils::arrayForKey(dictionary, key));
    static_cast<void>(QuomiUtils::dictionaryForKey(dictionary, key));
    static_cast<void>(QuomiUtils::isEmpty(dictionary.if_contains(key)));
}

void readJson(std::string_view text) {
    std::optional<Error> error;
    const std::optional<boost::json::value> value = parseJson(text, &error);
    require(value.has_value() != error.has_value());
    if (!value) return;
    require(parseJson(boost::json::serialize(*value)).has_value());
    const boost::json::object* dictionary = value->if_object();
    if (dictionary == nullptr) return;
    for (const auto& entry : *dictionary) readEntry(*dictionary, entry.key());
    const auto replaced = QuomiUtils::replaceNSNullFromDictionnary(*dictionary, boost::json::value(""));
    require(replaced.size() == dictionary->size());
    for (const auto& entry : replaced) require(!entry.value().is_null());
}

/// Written dates keep a day's distance to the first and the last year's end, so that no zone leads out of them.
bool isAtCalendarsEdge(WallTime date) {
    using namespace std::chrono;
    return date < sys_days(year(1) / January / 2) || date >= sys_days(year(9999) / December / 30);
}

void readDate(std::string_view text) {
    const std::optional<WallTime> date = QuomiUtils::isoDate(text);
    for (const std::string_view zone : {"UTC", "Europe/Berlin", "America/Santiago", "No/Zone"}) {
        if (!date) break;
        const int weekday = QuomiUtils::weekdayForDate(*date, zone);
        require(weekday >= 1 && weekday <= 7);
        const int seconds = QuomiUtils::secondsSinceMidnightOfDate(*date, zone);
        require(seconds >= 0 && seconds < 26 * 3600);
        require(QuomiUtils::stringUTCForDate(*date, zone).starts_with(QuomiUtils::dayStringForDate(*date, zone)));
        static_cast<void>(QuomiUtils::logDateString(*date, zone));
    }
    if (date) {
        const auto again = QuomiUtils::isoDate(QuomiUtils::stringUTCForDate(*date, "UTC"));
        require(again == std::chrono::floor<std::chrono::milliseconds>(*date) || isAtCalendarsEdge(*date));
        require(QuomiUtils::parseLogDate(QuomiUtils::logDateString(*date, "UTC")).has_value());
    }
    if (const auto logDate = QuomiUtils::parseLogDate(text)) {
        static_cast<void>(QuomiUtils::descriptionOfDate(*logDate));
    }
}

void readText(std::string_view text) {
    const auto bytes = QuomiUtils::hexStringToData(text);
    require(bytes.size() <= text.size());
    require(QuomiUtils::hexStringToData(QuomiUtils::dataToHexString(bytes)) == bytes);
    const std::string encoded = QuomiURLEncoder::URLEncodeString(text);
    require(encoded.size() >= text.size() && encoded.size() <= 3 * text.size());
    require(trimmed(trimmed(text)) == trimmed(text));
    require(doubleOfText(text) == doubleOfText(text));  // not a number is no number
    static_cast<void>(integerOfText(text));
    static_cast<void>(Uuid::parse(text));
}

/// The first line is the pattern, the second the template, the rest the text.
void replaceMatches(std::string_view text) {
    const std::size_t pattern = text.find('\n');
    const std::size_t end = pattern == text.npos ? text.npos : text.find('\n', pattern + 1);
    if (end == text.npos) return;
    const auto expression = CompiledExpression::create(text.substr(0, pattern));
    if (!expression) return;
    using namespace QuomiRegularExpression;
    const std::string_view subject = text.substr(end + 1);
    for (const TextRange range : {TextRange{}, TextRange{1, 3}, TextRange{subject.size() + 1, 1}}) {
        static_cast<void>(stringByReplacingMatchesInString(subject, *expression, MatchingOptions::none, range,
                                                           text.substr(pattern + 1, end - pattern - 1), {}));
    }
}

}  // namespace
}  // namespace quomi::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view text = quomi::fuzz::textOf(data, size);
    quomi::fuzz::readJson(text);
    quomi::fuzz::readDate(text);
    quomi::fuzz::readText(text);
    quomi::fuzz::replaceMatches(text);
    return 0;
}
