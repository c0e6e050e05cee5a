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
    : position_(std::move(position)),
      runner_(RuleArea::geofence, std::move(context),
              {[this](const Latch& latch) { executeDelayedAction(latch); },
               [this](const auto& run, const auto& actions) {
                   // Not in the answer's own turn: the app may have work of its own for it.
                   context_.platform.runLoop.postToGlobalQueue(
                       runner_.guard([this, run, actions] { executeAllowedActions(run, actions); }));
               }}) {}

// Events

bool QuomiGeofenceActionExecutor::executeGeofenceEnteredActions(const Geofence& geofence, ErrorSlot error) {
    if (runner_.hasEnded()) return false;
    const auto entered = geofence != nullptr ? current(context_.data, geofence) : nullptr;
    if (entered != nullptr) {
        entered->lastEnteredAt = context_.platform.clock.now();
        if (entered->entryCount < std::numeric_limits<std::int32_t>::max()) ++entered->entryCount;
    }
    if (!context_.data.saveContext(error)) return false;
    return executeRulesAndActionsForGeofence(entered, kTriggerOnEntry, error);
}

bool QuomiGeofenceActionExecutor::executeGeofenceExitedActions(const Geofence& geofence, ErrorSlot error) {
    if (runner_.hasEnded()) return false;
    return executeRulesAndActionsForGeofence(geofence != nullptr ? current(context_.data, geofence) : nullptr,
                                             kTriggerOnExit, error);
}

bool QuomiGeofenceActionExecutor::executeRulesAndActionsForGeofence(const Geofence& geofence, const char* triggerKey,
                                                                    ErrorSlot error) {
    if (geofence == nullptr) {
        assign(error, context_.errors.errorWithCode(ErrorCode::regionDataMissing));
        return false;
    }
    std::optional<Error> failure;
    if (!geofence->isActive(context_.platform.clock, context_.errors, &failure)) {
        if (runner_.observer() != nullptr) {
            reportInactive(runner_, *geofence, geofence->getActionsAndRulesSuitableForTrigger(triggerKey), *failure);
        }
        assign(error, std::move(*failure));
        return false;
    }
    auto rules = geofence->getActionsAndRulesSuitableForTrigger(triggerKey);
    const double speed = position_.currentSpeed();
    std::erase_if(rules, [&](const auto& rule) { return !isSlowEnough(*rule, *geofence, speed); });
    for (const auto& each : rules) {
        const auto rule = runner_.hasEnded() ? nullptr : current(context_.data, each);
        if (const auto owner = rule != nullptr ? rule->geofence() : nullptr) executeRule(rule, owner);
    }
    return true;
}

bool QuomiGeofenceActionExecutor::isSlowEnough(const QuomiGeofenceRuleWithActions& rule, const QuomiGeofence& geofence,
                                               double speed) const {
    const double limit = rule.maxSpeedToNotifyUserThreshold.value_or(0);
    if (limit <= 0 || speed <= limit) return true;
    if (!runner_.hasEnded()) {
        runner_.report(rule, geofence, RuleDecision::tooFast, [&] {
            return json::object{{"speed", speed}, {"limit", limit}};
        });
    }
    return false;
}

// One rule. Its latch time comes after the gates: an entry counts when it happens.

void QuomiGeofenceActionExecutor::executeRule(const Rule& rule, const Geofence& geofence) {
    const auto run = std::make_shared<RuleRun>(RuleRun::of(*rule, *geofence, rule->trigger));
    if (!runner_.passesGates(*run, rule)) return;
    if (rule->latchTime <= 0) return executeActionsOfRule(run, *rule, *geofence);
    if (rule->trigger == kTriggerOnEntry) return runner_.startLatch(*rule, *geofence);
    const auto stayed = context_.platform.clock.now() - geofence->lastEnteredAt;
    if (stayed >= toDuration(Seconds(rule->latchTime))) return executeActionsOfRule(run, *rule, *geofence);
    runner_.report(*run, RuleDecision::visitTooShort, [&] {
        return json::object{{"seconds", toSeconds(stayed)}, {"limit", rule->latchTime}};
    });
}

void QuomiGeofenceActionExecutor::executeDelayedAction(const Latch& latch) {
    std::optional<Error> error;
    const auto geofence = context_.data.getGeofenceById(latch.latchTimeRegionID, &error);
    // The geofence's own rule, and only when that has gone the store's first of its identifier.
    auto rule = geofence != nullptr ? geofence->ruleWithId(latch.latchTimeRuleID) : nullptr;
    if (rule == nullptr) rule = context_.data.getGeofenceRuleById(latch.latchTimeRuleID, &error);
    if (error) {
        context_.platform.console.log(
            "Quomi SDK Error: Cannot execute geofence rule with latch time: couldn't retrieve rule data.");
    }
    if (geofence == nullptr) {
        // Of the missing geofence, not of the one that was asked for: deliberate.
        context_.platform.console.log("Quomi SDK: Geofence (null) has been exited, rule won't be executed.");
    }
    if (geofence == nullptr || rule == nullptr) return runner_.report(latch, RuleDecision::latchBroken);
    executeActionsOfRule(std::make_shared<RuleRun>(RuleRun::of(*rule, *geofence, latch.trigger)),
                         static_cast<const QuomiGeofenceRuleWithActions&>(*rule), *geofence);
}

// Actions

void QuomiGeofenceActionExecutor::executeActionsOfRule(const RuleRunner::Run& run,
                                                       const QuomiGeofenceRuleWithActions& rule,
                                                       const QuomiGeofence& geofence) {
    run->actions = rule.getAndDeserializeActions().value_or(RuleRunner::Actions());
    run->info = {{"area_type", "geofence"}, {"geofence_id", run->owner}, {"rule_id", run->ruleId}};
    if (runner_.willAskServer(*run)) {
        context_.data.saveContext();
        run->serverUrl = serverUrl(run->serverAction()->param, geofence);
    }
    runner_.execute(run);
}

void QuomiGeofenceActionExecutor::executeAllowedActions(const RuleRunner::Run& run,
                                                        const RuleRunner::Actions& actions) {
    {
        ObjectContext privateContext(context_.data.mainObjectContext());
        auto geofence = privateContext.objectWithID<QuomiGeofence>(run->ownerObjectID);
        // A download may have put another object in its place.
        if (geofence == nullptr) geofence = context_.data.getGeofenceById(run->owner);
        if (geofence == nullptr) return runner_.executeActions(run, {});
        run->owner = geofence->geofenceId;
        run->info["geofence_id"] = geofence->geofenceId;
    }
    runner_.executeActions(run, actions);
}

std::string QuomiGeofenceActionExecutor::serverUrl(const std::string& urlTemplate,
                                                   const QuomiGeofence& geofence) const {
    const auto location = position_.currentLocation();
    const auto coordinate = location ? location->coordinate : Coordinate{};
    return ServerUrl(urlTemplate, context_.platform.console)
        .fill("{id}", geofence.geofenceId)
        .fill("{udid}", context_.udid())
        .fill("{lat}", fmt::format("{:.6f}", coordinate.latitude))
        .fill("{lng}", fmt::format("{:.6f}", coordinate.longitude))
        .fill("{namespace}", geofence.namespace_.value_or(""))
        .fill("{ext_id}", runner_.encodedUserID())
        .withAreaType("geofence");
}

}  // namespace quomi
