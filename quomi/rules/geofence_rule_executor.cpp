#include "quomi/rules/geofence_rule_executor.h"

#include "quomi/model/errors.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/run_loop.h"
#include "quomi/rules/server_url.h"

#include <chrono>
#include <limits>
#include <utility>

#include <fmt/format.h>

namespace quomi {

namespace json = boost::json;

QuomiGeofenceActionExecutor::QuomiGeofenceActionExecutor(RuleExecutorContext context, RulePosition position)
    : RuleExecutor(RuleArea::geofence, std::move(context)), position_(std::move(position)) {}

QuomiGeofenceActionExecutor::~QuomiGeofenceActionExecutor() = default;

// Events

bool QuomiGeofenceActionExecutor::executeGeofenceEnteredActions(const Geofence& geofence, ErrorSlot error) {
    if (hasEnded()) return false;
    const auto entered = geofence != nullptr ? current(geofence) : nullptr;
    if (entered != nullptr) {
        entered->lastEnteredAt = context().platform.clock.now();
        if (entered->entryCount < std::numeric_limits<std::int32_t>::max()) ++entered->entryCount;
    }
    if (!context().data.saveContext(error)) return false;
    return executeRulesAndActionsForGeofence(entered, kTriggerOnEntry, error);
}

bool QuomiGeofenceActionExecutor::executeGeofenceExitedActions(const Geofence& geofence, ErrorSlot error) {
    if (hasEnded()) return false;
    return executeRulesAndActionsForGeofence(geofence != nullptr ? current(geofence) : nullptr, kTriggerOnExit, error);
}

bool QuomiGeofenceActionExecutor::executeRulesAndActionsForGeofence(const Geofence& geofence, const char* triggerKey,
                                                                    ErrorSlot error) {
    if (geofence == nullptr) {
        assign(error, context().errors.errorWithCode(ErrorCode::regionDataMissing));
        return false;
    }
    const auto self = shared_from_this();
    std::optional<Error> failure;
    if (!geofence->isActive(context().platform.clock, context().errors, &failure)) {
        if (observer() != nullptr) {
            reportInactive(*geofence, geofence->getActionsAndRulesSuitableForTrigger(triggerKey), *failure);
        }
        assign(error, std::move(*failure));
        return false;
    }
    auto rules = geofence->getActionsAndRulesSuitableForTrigger(triggerKey);
    const double speed = position_.currentSpeed();
    std::erase_if(rules, [&](const auto& rule) { return !isSlowEnough(*rule, *geofence, speed); });
    for (const auto& each : rules) {
        const auto rule = hasEnded() ? nullptr : current(each);
        if (const auto owner = rule != nullptr ? rule->geofence() : nullptr) executeRule(rule, owner);
    }
    return true;
}

bool QuomiGeofenceActionExecutor::isSlowEnough(const QuomiGeofenceRuleWithActions& rule, const QuomiGeofence& geofence,
                                               double speed) const {
    const double limit = rule.maxSpeedToNotifyUserThreshold.value_or(0);
    if (limit <= 0 || speed <= limit) return true;
    if (!hasEnded()) {
        report(rule, geofence, RuleDecision::tooFast, [&] { return json::object{{"speed", speed}, {"limit", limit}}; });
    }
    return false;
}

// One rule. Its latch time comes after the gates: an entry counts when it happens.

void QuomiGeofenceActionExecutor::executeRule(const Rule& rule, const Geofence& geofence) {
    if (!passesGates(rule, geofence)) return;
    if (rule->latchTime <= 0) return executeActionsOfRule(*rule, *geofence);
    if (rule->trigger == kTriggerOnEntry) return startLatch(*rule, *geofence);
    const auto stayed = context().platform.clock.now() - geofence->lastEnteredAt;
    if (stayed >= toDuration(Seconds(rule->latchTime))) return executeActionsOfRule(*rule, *geofence);
    report(*rule, *geofence, RuleDecision::visitTooShort, [&] {
        return json::object{{"seconds", toSeconds(stayed)}, {"limit", rule->latchTime}};
    });
}

void QuomiGeofenceActionExecutor::executeDelayedAction(const Latch& latch) {
    std::optional<Error> error;
    const auto geofence = context().data.getGeofenceById(latch.latchTimeRegionID, &error);
    const auto rule = context().data.getGeofenceRuleById(latch.latchTimeRuleID, &error);
    if (error) {
        context().platform.console.log(
            "Quomi SDK Error: Cannot execute geofence rule with latch time: couldn't retrieve rule data.");
    }
    if (geofence == nullptr) {
        // Of the missing geofence, not of the one that was asked for: deliberate.
        context().platform.console.log("Quomi SDK: Geofence (null) has been exited, rule won't be executed.");
    }
    if (geofence == nullptr || rule == nullptr) return report(latch, RuleDecision::latchBroken);
    const auto run = makeRun(*rule, *geofence);
    run->trigger = latch.trigger;  // the event's, though a download may have given the rule another
    execute(run, *rule, *geofence);
}

// Actions

void QuomiGeofenceActionExecutor::executeActionsOfRule(const QuomiGeofenceRuleWithActions& rule,
                                                       const QuomiGeofence& geofence) {
    execute(makeRun(rule, geofence), rule, geofence);
}

void QuomiGeofenceActionExecutor::executeEnabledActions(const Run& run, const Actions& actions) {
    // One queue for each rule that is allowed, "test.fault.coredata" by name where queues have names.
    const auto number = ++queuesMade_;
    auto& runLoop = context().platform.runLoop;
    auto& queue = queues_[number] = runLoop.makeSerialQueue();
    const auto withSelf = [weak = weak_from_this()](const auto& work) {
        const auto self = std::static_pointer_cast<QuomiGeofenceActionExecutor>(weak.lock());
        if (self != nullptr && !self->hasEnded()) work(*self);
    };
    queue->post([withSelf, number, run, actions, &runLoop] {
        withSelf([&](auto& self) { self.executeInPrivateContext(run, actions); });
        // A queue does not end inside its own work.
        runLoop.post([withSelf, number] { withSelf([number](auto& self) { self.queues_.erase(number); }); });
    });
}

void QuomiGeofenceActionExecutor::executeInPrivateContext(const Run& run, const Actions& actions) {
    {
        ObjectContext privateContext(context().data.mainObjectContext());
        auto geofence = privateContext.objectWithID<QuomiGeofence>(run->ownerObjectID);
        // A download may have put another object in its place.
        if (geofence == nullptr) geofence = context().data.getGeofenceById(run->owner);
        if (geofence == nullptr) return executeActions(run, {});
        run->owner = geofence->geofenceId;
        run->info["geofence_id"] = geofence->geofenceId;
    }
    executeActions(run, actions);
}

json::object QuomiGeofenceActionExecutor::infoDictForLocalNotification(const RuleOwner& owner,
                                                                       const RuleWithActions& rule) const {
    return {{"area_type", "geofence"}, {"geofence_id", owner.identifier()}, {"rule_id", rule.ruleId.value_or("")}};
}

std::string QuomiGeofenceActionExecutor::serverUrl(const std::string& urlTemplate, const RuleOwner& owner,
                                                   const RuleWithActions&) const {
    const auto location = position_.currentLocation();
    const auto coordinate = location ? location->coordinate : Coordinate{};
    return ServerUrl(urlTemplate, context().platform.console)
        .fill("{id}", owner.identifier())
        .fill("{udid}", context().udid())
        .fill("{lat}", fmt::format("{:.6f}", coordinate.latitude))
        .fill("{lng}", fmt::format("{:.6f}", coordinate.longitude))
        .fill("{namespace}", owner.namespace_.value_or(""))
        .fill("{ext_id}", encodedUserID())
        .withAreaType("geofence");
}

}  // namespace quomi
