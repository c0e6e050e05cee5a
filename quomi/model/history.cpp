#include "quomi/model/history.h"

#include <algorithm>

namespace quomi {

namespace {

History::const_iterator firstInside(const History& history, WallTime cutOff) {
    return std::ranges::find_if(history, [cutOff](WallTime date) { return date >= cutOff; });
}

void trimTo(History& history, std::optional<std::int64_t> period, WallTime now) {
    if (!period || *period <= 0) {
        history.clear();
        return;
    }
    history = QuomiHistoryUtils::getTrimmedHistory(history, now - std::chrono::seconds(*period));
}

std::optional<std::int64_t> longer(std::optional<std::int64_t> a, std::optional<std::int64_t> b) {
    if (!a || !b) return a ? a : b;
    return std::max(*a, *b);
}

}  // namespace

History QuomiHistoryUtils::getTrimmedHistory(const History& history, WallTime cutOff) {
    return {firstInside(history, cutOff), history.end()};
}

std::size_t QuomiHistoryUtils::eventsCountInHistory(const History& history, WallTime cutOff) {
    return static_cast<std::size_t>(history.end() - firstInside(history, cutOff));
}

void QuomiRuleHelper::addDateToHistory(History& history, WallTime now) {
    history.push_back(now);
}

void QuomiRuleHelper::removeLastDateFromHistory(History& history) {
    removeLastDates(history, 1);
}

void QuomiRuleHelper::removeLastDates(History& history, std::int64_t count) {
    if (count < 1 || static_cast<std::uint64_t>(count) > history.size()) return;
    history.resize(history.size() - static_cast<std::size_t>(count));
}

void QuomiRuleHelper::trimOutdatedHistoryElementsOfRule(History& history, const RulePeriods& rule, WallTime now) {
    trimTo(history, longer(rule.minEvents, rule.maxEvents), now);
}

void QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(History& groupHistory,
                                                         std::span<const RulePeriods> rulesOfMembers, WallTime now) {
    std::optional<std::int64_t> longest;
    for (const auto& rule : rulesOfMembers) longest = longer(longest, longer(rule.minGroupEvents, rule.maxGroupEvents));
    trimTo(groupHistory, longest, now);
}

}  // namespace quomi
