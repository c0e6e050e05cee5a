#include "quomi/rules/rule_observer.h"

namespace quomi {

std::string_view nameOf(RuleDecision decision) {
    static constexpr std::string_view names[] = {
        "inactive",      "outOfRange",     "tooFast",        "latched", "latchBroken", "latchCancelled",
        "visitTooShort", "minInterval",    "globalMax",      "ruleMax", "groupMax",    "ruleMin",
        "groupMin",      "saveFailed",     "serverDisabled", "vetoed",  "askServer",   "serverOrdered",
        "hostAsked",     "serverDeclined", "serverFailed",   "executed"};
    return names[static_cast<std::size_t>(decision)];
}

}  // namespace quomi
