#include "tools/quomi/timeline/rule_words.h"

#include "quomi/beacons/proximity.h"
#include "quomi/util/dates.h"
#include "tools/quomi/timeline/beacon_names.h"
#include "tools/quomi/timeline/local_clock.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

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
    return code == "204" ? "its owner is outside its opening hours"
                         : std::string(rowOf(RuleDecision::inactive).meaning);
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

/// What stands behind the decision's meaning: figures, names.
std::string figures(RuleDecision decision, const Detail& detail) {
    switch (decision) {
        case RuleDecision::tooFast:
            return fmt::format(": {} of {}", textOf(detail, "speed"), textOf(detail, "limit"));
        case RuleDecision::latched:
            return " " + span(detail, "seconds");
        case RuleDecision::visitTooShort:
            return fmt::format(": {} of {}", span(detail, "seconds"), span(detail, "limit"));
        case RuleDecision::minInterval:
            return fmt::format(": {} of {}{}", span(detail, "seconds"), span(detail, "limit"), until(detail));
        case RuleDecision::globalMax:
        case RuleDecision::ruleMax:
        case RuleDecision::groupMax:
            return ": " + counted(detail) + until(detail);
        case RuleDecision::ruleMin:
        case RuleDecision::groupMin:
            return ": " + counted(detail);
        case RuleDecision::vetoed:
            return ": " + textOf(detail, "action");
        case RuleDecision::askServer:
            return " " + clipped(textOf(detail, "url"), kLongestURL);
        case RuleDecision::serverOrdered:
        case RuleDecision::executed:
            return ": " + listed(detail, "actions");
        case RuleDecision::inactive:
        case RuleDecision::outOfRange:
        case RuleDecision::latchBroken:
        case RuleDecision::latchCancelled:
        case RuleDecision::saveFailed:
        case RuleDecision::serverDisabled:
        case RuleDecision::hostAsked:
        case RuleDecision::serverDeclined:
        case RuleDecision::serverFailed:
            break;
    }
    return "";
}

}  // namespace

std::optional<RuleDecision> decisionOf(const json::object& record) {
    return ruleDecisionNamed(textOf(record, "decision"));
}

std::string ruleReason(const json::object& record) {
    const auto& detail = objectOf(record, "detail");
    const auto decision = decisionOf(record);
    if (!decision) {
        const auto name = textOf(record, "decision");
        return detail.empty() ? name : name + "  " + pairsText(detail);
    }
    if (decision == RuleDecision::inactive) return inactive(detail);
    if (decision == RuleDecision::outOfRange) return outOfRange(detail, textOf(record, "trigger"));
    return std::string(rowOf(*decision).meaning) + figures(*decision, detail);
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

bool isAction(std::optional<RuleDecision> decision) {
    return decision == RuleDecision::executed || decision == RuleDecision::serverOrdered ||
           decision == RuleDecision::hostAsked;
}

}  // namespace quomi::tool
