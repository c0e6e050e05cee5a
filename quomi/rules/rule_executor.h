#pragma once

#include "quomi/data/data.h"
#include "quomi/model/action.h"
#include "quomi/rules/latch_timers.h"
#include "quomi/rules/rule_context.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

class QuomiActionExecutor;
enum class ActionOutcome;
struct QuomiNotifyServerResponse;

/// A rule whose actions run, by value: nothing of it hangs on the store, whose objects may go meanwhile.
struct RuleRun {
    std::string ruleId;
    std::string owner;
    std::string trigger;
    std::int64_t ruleObjectID = 0;
    std::int64_t ownerObjectID = 0;
    std::vector<QuomiAction> actions;  ///< all of the rule's
    boost::json::object info;          ///< user info of its notifications

    std::vector<std::string> attempted{};  ///< types of the actions that were tried and not refused
    std::optional<std::string> refused{};  ///< type of the first that the host refused
    bool isReported = false;
};

/// What the executors of beacon rules and of geofence rules share: the gates, the latch timers and the actions of a
/// rule.
///
/// Made with `std::make_shared`. Host's thread only. Every operation may be called from inside every callback, and so
/// may `end`.
class RuleExecutor : public std::enable_shared_from_this<RuleExecutor> {
public:
    virtual ~RuleExecutor();
    RuleExecutor(const RuleExecutor&) = delete;
    RuleExecutor& operator=(const RuleExecutor&) = delete;

    /// Ends it for good: latch times, answers of servers and what is under way come to nothing. Afterwards every
    /// operation does nothing, the store is not touched and nobody is called.
    void end();

    /// Performs the single actions; null for nobody.
    void setActionExecutor(std::shared_ptr<QuomiActionExecutor> actionExecutor);

    /// Ends every latch time that runs; its rule does not run.
    void clearAllPendingTimers();
    [[nodiscard]] std::size_t pendingTimersCount() const { return delayedRulesExecutionTimers_.count(); }

protected:
    using Run = std::shared_ptr<RuleRun>;
    using Actions = std::vector<QuomiAction>;
    using Rule = std::shared_ptr<RuleWithActions>;
    using Owner = std::shared_ptr<RuleOwner>;

    RuleExecutor(RuleArea area, RuleExecutorContext context);

    [[nodiscard]] const RuleExecutorContext& context() const { return context_; }
    [[nodiscard]] bool hasEnded() const { return hasEnded_; }
    void clearTimers(const std::string& regionID);

    // Where beacons and geofences differ

    /// What to do with a rule whose latch time has passed.
    virtual void executeDelayedAction(const Latch& latch) = 0;
    /// User info of the rule's notifications.
    [[nodiscard]] virtual boost::json::object infoDictForLocalNotification(const RuleOwner& owner,
                                                                           const RuleWithActions& rule) const = 0;
    /// The URL of the rule's server, its placeholders filled.
    [[nodiscard]] virtual std::string serverUrl(const std::string& urlTemplate, const RuleOwner& owner,
                                                const RuleWithActions& rule) const = 0;
    /// Called before a rule asks its server.
    virtual void prepareServerNotification() {}
    /// Runs what the rule's server allowed.
    virtual void executeEnabledActions(const Run& run, const Actions& actions) = 0;
    /// The host refused the rule's notification, or its server was not asked.
    virtual void actionWasRefused(const RuleRun& run) = 0;

    // What they share. Whoever calls one of these looks afterwards whether the executor has ended.

    /// The object as the store has it now; null when it is gone. A failed save and the host disconnect objects.
    template <class Object>
    [[nodiscard]] std::shared_ptr<Object> current(const std::shared_ptr<Object>& object) const {
        if (object->context() != nullptr) return object;
        return context_.data.currentObjectContext().template objectWithID<Object>(object->objectID());
    }
    /// Logs the event and passes the rule through the gates; false when it was stopped, which is reported then, or has
    /// gone.
    bool passesGates(const Rule& rule, const Owner& owner);
    [[nodiscard]] Run makeRun(const RuleWithActions& rule, const RuleOwner& owner) const;
    /// Runs the actions of a rule that has passed all gates: at once, or when its server allows it.
    void execute(const Run& run, const RuleWithActions& rule, const RuleOwner& owner);
    /// The combined notification or each action by itself, and the report.
    void executeActions(const Run& run, const Actions& actions);
    void startLatch(const RuleWithActions& rule, const RuleOwner& owner);
    [[nodiscard]] std::string encodedUserID() const;

    // Reports. None builds anything when nobody looks on.

    [[nodiscard]] std::shared_ptr<const RuleObserver> observer() const;
    template <class MakeDetail>
    void report(const RuleWithActions& rule, const RuleOwner& owner, RuleDecision decision,
                const MakeDetail& makeDetail) const {
        if (const auto watcher = observer()) tell(*watcher, nameOf(rule, owner), decision, makeDetail());
    }
    void report(const Latch& latch, RuleDecision decision) const;
    /// Of rules whose servers will not be heard any more.
    void reportUnanswered();
    template <class Rules>
    void reportInactive(const RuleOwner& owner, const Rules& rules, const Error& why) const {
        for (const auto& rule : rules) {
            if (hasEnded_) return;
            report(*rule, owner, RuleDecision::inactive, [&why] { return boost::json::object{{"code", why.code}}; });
        }
    }

private:
    /// Who a report is about.
    struct RuleName {
        std::string ruleId;
        std::string owner;
        std::string trigger;
    };
    [[nodiscard]] static RuleName nameOf(const RuleWithActions& rule, const RuleOwner& owner);
    static void tell(const RuleObserver& watcher, RuleName rule, RuleDecision decision, boost::json::object detail);
    template <class MakeDetail>
    void report(const RuleRun& run, RuleDecision decision, const MakeDetail& makeDetail) const;
    void reportExecuted(RuleRun& run) const;
    void reportRefused(const RuleRun& run, const std::string& type) const;

    template <class Work>
    [[nodiscard]] auto unlessEnded(Work work);
    void logAction(const RuleRun& run, const char* action) const;
    bool executeNotify(const Run& run, const Actions& actions);
    void executeAction(const Run& run, const QuomiAction& action);
    void executeLocalNotificationAction(const Run& run, const QuomiAction& action, const QuomiAction* openAction);
    void notificationWasRefused(RuleRun& run);
    void executeOpenWebPageAction(RuleRun& run, const QuomiAction& action);
    void executeOpenDeepLinkAction(RuleRun& run, const QuomiAction& action);
    void openActionEnded(RuleRun& run, const QuomiAction& action, ActionOutcome outcome) const;
    void executeNotifyServerAction(const Run& run, const std::string& url);
    void reportAnswer(const RuleRun& run, const QuomiNotifyServerResponse* answer) const;

    const RuleArea area_;
    const RuleExecutorContext context_;
    std::shared_ptr<QuomiActionExecutor> actionExecutor_;
    bool hasEnded_ = false;
    std::vector<Run> askingServers_;  // whose servers have not answered
    LatchTimers delayedRulesExecutionTimers_;
};

}  // namespace quomi
