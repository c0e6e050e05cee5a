#pragma once

#include "quomi/beacons/proximity.h"
#include "quomi/data/managed_object.h"
#include "quomi/model/action.h"
#include "quomi/model/history.h"
#include "quomi/util/error.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class QuomiErrors;
struct QuomiBeaconData;
struct QuomiGeofence;
struct RuleOwner;

// Triggers of rules.
inline constexpr const char* kTriggerOnEntry = "on_entry";
inline constexpr const char* kTriggerOnExit = "on_exit";

/// A rule with its actions: what beacon rules and geofence rules share. A limit of 0 or less is no limit; periods and
/// latch time in seconds.
struct RuleWithActions : ManagedObject {
    std::optional<std::string> ruleId;  // required: a rule without is refused at the save
    std::string trigger;
    std::int32_t minEvents = 0;
    std::int32_t minEventsPeriod = 0;
    std::int32_t maxEvents = 0;
    std::int32_t maxEventsPeriod = 0;
    std::int32_t minGroupEvents = 0;
    std::int32_t minGroupEventsPeriod = 0;
    std::int32_t maxGroupEvents = 0;
    std::int32_t maxGroupEventsPeriod = 0;
    std::int32_t maxDistanceMediumFar = 10;  ///< metres
    double latchTime = 0;                    ///< parts of a second count
    std::int32_t triggersCount = 0;          ///< events counted, ever
    WallTime lastTriggerDate{};
    std::string actions;  ///< a JSON array of the actions' dictionaries; empty for none
    History history;      ///< events counted, as far back as a limit asks
    bool underGlobalCounter = true;
    bool useRuleMaxMediumFar = false;

    /// The beacon or geofence that carries the rule; null for none.
    [[nodiscard]] std::shared_ptr<RuleOwner> ruleOwner() const;
    [[nodiscard]] RulePeriods periods() const;

    void copyCountersFromRule(const RuleWithActions& rule);
    void resetAllCounters();

    /// The actions; nothing when there are none, and nothing with an error when the text cannot be read.
    [[nodiscard]] std::optional<std::vector<QuomiAction>> getAndDeserializeActions(
        std::optional<Error>* error = nullptr) const;
    /// Fails with 607 for no actions.
    bool serializeAndSetActions(std::span<const QuomiAction> list, const QuomiErrors& errors,
                                std::optional<Error>* error = nullptr);
    /// Fails with 608 for none.
    bool addAction(const QuomiAction* action, const QuomiErrors& errors, std::optional<Error>* error = nullptr);
    bool removeAllActions();

    /// Everything but the identifier.
    [[nodiscard]] virtual boost::json::object dictionary() const = 0;

protected:
    [[nodiscard]] boost::json::array actionDictionaries() const;
};

struct QuomiGeofenceRuleWithActions : RuleWithActions {
    /// Kilometres per hour, as the speed that it is compared with; 0 or less, or none, is no limit. No server answer
    /// sets it.
    std::optional<double> maxSpeedToNotifyUserThreshold;

    [[nodiscard]] std::shared_ptr<QuomiGeofence> geofence() const;
    [[nodiscard]] boost::json::object dictionary() const override;
    [[nodiscard]] const EntityType& entityType() const override;
};

/// From one proximity to another, both included; an end of 3 includes 4 and 5.
struct ProximityRange {
    QuomiProximity start = QuomiProximityInvalid;
    QuomiProximity end = QuomiProximityInvalid;
    [[nodiscard]] bool contains(QuomiProximity proximity) const {
        return QuomiProximityUtils::isProximityInsideRange(proximity, start, end);
    }
};

struct QuomiBeaconRuleWithActions : RuleWithActions {
    std::int32_t proximity = 0;  ///< the server's code
    std::optional<std::int32_t> proximityEnd;
    std::int32_t priority = 1;  ///< the lowest number runs first

    /// The range on the SDK's scale. Without an end it is the one proximity.
    [[nodiscard]] ProximityRange range() const;
    /// Whether the move enters ("on_entry") or leaves ("on_exit") the range; no for any other trigger.
    [[nodiscard]] bool isCrossedBy(QuomiProximity previousProximity, QuomiProximity newProximity) const;

    [[nodiscard]] std::shared_ptr<QuomiBeaconData> beacon() const;
    [[nodiscard]] boost::json::object dictionary() const override;
    [[nodiscard]] const EntityType& entityType() const override;
};

/// Upkeep of the histories of stored rules and groups. Nothing is saved here.
namespace QuomiRuleHelper {

/// Counts the time of the call.
void addDateToHistoryOfRule(RuleWithActions& rule, WallTime now);
void removeLastDateFromHistoryOfRule(RuleWithActions& rule);
void trimOutdatedHistoryElementsOfRule(RuleWithActions& rule, WallTime now);
void addDateToHistoryOfGroup(RuleOwner& group, WallTime now);
/// Removes the last `count` dates, but only when there are as many.
void removeLastDatesFromGroup(RuleOwner& group, std::int64_t count);
/// Forgets what lies before the longest group period of all rules of all members. False, with an error and nothing
/// forgotten, when these rules cannot be read.
bool trimOutdatedHistoryElementsOfGroup(RuleOwner& group, std::span<const std::shared_ptr<RuleOwner>> members,
                                        WallTime now, std::optional<Error>* error = nullptr);

}  // namespace QuomiRuleHelper

}  // namespace quomi
