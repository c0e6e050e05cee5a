#include "quomi/sdk/battery_alerts.h"

#include "quomi/api/uploader.h"
#include "quomi/data/data.h"

#include <utility>

namespace quomi {

void BatteryAlertQueue::setUploader(Uploader* uploader) {
    if (uploader == uploader_) return;
    for (const auto& alert : onTheirWay_) store(alert.second);
    if (!onTheirWay_.empty()) data_.saveContext();
    onTheirWay_.clear();
    uploader_ = uploader;
}

void BatteryAlertQueue::sendBatteryAlert(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    data_.currentObjectContext().insert(alert);
    const bool isStored = data_.saveContext();
    if (!isStored) sendBatteryAlertEntity(alert);  // what cannot be stored is at least sent
    flushBatteryAlertsQueue();
}

void BatteryAlertQueue::flushBatteryAlertsQueue() {
    for (const auto& alert : data_.getAllBatteryAlerts()) sendBatteryAlertEntity(alert);
    data_.saveContext();
}

void BatteryAlertQueue::sendBatteryAlertEntity(const std::shared_ptr<QuomiBatteryAlert>& alert) {
    if (uploader_ == nullptr) return;
    const BatteryAlert values = alert->values();
    auto& context = data_.currentObjectContext();
    if (alert->context() == &context) context.remove(*alert);
    const auto number = ++lastSent_;
    onTheirWay_.emplace(number, values);
    uploader_->sendBatteryAlert(values, lifetime_.guard([this, number] { onTheirWay_.erase(number); }),
                                lifetime_.guard([this, number, values](const Error&) {
                                    if (onTheirWay_.erase(number) == 0) return;
                                    store(values);
                                    data_.saveContext();
                                }));
}

void BatteryAlertQueue::store(const BatteryAlert& values) {
    auto alert = std::make_shared<QuomiBatteryAlert>();
    alert->setValues(values);
    data_.currentObjectContext().insert(std::move(alert));
}

}  // namespace quomi
