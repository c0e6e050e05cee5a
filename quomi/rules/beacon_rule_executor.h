#pragma once

#include "quomi/beacons/proximity.h"
#include "quomi/rules/rule_runner.h"
#include "quomi/util/error.h"

#include <cstddef>
#include <functional>
#include <initializer_list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quomi {

class QuomiBeacon;

/// Runs the rules of beacons: chooses those of the event's trigger and range, sorts them by priority, lets them wait
/// their latch time, passes them through the gates and hands their actions on.
///
/// Each entry point saves when the beacon was seen and returns true when its rules were judged. It fails with the
/// store's error, or with 202, 203 or 204 when the beacon is outside its dates or opening hours.
///
/// Host's thread only. Every operation may be called from inside every callback, and so may `end`.
class QuomiBeaconActionExecutor {
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

    /// Performs the single actions; null for nobody.
    void setActionExecutor(QuomiActionExecutor* actionExecutor) { runner_.setActionExecutor(actionExecutor); }
    /// Ends it for good, as RuleRunner does.
    void end() { runner_.end(); }
    /// Ends every latch time that runs; its rule does not run.
    void clearAllPendingTimers() { runner_.latches().clearAll(); }
    /// Ends the latch times of the beacon. The SDK does not call it: latch times survive that a region is left.
    void clearAllPendingTimersForBeaconId(const std::string& beaconId) { runner_.latches().clear(beaconId); }
    [[nodiscard]] std::size_t pendingTimersCount() const { return runner_.latches().count(); }

private:
    using Rule = std::shared_ptr<QuomiBeaconRuleWithActions>;
    using TriggerKeys = std::initializer_list<const char*>;
    /// How a beacon moved; accuracies in metres, 0 for none.
    struct Move {
        QuomiProximity previousProximity;
        double previousAccuracy;
        QuomiProximity newProximity;
        double accuracy;
    };

    bool executeEvent(const Beacon& beacon, TriggerKeys triggerKeys, bool isSeenAnew, const std::optional<Move>& move,
                      ErrorSlot error);
    [[nodiscard]] bool isActive(QuomiBeaconData& beacon, TriggerKeys triggerKeys, ErrorSlot error) const;
    void executeRulesForBeacon(QuomiBeaconData& beacon, const char* triggerKey, const std::optional<Move>& move);
    [[nodiscard]] bool isCrossed(const QuomiBeaconRuleWithActions& rule, const QuomiBeaconData& beacon,
                                 const Move& move) const;
    [[nodiscard]] QuomiProximity reclassified(QuomiProximity proximity, double accuracy,
                                              const QuomiBeaconRuleWithActions* rule) const;
    void executeRule(const Rule& rule, const Beacon& beacon);
    void executeActionsOfRule(const Rule& rule, const Beacon& beacon, const std::string& trigger);
    void executeDelayedAction(const Latch& latch);
    [[nodiscard]] Rule ruleOf(const Latch& latch, QuomiBeaconData* beacon) const;
    [[nodiscard]] std::shared_ptr<const QuomiBeacon> liveBeacon(const QuomiBeaconData& beacon) const;
    [[nodiscard]] bool stillHolds(const Latch& latch, const QuomiBeaconData* beacon,
                                  const QuomiBeaconRuleWithActions* rule) const;
    [[nodiscard]] std::string serverUrl(const std::string& urlTemplate, const QuomiBeaconData& beacon,
                                        const QuomiBeaconRuleWithActions& rule) const;

    const NearbyBeacons nearbyBeacons_;
    RuleRunner runner_;
    const RuleExecutorContext& context_ = runner_.context();
};

}  // namespace quomi
