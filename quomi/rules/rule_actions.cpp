#include "quomi/api/callback.h"
#include "quomi/model/notify_server_response.h"
#include "quomi/model/settings.h"
#include "quomi/platform/application.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/rule_executor.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <utility>

#include <boost/json/array.hpp>

// How the actions of a rule run, once it has passed its gates.

namespace quomi {

namespace json = boost::json;

namespace {

bool isOpenAction(const QuomiAction& action) {
    return action.type == kActionOpenUrl || action.type == kActionOpenDeepLink;
}

bool isServerAction(const QuomiAction& action) {
    return action.type == kActionNotifyServer;
}

template <class Condition>
const QuomiAction* firstWhere(const std::vector<QuomiAction>& actions, Condition condition) {
    const auto found = std::find_if(actions.begin(), actions.end(), condition);
    return found == actions.end() ? nullptr : &*found;
}

json::array typesOrderedBy(const QuomiNotifyServerResponse& answer) {
    json::array types;
    const auto add = [&types](const std::string& param, const char* type) {
        if (!QuomiUtils::isEmpty(param)) types.emplace_back(type);
    };
    add(answer.notifyUserAction, kActionNotifyUser);
    add(answer.openURLAction, kActionOpenUrl);
    add(answer.openDeepLinkAction, kActionOpenDeepLink);
    return types;
}

}  // namespace

/// A block that comes to nothing when the executor has ended or gone.
template <class Work>
auto RuleExecutor::unlessEnded(Work work) {
    return [weak = weak_from_this(), work = std::move(work)](const auto&... arguments) {
        const auto self = weak.lock();
        if (self != nullptr && !self->hasEnded_) work(*self, arguments...);
    };
}

RuleExecutor::Run RuleExecutor::makeRun(const RuleWithActions& rule, const RuleOwner& owner) const {
    return std::make_shared<RuleRun>(
        RuleRun{rule.ruleId.value_or(""), owner.identifier(), rule.trigger, rule.objectID(), owner.objectID(),
                rule.getAndDeserializeActions().value_or(Actions()), infoDictForLocalNotification(owner, rule)});
}

void RuleExecutor::execute(const Run& run, const RuleWithActions& rule, const RuleOwner& owner) {
    const auto* server = firstWhere(run->actions, isServerAction);
    if (server == nullptr) return executeActions(run, run->actions);
    // Without servers the rule's other actions are dropped too: deliberate, they were for the server to allow.
    if (!context_.settings.serverNotificationActionsEnabled) {
        return report(*run, RuleDecision::serverDisabled, [] { return json::object(); });
    }
    prepareServerNotification();
    executeNotifyServerAction(run, serverUrl(server->param, owner, rule));
}

void RuleExecutor::executeActions(const Run& run, const Actions& actions) {
    if (!executeNotify(run, actions)) {
        for (const auto& action : actions) {
            if (!hasEnded_) executeAction(run, action);
        }
    }
    if (!hasEnded_) reportExecuted(*run);
}

bool RuleExecutor::executeNotify(const Run& run, const Actions& actions) {
    const auto* notifyAction = firstWhere(actions, [](const auto& action) { return action.type == kActionNotifyUser; });
    const auto* openAction = firstWhere(actions, isOpenAction);
    if (notifyAction == nullptr || openAction == nullptr) return false;
    if (context_.platform.application.state() == ApplicationState::active) return false;
    if (context_.settings.localNotificationActionsEnabled) {
        executeLocalNotificationAction(run, *notifyAction, openAction);
    }
    return true;
}

void RuleExecutor::executeAction(const Run& run, const QuomiAction& action) {
    const auto& settings = context_.settings;
    if (settings.localNotificationActionsEnabled && action.type == kActionNotifyUser) {
        return executeLocalNotificationAction(run, action, firstWhere(run->actions, isOpenAction));
    }
    if (settings.openWebPageActionsEnabled && action.type == kActionOpenUrl) {
        return executeOpenWebPageAction(*run, action);
    }
    if (settings.openDeepLinkActionsEnabled && action.type == kActionOpenDeepLink) {
        executeOpenDeepLinkAction(*run, action);
    }
}

void RuleExecutor::logAction(const RuleRun& run, const char* action) const {
    context_.logEvent({{"type", "action"},
                       {"action", action},
                       {"area_type", areaTypeOf(area_)},
                       {"rule_id", run.ruleId},
                       {areaKeyOf(area_), run.owner}});
}

// Notifications

void RuleExecutor::executeLocalNotificationAction(const Run& run, const QuomiAction& action,
                                                  const QuomiAction* openAction) {
    auto info = run->info;
    if (openAction != nullptr) {
        info["param"] = openAction->param;
        info["type"] = openAction->type;
        info["triggeredBy"] = static_cast<int>(area_);
    }
    run->attempted.push_back(action.type);
    const auto executor = actionExecutor_;
    if (executor == nullptr) return;
    executor->executeNotifyUserAction(action.param, info, static_cast<int>(area_),
                                      unlessEnded([run](RuleExecutor& self, bool isShown) {
                                          if (isShown) return self.logAction(*run, kActionNotifyUser);
                                          self.notificationWasRefused(*run);
                                      }));
}

void RuleExecutor::notificationWasRefused(RuleRun& run) {
    actionWasRefused(run);
    // A host that takes its time answers when the rule's report is written.
    if (run.isReported) return reportRefused(run, kActionNotifyUser);
    const auto attempt = std::find(run.attempted.begin(), run.attempted.end(), kActionNotifyUser);
    if (attempt != run.attempted.end()) run.attempted.erase(attempt);
    if (!run.refused) run.refused = kActionNotifyUser;
}

// Web pages and deep links

void RuleExecutor::executeOpenWebPageAction(RuleRun& run, const QuomiAction& action) {
    auto outcome = ActionOutcome::impossible;
    const auto executor = actionExecutor_;
    if (executor != nullptr) executor->executeOpenWebPageAction(action.param, static_cast<int>(area_), &outcome);
    openActionEnded(run, action, outcome);
}

void RuleExecutor::executeOpenDeepLinkAction(RuleRun& run, const QuomiAction& action) {
    auto outcome = ActionOutcome::impossible;
    const auto executor = actionExecutor_;
    if (executor != nullptr) executor->executeOpenDeepLinkAction(action.param, static_cast<int>(area_), &outcome);
    openActionEnded(run, action, outcome);
}

void RuleExecutor::openActionEnded(RuleRun& run, const QuomiAction& action, ActionOutcome outcome) const {
    if (hasEnded_) return;
    if (outcome == ActionOutcome::vetoed) {
        if (!run.refused) run.refused = action.type;
        return;
    }
    run.attempted.push_back(action.type);
    if (outcome != ActionOutcome::impossible) logAction(run, action.type.c_str());
}

// Servers

void RuleExecutor::executeNotifyServerAction(const Run& run, const std::string& url) {
    auto info = run->info;
    info["triggeredBy"] = static_cast<int>(area_);
    auto outcome = ActionOutcome::impossible;
    const auto executor = actionExecutor_;
    if (executor != nullptr) {
        executor->executeNotifyServerAction(
            url, static_cast<int>(area_), info,
            unlessEnded([run](RuleExecutor& self) { self.logAction(*run, kActionNotifyServer); }), {},
            unlessEnded([run](RuleExecutor& self) {
                auto remaining = run->actions;
                std::erase_if(remaining, isServerAction);
                self.executeEnabledActions(run, remaining);
            }),
            &outcome, unlessEnded([run](RuleExecutor& self, const QuomiNotifyServerResponse* answer) {
                std::erase(self.askingServers_, run);
                self.reportAnswer(*run, answer);
            }));
    }
    if (hasEnded_) return;
    switch (outcome) {
        case ActionOutcome::performed:
            askingServers_.push_back(run);
            return report(*run, RuleDecision::askServer, [&url] { return json::object{{"url", url}}; });
        case ActionOutcome::performedByHost:
            return report(*run, RuleDecision::hostAsked, [] { return json::object(); });
        case ActionOutcome::vetoed:
            actionWasRefused(*run);
            return reportRefused(*run, kActionNotifyServer);
        case ActionOutcome::impossible:
            actionWasRefused(*run);
            return report(*run, RuleDecision::serverFailed, [] { return json::object(); });
    }
}

void RuleExecutor::reportAnswer(const RuleRun& run, const QuomiNotifyServerResponse* answer) const {
    const auto nothing = [] { return json::object(); };
    if (answer == nullptr) return report(run, RuleDecision::serverFailed, nothing);
    if (answer->decision == kNotifyServerDecisionDisable) return report(run, RuleDecision::serverDeclined, nothing);
    if (answer->decision != kNotifyServerDecisionNotify) return;  // an allowed rule reports for itself
    report(run, RuleDecision::serverOrdered, [answer] { return json::object{{"actions", typesOrderedBy(*answer)}}; });
}

// Reports

template <class MakeDetail>
void RuleExecutor::report(const RuleRun& run, RuleDecision decision, const MakeDetail& makeDetail) const {
    if (const auto watcher = observer()) {
        tell(*watcher, {run.ruleId, run.owner, run.trigger}, decision, makeDetail());
    }
}

void RuleExecutor::reportUnanswered() {
    for (const auto& run : std::exchange(askingServers_, {})) {
        report(*run, RuleDecision::serverFailed, [] { return json::object(); });
    }
}

void RuleExecutor::reportRefused(const RuleRun& run, const std::string& type) const {
    report(run, RuleDecision::vetoed, [&type] { return json::object{{"action", type}}; });
}

void RuleExecutor::reportExecuted(RuleRun& run) const {
    run.isReported = true;
    if (run.attempted.empty() && run.refused) return reportRefused(run, *run.refused);
    report(run, RuleDecision::executed, [&run] {
        return json::object{{"actions", json::array(run.attempted.begin(), run.attempted.end())}};
    });
}

}  // namespace quomi
