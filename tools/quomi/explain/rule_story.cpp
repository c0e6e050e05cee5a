#include "tools/quomi/explain/rule_story.h"

#include "quomi/util/dates.h"
#include "tools/quomi/timeline/rule_words.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <array>
#include <ostream>
#include <utility>

#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

std::string times(std::size_t count) {
    if (count < 3) return std::array{"never", "once", "twice"}[count];
    return fmt::format("{} times", count);
}

/// What has to happen before the rule acts, by what became of it last; for limits see `whenLimitAllows`.
std::string conditionAfter(const std::string& decision, const json::object& detail) {
    const auto more = numberOf(detail, "limit", 0) - numberOf(detail, "count", 0);
    if (decision == "inactive") return "when its owner is within its dates and opening hours";
    if (decision == "outOfRange") return "when the beacon crosses the border of its range";
    if (decision == "tooFast") return "when the device is no faster than it allows";
    if (decision == "visitTooShort") return "after a visit of " + spanText(numberOf(detail, "limit", 0));
    if (decision == "ruleMin" || decision == "groupMin") {
        return fmt::format("at the {} event from now", more <= 1 ? "next" : fmt::format("{:.0f}.", more));
    }
    if (decision == "serverDisabled") return "when server notifications are switched on";
    if (decision == "askServer") return "when its server answers";
    return "at its next event, as far as its limits allow";
}

}  // namespace

RuleStory::RuleStory(std::ostream& out, const LocalClock& clock, const BeaconNames& names, std::string rule,
                     std::optional<double> at)
    : out_(out), clock_(clock), names_(names), rule_(std::move(rule)), at_(at) {}

std::string RuleStory::moment(double seconds) const {
    return fmt::format("{} ({:.10g} s)", clock_.clock(seconds), seconds);
}

void RuleStory::record(const json::object& record) {
    const double seconds = numberOf(record, "t", 0);
    const auto* id = record.if_contains("rule");
    if (id == nullptr || !id->is_string() || id->get_string() != rule_ || seconds > at_.value_or(seconds)) return;
    const auto decision = textOf(record, "decision");
    const bool endsWait = isInWait_ && !isWaiting(decision) && decision != "outOfRange";
    out_ << fmt::format("At {}, {} of {}{}: {}.\n", moment(seconds), triggerWord(textOf(record, "trigger")),
                        names_.label(textOf(record, "owner")), endsWait ? ", after the wait" : "", ruleReason(record));
    if (!isWaiting(decision)) ++outcomes_;
    if (decision == "executed") ++executed_;
    isInWait_ = isWaiting(decision) || (isInWait_ && !endsWait);
    if (const auto& detail = objectOf(record, "detail"); detail.contains("until")) limit_ = detail;
    last_ = record;
}

void RuleStory::finish() {
    const auto rule = neutralised(rule_);
    const auto when = at_ ? "Until " + moment(*at_) : std::string("In this visit");
    if (last_.empty()) {
        out_ << fmt::format("{} no event reached rule {}: none of its trigger came to its beacon or geofence.\n", when,
                            rule);
    } else {
        out_ << fmt::format("\n{} rule {} was judged {} and ran {}.\n{}\n", when, rule, times(outcomes_),
                            times(executed_), next());
    }
    out_.flush();
}

std::string RuleStory::next() const {
    const auto decision = textOf(last_, "decision");
    const auto& detail = objectOf(last_, "detail");
    if (decision == "latched") {
        const auto end = numberOf(last_, "t", 0) + numberOf(detail, "seconds", 0);
        return fmt::format("It can act next at {}, if it still holds then.", moment(end));
    }
    if (const auto limited = whenLimitAllows()) return *limited;
    return fmt::format("It can act next {}.", conditionAfter(decision, detail));
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
