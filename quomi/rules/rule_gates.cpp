#include "quomi/rules/rule_gates.h"

#include "quomi/data/data.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/rules/rule_run.h"

#include <algorithm>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

using Stop = std::optional<RuleStop>;
using Owner = std::shared_ptr<RuleOwner>;

/// The first time after the moment, and the first at which a period that began there has passed.
constexpr Duration kNext{1};

/// A limit and what it is compared with. Without a usable period it looks at the count of the whole life.
struct Limit {
    RuleDecision decision;
    std::int32_t events;  // below 1: no limit
    std::int32_t period;  // seconds; below 1: none
    const History& history;
    std::int32_t lifetimeCount;

    [[nodiscard]] bool isSet() const { return events >= 1; }
    [[nodiscard]] bool hasPeriod() const { return period >= 1; }

    [[nodiscard]] std::int64_t count(WallTime now) const {
        if (!hasPeriod()) return lifetimeCount;
        const auto periodStart = now - std::chrono::seconds(period);
        return static_cast<std::int64_t>(QuomiHistoryUtils::eventsCountInHistory(history, periodStart));
    }

    [[nodiscard]] RuleStop stop(WallTime now) const {
        RuleStop stop{decision, static_cast<double>(count(now)), events};
        if (hasPeriod()) stop.period = period;
        return stop;
    }

    /// When the period will hold one event less than the limit: everything counts from the first date inside it on, so
    /// all but the last dates must lie before it.
    [[nodiscard]] WallTime fallsBelowAt() const {
        const auto latest = std::max_element(history.begin(), history.end() - (events - 1));
        return *latest + std::chrono::seconds(period) + kNext;
    }

    [[nodiscard]] Stop stopAtMaximum(WallTime now) const {
        if (!isSet() || count(now) < events) return std::nullopt;
        auto reached = stop(now);
        if (hasPeriod()) reached.until = fallsBelowAt();
        return reached;
    }

    [[nodiscard]] Stop stopBelowMinimum(WallTime now) const {
        if (!isSet() || count(now) >= events) return std::nullopt;
        return stop(now);
    }
};

Stop stopAtMaximum(const RuleWithActions& rule, const RuleOwner* group, WallTime now) {
    const Limit own{RuleDecision::ruleMax, rule.maxEvents, rule.maxEventsPeriod, rule.history, rule.triggersCount};
    if (auto stop = own.stopAtMaximum(now); stop || group == nullptr) return stop;
    return Limit{RuleDecision::groupMax, rule.maxGroupEvents, rule.maxGroupEventsPeriod, group->groupHistory,
                 group->groupTriggersCount}
        .stopAtMaximum(now);
}

Stop stopBelowMinimum(const RuleWithActions& rule, const RuleOwner* group, WallTime now) {
    const Limit own{RuleDecision::ruleMin, rule.minEvents, rule.minEventsPeriod, rule.history, rule.triggersCount};
    if (auto stop = own.stopBelowMinimum(now); stop || group == nullptr) return stop;
    return Limit{RuleDecision::groupMin, rule.minGroupEvents, rule.minGroupEventsPeriod, group->groupHistory,
                 group->groupTriggersCount}
        .stopBelowMinimum(now);
}

Stop stopInMinInterval(const QuomiStatusInfo& status, WallTime now) {
    if (status.minIntervalPassed(now)) return std::nullopt;
    return RuleStop{RuleDecision::minInterval, toSeconds(now - status.lastEventDate), status.globalMinInterval,
                    std::nullopt, status.lastEventDate + std::chrono::seconds(status.globalMinInterval) + kNext};
}

Stop stopAtGlobalMaximum(const QuomiStatusInfo& status, WallTime now) {
    return Limit{RuleDecision::globalMax, status.globalMaxEvents, status.globalMaxEventsPeriod, status.globalHistory,
                 status.globalTriggersCount}
        .stopAtMaximum(now);
}

Owner fetchGroup(const RuleExecutorContext& context, RuleArea area, const std::optional<std::string>& id) {
    if (!id || id->empty()) return nullptr;
    std::optional<Error> error;
    Owner group;
    if (area == RuleArea::beacon) {
        group = context.data.getBeaconById(*id, &error);
    } else {
        group = context.data.getGeofenceById(*id, &error);
    }
    // "beacon" for geofences too: deliberate, those who read system logs look for this text.
    if (error) {
        context.platform.console.log(fmt::format("Quomi SDK Error: unable to retrieve group beacon with ID {}", *id));
    }
    return group;
}

std::vector<Owner> fetchMembers(const RuleExecutorContext& context, RuleArea area, const RuleOwner& group) {
    if (area == RuleArea::beacon) {
        const auto beacons = context.data.getBeaconsInGroup(group.identifier());
        return {beacons.begin(), beacons.end()};
    }
    const auto geofences = context.data.getGeofencesInGroup(group.identifier());
    return {geofences.begin(), geofences.end()};
}

