#include "tools/quomi/timeline/rule_words.h"

#include "quomi/beacons/proximity.h"
#include "quomi/util/dates.h"
#include "tools/quomi/timeline/beacon_names.h"
#include "tools/quomi/timeline/local_clock.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <map>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

constexpr std::size_t kLongestURL = 90;

using Detail = json::object;

std::string proximity(const json::value& number) {
    return std::string(proximityWord(number.is_int64() ? number.get_int64() : 0));
}

std::string listed(const Detail& detail, const char* key) {
    std::string text;
    if (const auto* list = fieldOf(detail, key).if_array()) {
        for (const auto& element : *list) text += (text.empty() ? "" : ", ") + textOf(element);
    }
    return text.empty() ? "nothing" : text;
}

std::string inactive(const Detail& detail) {
    const auto code = textOf(detail, "code");
    if (code == "202") return "its owner's dates have not begun";
    if (code == "203") return "its owner's dates are over";
    return code == "204" ? "its owner is outside its opening hours" : "its owner is outside its dates or opening hours";
}

/// How the beacon moved; a beacon that is found comes from nowhere, and one that is lost goes there.
std::string movement(const Detail& detail) {
    const auto& previous = fieldOf(detail, "previous");
    const auto& now = fieldOf(detail, "new");
    if (previous == QuomiProximityUndetermined) return "found " + proximity(now);
    if (now == QuomiProximityUndetermined) return "lost when " + proximity(previous);
    return fmt::format("moved from {} to {}", proximity(previous), proximity(now));
}

std::string outOfRange(const Detail& detail, const std::string& trigger) {
    const auto* range = fieldOf(detail, "range").if_array();
    if (range == nullptr || range->size() != 2) return movement(detail);
    return fmt::format("{}, which does not {} its range, {} to {}", movement(detail),
                       trigger == "on_exit" ? "leave" : "enter", proximity((*range)[0]), proximity((*range)[1]));
}

std::string span(const Detail& detail, const char* key) {
    return spanText(numberOf(detail, key, 0));
}

/// "3 of 3 in 6 min 30 s".
std::string counted(const Detail& detail) {
    auto text = fmt::format("{} of {}", textOf(detail, "count"), textOf(detail, "limit"));
    if (!fieldOf(detail, "period").is_null()) text += " in " + span(detail, "period");
    return text;
}

std::string until(const Detail& detail) {
    const auto date = textOf(detail, "until");
    return date.empty() ? ", for good" : ", until " + date;
}

using Words = std::string (*)(const Detail&);

const std::map<std::string_view, Words>& wordsOfDecisions() {
    static const std::map<std::string_view, Words> words = {
        {"inactive", inactive},
        {"tooFast",
         [](const Detail& d) {
             return fmt::format("moving too fast: {} of {}", textOf(d, "speed"), textOf(d, "limit"));
         }},
        {"latched", [](const Detail& d) { return "waits " + span(d, "seconds"); }},
        {"latchBroken", [](const Detail&) -> std::string { return "no longer held after the wait"; }},
        {"latchCancelled", [](const Detail&) -> std::string { return "its wait was ended by the SDK"; }},
        {"visitTooShort",
         [](const Detail& d) {
             return fmt::format("visit too short: {} of {}", span(d, "seconds"), span(d, "limit"));
         }},
        {"minInterval",
         [](const Detail& d) {
             return fmt::format("too soon after the last one: {} of {}{}", span(d, "seconds"), span(d, "limit"),
                                until(d));
         }},
        {"globalMax", [](const Detail& d) { return "stopped by the device's limit: " + counted(d) + until(d); }},
        {"ruleMax", [](const Detail& d) { return "stopped by its limit: " + counted(d) + until(d); }},
        {"groupMax", [](const Detail& d) { return "stopped by its group's limit: " + counted(d) + until(d); }},
        {"ruleMin", [](const Detail& d) { return "counted, needs more events: " + counted(d); }},
        {"groupMin", [](const Detail& d) { return "counted, its group needs more events: " + counted(d); }},
        {"saveFailed", [](const Detail&) -> std::string { return "could not be counted"; }},
        {"serverDisabled",
         [](const Detail&) -> std::string { return "asks a server, and server notifications are off"; }},
        {"vetoed", [](const Detail& d) { return "refused by the app: " + textOf(d, "action"); }},
        {"askServer", [](const Detail& d) { return "asks its server " + clipped(textOf(d, "url"), kLongestURL); }},
        {"serverOrdered", [](const Detail& d) { return "its server ordered instead: " + listed(d, "actions"); }},
        {"hostAsked", [](const Detail&) -> std::string { return "the app asks the server itself"; }},
        {"serverDeclined", [](const Detail&) -> std::string { return "refused by its server"; }},
        {"serverFailed", [](const Detail&) -> std::string { return "its server gave no usable answer"; }},
        {"executed", [](const Detail& d) { return "executed: " + listed(d, "actions"); }},
    };
    return words;
}

}  // namespace

std::string ruleReason(const json::object& record) {
    const auto decision = textOf(record, "decision");
    const auto& detail = objectOf(record, "detail");
    if (decision == "outOfRange") return outOfRange(detail, textOf(record, "trigger"));
    const auto words = wordsOfDecisions().find(decision);
    if (words != wordsOfDecisions().end()) return words->second(detail);
    return detail.empty() ? decision : decision + "  " + pairsText(detail);
}

std::string ruleReason(const json::object& record, const LocalClock& clock, double seconds) {
    auto text = ruleReason(record);
    const auto until = textOf(objectOf(record, "detail"), "until");
    const auto date = QuomiUtils::isoDate(until);
    const auto at = text.find(until);
    if (!date || at == std::string::npos) return text;
    const auto end = clock.secondsOf(*date);
    const bool isSameDay = clock.day(end) == clock.day(seconds);
    return text.replace(at, until.size(), clock.clock(end) + (isSameDay ? "" : " on " + clock.date(end)));
}

std::string triggerWord(const std::string& trigger) {
    if (trigger == "on_entry") return "entry";
    return trigger == "on_exit" ? "exit" : trigger;
}

bool isWaiting(std::string_view decision) {
    return decision == "latched" || decision == "askServer";
}

bool isAction(std::string_view decision) {
    return decision == "executed" || decision == "serverOrdered" || decision == "hostAsked";
}

}  // namespace quomi::tool
