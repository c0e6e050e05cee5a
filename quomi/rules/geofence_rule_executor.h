#pragma once

#include "quomi/platform/location.h"
#include "quomi/rules/rule_runner.h"
#include "quomi/util/error.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quomi {

/// Where the device is and how fast it moves, as the location manager has it.
struct RulePosition {
    /// Compared with a rule's threshold as it stands.
    std::function<double()> currentSpeed;
    /// Nothing where no position is known, which counts as 0, 0.
    std::function<std::optional<Location>()> currentLocation;
};

/// Runs the rules of geofences: chooses those of the event's trigger that the device is not too fast for, passes them
/// through the gates, lets them wait their latch time and hands their actions on.
///
/// Unlike beacons, geofences know neither ranges nor priorities nor the device-wide interval; an event is counted
/// before the latch time, and no count is ever taken back.
///
/// Host's thread only. Every operation may be called from inside every callback, and so may `end`.
class QuomiGeofenceActionExecutor {
public:
    using Geofence = std::shared_ptr<QuomiGeofence>;
    using ErrorSlot = std::optional<Error>*;

    QuomiGeofenceActionExecutor(RuleExecutorContext context, RulePosition position);

    /// True when the rules were judged. Fails with the store's error, with 201 without a geofence, and with 202, 203 or
    /// 204 outside its dates or opening hours. An entry is counted and saved first.
    bool executeGeofenceEnteredActions(const Geofence& geofence, ErrorSlot error = nullptr);
    bool executeGeofenceExitedActions(const Geofence& geofence, ErrorSlot error = nullptr);

    /// Performs the single actions; null for nobody.
    void setActionExecutor(QuomiActionExecutor* actionExecutor) { runner_.setActionExecutor(actionExecutor); }
    /// Ends it for good, as RuleRunner does.
    void end() { runner_.end(); }
    /// Ends every latch time that runs; its rule does not run.
    void clearAllPendingTimers() { runner_.latches().clearAll(); }
    /// Ends the latch times of the geofence: to be called at its every entry and exit.
    void clearAllTimersForGeofenceId(const std::string& geofenceId) { runner_.latches().clear(geofenceId); }

private:
    using Rule = std::shared_ptr<QuomiGeofenceRuleWithActions>;

    bool executeRulesAndActionsForGeofence(const Geofence& geofence, const char* triggerKey, ErrorSlot error);
    [[nodiscard]] bool isSlowEnough(const QuomiGeofenceRuleWithActions& rule, const QuomiGeofence& geofence,
                                    double speed) const;
    void executeRule(const Rule& rule, const Geofence& geofence);
    void executeActionsOfRule(const std::shared_ptr<RuleRun>& run, const QuomiGeofenceRuleWithActions& rule,
                              const QuomiGeofence& geofence);
    void executeDelayedAction(const Latch& latch);
    void executeAllowedActions(const RuleRunner::Run& run, const RuleRunner::Actions& actions);
    [[nodiscard]] std::string serverUrl(const std::string& urlTemplate, const QuomiGeofence& geofence) const;

    const RulePosition position_;
    RuleRunner runner_;
    const RuleExecutorContext& context_ = runner_.context();
};

}  // namespace quomi
