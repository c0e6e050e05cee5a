#pragma once

#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/bluetooth.h"

#include <functional>
#include <memory>
#include <vector>

namespace quomi::simulated {

/// The phone's Bluetooth radio. Centrals know its state from their creation on, and report it once in a turn after it.
class SimulatedBluetooth final : public BluetoothPlatform {
public:
    SimulatedBluetooth(VirtualLoop& loop, const PhoneObserver& observer, BluetoothState state);
    ~SimulatedBluetooth() override;

    /// Lever: every central reports the new state, in order of creation. Nothing when it is the state already.
    void setState(BluetoothState state);
    [[nodiscard]] BluetoothState state() const { return state_; }

    /// With `showPowerAlert` and a radio that is off the observer is told of the phone's alert.
    [[nodiscard]] std::unique_ptr<BluetoothCentral> makeCentral(
        bool showPowerAlert, std::function<void(BluetoothState)> stateChanged) override;

private:
    class Central;
    struct Client;

    VirtualLoop& loop_;
    const PhoneObserver& observer_;
    BluetoothState state_;
    std::vector<std::shared_ptr<Client>> clients_;
};

}  // namespace quomi::simulated
