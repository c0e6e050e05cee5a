#pragma once

#include "quomi/platform/location.h"
#include "quomi/rules/rule_executor.h"
#include "quomi/util/error.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace quomi {

class SerialQueue;

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
class QuomiGeofenceActionExecutor final : public RuleExecutor {
public:
    using Geofence = std::shared_ptr<QuomiGeofence>;
    using ErrorSlot = std::optional<Error>*;

    QuomiGeofenceActionExecutor(RuleExecutorContext context, RulePosition position);
    ~QuomiGeofenceActionExecutor() override;

    /// True when the rules were judged. Fails with the store's error, with 201 without a geofence, and with 202, 203 or
    /// 204 outside its dates or opening hours. An entry is counted and saved first.
    bool executeGeofenceEnteredActions(const Geofence& geofence, ErrorSlot error = nullptr);
    bool executeGeofenceExitedActions(const Geofence& geofence, ErrorSlot error = nullptr);

    /// Ends the latch times of the geofence: to be called at its every entry and exit.
    void clearAllTimersForGeofenceId(const std::string& geofenceId) { clearTimers(geofenceId); }

private:
    using Rule = std::shared_ptr<QuomiGeofenceRuleWithActions>;

    bool executeRulesAndActionsForGeofence(const Geofence& geofence, const char* triggerKey, ErrorSlot error);
    [[nodiscard]] bool isSlowEnough(const QuomiGeofenceRuleWithActions& rule, const QuomiGeofence& geofence,
                                    double speed) const;
    void executeRule(const Rule& rule, const Geofence& geofence);
    void executeActionsOfRule(const QuomiGeofenceRuleWithActions& rule, const QuomiGeofence& geofence);
    void executeInPrivateContext(const Run& run, const Actions& actions);

    void executeDelayedAction(const Latch& latch) override;
    [[nodiscard]] boost::json::object infoDictForLocalNotification(const RuleOwner& owner,
                                                                   const RuleWithActions& rule) const override;
    [[nodiscard]] std::string serverUrl(const std::string& urlTemplate, const RuleOwner& owner,
                                        const RuleWithActions& rule) const override;
    void prepareServerNotification() override { context().data.saveContext(); }
    void executeEnabledActions(const Run& run, const Actions& actions) override;
    void actionWasRefused(const RuleRun&) override {}

    const RulePosition position_;
    std::map<std::uint64_t, std::unique_ptr<SerialQueue>> queues_;  // whose work waits
    std::uint64_t queuesMade_ = 0;
};

}  // namespace quomi
