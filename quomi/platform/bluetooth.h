#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace quomi {

/// State of the Bluetooth radio, as the platform numbers it.
enum class BluetoothState : std::int64_t {
    unknown = 0,
    resetting = 1,
    unsupported = 2,
    unauthorized = 3,
    poweredOff = 4,
    poweredOn = 5,
};

/// One client of the radio. Destroying it ends its callbacks. Host's thread only.
class BluetoothCentral {
public:
    virtual ~BluetoothCentral() = default;
    [[nodiscard]] virtual BluetoothState state() const = 0;
};

/// Port: Bluetooth. Host's thread only.
class BluetoothPlatform {
public:
    virtual ~BluetoothPlatform() = default;

    /// A new central. `stateChanged` is called with the state once in a later turn and then at every change. With
    /// `showPowerAlert` the phone itself tells the user when the radio is off.
    [[nodiscard]] virtual std::unique_ptr<BluetoothCentral> makeCentral(
        bool showPowerAlert, std::function<void(BluetoothState)> stateChanged) = 0;
};

}  // namespace quomi