void increment(std::int32_t& count) {
    if (count < std::numeric_limits<std::int32_t>::max()) ++count;
}

void decrement(std::int32_t& count) {
    if (count > 0) --count;
}

void count(RuleArea area, QuomiStatusInfo& status, RuleWithActions& rule, RuleOwner* group,
           const std::vector<Owner>& members, WallTime now) {
    if (area == RuleArea::beacon) status.lastEventDate = now;
    if (rule.underGlobalCounter) {
        increment(status.globalTriggersCount);
        status.addDateToHistory(now);
        status.trimOutdatedHistoryElements(now);
    }
    increment(rule.triggersCount);
    rule.lastTriggerDate = now;
    QuomiRuleHelper::addDateToHistoryOfRule(rule, now);
    QuomiRuleHelper::trimOutdatedHistoryElementsOfRule(rule, now);
    if (group == nullptr) return;
    increment(group->groupTriggersCount);
    QuomiRuleHelper::addDateToHistoryOfGroup(*group, now);
    QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(*group, members, now);
}

/// The rule that was counted, or the one that a download has put in its place at the same beacon.
std::shared_ptr<RuleWithActions> countedRule(QuomiData& data, const RuleRun& run) {
    if (auto rule = data.currentObjectContext().objectWithID<QuomiBeaconRuleWithActions>(run.ruleObjectID)) return rule;
    const auto owner = data.getBeaconById(run.owner);
    return owner != nullptr ? owner->ruleWithId(run.ruleId) : nullptr;
}

void uncountRule(QuomiData& data, const RuleRun& run, WallTime now) {
    const auto rule = countedRule(data, run);
    if (rule == nullptr) return;
    decrement(rule->triggersCount);
    QuomiRuleHelper::removeLastDateFromHistoryOfRule(*rule);
    QuomiRuleHelper::trimOutdatedHistoryElementsOfRule(*rule, now);
}

void uncountGroup(const RuleExecutorContext& context, const std::optional<std::string>& id, WallTime now) {
    const auto group = fetchGroup(context, RuleArea::beacon, id);
    if (group == nullptr) return;
    decrement(group->groupTriggersCount);
    QuomiRuleHelper::removeLastDatesFromGroup(*group, 1);
    QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(*group, fetchMembers(context, RuleArea::beacon, *group), now);
}

}  // namespace

bool QuomiRuleHelper::minEventsConditionsFulfilledForRule(const RuleWithActions& rule, const RuleOwner* group,
                                                          WallTime now) {
    return !stopBelowMinimum(rule, group, now);
}

bool QuomiRuleHelper::maxEventsConditionsFulfilledForRule(const RuleWithActions& rule, const RuleOwner* group,
                                                          WallTime now) {
    return !stopAtMaximum(rule, group, now);
}

std::optional<RuleStop> countEvent(const RuleExecutorContext& context, RuleArea area, const RuleRun& run,
                                   const std::shared_ptr<RuleWithActions>& rule) {
    const RuleStop notCounted{RuleDecision::saveFailed};
    // What rules change is not what these fetches ask for, and what is saved is known: no rule costs a look at all the
    // others.
    auto& objects = context.data.currentObjectContext();
    const ObjectContext::Bulk bulk(objects);
    const auto group = fetchGroup(context, area, run.group);
    const auto now = context.platform.clock.now();
    const auto status = context.data.getSDKStatusInfo();
    if (status == nullptr) return notCounted;
    Stop stop;
    if (area == RuleArea::beacon) stop = stopInMinInterval(*status, now);
    if (!stop && rule->underGlobalCounter) stop = stopAtGlobalMaximum(*status, now);
    if (!stop) stop = stopAtMaximum(*rule, group.get(), now);
    if (stop) return stop;
    const auto members = group != nullptr ? fetchMembers(context, area, *group) : std::vector<Owner>();
    count(area, *status, *rule, group.get(), members, now);
    objects.touch(status);
    objects.touch(rule);
    if (group != nullptr) objects.touch(group);
    if (!context.data.saveContext()) return notCounted;
    return stopBelowMinimum(*rule, group.get(), now);
}

void uncountEvent(const RuleExecutorContext& context, const RuleRun& run) {
    const auto status = context.data.getSDKStatusInfo();
    if (status == nullptr) return;
    const WallTime now = context.platform.clock.now();
    status->lastEventDate = {};
    if (run.underGlobalCounter) {
        decrement(status->globalTriggersCount);
        status->removeLastDateFromHistory();
        status->trimOutdatedHistoryElements(now);
        uncountRule(context.data, run, now);
        uncountGroup(context, run.group, now);
    }
    std::optional<Error> error;
    if (!context.data.saveContext(&error) && error) {
        context.platform.console.log(
            fmt::format("Quomi SDK Error: unable to save context: {}", boost::json::serialize(error->userInfo)));
    }
}

}  // namespace quomi
