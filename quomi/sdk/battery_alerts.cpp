#include "quomi/sdk/battery_alerts.h"

#include "quomi/api/uploader.h"
#include "quomi/data/data.h"
#include "quomi/platform/console.h"

#include <utility>

#include <fmt/format.h>

namespace quomi {

void BatteryAlertQueue::setUploader(Uploader* uploader) {
    if (uploader == uploader_) return;
    for (const auto& alert : std::exchange(onTheirWay_, {})) store(alert.second);
    uploader_ = uploader;
}

void BatteryAlertQueue::sendBatteryAlert(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    // The flush cannot read an alert that still waits for a busy store.
    if (!store(alert) && alert->context() != nullptr) sendBatteryAlertEntity(alert);
    flushBatteryAlertsQueue();
}

void BatteryAlertQueue::flushBatteryAlertsQueue() {
    if (uploader_ == nullptr) return;
    for (const auto& alert : data_.getAllBatteryAlerts()) sendBatteryAlertEntity(alert);
    for (const auto& values : std::exchange(notStored_, {})) send(values);
    data_.saveContext();
}

void BatteryAlertQueue::sendBatteryAlertEntity(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    if (uploader_ == nullptr) return;
    if (auto* context = alert->context()) context->remove(*alert);
    send(alert->values());
}

void BatteryAlertQueue::send(const BatteryAlert& values) {
    const auto number = ++lastSent_;
    onTheirWay_.emplace(number, values);
    uploader_->sendBatteryAlert(values, lifetime_.guard([this, number] { onTheirWay_.erase(number); }),
                                lifetime_.guard([this, number, values](const Error&) {
                                    if (onTheirWay_.erase(number) > 0) store(values);
                                }));
}

void BatteryAlertQueue::store(const BatteryAlert& values) {
    auto alert = std::make_shared<QuomiBatteryAlert>();
    alert->setValues(values);
    store(alert);
}

/// In the context that commits: a child of it may go with what a busy store did not take.
bool BatteryAlertQueue::store(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    std::optional<Error> failure;
    if (data_.mainObjectContext().insert(alert, &failure) && data_.saveContext(&failure)) return true;
    if (alert->context() == nullptr) notStored_.push_back(alert->values());
    console_.log("Quomi SDK Error: a battery alert waits in memory: " + describe(failure.value_or(Error())));
    return false;
}

}  // namespace quomi
