#pragma once

#include "quomi/model/rule_decision.h"

#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi::tool {

class LocalClock;

/// What a `rule` record says became of the rule; nothing for a name that is not known.
[[nodiscard]] std::optional<RuleDecision> decisionOf(const boost::json::object& record);

/// What a `rule` record says became of the rule, with its reason and figures, on one line without control characters.
/// A decision that is not known stands as it is.
[[nodiscard]] std::string ruleReason(const boost::json::object& record);

/// The same; a limit's end stands as the device's time of day, with the date where that is another one than at
/// `seconds`.
[[nodiscard]] std::string ruleReason(const boost::json::object& record, const LocalClock& clock, double seconds);

/// "entry", "exit", or the trigger as it stands.
[[nodiscard]] std::string triggerWord(const std::string& trigger);

/// Whether the rule, its server or the app in its place did something.
[[nodiscard]] bool isAction(std::optional<RuleDecision> decision);

}  // namespace quomi::tool
