#include "quomi/rules/rule_executor.h"

#include "quomi/api/callback.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/rule_gates.h"
#include "quomi/util/dates.h"
#include "quomi/util/text.h"

#include <chrono>
#include <utility>

namespace quomi {

namespace json = boost::json;

namespace {

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

RuleExecutor::RuleExecutor(RuleArea area, RuleExecutorContext context)
    : area_(area),
      context_(std::move(context)),
      delayedRulesExecutionTimers_(
          context_.platform.runLoop,
          [this](const Latch& latch) {
              const auto self = shared_from_this();
              if (!hasEnded_) executeDelayedAction(latch);
          },
          [this](const Latch& latch) { report(latch, RuleDecision::latchCancelled); }) {}

RuleExecutor::~RuleExecutor() = default;

void RuleExecutor::end() {
    if (hasEnded_) return;
    const auto self = shared_from_this();  // who looks on may let go of it
    hasEnded_ = true;
    actionExecutor_ = nullptr;
    clearAllPendingTimers();
    reportUnanswered();
}

void RuleExecutor::setActionExecutor(std::shared_ptr<QuomiActionExecutor> actionExecutor) {
    if (!hasEnded_) actionExecutor_ = std::move(actionExecutor);
}

void RuleExecutor::clearAllPendingTimers() {
    const auto self = shared_from_this();
    delayedRulesExecutionTimers_.clearAll();
}

void RuleExecutor::clearTimers(const std::string& regionID) {
    const auto self = shared_from_this();
    delayedRulesExecutionTimers_.clear(regionID);
}

bool RuleExecutor::passesGates(const Rule& rule, const Owner& owner) {
    context_.logEvent({{"type", "trigger"},
                       {"trigger", rule->trigger},
                       {"area_type", areaTypeOf(area_)},
                       {"rule_id", rule->ruleId.value_or("")},
                       {areaKeyOf(area_), owner->identifier()}});
    if (hasEnded_ || rule->context() == nullptr) return false;
    const auto stop = countEvent(context_, area_, rule, *owner);
    if (!stop) return true;
    report(*rule, *owner, stop->decision, [&stop] { return detailOf(*stop); });
    return false;
}

void RuleExecutor::startLatch(const RuleWithActions& rule, const RuleOwner& owner) {
    delayedRulesExecutionTimers_.start({owner.identifier(), rule.ruleId.value_or(""), rule.trigger},
                                       toDuration(Seconds(rule.latchTime)));
    report(rule, owner, RuleDecision::latched, [&rule] { return json::object{{"seconds", rule.latchTime}}; });
}

std::string RuleExecutor::encodedUserID() const {
    return QuomiURLEncoder::URLEncodeString(context_.userID().value_or(""));
}

// Reports

std::shared_ptr<const RuleObserver> RuleExecutor::observer() const {
    return context_.observer ? context_.observer() : nullptr;
}

RuleExecutor::RuleName RuleExecutor::nameOf(const RuleWithActions& rule, const RuleOwner& owner) {
    return {rule.ruleId.value_or(""), owner.identifier(), rule.trigger};
}

void RuleExecutor::tell(const RuleObserver& watcher, RuleName rule, RuleDecision decision, json::object detail) {
    callBack(watcher.ruleDecided, RuleReport{std::move(rule.ruleId), std::move(rule.owner), std::move(rule.trigger),
                                             decision, std::move(detail)});
}

void RuleExecutor::report(const Latch& latch, RuleDecision decision) const {
    if (const auto watcher = observer()) {
        tell(*watcher, {latch.latchTimeRuleID, latch.latchTimeRegionID, latch.trigger}, decision, {});
    }
}

}  // namespace quomi
