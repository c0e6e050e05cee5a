#pragma once

#include "quomi/data/data.h"
#include "quomi/rules/latch_timers.h"
#include "quomi/rules/rule_context.h"
#include "quomi/rules/rule_run.h"
#include "quomi/util/lifetime.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

class QuomiActionExecutor;
enum class ActionOutcome;
struct QuomiNotifyServerResponse;

/// Takes a rule from its event to its end: latch time, gates, actions, server. An executor prepares the run and hands
/// it over; it hears of a rule again only through the two hooks.
///
/// Host's thread only. Every operation may be called from inside every callback, and so may `end`; whoever calls one
/// looks afterwards whether it has ended.
class RuleRunner {
public:
    using Run = std::shared_ptr<RuleRun>;
    using Actions = std::vector<QuomiAction>;
    struct Hooks {
        /// A latch time has passed.
        std::function<void(const Latch&)> latchEnded;
        /// The rule's server has allowed these of its actions: the executor chooses where `executeActions` runs them.
        std::function<void(const Run&, const Actions&)> serverAllowed;
    };

    RuleRunner(RuleArea area, RuleExecutorContext context, Hooks hooks);
    ~RuleRunner();
    RuleRunner(const RuleRunner&) = delete;
    RuleRunner& operator=(const RuleRunner&) = delete;

    [[nodiscard]] const RuleExecutorContext& context() const { return context_; }
    /// Performs the single actions; null for nobody.
    void setActionExecutor(QuomiActionExecutor* actionExecutor) { actionExecutor_ = actionExecutor; }

    /// Ends it for good: latch times, answers of servers and what is under way come to nothing. Afterwards nothing is
    /// done, the store is not touched and nobody is called.
    void end();
    [[nodiscard]] bool hasEnded() const { return lifetime_.hasEnded(); }
    /// A callback that comes to nothing after the end.
    template <class Work>
    [[nodiscard]] auto guard(Work work) const {
        return lifetime_.guard(std::move(work));
    }

    void startLatch(const RuleWithActions& rule, const RuleOwner& owner);
    [[nodiscard]] LatchTimers& latches() { return latches_; }
    [[nodiscard]] const LatchTimers& latches() const { return latches_; }

    /// Logs the event and passes the rule through the gates; false when it was stopped, which is reported then, or has
    /// gone.
    bool passesGates(const RuleRun& run, const std::shared_ptr<RuleWithActions>& rule);
    /// Whether the run, its actions known, will ask a server.
    [[nodiscard]] bool willAskServer(const RuleRun& run) const;
    /// Runs the actions of a rule that has passed all gates: at once, or when its server allows it.
    void execute(const Run& run);
    /// The combined notification or each action by itself, and the report.
    void executeActions(const Run& run, const Actions& actions);
    [[nodiscard]] std::string encodedUserID() const;

    // Reports. None builds anything when nobody looks on.

    [[nodiscard]] std::shared_ptr<const RuleObserver> observer() const;
    template <class MakeDetail>
    void report(const RuleWithActions& rule, const RuleOwner& owner, RuleDecision decision,
                const MakeDetail& makeDetail) const {
        if (const auto watcher = observer()) {
            tell(*watcher, {rule.ruleId.value_or(""), owner.identifier(), rule.trigger, decision, makeDetail()});
        }
    }
    template <class MakeDetail>
    void report(const RuleRun& run, RuleDecision decision, const MakeDetail& makeDetail) const {
        if (const auto watcher = observer()) {
            tell(*watcher, {run.ruleId, run.owner, run.trigger, decision, makeDetail()});
        }
    }
    void report(const RuleRun& run, RuleDecision decision) const;
    void report(const Latch& latch, RuleDecision decision) const;

private:
    static void tell(const RuleObserver& watcher, const RuleReport& report);
    void reportExecuted(RuleRun& run) const;
    void reportRefused(const RuleRun& run, std::string_view type) const;
    void reportUnanswered();
    void reportAnswer(const RuleRun& run, const QuomiNotifyServerResponse* answer) const;

    [[nodiscard]] int triggeredBy() const { return static_cast<int>(area_); }
    void logAction(const RuleRun& run, const char* action) const;
    bool executeNotify(const Run& run, const Actions& actions);
    void executeAction(const Run& run, const QuomiAction& action);
    void executeLocalNotificationAction(const Run& run, const QuomiAction& action, const QuomiAction* openAction);
    void notificationWasAnswered(RuleRun& run, bool isShown);
    void executeOpenAction(RuleRun& run, const ActionKindRow& kind, const QuomiAction& action);
    void executeNotifyServerAction(const Run& run);
    [[nodiscard]] ActionOutcome askServer(const Run& run);
    void takeCountBack(const RuleRun& run) const;

    const RuleArea area_;
    const RuleExecutorContext context_;
    const Hooks hooks_;
    QuomiActionExecutor* actionExecutor_ = nullptr;
    std::vector<Run> askingServers_;  // whose servers have not answered
    LatchTimers latches_;
    Lifetime lifetime_;
};

/// The object as the store has it now; null when it is gone. A failed save and the host disconnect objects.
template <class Object>
[[nodiscard]] std::shared_ptr<Object> current(QuomiData& data, const std::shared_ptr<Object>& object) {
    if (object->context() != nullptr) return object;
    return data.currentObjectContext().template objectWithID<Object>(object->objectID());
}

/// Reports that the rules are not judged, because their owner is not active.
template <class Rules>
void reportInactive(const RuleRunner& runner, const RuleOwner& owner, const Rules& rules, const Error& why) {
    for (const auto& rule : rules) {
        if (runner.hasEnded()) return;
        runner.report(*rule, owner, RuleDecision::inactive, [&why] { return boost::json::object{{"code", why.code}}; });
    }
}

}  // namespace quomi
