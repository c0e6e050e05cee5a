#include "hosts/simulated/simulated_device.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

namespace {

template <class Map, class Key>
std::optional<std::string> lookUp(const Map& map, const Key& key) {
    const auto found = map.find(key);
    return found == map.end() ? std::nullopt : std::optional(found->second);
}

}  // namespace

std::optional<std::string> SimulatedLocalization::localizedString(std::string_view english) const {
    return lookUp(config_.localization, english);
}

std::optional<std::string> SimulatedFiles::bundleResource(const std::string& path) const {
    return lookUp(config_.resources, path);
}

void SimulatedDefaults::setBool(const std::string& key, bool value) {
    JsonDefaults::setBool(key, value);
    tell(observer_.defaults, key, value);
}

void SimulatedConsole::log(std::string_view message) {
    if (loop_.isHostThread()) {
        tell(observer_.console, message);
    } else {
        loop_.post([this, text = std::string(message)] { tell(observer_.console, text); });
    }
}

class SimulatedReachability::Observation final : public ReachabilityObservation {
public:
    Observation(SimulatedReachability& network, Observer observer)
        : network_(network), observer_(std::move(observer)) {}
    ~Observation() override { std::erase(network_.observers_, observer_); }
    Observation(const Observation&) = delete;
    Observation& operator=(const Observation&) = delete;

private:
    SimulatedReachability& network_;
    Observer observer_;
};

SimulatedReachability::SimulatedReachability(VirtualLoop& loop, NetworkStatus status) : loop_(loop), status_(status) {}

SimulatedReachability::~SimulatedReachability() = default;

void SimulatedReachability::setStatus(NetworkStatus status) {
    if (std::exchange(status_, status) == status) return;
    loop_.post([this, status] {
        const auto observers = observers_;
        for (const auto& observer : observers) {
            const bool observes = std::ranges::find(observers_, observer) != observers_.end();
            if (observes) tell(*observer, status);
        }
    });
}

std::unique_ptr<ReachabilityObservation> SimulatedReachability::observe(std::function<void(NetworkStatus)> changed) {
    auto shared = std::make_shared<std::function<void(NetworkStatus)>>(std::move(changed));
    observers_.push_back(shared);
    return std::make_unique<Observation>(*this, std::move(shared));
}

}  // namespace quomi::simulated
