#include "quomi/rules/beacon_rule_executor.h"

#include "quomi/beacons/beacon.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/rules/rule_gates.h"
#include "quomi/rules/server_url.h"
#include "quomi/util/uuid.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <boost/json/array.hpp>
#include <fmt/format.h>

namespace quomi {

namespace json = boost::json;

namespace {

/// Accuracies up to this one are none.
constexpr double kNoAccuracy = std::numeric_limits<double>::epsilon();

/// As the system log shows a number that may be missing.
std::string textOf(const std::optional<std::int32_t>& number) {
    return number ? std::to_string(*number) : "(null)";
}

json::value valueOf(const std::optional<std::int32_t>& number) {
    return number ? json::value(*number) : json::value();
}

json::object infoDictForLocalNotification(const QuomiBeaconData& beacon, const QuomiBeaconRuleWithActions& rule) {
    return {{"area_type", "beacon"},
            {"beacon_id", beacon.beaconId},
            {"rule_id", rule.ruleId.value_or("")},
            {"major", valueOf(beacon.major)},
            {"minor", valueOf(beacon.minor)},
            {"beacon_name", beacon.name},
            {"max_medium_far_distance", rule.maxDistanceMediumFar}};
}

}  // namespace

QuomiBeaconActionExecutor::QuomiBeaconActionExecutor(RuleExecutorContext context, NearbyBeacons nearbyBeacons)
    : nearbyBeacons_(std::move(nearbyBeacons)),
      runner_(RuleArea::beacon, std::move(context),
              {[this](const Latch& latch) { executeDelayedAction(latch); },
               [this](const auto& run, const auto& actions) { runner_.executeActions(run, actions); }}) {}

// Events

bool QuomiBeaconActionExecutor::executeRegionEnteredActions(const Beacon& beacon, ErrorSlot error) {
    return executeEvent(beacon, {kTriggerOnEntry}, true, std::nullopt, error);
}

bool QuomiBeaconActionExecutor::executeRegionExitedActions(const Beacon& beacon, ErrorSlot error) {
    return executeEvent(beacon, {kTriggerOnExit}, false, std::nullopt, error);
}

bool QuomiBeaconActionExecutor::executeBeaconFoundActions(const Beacon& beacon, QuomiProximity firstProximity,
                                                          ErrorSlot error) {
    return executeEvent(beacon, {kTriggerOnEntry}, true, Move{QuomiProximityUndetermined, 0, firstProximity, 0}, error);
}

bool QuomiBeaconActionExecutor::executeBeaconLostActions(const Beacon& beacon, QuomiProximity lastProximity,
                                                         ErrorSlot error) {
    return executeEvent(beacon, {kTriggerOnExit}, false, Move{lastProximity, 0, QuomiProximityUndetermined, 0}, error);
}

bool QuomiBeaconActionExecutor::executeBeaconProximityChangedActions(const Beacon& beacon,
                                                                     QuomiProximity previousProximity,
                                                                     QuomiProximity newProximity, ErrorSlot error) {
    return executeBeaconProximityChangedActions(beacon, previousProximity, 0, newProximity, 0, error);
}

bool QuomiBeaconActionExecutor::executeBeaconProximityChangedActions(const Beacon& beacon,
                                                                     QuomiProximity previousProximity,
                                                                     double previousAccuracy,
                                                                     QuomiProximity newProximity, double accuracy,
                                                                     ErrorSlot error) {
    return executeEvent(beacon, {kTriggerOnExit, kTriggerOnEntry}, false,
                        Move{previousProximity, previousAccuracy, newProximity, accuracy}, error);
}

bool QuomiBeaconActionExecutor::executeEvent(const Beacon& beacon, TriggerKeys triggerKeys, bool isSeenAnew,
                                             const std::optional<Move>& move, ErrorSlot error) {
    if (runner_.hasEnded()) return false;
    // The records of one event come in a row: what happened to the first may have replaced the others.
    const auto seenNow = current(context_.data, beacon);
    if (seenNow == nullptr) return false;
    seenNow->lastSeenAt = context_.platform.clock.now();
    if (isSeenAnew && seenNow->seenCount < std::numeric_limits<std::int32_t>::max()) ++seenNow->seenCount;
    if (!context_.data.saveContextSoon(error) || !isActive(*seenNow, triggerKeys, error)) return false;
    for (const char* triggerKey : triggerKeys) {
        const auto seen = runner_.hasEnded() ? nullptr : current(context_.data, beacon);
        if (seen != nullptr) executeRulesForBeacon(*seen, triggerKey, move);
    }
    return true;
}

bool QuomiBeaconActionExecutor::isActive(QuomiBeaconData& beacon, TriggerKeys triggerKeys, ErrorSlot error) const {
    std::optional<Error> failure;
    if (beacon.isActive(context_.platform.clock, context_.errors, &failure)) return true;
    if (runner_.observer() != nullptr) {
        for (const char* triggerKey : triggerKeys) {
            reportInactive(runner_, beacon, beacon.getActionsAndRulesSuitableForTrigger(triggerKey), *failure);
        }
    }
    assign(error, std::move(*failure));
    return false;
}

// The rules of a trigger

void QuomiBeaconActionExecutor::executeRulesForBeacon(QuomiBeaconData& beacon, const char* triggerKey,
                                                      const std::optional<Move>& move) {
    auto rules = beacon.getActionsAndRulesSuitableForTrigger(triggerKey);
    if (move) std::erase_if(rules, [&](const auto& rule) { return !isCrossed(*rule, beacon, *move); });
    if (rules.empty()) {
        QuomiLogVoid("No actions to execute for beaconId = {}, triggerKey = {}", beacon.beaconId, triggerKey);
        return;
    }
    QuomiLogVoid("Executing {} rules for beaconId = {}, triggerKey = {}", rules.size(), beacon.beaconId, triggerKey);
    std::ranges::stable_sort(rules, [](const auto& a, const auto& b) { return a->priority < b->priority; });
    for (const auto& each : rules) {
        if (runner_.hasEnded()) return;
        const auto rule = current(context_.data, each);
        if (const auto owner = rule != nullptr ? rule->beacon() : nullptr) executeRule(rule, owner);
    }
}

bool QuomiBeaconActionExecutor::isCrossed(const QuomiBeaconRuleWithActions& rule, const QuomiBeaconData& beacon,
                                          const Move& move) const {
    const bool isMeasured = !(move.accuracy <= kNoAccuracy);
    const auto previous =
        isMeasured ? reclassified(move.previousProximity, move.previousAccuracy, &rule) : move.previousProximity;
    const auto now = isMeasured ? reclassified(move.newProximity, move.accuracy, &rule) : move.newProximity;
    if (rule.isCrossedBy(previous, now)) return true;
    if (previous != now && !runner_.hasEnded()) {
        runner_.report(rule, beacon, RuleDecision::outOfRange, [&] {
            const auto range = rule.range();
            return json::object{
                {"range", json::array{static_cast<std::int64_t>(range.start), static_cast<std::int64_t>(range.end)}},
                {"previous", static_cast<std::int64_t>(previous)},
                {"new", static_cast<std::int64_t>(now)}};
        });
    }
    return false;
}

QuomiProximity QuomiBeaconActionExecutor::reclassified(QuomiProximity proximity, double accuracy,
                                                       const QuomiBeaconRuleWithActions* rule) const {
    const bool hasOwnThreshold = rule != nullptr && rule->useRuleMaxMediumFar;
    return QuomiProximityUtils::updateProximity(
        proximity, accuracy,
        hasOwnThreshold ? rule->maxDistanceMediumFar : context_.settings.proximityFarSplitThreshold);
}

// One rule

void QuomiBeaconActionExecutor::executeRule(const Rule& rule, const Beacon& beacon) {
    if (rule->latchTime > 0) return runner_.startLatch(*rule, *beacon);
    executeActionsOfRule(rule, beacon, rule->trigger);
}

void QuomiBeaconActionExecutor::executeActionsOfRule(const Rule& rule, const Beacon& beacon,
                                                     const std::string& trigger) {
    const auto run = std::make_shared<RuleRun>(RuleRun::of(*rule, *beacon, trigger));
    if (!runner_.passesGates(*run, rule)) return;
    run->actions = rule->getAndDeserializeActions().value_or(RuleRunner::Actions());
    run->info = infoDictForLocalNotification(*beacon, *rule);
    context_.debugLog.log(
        "BeaconActionExecutor: executeActionsOfRule ID: {} (# actions: {}) forBeacon [UUID: {} major: {} minor: {}]",
        run->ruleId, run->actions.size(), beacon->proximityUUID, textOf(beacon->major), textOf(beacon->minor));
    if (runner_.willAskServer(*run)) run->serverUrl = serverUrl(run->serverAction()->param, *beacon, *rule);
    runner_.execute(run);
}

// Latch times

void QuomiBeaconActionExecutor::executeDelayedAction(const Latch& latch) {
    const auto beacon = context_.data.getBeaconById(latch.latchTimeRegionID);
    const auto rule = ruleOf(latch, beacon.get());
    if (beacon == nullptr || rule == nullptr) {
        context_.platform.console.log(
            "Quomi SDK Error: Cannot execute beacon rule with latch time: couldn't retrieve rule data.");
    }
    const bool holds = stillHolds(latch, beacon.get(), rule.get());
    if (!holds || beacon == nullptr || rule == nullptr) return runner_.report(latch, RuleDecision::latchBroken);
    executeActionsOfRule(rule, beacon, latch.trigger);
}

/// The beacon's own rule, and only when that has gone the store's first of its identifier.
QuomiBeaconActionExecutor::Rule QuomiBeaconActionExecutor::ruleOf(const Latch& latch, QuomiBeaconData* beacon) const {
    const auto own = beacon != nullptr ? beacon->ruleWithId(latch.latchTimeRuleID) : nullptr;
    return own != nullptr ? std::static_pointer_cast<QuomiBeaconRuleWithActions>(own)
                          : context_.data.getBeaconRuleById(latch.latchTimeRuleID);
}

bool QuomiBeaconActionExecutor::stillHolds(const Latch& latch, const QuomiBeaconData* beacon,
                                           const QuomiBeaconRuleWithActions* rule) const {
    const auto live = beacon != nullptr ? liveBeacon(*beacon) : nullptr;
    const bool isInside = live != nullptr && rule != nullptr &&
                          rule->range().contains(reclassified(live->proximity(), live->accuracy(), rule));
    const bool isEntry = latch.trigger == kTriggerOnEntry;
    if (isInside == isEntry) return true;
    const auto uuid = beacon != nullptr ? beacon->proximityUUID : "(null)";
    const auto major = textOf(beacon != nullptr ? beacon->major : std::nullopt);
    const auto minor = textOf(beacon != nullptr ? beacon->minor : std::nullopt);
    const auto id = beacon != nullptr ? beacon->beaconId : "(null)";
    const auto start = textOf(rule != nullptr ? std::optional(rule->proximity) : std::nullopt);
    const auto end = textOf(rule != nullptr ? rule->proximityEnd : std::nullopt);
    // That the two differ in blanks and in the full stop is deliberate: those who read system logs look for them so.
    if (isEntry) {
        context_.platform.console.log(fmt::format(
            "Quomi SDK: Proximity of beacon (UUID: {} - Major: {} - Minor: {} ,ID = {}) has changed (expected to be "
            "between {} and {} to execute rule) or beacon is not visible anymore, actions won't be executed.",
            uuid, major, minor, id, start, end));
    } else {
        context_.platform.console.log(fmt::format(
            "Quomi SDK: Proximity of beacon (UUID: {} - Major: {} - Minor: {} , ID = {}) has changed (expected to be "
            "not between {} and {} to execute rule), actions won't be executed",
            uuid, major, minor, id, start, end));
    }
    return false;
}

std::shared_ptr<const QuomiBeacon> QuomiBeaconActionExecutor::liveBeacon(const QuomiBeaconData& beacon) const {
    for (const auto& live : nearbyBeacons_()) {
        if (beacon.major == live->major() && beacon.minor == live->minor() &&
            beacon.proximityUUID == live->proximityUUID().string()) {
            return live;
        }
    }
    return nullptr;
}

// Servers

std::string QuomiBeaconActionExecutor::serverUrl(const std::string& urlTemplate, const QuomiBeaconData& beacon,
                                                 const QuomiBeaconRuleWithActions& rule) const {
    ServerUrl url(urlTemplate, context_.platform.console);
    url.fill("{id}", beacon.beaconId)
        .fill("{udid}", context_.udid())
        .fill("{namespace}", beacon.namespace_.value_or(""))
        .fill("{proximityUUID}", beacon.proximityUUID);
    if (beacon.major && beacon.minor) {
        url.fill("{major}", std::to_string(*beacon.major))
            .fill("{minor}", std::to_string(*beacon.minor))
            .fill("{proximity}", std::to_string(rule.proximity))
            .fill("{proximityEnd}", std::to_string(rule.proximityEnd.value_or(rule.proximity)));
    }
    return url.fill("{ext_id}", runner_.encodedUserID()).withAreaType("beacon");
}

}  // namespace quomi
