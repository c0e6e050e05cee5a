#include "hosts/simulated/simulated_bluetooth.h"

#include <utility>

namespace quomi::simulated {

struct SimulatedBluetooth::Client {
    std::function<void(BluetoothState)> stateChanged;
    bool lives = true;

    void hear(BluetoothState state) const {
        if (lives) tell(stateChanged, state);
    }
};

class SimulatedBluetooth::Central final : public BluetoothCentral {
public:
    Central(SimulatedBluetooth& radio, std::shared_ptr<Client> client) : radio_(radio), client_(std::move(client)) {}
    ~Central() override {
        client_->lives = false;
        std::erase(radio_.clients_, client_);
    }
    Central(const Central&) = delete;
    Central& operator=(const Central&) = delete;

    [[nodiscard]] BluetoothState state() const override { return radio_.state_; }

private:
    SimulatedBluetooth& radio_;
    std::shared_ptr<Client> client_;
};

SimulatedBluetooth::SimulatedBluetooth(VirtualLoop& loop, const PhoneObserver& observer, BluetoothState state)
    : loop_(loop), observer_(observer), state_(state) {}

SimulatedBluetooth::~SimulatedBluetooth() = default;

void SimulatedBluetooth::setState(BluetoothState state) {
    if (std::exchange(state_, state) == state) return;
    loop_.post([this, state] {
        const auto clients = clients_;
        for (const auto& client : clients) client->hear(state);
    });
}

std::unique_ptr<BluetoothCentral> SimulatedBluetooth::makeCentral(bool showPowerAlert,
                                                                  std::function<void(BluetoothState)> stateChanged) {
    if (showPowerAlert && state_ == BluetoothState::poweredOff) tell(observer_.bluetoothPowerAlert);
    auto client = std::make_shared<Client>(Client{std::move(stateChanged)});
    clients_.push_back(client);
    loop_.post([this, client] { client->hear(state_); });
    return std::make_unique<Central>(*this, std::move(client));
}

}  // namespace quomi::simulated
