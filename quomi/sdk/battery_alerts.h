#pragma once

#include "quomi/data/records.h"
#include "quomi/util/lifetime.h"

#include <cstdint>
#include <map>
#include <memory>

namespace quomi {

class QuomiData;
class Uploader;

/// The battery alerts on their way from the store to the server. Host's thread only.
class BatteryAlertQueue {
public:
    /// The store outlives the queue.
    explicit BatteryAlertQueue(QuomiData& data) : data_(data) {}

    /// Who sends; null (nothing is sent) at first. Outlives the queue or is taken away before it ends. Alerts on their
    /// way wait again then: nobody tells any more what becomes of them.
    void setUploader(Uploader* uploader);
    /// Stores a disconnected alert and sends all that wait. One that does not arrive waits again.
    void sendBatteryAlert(const std::shared_ptr<QuomiBatteryAlert>& alert);
    void flushBatteryAlertsQueue();
    /// Takes the alert out of the store, not saved, and sends it.
    void sendBatteryAlertEntity(const std::shared_ptr<QuomiBatteryAlert>& alert);

private:
    void store(const BatteryAlert& values);

    QuomiData& data_;
    Uploader* uploader_ = nullptr;
    std::map<std::uint64_t, BatteryAlert> onTheirWay_;
    std::uint64_t lastSent_ = 0;
    const Lifetime lifetime_;
};

}  // namespace quomi
