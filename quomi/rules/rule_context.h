#pragma once

#include "quomi/platform/platform.h"
#include "quomi/rules/rule_observer.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

class DebugLog;
class QuomiData;
class QuomiErrors;
struct QuomiSettings;

/// What carries a rule. The numbers are the `triggeredBy` of its actions.
enum class RuleArea : int { geofence = 1, beacon = 2 };

/// How events and notifications name the kind of area, and the key under which they name the area.
[[nodiscard]] constexpr const char* areaTypeOf(RuleArea area) {
    return area == RuleArea::beacon ? "beacon" : "geofence";
}
[[nodiscard]] constexpr const char* areaKeyOf(RuleArea area) {
    return area == RuleArea::beacon ? "beacon_id" : "geofence_id";
}

/// What a rule executor is lent. Store, platform, settings, errors and log outlive it, or it is ended before they go.
struct RuleExecutorContext {
    QuomiData& data;
    const Platform& platform;
    const QuomiSettings& settings;
    const QuomiErrors& errors;
    DebugLog& debugLog;
    /// Takes an event for the event log. The host may be told of it: it may end the executor.
    std::function<void(const boost::json::object& event)> logEvent;
    /// Identifier of the SDK's user; nothing without one.
    std::function<std::optional<std::string>()> userID;
    /// The device's identifier for servers.
    std::function<std::string()> udid;
    /// Who looks on; null for nobody. Asked anew for every report. May be empty.
    std::function<std::shared_ptr<const RuleObserver>()> observer;
};

}  // namespace quomi
