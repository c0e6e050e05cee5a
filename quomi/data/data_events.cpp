// What waits in the store to be sent, and what earlier versions kept of events.
#include "quomi/data/data.h"

namespace quomi {

std::size_t QuomiData::getLoggedEventsCount(ErrorSlot error) {
    const auto count = currentObjectContext().count(entityType<QuomiDebugLog>(), error);
    return static_cast<std::size_t>(count.value_or(0));
}

QuomiData::List<QuomiDebugLog> QuomiData::getLoggedEvents(int page, int perPage, ErrorSlot error) {
    static const Query<QuomiDebugLog> query("ORDER BY \"logTime\" DESC, \"_id\" LIMIT ? OFFSET ?");
    const std::int64_t limit = perPage > 0 ? perPage : -1;  // none
    return currentObjectContext().fetch(query, {limit, std::int64_t{perPage} * page}, error);
}

QuomiData::List<QuomiDebugLog> QuomiData::getAllLoggedEvents(ErrorSlot error) {
    static const Query<QuomiDebugLog> query("ORDER BY \"logTime\" DESC, \"_id\"");
    return currentObjectContext().fetch(query, {}, error);
}

bool QuomiData::removeAllLoggedEvents(ErrorSlot error) {
    return removeAll(entityType<QuomiDebugLog>(), error);
}

QuomiData::List<QuomiBatteryAlert> QuomiData::getAllBatteryAlerts(ErrorSlot error) {
    static const Query<QuomiBatteryAlert> query("ORDER BY \"date\" DESC, \"_id\"");
    return currentObjectContext().fetch(query, {}, error);
}

bool QuomiData::removeAllBatteryAlerts(ErrorSlot error) {
    return removeAll(entityType<QuomiBatteryAlert>(), error);
}

}  // namespace quomi
