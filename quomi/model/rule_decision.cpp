#include "quomi/model/rule_decision.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

namespace quomi {

namespace {

using D = RuleDecision;
using W = RuleWait;

constexpr RuleDecisionRow kDecisions[] = {
    {D::inactive, "inactive", "its owner is outside its dates or opening hours", W::none, false},
    {D::outOfRange, "outOfRange", "the beacon's move does not cross the border of its range", W::none, false},
    {D::tooFast, "tooFast", "moving too fast", W::none, false},
    {D::latched, "latched", "waits", W::none, true},
    {D::latchBroken, "latchBroken", "no longer held after the wait", W::latch, false},
    {D::latchCancelled, "latchCancelled", "its wait was ended by the SDK", W::latch, false},
    {D::visitTooShort, "visitTooShort", "visit too short", W::none, false},
    {D::minInterval, "minInterval", "too soon after the last one", W::latch, false},
    {D::globalMax, "globalMax", "stopped by the device's limit", W::latch, false},
    {D::ruleMax, "ruleMax", "stopped by its limit", W::latch, false},
    {D::groupMax, "groupMax", "stopped by its group's limit", W::latch, false},
    {D::ruleMin, "ruleMin", "counted, needs more events", W::latch, false},
    {D::groupMin, "groupMin", "counted, its group needs more events", W::latch, false},
    {D::saveFailed, "saveFailed", "could not be counted", W::latch, false},
    {D::serverDisabled, "serverDisabled", "asks a server, and server notifications are off", W::latch, false},
    {D::vetoed, "vetoed", "refused by the app", W::server, false},
    {D::askServer, "askServer", "asks its server", W::latch, true},
    {D::serverOrdered, "serverOrdered", "its server ordered instead", W::server, false},
    {D::hostAsked, "hostAsked", "the app asks the server itself", W::latch, false},
    {D::serverDeclined, "serverDeclined", "refused by its server", W::server, false},
    {D::serverFailed, "serverFailed", "its server gave no usable answer", W::server, false},
    {D::executed, "executed", "executed", W::server, false},
};

constexpr bool isInOrder() {
    for (std::size_t i = 0; i < std::size(kDecisions); ++i) {
        if (static_cast<std::size_t>(kDecisions[i].decision) != i) return false;
    }
    return true;
}
static_assert(isInOrder() && std::size(kDecisions) == static_cast<std::size_t>(D::executed) + 1,
              "each decision has its row, in the order of the enumerators");

}  // namespace

const RuleDecisionRow& rowOf(RuleDecision decision) {
    return kDecisions[static_cast<std::size_t>(decision)];
}

std::string_view nameOf(RuleDecision decision) {
    return rowOf(decision).name;
}

std::optional<RuleDecision> ruleDecisionNamed(std::string_view name) {
    const auto* found = std::ranges::find(kDecisions, name, &RuleDecisionRow::name);
    return found != std::end(kDecisions) ? std::optional(found->decision) : std::nullopt;
}

}  // namespace quomi
