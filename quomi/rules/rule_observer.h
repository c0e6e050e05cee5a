#pragma once

#include "quomi/model/rule_decision.h"

#include <functional>
#include <string>

#include <boost/json/object.hpp>

namespace quomi {

/// One rule and one outcome of an event for it.
struct RuleReport {
    std::string ruleId;
    std::string owner;  ///< identifier of the beacon or geofence
    std::string trigger;
    RuleDecision decision{};
    /// What stands beside the decisions of `RuleDecision`. Dates are ISO 8601 in UTC; `until` is the earliest time, in
    /// whole milliseconds, at which the limit alone would let the rule pass, null when never; `period` is null for a
    /// limit over the whole life.
    boost::json::object detail;
};

/// Looks on while rules are judged, for tools that explain them. Nothing in a rule's outcome depends on it, and one
/// that nobody set costs nothing.
struct RuleObserver {
    /// One call for each rule of the event's trigger and each outcome, after the last effect that the outcome has at
    /// once. A rule that waits (`latched`, `askServer`) is told of again when the wait ends; so is one whose
    /// notification the host refuses later. On the host's thread; may call every operation of the SDK. What it throws
    /// is dropped.
    std::function<void(const RuleReport&)> ruleDecided{};
};

}  // namespace quomi
