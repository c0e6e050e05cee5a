#include "quomi/rules/rule_runner.h"

#include "quomi/model/settings.h"
#include "quomi/platform/application.h"
#include "quomi/platform/run_loop.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/rule_gates.h"
#include "quomi/rules/server_url.h"
#include "quomi/util/dates.h"
#include "quomi/util/host_call.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <boost/json/array.hpp>

namespace quomi {

namespace json = boost::json;

namespace {

template <class Condition>
const QuomiAction* firstWhere(const std::vector<QuomiAction>& actions, Condition condition) {
    const auto found = std::ranges::find_if(actions, condition);
    return found == actions.end() ? nullptr : &*found;
}

const QuomiAction* firstOpenAction(const std::vector<QuomiAction>& actions) {
    return firstWhere(actions, [](const QuomiAction& action) {
        const auto* kind = actionKind(action.type);
        return kind != nullptr && kind->opens;
    });
}

json::array typesOf(const std::vector<QuomiAction>& actions) {
    json::array types;
    for (const auto& action : actions) types.emplace_back(action.type);
    return types;
}

json::value limitOver(const std::optional<std::int64_t>& period) {
    return period ? json::value(*period) : json::value();
}

/// In whole milliseconds, none of them too early.
json::value dateOf(const std::optional<WallTime>& date) {
    if (!date) return nullptr;
    return json::string(QuomiUtils::stringUTCForDate(std::chrono::ceil<std::chrono::milliseconds>(*date), "UTC"));
}

json::object detailOf(const RuleStop& stop) {
    const auto decision = stop.decision;
    if (decision == RuleDecision::saveFailed) return {};
    json::object detail;
    if (decision == RuleDecision::minInterval) {
        detail["seconds"] = stop.observed;
    } else {
        detail["count"] = static_cast<std::int64_t>(stop.observed);
    }
    detail["limit"] = stop.limit;
    detail["period"] = limitOver(stop.period);
    const bool wantsMore = decision == RuleDecision::ruleMin || decision == RuleDecision::groupMin;
    if (!wantsMore) detail["until"] = dateOf(stop.until);
    return detail;
}

}  // namespace

RuleRunner::RuleRunner(RuleArea area, RuleExecutorContext context, Hooks hooks)
    : area_(area),
      context_(std::move(context)),
      hooks_(std::move(hooks)),
      latches_(context_.platform.runLoop, hooks_.latchEnded,
               [this](const Latch& latch) { report(latch, RuleDecision::latchCancelled); }) {}

RuleRunner::~RuleRunner() = default;

void RuleRunner::end() {
    if (hasEnded()) return;
    lifetime_.end();
    actionExecutor_ = nullptr;
    latches_.clearAll();
    reportUnanswered();
}

// Up to the gates

void RuleRunner::startLatch(const RuleWithActions& rule, const RuleOwner& owner) {
    latches_.start({owner.identifier(), rule.ruleId.value_or(""), rule.trigger}, toDuration(Seconds(rule.latchTime)));
    report(rule, owner, RuleDecision::latched, [&rule] { return json::object{{"seconds", rule.latchTime}}; });
}

bool RuleRunner::passesGates(const RuleRun& run, const std::shared_ptr<RuleWithActions>& rule) {
    context_.logEvent({{"type", "trigger"},
                       {"trigger", rule->trigger},
                       {"area_type", areaTypeOf(area_)},
                       {"rule_id", run.ruleId},
                       {areaKeyOf(area_), run.owner}});
    if (hasEnded() || rule->context() == nullptr) return false;
    const auto stop = countEvent(context_, area_, run, rule);
    if (!stop) return true;
    report(run, stop->decision, [&stop] { return detailOf(*stop); });
    return false;
}

/// Geofences count for good: deliberate, only beacons' counts are ever taken back.
void RuleRunner::takeCountBack(const RuleRun& run) const {
    if (area_ == RuleArea::beacon) uncountEvent(context_, run);
}

// The actions

bool RuleRunner::willAskServer(const RuleRun& run) const {
    return context_.settings.serverNotificationActionsEnabled && run.serverAction() != nullptr;
}

void RuleRunner::execute(const Run& run) {
    if (willAskServer(*run)) return executeNotifyServerAction(run);
    // Without servers the rule's other actions are dropped too: deliberate, they were for the server to allow.
    if (run->serverAction() != nullptr) return report(*run, RuleDecision::serverDisabled);
    executeActions(run, run->actions);
}

void RuleRunner::executeActions(const Run& run, const Actions& actions) {
    if (!executeNotify(run, actions)) {
        for (const auto& action : actions) {
            if (!hasEnded()) executeAction(run, action);
        }
    }
    if (!hasEnded()) reportExecuted(*run);
}

bool RuleRunner::executeNotify(const Run& run, const Actions& actions) {
    const auto* notifyAction =
        firstWhere(actions, [](const auto& action) { return isOfKind(action, ActionKind::notifyUser); });
    const auto* openAction = firstOpenAction(actions);
    if (notifyAction == nullptr || openAction == nullptr) return false;
    if (context_.platform.application.state() == ApplicationState::active) return false;
    if (context_.settings.localNotificationActionsEnabled) {
        executeLocalNotificationAction(run, *notifyAction, openAction);
    }
    return true;
}

void RuleRunner::executeAction(const Run& run, const QuomiAction& action) {
    const auto* kind = actionKind(action.type);
    if (kind == nullptr || !(context_.settings.*kind->setting)) return;
    if (kind->opens) return executeOpenAction(*run, *kind, action);
    if (kind->kind == ActionKind::notifyUser) {
        executeLocalNotificationAction(run, action, firstOpenAction(run->actions));
    }
}

void RuleRunner::logAction(const RuleRun& run, const char* action) const {
    context_.logEvent({{"type", "action"},
                       {"action", action},
                       {"area_type", areaTypeOf(area_)},
                       {"rule_id", run.ruleId},
                       {areaKeyOf(area_), run.owner}});
}

// Notifications

void RuleRunner::executeLocalNotificationAction(const Run& run, const QuomiAction& action,
                                                const QuomiAction* openAction) {
    auto info = run->info;
    if (openAction != nullptr) {
        info["param"] = openAction->param;
        info["type"] = openAction->type;
        info["triggeredBy"] = triggeredBy();
    }
    run->attempted.push_back(action.type);
    if (actionExecutor_ == nullptr) return;
    actionExecutor_->executeNotifyUserAction(action.param, info, triggeredBy(), guard([this, run](bool isShown) {
                                                 notificationWasAnswered(*run, isShown);
                                             }));
}

void RuleRunner::notificationWasAnswered(RuleRun& run, bool isShown) {
    if (isShown) return logAction(run, kActionNotifyUser);
    takeCountBack(run);
    // A host that takes its time answers when the rule's report is written.
    if (run.isReported) return reportRefused(run, kActionNotifyUser);
    const auto attempt = std::ranges::find(run.attempted, kActionNotifyUser);
    if (attempt != run.attempted.end()) run.attempted.erase(attempt);
    if (!run.refused) run.refused = kActionNotifyUser;
}

// What opens something

void RuleRunner::executeOpenAction(RuleRun& run, const ActionKindRow& kind, const QuomiAction& action) {
    const auto outcome = actionExecutor_ != nullptr
                             ? actionExecutor_->executeOpenAction(kind.kind, action.param, triggeredBy())
                             : ActionOutcome::impossible;
    if (hasEnded()) return;
    if (outcome == ActionOutcome::vetoed) {
        if (!run.refused) run.refused = action.type;
        return;
    }
    run.attempted.push_back(action.type);
    if (isDone(outcome)) logAction(run, kind.type);
}

// Servers

void RuleRunner::executeNotifyServerAction(const Run& run) {
    const auto outcome = askServer(run);
    if (hasEnded()) return;
    switch (outcome) {
        case ActionOutcome::performed:
            askingServers_.push_back(run);
            return report(*run, RuleDecision::askServer, [&run] { return json::object{{"url", run->serverUrl}}; });
        case ActionOutcome::performedByHost:
            return report(*run, RuleDecision::hostAsked);
        case ActionOutcome::vetoed:
            takeCountBack(*run);
            return reportRefused(*run, kActionNotifyServer);
        case ActionOutcome::impossible:
            takeCountBack(*run);
            return report(*run, RuleDecision::serverFailed);
    }
}

ActionOutcome RuleRunner::askServer(const Run& run) {
    if (actionExecutor_ == nullptr) return ActionOutcome::impossible;
    ServerNotification question{run->serverUrl};
    question.success = guard([this, run] { logAction(*run, kActionNotifyServer); });
    question.enableBlock = guard([this, run] {
        auto remaining = run->actions;
        std::erase_if(remaining, [](const auto& action) { return isOfKind(action, ActionKind::notifyServer); });
        hooks_.serverAllowed(run, remaining);
    });
    question.ended = guard([this, run](const QuomiNotifyServerResponse* answer) {
        std::erase(askingServers_, run);
        reportAnswer(*run, answer);
    });
    auto info = run->info;
    info["triggeredBy"] = triggeredBy();
    return actionExecutor_->executeNotifyServerAction(std::move(question), triggeredBy(), info);
}

std::string RuleRunner::encodedUserID() const {
    return withoutStrayPercents(QuomiURLEncoder::URLEncodeString(context_.userID().value_or("")));
}

// Reports

std::shared_ptr<const RuleObserver> RuleRunner::observer() const {
    return context_.observer ? context_.observer() : nullptr;
}

void RuleRunner::tell(const RuleObserver& watcher, const RuleReport& report) {
    callHost(watcher.ruleDecided, report);
}

void RuleRunner::report(const RuleRun& run, RuleDecision decision) const {
    report(run, decision, [] { return json::object(); });
}

void RuleRunner::report(const Latch& latch, RuleDecision decision) const {
    if (const auto watcher = observer()) {
        tell(*watcher, {latch.latchTimeRuleID, latch.latchTimeRegionID, latch.trigger, decision, {}});
    }
}

void RuleRunner::reportUnanswered() {
    for (const auto& run : std::exchange(askingServers_, {})) report(*run, RuleDecision::serverFailed);
}

void RuleRunner::reportAnswer(const RuleRun& run, const QuomiNotifyServerResponse* answer) const {
    if (answer == nullptr) return report(run, RuleDecision::serverFailed);
    if (answer->decision == kNotifyServerDecisionDisable) return report(run, RuleDecision::serverDeclined);
    if (answer->decision != kNotifyServerDecisionNotify) return;  // an allowed rule reports for itself
    report(run, RuleDecision::serverOrdered, [answer] {
        return json::object{{"actions", typesOf(answer->orderedActions())}};
    });
}

void RuleRunner::reportRefused(const RuleRun& run, std::string_view type) const {
    report(run, RuleDecision::vetoed, [type] { return json::object{{"action", type}}; });
}

void RuleRunner::reportExecuted(RuleRun& run) const {
    run.isReported = true;
    if (run.attempted.empty() && run.refused) return reportRefused(run, *run.refused);
    report(run, RuleDecision::executed, [&run] {
        return json::object{{"actions", json::array(run.attempted.begin(), run.attempted.end())}};
    });
}

}  // namespace quomi
