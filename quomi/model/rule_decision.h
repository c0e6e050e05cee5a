#pragma once

#include "quomi/util/export.h"

#include <optional>
#include <string_view>

namespace quomi {

/// What became of a rule that an event reached. Behind each stands what its report carries beside it.
enum class RuleDecision {
    inactive,    ///< `code`
    outOfRange,  ///< `range`, `previous`, `new`
    tooFast,     ///< `speed`, `limit`
    latched,     ///< `seconds`
    latchBroken,
    latchCancelled,
    visitTooShort,  ///< `seconds`, `limit`
    minInterval,    ///< `seconds`, `limit`, `period`, `until`
    globalMax,      ///< `count`, `limit`, `period`, `until`
    ruleMax,        ///< the same
    groupMax,       ///< the same
    ruleMin,        ///< `count`, `limit`, `period`
    groupMin,       ///< the same
    saveFailed,
    serverDisabled,
    vetoed,         ///< `action`
    askServer,      ///< `url`
    serverOrdered,  ///< `actions`
    hostAsked,
    serverDeclined,
    serverFailed,
    executed,  ///< `actions`, without those that the host refused or settings switch off
};

/// Which wait of the rule a decision ends, where it waited.
enum class RuleWait {
    none,    ///< it comes of a new event
    latch,   ///< its latch time
    server,  ///< that for its server's answer, else its latch time
};

/// What a decision is called, what it means and how it stands to waits. docs/traces.md has the table.
struct RuleDecisionRow {
    RuleDecision decision;
    std::string_view name;     ///< in `rule` records of traces
    std::string_view meaning;  ///< in words, without what its report carries
    RuleWait ends;
    bool begins;  ///< a wait begins, and another report comes at its end
};

[[nodiscard]] QUOMI_EXPORT const RuleDecisionRow& rowOf(RuleDecision decision);
[[nodiscard]] QUOMI_EXPORT std::string_view nameOf(RuleDecision decision);
/// The decision of that name; nothing for a name that is not known.
[[nodiscard]] QUOMI_EXPORT std::optional<RuleDecision> ruleDecisionNamed(std::string_view name);

}  // namespace quomi
