#pragma once

#include "quomi/data/records.h"
#include "quomi/util/lifetime.h"

#include <cstdint>
#include <map>
#include <memory>
#include <vector>

namespace quomi {

class Console;
class QuomiData;
class Uploader;

/// The battery alerts on their way from the store to the server. What the store does not take (another process holds
/// it, the disk is full) waits in memory and the console tells: after a lock the next save stores it, and what was
/// refused is sent with the next alert. Host's thread only.
class BatteryAlertQueue {
public:
    /// Store and console outlive the queue.
    BatteryAlertQueue(QuomiData& data, Console& console) : data_(data), console_(console) {}

    /// Who sends; null (nothing is sent) at first. Outlives the queue or is taken away before it ends. Alerts on their
    /// way wait again then: nobody tells any more what becomes of them.
    void setUploader(Uploader* uploader);
    /// Stores a disconnected alert and sends all that wait. One that does not arrive waits again.
    void sendBatteryAlert(const std::shared_ptr<QuomiBatteryAlert>& alert);
    void flushBatteryAlertsQueue();
    /// Takes the alert out of the store, not saved, and sends it.
    void sendBatteryAlertEntity(const std::shared_ptr<QuomiBatteryAlert>& alert);

private:
    void send(const BatteryAlert& values);
    void store(const BatteryAlert& values);
    bool store(const std::shared_ptr<QuomiBatteryAlert>& alert);

    QuomiData& data_;
    Console& console_;
    Uploader* uploader_ = nullptr;
    std::map<std::uint64_t, BatteryAlert> onTheirWay_;
    std::vector<BatteryAlert> notStored_;  // in no context
    std::uint64_t lastSent_ = 0;
    const Lifetime lifetime_;
};

}  // namespace quomi
