#include "quomi/data/rule.h"

#include "quomi/data/entity_type.h"
#include "quomi/data/rule_owner.h"
#include "quomi/model/errors.h"
#include "quomi/util/json_readers.h"

#include <utility>

#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>

namespace quomi {

namespace {

boost::json::object withActionsFirst(boost::json::array actions, const boost::json::object& attributes) {
    boost::json::object dictionary{{"actions", std::move(actions)}};
    for (const auto& [key, value] : attributes) dictionary.emplace(key, value);
    return dictionary;
}

}  // namespace

std::shared_ptr<RuleOwner> RuleWithActions::ruleOwner() const {
    return std::static_pointer_cast<RuleOwner>(owner());
}

RulePeriods RuleWithActions::periods() const {
    return {minEventsPeriod, maxEventsPeriod, minGroupEventsPeriod, maxGroupEventsPeriod};
}

void RuleWithActions::copyCountersFromRule(const RuleWithActions& rule) {
    triggersCount = rule.triggersCount;
    lastTriggerDate = rule.lastTriggerDate;
    history = rule.history;
}

void RuleWithActions::resetAllCounters() {
    triggersCount = 0;
    lastTriggerDate = {};
    history.clear();
}

std::optional<std::vector<QuomiAction>> RuleWithActions::getAndDeserializeActions(std::optional<Error>* error) const {
    const boost::json::value text(actions);
    if (QuomiUtils::isEmpty(&text)) return std::nullopt;
    const auto parsed = parseJson(actions, error);
    if (!parsed || !parsed->is_array()) return std::nullopt;
    std::vector<QuomiAction> list;
    for (const auto& element : parsed->get_array()) {
        list.push_back(
            QuomiAction::createFromDictionary(element.is_object() ? element.get_object() : boost::json::object()));
    }
    return list;
}

bool RuleWithActions::serializeAndSetActions(std::span<const QuomiAction> list, const QuomiErrors& errors,
                                             std::optional<Error>* error) {
    if (list.empty()) {
        assign(error, errors.errorWithCode(ErrorCode::nilRuleAndAction));
        return false;
    }
    boost::json::array dictionaries;
    for (const auto& action : list) dictionaries.push_back(action.dictionary());
    actions = boost::json::serialize(dictionaries);
    return true;
}

bool RuleWithActions::addAction(const QuomiAction* action, const QuomiErrors& errors, std::optional<Error>* error) {
    if (action == nullptr) {
        assign(error, errors.errorWithCode(ErrorCode::nilAction));
        return false;
    }
    auto list = getAndDeserializeActions().value_or(std::vector<QuomiAction>());
    list.push_back(*action);
    return serializeAndSetActions(list, errors, error);
}

bool RuleWithActions::removeAllActions() {
    actions.clear();
    return true;
}

boost::json::array RuleWithActions::actionDictionaries() const {
    boost::json::array dictionaries;
    for (const auto& action : getAndDeserializeActions().value_or(std::vector<QuomiAction>())) {
        dictionaries.push_back(action.dictionary());
    }
    return dictionaries;
}

std::shared_ptr<QuomiGeofence> QuomiGeofenceRuleWithActions::geofence() const {
    return std::static_pointer_cast<QuomiGeofence>(owner());
}

boost::json::object QuomiGeofenceRuleWithActions::dictionary() const {
    static const AttributeKeys keys =
        attributesNamed({"trigger", "minEvents", "minEventsPeriod", "maxEvents", "maxEventsPeriod", "minGroupEvents",
                         "minGroupEventsPeriod", "maxGroupEvents", "maxGroupEventsPeriod", "maxDistanceMediumFar",
                         "latchTime", "maxSpeedToNotifyUserThreshold", "triggersCount", "lastTriggerDate", "history",
                         "underGlobalCounter", "useRuleMaxMediumFar"});
    return withActionsFirst(actionDictionaries(), entityType().dictionary(*this, keys));
}

ProximityRange QuomiBeaconRuleWithActions::range() const {
    const auto onScale = [](std::int64_t code) {
        return QuomiProximityUtils::mapServerProximityToQuomiProximity(static_cast<std::uint64_t>(code));
    };
    return {onScale(proximity), onScale(proximityEnd.value_or(proximity))};
}

bool QuomiBeaconRuleWithActions::isCrossedBy(QuomiProximity previousProximity, QuomiProximity newProximity) const {
    const auto bounds = range();
    if (trigger == kTriggerOnEntry) return !bounds.contains(previousProximity) && bounds.contains(newProximity);
    return trigger == kTriggerOnExit && bounds.contains(previousProximity) && !bounds.contains(newProximity);
}

std::shared_ptr<QuomiBeaconData> QuomiBeaconRuleWithActions::beacon() const {
    return std::static_pointer_cast<QuomiBeaconData>(owner());
}

boost::json::object QuomiBeaconRuleWithActions::dictionary() const {
    static const AttributeKeys keys =
        attributesNamed({"trigger", "proximity", "proximityEnd", "minEvents", "minEventsPeriod", "maxEvents",
                         "maxEventsPeriod", "minGroupEvents", "minGroupEventsPeriod", "maxGroupEvents",
                         "maxGroupEventsPeriod", "priority", "maxDistanceMediumFar", "latchTime", "triggersCount",
                         "lastTriggerDate", "history", "underGlobalCounter", "useRuleMaxMediumFar"});
    return withActionsFirst(actionDictionaries(), entityType().dictionary(*this, keys));
}

namespace QuomiRuleHelper {

void addDateToHistoryOfRule(RuleWithActions& rule, WallTime now) {
    addDateToHistory(rule.history, now);
}

void removeLastDateFromHistoryOfRule(RuleWithActions& rule) {
    removeLastDateFromHistory(rule.history);
}

void trimOutdatedHistoryElementsOfRule(RuleWithActions& rule, WallTime now) {
    trimOutdatedHistoryElementsOfRule(rule.history, rule.periods(), now);
}

void addDateToHistoryOfGroup(RuleOwner& group, WallTime now) {
    addDateToHistory(group.groupHistory, now);
}

void removeLastDatesFromGroup(RuleOwner& group, std::int64_t count) {
    removeLastDates(group.groupHistory, count);
}

bool trimOutdatedHistoryElementsOfGroup(RuleOwner& group, std::span<const std::shared_ptr<RuleOwner>> members,
                                        WallTime now, std::optional<Error>* error) {
    std::vector<RulePeriods> periods;
    std::optional<Error> failure;
    for (const auto& member : members) {
        for (const auto& rule : member->rules(&failure)) periods.push_back(rule->periods());
    }
    if (failure) {
        assign(error, std::move(*failure));
        return false;
    }
    trimOutdatedHistoryElementsOfGroup(group.groupHistory, periods, now);
    return true;
}

}  // namespace QuomiRuleHelper

}  // namespace quomi
