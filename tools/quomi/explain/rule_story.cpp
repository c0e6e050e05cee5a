#include "tools/quomi/explain/rule_story.h"

#include "quomi/util/dates.h"
#include "tools/quomi/timeline/rule_words.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <algorithm>
#include <array>
#include <ostream>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

std::string times(std::size_t count) {
    if (count < 3) return std::array{"0 times", "once", "twice"}[count];
    return fmt::format("{} times", count);
}

/// "with 2 more events of its group within 30 s".
std::string withMoreEvents(bool ofItsGroup, const json::object& detail) {
    const double more = std::max(numberOf(detail, "limit", 0) - numberOf(detail, "count", 0), 1.0);
    auto text = fmt::format("with {:.0f} more event{}", more, more > 1 ? "s" : "");
    if (ofItsGroup) text += " of its group";
    const double period = numberOf(detail, "period", 0);
    return period > 0 ? fmt::format("{}, if {:.0f} lie within {}", text, numberOf(detail, "limit", 0), spanText(period))
                      : text;
}

/// What has to happen before the rule acts, by what became of it last; for limits see `whenLimitAllows`.
std::string conditionAfter(const json::object& record) {
    std::string anyEvent = "at its next event, as far as its limits allow";
    const auto decision = decisionOf(record);
    const auto& detail = objectOf(record, "detail");
    if (!decision) return anyEvent;
    switch (*decision) {
        case RuleDecision::inactive: {
            const double code = numberOf(detail, "code", 0);
            if (code == 202) return "when its owner's dates have begun";
            return code == 203 ? "when its owner is given new dates" : "in its owner's opening hours";
        }
        case RuleDecision::outOfRange:
            return fmt::format("when the beacon {} its range",
                               textOf(record, "trigger") == "on_exit" ? "leaves" : "enters");
        case RuleDecision::tooFast:
            return "when the device is no faster than it allows";
        case RuleDecision::visitTooShort:
            return "after a visit of " + spanText(numberOf(detail, "limit", 0));
        case RuleDecision::ruleMin:
            return withMoreEvents(false, detail);
        case RuleDecision::groupMin:
            return withMoreEvents(true, detail);
        case RuleDecision::serverDisabled:
            return "when server notifications are switched on";
        case RuleDecision::latched:
        case RuleDecision::latchBroken:
        case RuleDecision::latchCancelled:
        case RuleDecision::minInterval:
        case RuleDecision::globalMax:
        case RuleDecision::ruleMax:
        case RuleDecision::groupMax:
        case RuleDecision::saveFailed:
        case RuleDecision::vetoed:
        case RuleDecision::askServer:
        case RuleDecision::serverOrdered:
        case RuleDecision::hostAsked:
        case RuleDecision::serverDeclined:
        case RuleDecision::serverFailed:
        case RuleDecision::executed:
            break;
    }
    return anyEvent;
}

/// Whether the rule got past the limits that are told with a time.
bool passesLimits(std::optional<RuleDecision> decision) {
    return decision == RuleDecision::executed || decision == RuleDecision::askServer ||
           decision == RuleDecision::hostAsked || decision == RuleDecision::vetoed ||
           decision == RuleDecision::ruleMin || decision == RuleDecision::groupMin ||
           decision == RuleDecision::serverDisabled;
}

}  // namespace

RuleStory::RuleStory(std::ostream& out, const LocalClock& clock, const BeaconNames& names, std::string rule,
                     std::optional<double> at, std::size_t columns)
    : out_(out), clock_(clock), names_(names), rule_(std::move(rule)), at_(at), columns_(columns) {}

void RuleStory::say(const std::string& sentences, std::size_t indent) {
    out_ << wrapped(sentences, columns_, indent) << '\n';
}

std::string RuleStory::moment(double seconds) const {
    return fmt::format("{} ({:.10g} s)", clock_.clock(seconds), seconds);
}

/// The record's reason; what it says of a limit's end is on the clock of the story's other times.
std::string RuleStory::reason(const json::object& record) const {
    auto text = ruleReason(record);
    const auto until = textOf(objectOf(record, "detail"), "until");
    const auto date = QuomiUtils::isoDate(until);
    const auto at = text.find(until);
    return date && at != std::string::npos ? text.replace(at, until.size(), moment(clock_.secondsOf(*date))) : text;
}

void RuleStory::record(const json::object& record) {
    const double seconds = numberOf(record, "t", 0);
    const auto* id = record.if_contains("rule");
    if (id == nullptr || !id->is_string() || seconds > at_.value_or(seconds)) return;
    if (id->get_string() != rule_) {
        others_.emplace(textOf(*id));
        return;
    }
    const auto decision = decisionOf(record);
    const bool isAfterWait = decision && endsWait(rowOf(*decision).ends);
    const auto& detail = objectOf(record, "detail");
    if (decision == RuleDecision::latched) latchEnds_.push_back(seconds + numberOf(detail, "seconds", 0));
    if (decision == RuleDecision::askServer) ++unanswered_;
    say(fmt::format("At {}, {} of {}{}: {}.", moment(seconds), triggerWord(textOf(record, "trigger")),
                    names_.label(textOf(record, "owner")), isAfterWait ? ", after the wait" : "", reason(record)),
        2);
    if (!decision || !rowOf(*decision).begins) ++outcomes_;
    if (decision == RuleDecision::executed) ++executed_;
    if (detail.contains("until")) limit_ = detail;
    if (passesLimits(decision)) limit_.clear();
    last_ = record;
}

bool RuleStory::endsWait(RuleWait wait) {
    if (wait == RuleWait::server && unanswered_ > 0) {
        --unanswered_;
        return true;
    }
    if (wait == RuleWait::none || latchEnds_.empty()) return false;
    latchEnds_.pop_front();
    return true;
}

void RuleStory::finish() {
    const auto rule = neutralised(rule_);
    const auto when = at_ ? "Until " + moment(*at_) : std::string("In this visit");
    if (last_.empty()) {
        say(fmt::format("{} no event reached rule {}. Rules that events reached: {}.", when, rule,
                        others_.empty() ? "none" : fmt::format("{}", fmt::join(others_, ", "))));
    } else {
        out_ << '\n';
        say(fmt::format("{} rule {} was judged {} and ran {}.", when, rule, times(outcomes_), times(executed_)));
        say(next());
    }
    out_.flush();
}

std::string RuleStory::next() const {
    if (!latchEnds_.empty()) {
        return fmt::format("It can act next at {}, if it still holds then.", moment(latchEnds_.front()));
    }
    if (unanswered_ > 0) return "It can act next when its server answers.";
    if (const auto limited = whenLimitAllows()) return *limited;
    return fmt::format("It can act next {}.", conditionAfter(last_));
}

/// Nothing when no limit holds it back at the story's end.
std::optional<std::string> RuleStory::whenLimitAllows() const {
    if (limit_.empty()) return std::nullopt;
    const auto date = QuomiUtils::isoDate(textOf(limit_, "until"));
    if (!date) return "It cannot act again: the limit that stopped it counts its whole life.";
    const auto seconds = clock_.secondsOf(*date);
    if (seconds <= at_.value_or(numberOf(last_, "t", 0))) return std::nullopt;
    return fmt::format("It can act next from {} on ({}), as far as the limit that stopped it is concerned.",
                       moment(seconds), clock_.date(seconds));
}

}  // namespace quomi::tool
