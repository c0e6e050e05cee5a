#pragma once

#include "quomi/data/rule_owner.h"
#include "quomi/model/action_kind.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

/// One event of a rule, by value: nothing of it hangs on the store, whose objects may go meanwhile.
struct RuleRun {
    /// What the gates count, and what reports name.
    std::string ruleId;
    std::string owner;    ///< identifier of the beacon or geofence
    std::string trigger;  ///< the event's: while a rule waits, a download may give it another
    std::int64_t ruleObjectID = 0;
    std::int64_t ownerObjectID = 0;
    std::optional<std::string> group;  ///< the owner's
    bool underGlobalCounter = true;

    /// What is to run once it has passed the gates.
    std::vector<QuomiAction> actions{};  ///< all of the rule's
    boost::json::object info{};          ///< user info of its notifications
    std::string serverUrl{};             ///< of its server, where it asks one

    /// What became of it.
    std::vector<std::string> attempted{};  ///< types of the actions that were tried and not refused
    std::optional<std::string> refused{};  ///< type of the first that the host refused
    bool isReported = false;

    [[nodiscard]] static RuleRun of(const RuleWithActions& rule, const RuleOwner& owner, std::string trigger) {
        return {rule.ruleId.value_or(""), owner.identifier(), std::move(trigger),     rule.objectID(),
                owner.objectID(),         owner.group,        rule.underGlobalCounter};
    }
    /// The question to its server; null when it asks none.
    [[nodiscard]] const QuomiAction* serverAction() const {
        const auto found = std::ranges::find_if(
            actions, [](const auto& action) { return isOfKind(action, ActionKind::notifyServer); });
        return found != actions.end() ? &*found : nullptr;
    }
};

}  // namespace quomi
