#include "tools/quomi/explain/rule_story.h"

#include "quomi/util/dates.h"
#include "tools/quomi/timeline/rule_words.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <ostream>
#include <string_view>
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

bool isOneOf(std::string_view decision, std::initializer_list<std::string_view> decisions) {
    return std::find(decisions.begin(), decisions.end(), decision) != decisions.end();
}

/// "with 2 more events of its group within 30 s".
std::string withMoreEvents(const std::string& decision, const json::object& detail) {
    const double more = std::max(numberOf(detail, "limit", 0) - numberOf(detail, "count", 0), 1.0);
    auto text = fmt::format("with {:.0f} more event{}", more, more > 1 ? "s" : "");
    if (decision == "groupMin") text += " of its group";
    const double period = numberOf(detail, "period", 0);
    return period > 0 ? fmt::format("{}, if {:.0f} lie within {}", text, numberOf(detail, "limit", 0), spanText(period))
                      : text;
}

/// What has to happen before the rule acts, by what became of it last; for limits see `whenLimitAllows`.
std::string conditionAfter(const json::object& record) {
    const auto decision = textOf(record, "decision");
    const auto& detail = objectOf(record, "detail");
    if (decision == "inactive") {
        const double code = numberOf(detail, "code", 0);
        if (code == 202) return "when its owner's dates have begun";
        return code == 203 ? "when its owner is given new dates" : "in its owner's opening hours";
    }
    if (decision == "outOfRange") {
        return fmt::format("when the beacon {} its range",
                           textOf(record, "trigger") == "on_exit" ? "leaves" : "enters");
    }
    if (decision == "tooFast") return "when the device is no faster than it allows";
    if (decision == "visitTooShort") return "after a visit of " + spanText(numberOf(detail, "limit", 0));
    if (isOneOf(decision, {"ruleMin", "groupMin"})) return withMoreEvents(decision, detail);
    if (decision == "serverDisabled") return "when server notifications are switched on";
    return "at its next event, as far as its limits allow";
}

}  // namespace

RuleStory::RuleStory(std::ostream& out, const LocalClock& clock, const BeaconNames& names, std::string rule,
                     std::optional<double> at)
    : out_(out), clock_(clock), names_(names), rule_(std::move(rule)), at_(at) {}

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
    const auto decision = textOf(record, "decision");
    const bool isAfterWait = endsWait(decision);
    const auto& detail = objectOf(record, "detail");
    if (decision == "latched") latchEnds_.push_back(seconds + numberOf(detail, "seconds", 0));
    if (decision == "askServer") ++unanswered_;
    out_ << fmt::format("At {}, {} of {}{}: {}.\n", moment(seconds), triggerWord(textOf(record, "trigger")),
                        names_.label(textOf(record, "owner")), isAfterWait ? ", after the wait" : "", reason(record));
    if (!isWaiting(decision)) ++outcomes_;
    if (decision == "executed") ++executed_;
    noteLimit(decision, detail);
    last_ = record;
}

bool RuleStory::endsWait(const std::string& decision) {
    // These come of a new event, whatever waits.
    if (isOneOf(decision, {"inactive", "outOfRange", "tooFast", "visitTooShort", "latched"})) return false;
    const bool isAnswer = isOneOf(decision, {"serverOrdered", "serverDeclined", "serverFailed", "executed", "vetoed"});
    if (isAnswer && unanswered_ > 0) {
        --unanswered_;
        return true;
    }
    if (latchEnds_.empty()) return false;
    latchEnds_.pop_front();
    return true;
}

void RuleStory::noteLimit(const std::string& decision, const json::object& detail) {
    if (detail.contains("until")) limit_ = detail;
    if (isOneOf(decision, {"executed", "askServer", "hostAsked", "vetoed", "ruleMin", "groupMin", "serverDisabled"})) {
        limit_.clear();
    }
}

void RuleStory::finish() {
    const auto rule = neutralised(rule_);
    const auto when = at_ ? "Until " + moment(*at_) : std::string("In this visit");
    if (last_.empty()) {
        out_ << fmt::format("{} no event reached rule {}. Rules that events reached: {}.\n", when, rule,
                            others_.empty() ? "none" : fmt::format("{}", fmt::join(others_, ", ")));
    } else {
        out_ << fmt::format("\n{} rule {} was judged {} and ran {}.\n{}\n", when, rule, times(outcomes_),
                            times(executed_), next());
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
