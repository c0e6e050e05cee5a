#pragma once

#include "quomi/util/export.h"

#include <functional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace quomi {

/// What became of a rule that an event reached. `rule` records of traces have them under these names.
enum class RuleDecision {
    inactive,        ///< its owner is outside its dates or opening hours: `code`
    outOfRange,      ///< the beacon's move did not cross the border of its range: `range`, `previous`, `new`
    tooFast,         ///< the device is faster than it allows: `speed`, `limit`
    latched,         ///< waits its latch time: `seconds`
    latchBroken,     ///< did not hold any more when the wait ended
    latchCancelled,  ///< its wait was ended by the SDK
    visitTooShort,   ///< the visit was shorter than its latch time: `seconds`, `limit`
    minInterval,     ///< stopped by the device-wide interval: `seconds`, `limit`, `period`, `until`
    globalMax,       ///< stopped by the device-wide maximum: `count`, `limit`, `period`, `until`
    ruleMax,         ///< by its own; the same
    groupMax,        ///< by its group's; the same
    ruleMin,         ///< counted, and needs more events: `count`, `limit`, `period`
    groupMin,        ///< its group needs more; the same
    saveFailed,      ///< could not be counted
    serverDisabled,  ///< asks a server, and server notifications are off
    vetoed,          ///< refused by the host: `action`
    askServer,       ///< asks its server: `url`
    serverOrdered,   ///< its server ordered other actions instead: `actions`
    hostAsked,       ///< the host performs the server request itself
    serverDeclined,  ///< refused by the server
    serverFailed,    ///< got no usable answer, or none at all
    executed,        ///< ran: `actions`, without those that the host refused or settings switch off
};

/// Its name, as above.
[[nodiscard]] QUOMI_EXPORT std::string_view nameOf(RuleDecision decision);

/// One rule and one outcome of an event for it.
struct RuleReport {
    std::string ruleId;
    std::string owner;  ///< identifier of the beacon or geofence
    std::string trigger;
    RuleDecision decision{};
    /// What stands beside the decisions above. Dates are ISO 8601 in UTC; `until` is the earliest time, in whole
    /// milliseconds, at which the limit alone would let the rule pass, null when never; `period` is null for a limit
    /// over the whole life.
    boost::json::object detail;
};

/// Looks on while rules are judged, for tools that explain them. Nothing in a rule's outcome depends on it, and one
/// that nobody set costs nothing.
struct RuleObserver {
    /// One call for each rule of the event's trigger and each outcome, after the last effect that the outcome has at
    /// once. A rule that waits (`latched`, `askServer`) is told of again when the wait ends; so is one whose
    /// notification the host refuses later. On the host's thread; may call every operation of the SDK. What it throws
    /// is dropped.
    std::function<void(const RuleReport&)> ruleDecided{};
};

}  // namespace quomi
