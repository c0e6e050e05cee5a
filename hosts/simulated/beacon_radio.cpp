#include "hosts/simulated/beacon_radio.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

namespace {

constexpr Duration kBeat = std::chrono::seconds(1);

}  // namespace

BeaconRadio::BeaconRadio(VirtualLoop& loop, SimulatedLocation& location) : loop_(loop), location_(location) {
    location_.setBeaconInterest(this);
}

BeaconRadio::~BeaconRadio() {
    location_.setBeaconInterest(nullptr);
}

void BeaconRadio::switchOn() {
    if (std::exchange(isOn_, true)) return;
    // In the order in which the regions are reported otherwise.
    for (const auto& region : location_.rangedRegions()) start(region.identifier, beats_[region.identifier]);
}

void BeaconRadio::hear(const Packet& packet) {
    switchOn();
    const auto& uuid = packet.proximityUUID;
    if (!model_.hear(packet, loop_.monotonicNow())) return;
    watchForExit(uuid);
    if (!location_.isMonitored(uuid)) return;
    location_.enterBeaconRegion(uuid);
    location_.beaconRegionState(uuid, RegionState::inside);
}

void BeaconRadio::rangingBegan(const BeaconRegion& region) {
    auto& beat = beats_[region.identifier];
    beat = {loop_.monotonicNow(), nullptr};
    if (isOn_) start(region.identifier, beat);
}

void BeaconRadio::rangingEnded(const std::string& identifier) {
    beats_.erase(identifier);
}

void BeaconRadio::monitoringBegan(const Uuid& proximityUUID) {
    model_.setOutside(proximityUUID);
    exits_.erase(proximityUUID);
}

void BeaconRadio::start(const std::string& identifier, Beat& beat) {
    const auto sinceLast = (loop_.monotonicNow() - beat.began) % kBeat;
    beat.timer = loop_.schedulePhoneTimer(kBeat - sinceLast, kBeat, [this, identifier] { report(identifier); });
}

void BeaconRadio::report(const std::string& identifier) {
    const auto& ranged = location_.rangedRegions();
    const auto found =
        std::ranges::find_if(ranged, [&](const BeaconRegion& region) { return region.identifier == identifier; });
    if (found == ranged.end()) return;
    location_.report(identifier, model_.report(found->proximityUUID, loop_.monotonicNow(), identifier));
}

void BeaconRadio::watchForExit(const Uuid& proximityUUID) {
    const auto due = model_.exitDue(proximityUUID);
    if (!due) return;
    exits_[proximityUUID] = loop_.schedulePhoneTimer(*due - loop_.monotonicNow(), Duration::zero(),
                                                     [this, proximityUUID] { exitIfDue(proximityUUID); });
}

void BeaconRadio::exitIfDue(const Uuid& proximityUUID) {
    const auto due = model_.exitDue(proximityUUID);
    if (!due) return;
    if (*due > loop_.monotonicNow()) return watchForExit(proximityUUID);
    model_.setOutside(proximityUUID);
    if (!location_.isMonitored(proximityUUID)) return;
    location_.exitBeaconRegion(proximityUUID);
    location_.beaconRegionState(proximityUUID, RegionState::outside);
}

}  // namespace quomi::simulated
