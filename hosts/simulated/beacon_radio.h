#pragma once

#include "hosts/simulated/phone_model.h"
#include "hosts/simulated/simulated_location.h"
#include "hosts/simulated/virtual_loop.h"

#include <map>
#include <memory>
#include <string>

namespace quomi::simulated {

/// Carries packets from the air through the phone model to the phone's location services. Once it is switched on, each
/// ranged region gets a report once a second, counted from the moment ranging began, empty ones included; the first
/// packet of a monitored UUID while outside is an entry (entry callback, then state callback), 30 s without one an exit
/// (exit, then state).
///
/// It belongs to the phone, not to the app: it listens on while the app is suspended.
class BeaconRadio final : public BeaconInterest {
public:
    /// Off at first. What it refers to outlives it.
    BeaconRadio(VirtualLoop& loop, SimulatedLocation& location);
    ~BeaconRadio() override;
    BeaconRadio(const BeaconRadio&) = delete;
    BeaconRadio& operator=(const BeaconRadio&) = delete;

    /// The first reports come at the next beat of each ranged region. Nothing when it is on already.
    void switchOn();
    /// One packet, now. Switches the radio on.
    void hear(const Packet& packet);

    void rangingBegan(const BeaconRegion& region) override;
    void rangingEnded(const std::string& identifier) override;
    void monitoringBegan(const Uuid& proximityUUID) override;

private:
    struct Beat {
        MonotonicTime began;
        std::unique_ptr<Timer> timer;
    };

    void start(const std::string& identifier, Beat& beat);
    void report(const std::string& identifier);
    void watchForExit(const Uuid& proximityUUID);
    void exitIfDue(const Uuid& proximityUUID);

    VirtualLoop& loop_;
    SimulatedLocation& location_;
    PhoneModel model_;
    bool isOn_ = false;
    std::map<std::string, Beat> beats_;  // of all ranged regions; without timers while off
    std::map<Uuid, std::unique_ptr<Timer>> exits_;
};

}  // namespace quomi::simulated
