#pragma once

#include "quomi/rules/rule_context.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <memory>
#include <optional>

namespace quomi {

struct RuleOwner;
struct RuleRun;
struct RuleWithActions;

namespace QuomiRuleHelper {

/// Whether enough events have been counted, of the rule and of its group. The limits are the rule's, the counters those
/// of the group object; without one its limits do not count.
[[nodiscard]] bool minEventsConditionsFulfilledForRule(const RuleWithActions& rule, const RuleOwner* group,
                                                       WallTime now);
/// Whether the rule may still act: neither it nor its group has reached its maximum.
[[nodiscard]] bool maxEventsConditionsFulfilledForRule(const RuleWithActions& rule, const RuleOwner* group,
                                                       WallTime now);

}  // namespace QuomiRuleHelper

/// What stopped a rule at its counter gates.
struct RuleStop {
    RuleDecision decision{};
    double observed = 0;  ///< events counted; seconds since the last event for `minInterval`
    std::int64_t limit = 0;
    std::optional<std::int64_t> period = std::nullopt;  ///< seconds; nothing for a limit over the whole life
    /// The earliest time at which this limit alone would let the rule pass; nothing when never, and for those that ask
    /// for more events.
    std::optional<WallTime> until = std::nullopt;
};

/// The gates for one event of a rule: the device-wide interval (beacons only), the device-wide maximum, the maximum of
/// the rule and of its group; then the event is counted and saved, and stays counted; then the minimum of the rule and
/// of its group. Nothing when the rule may act, else what stopped it. A group that cannot be read is told of in the
/// system log and has no gates.
[[nodiscard]] std::optional<RuleStop> countEvent(const RuleExecutorContext& context, RuleArea area, const RuleRun& run,
                                                 const std::shared_ptr<RuleWithActions>& rule);

/// Takes back what a beacon's rule counted, and saves: the device-wide interval holds nothing back any more, and of a
/// rule under the device-wide counter all counts are one less, but never below 0. The counts of any other rule stay:
/// deliberate, campaigns rely on it. The rule may have been replaced or removed meanwhile; another beacon's rule of the
/// same identifier is not touched.
void uncountEvent(const RuleExecutorContext& context, const RuleRun& run);

}  // namespace quomi
