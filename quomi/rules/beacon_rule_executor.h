#pragma once

#include "quomi/beacons/proximity.h"
#include "quomi/rules/rule_executor.h"
#include "quomi/util/error.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi {

class QuomiBeacon;
struct QuomiBeaconData;
struct QuomiBeaconRuleWithActions;

/// Runs the rules of beacons: chooses those of the event's trigger and range, sorts them by priority, lets them wait
/// their latch time, passes them through the gates and hands their actions on.
///
/// Each entry point saves when the beacon was seen and returns true when its rules were judged. It fails with the
/// store's error, or with 202, 203 or 204 when the beacon is outside its dates or opening hours.
class QuomiBeaconActionExecutor final : public RuleExecutor {
public:
    using NearbyBeacons = std::function<std::vector<std::shared_ptr<const QuomiBeacon>>()>;
    using Beacon = std::shared_ptr<QuomiBeaconData>;
    using ErrorSlot = std::optional<Error>*;

    /// `nearbyBeacons` gives the beacons that are heard, as they are when a latch time has passed.
    QuomiBeaconActionExecutor(RuleExecutorContext context, NearbyBeacons nearbyBeacons);

    bool executeRegionEnteredActions(const Beacon& beacon, ErrorSlot error = nullptr);
    bool executeRegionExitedActions(const Beacon& beacon, ErrorSlot error = nullptr);
    bool executeBeaconFoundActions(const Beacon& beacon, QuomiProximity firstProximity, ErrorSlot error = nullptr);
    bool executeBeaconLostActions(const Beacon& beacon, QuomiProximity lastProximity, ErrorSlot error = nullptr);
    bool executeBeaconProximityChangedActions(const Beacon& beacon, QuomiProximity previousProximity,
                                              QuomiProximity newProximity, ErrorSlot error = nullptr);
    /// Accuracies in metres. With a new one above zero each rule divides far by its own distance, else by the settings'
    /// one, and is judged by that.
    bool executeBeaconProximityChangedActions(const Beacon& beacon, QuomiProximity previousProximity,
                                              double previousAccuracy, QuomiProximity newProximity, double accuracy,
                                              ErrorSlot error = nullptr);

    /// Ends the latch times of the beacon. The SDK does not call it: latch times survive that a region is left.
    void clearAllPendingTimersForBeaconId(const std::string& beaconId) { timers().clear(beaconId); }

private:
    using Rules = std::vector<std::shared_ptr<QuomiBeaconRuleWithActions>>;
    /// How the beacon moved.
    struct Move {
        QuomiProximity previousProximity = QuomiProximityUndetermined;
        double previousAccuracy = 0;
        QuomiProximity newProximity = QuomiProximityUndetermined;
        double accuracy = 0;
    };

    bool beginEvent(const Beacon& beacon, bool isSeenAnew, ErrorSlot error);
    bool isActive(const Beacon& beacon, std::initializer_list<const char*> triggerKeys, ErrorSlot error);
    void executeRulesForBeacon(const Beacon& beacon, std::string_view triggerKey);
    void executeRulesForBeacon(const Beacon& beacon, std::string_view triggerKey, const Move& move);
    [[nodiscard]] Move reclassified(const Move& move, const QuomiBeaconRuleWithActions& rule) const;
    [[nodiscard]] double splitThresholdOf(const QuomiBeaconRuleWithActions* rule) const;
    void executeInOrderOfPriority(const Beacon& beacon, Rules rules);
    void executeRule(const std::shared_ptr<QuomiBeaconRuleWithActions>& rule, const Beacon& beacon);
    void executeActionsOfRule(const std::shared_ptr<QuomiBeaconRuleWithActions>& rule, const Beacon& beacon);
    [[nodiscard]] std::shared_ptr<const QuomiBeacon> liveBeacon(const QuomiBeaconData& beacon) const;
    [[nodiscard]] bool stillHolds(const Latch& latch, const QuomiBeaconData* beacon,
                                  const QuomiBeaconRuleWithActions* rule) const;

    void executeDelayedAction(const Latch& latch) override;
    [[nodiscard]] boost::json::object infoDictForLocalNotification(const RuleOwner& owner,
                                                                   const RuleWithActions& rule) const override;
    [[nodiscard]] std::string serverUrl(const std::string& urlTemplate, const RuleWithActions& rule,
                                        const RuleOwner& owner) const override;
    void executeEnabledActions(const Run& run, const Actions& actions) override;
    void actionWasRefused(const RuleRun& run) override;

    const NearbyBeacons nearbyBeacons_;
};

}  // namespace quomi
