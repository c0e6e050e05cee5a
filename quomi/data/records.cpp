#include "quomi/data/records.h"

#include "quomi/data/entity_type.h"

namespace quomi {

void QuomiStatusInfo::addDateToHistory(WallTime now) {
    QuomiRuleHelper::addDateToHistory(globalHistory, now);
}

void QuomiStatusInfo::removeLastDateFromHistory() {
    QuomiRuleHelper::removeLastDateFromHistory(globalHistory);
}

void QuomiStatusInfo::trimOutdatedHistoryElements(WallTime now) {
    if (globalMaxEventsPeriod < 1) {
        globalHistory.clear();
        return;
    }
    globalHistory =
        QuomiHistoryUtils::getTrimmedHistory(globalHistory, now - std::chrono::seconds(globalMaxEventsPeriod));
}

bool QuomiStatusInfo::maxEventsConditionsFulfilled(WallTime now) const {
    if (globalMaxEvents < 1) return true;
    if (globalMaxEventsPeriod < 1) return globalTriggersCount < globalMaxEvents;
    const auto periodStart = now - std::chrono::seconds(globalMaxEventsPeriod);
    return QuomiHistoryUtils::eventsCountInHistory(globalHistory, periodStart) <
           static_cast<std::size_t>(globalMaxEvents);
}

bool QuomiStatusInfo::minIntervalPassed(WallTime now) const {
    // No interval always passes, at any resolution of the clock.
    return globalMinInterval <= 0 || now - lastEventDate > std::chrono::seconds(globalMinInterval);
}

boost::json::object QuomiApplication::dictionary() const {
    return entityType().dictionary(*this, {{"appNamespace", "appNamespace"},
                                           {"proximityUUIDNormal", "proximityUUIDNormal"},
                                           {"proximityUUIDSecure", "proximityUUIDSecure"},
                                           {"proximityUUIDService", "proximityUUIDService"},
                                           {"antiHackingProtocol", "antiHackingProtocol"},
                                           // Not the attribute's name: deliberate, readers of dictionaries know it so.
                                           {"farDistanceSplitThreshold", "proximityFarSplitThreshold"}});
}

boost::json::object QuomiDebugLog::dictionary() const {
    return entityType().dictionary(*this, {{"logTime", "logTime"}, {"logData", "logData"}});
}

void QuomiBatteryAlert::setValues(const BatteryAlert& alert) {
    date = alert.date;
    appNamespace = alert.appNamespace;
    proximityUUID = alert.proximityUUID;
    serviceID = alert.serviceID;
}

boost::json::object QuomiBatteryAlert::dictionary() const {
    return entityType().dictionary(*this, {{"date", "date"},
                                           {"appNamespace", "appNamespace"},
                                           {"proximityUUID", "proximityUUID"},
                                           {"serviceID", "serviceID"}});
}

}  // namespace quomi
