#pragma once

#include "quomi/util/time.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

namespace quomi {

/// Dates of counted events, oldest first.
using History = std::vector<WallTime>;

/// Reading of histories. A date equal to the cut-off lies inside the period; everything after the first date inside
/// counts, whatever its value.
struct QuomiHistoryUtils {
    /// The history from the first date inside to its end.
    [[nodiscard]] static History getTrimmedHistory(const History& history, WallTime cutOff);
    [[nodiscard]] static std::size_t eventsCountInHistory(const History& history, WallTime cutOff);
};

/// The periods, in seconds, that a rule asks its own history and its group's about; empty where it asks none.
struct RulePeriods {
    std::optional<std::int64_t> minEvents = std::nullopt;
    std::optional<std::int64_t> maxEvents = std::nullopt;
    std::optional<std::int64_t> minGroupEvents = std::nullopt;
    std::optional<std::int64_t> maxGroupEvents = std::nullopt;
};

/// Upkeep of histories. Nothing is saved here. A period of 0 or less empties a history, at any resolution of the clock.
namespace QuomiRuleHelper {

/// Appends the time of the call: it is always now that is counted.
void addDateToHistory(History& history, WallTime now);
/// Nothing happens on an empty history.
void removeLastDateFromHistory(History& history);
/// Removes the last `count` dates, but only when there are as many; a count below 1 removes nothing.
void removeLastDates(History& history, std::int64_t count);
/// Forgets what lies before the longer of the rule's two periods; everything when it has none.
void trimOutdatedHistoryElementsOfRule(History& history, const RulePeriods& rule, WallTime now);
/// Forgets what lies before the longest group period of all rules of all members; everything when none has one.
void trimOutdatedHistoryElementsOfGroup(History& groupHistory, std::span<const RulePeriods> rulesOfMembers,
                                        WallTime now);

}  // namespace QuomiRuleHelper

}  // namespace quomi
