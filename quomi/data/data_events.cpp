// Events and battery alerts of the store, on their way to the server.
#include "quomi/data/data.h"

#include <utility>

namespace quomi {

void QuomiData::setApiClient(Uploader* client) {
    if (client != apiClient_) {
        // Nobody tells any more what becomes of them.
        for (const auto& alert : alertsOnTheirWay_) store(alert.second);
        if (!alertsOnTheirWay_.empty()) saveContext();
        alertsOnTheirWay_.clear();
    }
    apiClient_ = client;
    uploadLoop_.setUploader(client);
}

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

void QuomiData::sendBatteryAlert(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    currentObjectContext().insert(alert);
    const bool isStored = saveContext();
    if (!isStored) sendBatteryAlertEntity(alert);  // what cannot be stored is at least sent
    flushBatteryAlertsQueue();
}

void QuomiData::flushBatteryAlertsQueue() {
    for (const auto& alert : getAllBatteryAlerts()) sendBatteryAlertEntity(alert);
    saveContext();
}

void QuomiData::sendBatteryAlertEntity(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    if (apiClient_ == nullptr) return;
    const BatteryAlert values = alert->values();
    if (alert->context() == &currentObjectContext()) currentObjectContext().remove(*alert);
    const auto number = ++lastAlertSent_;
    alertsOnTheirWay_.emplace(number, values);
    // Whether it was still waited for.
    const auto arrive = [this, number, alive = std::weak_ptr(alive_)] {
        return !alive.expired() && alertsOnTheirWay_.erase(number) > 0;
    };
    apiClient_->sendBatteryAlert(
        values, [arrive] { arrive(); },
        [this, arrive, values](const Error&) {
            if (!arrive()) return;
            store(values);
            saveContext();
        });
}

void QuomiData::store(const BatteryAlert& values) {
    auto alert = std::make_shared<QuomiBatteryAlert>();
    alert->setValues(values);
    currentObjectContext().insert(std::move(alert));
}

QuomiData::List<QuomiBatteryAlert> QuomiData::getAllBatteryAlerts(ErrorSlot error) {
    static const Query<QuomiBatteryAlert> query("ORDER BY \"date\" DESC, \"_id\"");
    return currentObjectContext().fetch(query, {}, error);
}

bool QuomiData::removeAllBatteryAlerts(ErrorSlot error) {
    return removeAll(entityType<QuomiBatteryAlert>(), error);
}

}  // namespace quomi
