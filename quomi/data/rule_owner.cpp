#include "quomi/data/rule_owner.h"

#include "quomi/data/entity_type.h"
#include "quomi/model/errors.h"
#include "quomi/platform/clock.h"
#include "quomi/util/dates.h"

#include <algorithm>
#include <utility>

#include <boost/json/array.hpp>

namespace quomi {

namespace {

auto isOfTrigger(std::string_view trigger) {
    return [trigger](const RuleWithActions& rule) { return rule.trigger == trigger; };
}

}  // namespace

std::vector<std::shared_ptr<RuleWithActions>> RuleOwner::rules(std::optional<Error>* error) {
    return rulesWhere<RuleWithActions>([](const RuleWithActions&) { return true; }, error);
}

std::shared_ptr<RuleWithActions> RuleOwner::ruleWithId(const std::string& id) {
    const auto all = rules();
    const auto found = std::ranges::find(all, id, &RuleWithActions::ruleId);
    return found != all.end() ? *found : nullptr;
}

boost::json::array RuleOwner::getActionsAsArrayOfDictionaries() {
    boost::json::array dictionaries;
    for (const auto& rule : rules()) dictionaries.push_back(rule->dictionary());
    return dictionaries;
}

bool RuleOwner::copyCounters(RuleOwner& replaced, WallTime now, std::optional<Error>* error) {
    if (members(error) == nullptr || replaced.members(error) == nullptr) return false;
    copyOwnCounters(replaced);
    groupTriggersCount = replaced.groupTriggersCount;
    groupHistory = replaced.groupHistory;
    const auto others = replaced.rules();
    for (const auto& rule : rules()) {
        for (const auto& other : others) {
            if (rule->ruleId != other->ruleId) continue;
            rule->copyCountersFromRule(*other);
            QuomiRuleHelper::trimOutdatedHistoryElementsOfRule(*rule, now);
        }
    }
    return true;
}

bool RuleOwner::resetAllCounters(std::optional<Error>* error) {
    if (members(error) == nullptr) return false;
    resetOwnCounters();
    groupTriggersCount = 0;
    groupHistory.clear();
    for (const auto& rule : rules()) rule->resetAllCounters();
    return true;
}

QuomiSchedule& RuleOwner::getScheduleObject() {
    scheduleObject_.setFromJSONString(schedule.value_or(""));
    return scheduleObject_;
}

void RuleOwner::setScheduleObject(QuomiSchedule newSchedule) {
    scheduleObject_ = std::move(newSchedule);
    schedule = scheduleObject_.toJSONString();
}

bool RuleOwner::isActive(const Clock& clock, const QuomiErrors& errors, std::optional<Error>* error) {
    const WallTime now = clock.now();
    const auto fail = [&](ErrorCode code) {
        assign(error, errors.errorWithCode(code));
        return false;
    };
    if (startDate && *startDate > now) return fail(ErrorCode::startDateInFuture);
    if (endDate && *endDate < now) return fail(ErrorCode::endDateInPast);
    const auto& hours = getScheduleObject();
    if (hours.toDictionary().empty()) return true;
    const std::string zone = clock.timeZone();
    if (hours.isOpen(now, QuomiUtils::secondsSinceMidnightOfDate(now, zone), zone)) return true;
    return fail(ErrorCode::scheduleClosed);
}

std::vector<std::shared_ptr<QuomiGeofenceRuleWithActions>> QuomiGeofence::getActionsAndRulesSuitableForTrigger(
    std::string_view trigger) {
    return rulesWhere<QuomiGeofenceRuleWithActions>(isOfTrigger(trigger));
}

boost::json::object QuomiGeofence::dictionary() {
    static const AttributeKeys keys =
        attributesNamed({"geofenceId", "name", "latitude", "longitude", "address", "namespace", "enabled", "startDate",
                         "endDate", "entryCount", "lastEnteredAt", "groupTriggersCount", "groupHistory", "updatedAt"});
    auto dictionary = entityType().dictionary(*this, keys);
    dictionary.emplace("actions", getActionsAsArrayOfDictionaries());
    return dictionary;
}

void QuomiGeofence::copyOwnCounters(const RuleOwner& replaced) {
    const auto& geofence = static_cast<const QuomiGeofence&>(replaced);
    entryCount = geofence.entryCount;
    lastEnteredAt = geofence.lastEnteredAt;
}

void QuomiGeofence::resetOwnCounters() {
    entryCount = 0;
    lastEnteredAt = {};
}

std::vector<std::shared_ptr<QuomiBeaconRuleWithActions>> QuomiBeaconData::getActionsAndRulesSuitableForTrigger(
    std::string_view trigger) {
    return rulesWhere<QuomiBeaconRuleWithActions>(isOfTrigger(trigger));
}

std::vector<std::shared_ptr<QuomiBeaconRuleWithActions>> QuomiBeaconData::getActionsAndRulesSuitableForTrigger(
    std::string_view trigger, QuomiProximity previousProximity, QuomiProximity newProximity) {
    const auto isCrossed = [=](const QuomiBeaconRuleWithActions& rule) {
        return rule.trigger == trigger && rule.isCrossedBy(previousProximity, newProximity);
    };
    return rulesWhere<QuomiBeaconRuleWithActions>(isCrossed);
}

boost::json::object QuomiBeaconData::dictionary() {
    static const AttributeKeys keys =
        attributesNamed({"beaconId",     "name",      "proximityUUID", "major",     "minor",      "serialNumber",
                         "sharedSecret", "latitude",  "longitude",     "address",   "group",      "namespace",
                         "enabled",      "startDate", "endDate",       "seenCount", "lastSeenAt", "groupTriggersCount",
                         "groupHistory", "updatedAt"});
    auto dictionary = entityType().dictionary(*this, keys);
    dictionary.emplace("actions", getActionsAsArrayOfDictionaries());
    return dictionary;
}

void QuomiBeaconData::copyOwnCounters(const RuleOwner& replaced) {
    const auto& beacon = static_cast<const QuomiBeaconData&>(replaced);
    seenCount = beacon.seenCount;
    lastSeenAt = beacon.lastSeenAt;
}

void QuomiBeaconData::resetOwnCounters() {
    seenCount = 0;
    lastSeenAt = {};
}

}  // namespace quomi
