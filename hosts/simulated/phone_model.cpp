#include "hosts/simulated/phone_model.h"

#include <algorithm>
#include <cmath>

namespace quomi::simulated {

namespace {

constexpr double kImmediateBorder = 0.5;
constexpr double kNearBorder = 3.0;
// 1.2 and 0.8 times the borders, written out: the products would be off in the last bit.
constexpr double kImmediateLeftBeyond = 0.6;
constexpr double kNearLeftBelow = 0.4;
constexpr double kNearLeftBeyond = 3.6;
constexpr double kFarLeftBelow = 2.4;
constexpr double kOldShare = 0.65;
constexpr double kNewShare = 0.35;
constexpr double kPathLoss = 25.0;  // ten times the exponent 2.5

constexpr std::uint32_t beaconKey(std::uint16_t major, std::uint16_t minor) {
    return (std::uint32_t{major} << 16) | minor;
}

bool isPlausiblePower(std::int32_t power) {
    return power >= -100 && power <= -20;
}

bool staysIn(PlatformProximity proximity, double accuracy) {
    switch (proximity) {
        case PlatformProximity::immediate:
            return accuracy <= kImmediateLeftBeyond;
        case PlatformProximity::near:
            return accuracy >= kNearLeftBelow && accuracy <= kNearLeftBeyond;
        case PlatformProximity::far:
            return accuracy >= kFarLeftBelow;
        case PlatformProximity::unknown:
            break;
    }
    return false;
}

bool isNearer(const RangedBeacon& a, const RangedBeacon& b) {
    if ((a.accuracy < 0) != (b.accuracy < 0)) return b.accuracy < 0;
    return a.accuracy < b.accuracy;
}

/// What the samples of one second amount to.
struct SecondOfSamples {
    std::int64_t sum = 0;
    std::int64_t count = 0;
    MonotonicTime first;
    MonotonicTime last;

    void add(MonotonicTime at, std::int32_t rssi) {
        if (count == 0) first = at;
        last = at;
        sum += rssi;
        ++count;
    }
    [[nodiscard]] std::int64_t mean() const {
        return std::llround(static_cast<double>(sum) / static_cast<double>(count));
    }
};

}  // namespace

PlatformProximity proximityClass(double accuracy, PlatformProximity previous) {
    if (staysIn(previous, accuracy)) return previous;
    if (accuracy < kImmediateBorder) return PlatformProximity::immediate;
    return accuracy < kNearBorder ? PlatformProximity::near : PlatformProximity::far;
}

bool PhoneModel::hear(const Packet& packet, MonotonicTime at) {
    auto& area = areas_[packet.proximityUUID];
    const auto [entry, isNew] = area.indexOf.try_emplace(beaconKey(packet.major, packet.minor), area.beacons.size());
    if (isNew) area.beacons.push_back({packet.major, packet.minor, {}});
    auto& packets = area.beacons[entry->second].packets;
    while (!packets.empty() && at - packets.front().at > kKept) packets.pop_front();
    packets.push_back({at, packet.measuredPower, packet.rssi});
    area.lastPacket = at;
    return !std::exchange(area.inside, true);
}

bool PhoneModel::isInside(const Uuid& proximityUUID) const {
    const auto area = areas_.find(proximityUUID);
    return area != areas_.end() && area->second.inside;
}

std::optional<MonotonicTime> PhoneModel::exitDue(const Uuid& proximityUUID) const {
    if (!isInside(proximityUUID)) return std::nullopt;
    return areas_.at(proximityUUID).lastPacket + kExitDelay;
}

void PhoneModel::setOutside(const Uuid& proximityUUID) {
    if (const auto area = areas_.find(proximityUUID); area != areas_.end()) area->second.inside = false;
}

std::optional<RangedBeacon> PhoneModel::heardBeacon(const Uuid& uuid, const Beacon& beacon, std::size_t index,
                                                    MonotonicTime tick, Tracks& tracks) {
    constexpr Duration second = std::chrono::seconds(1);
    const auto atOrAfter = [](const Heard& heard, MonotonicTime time) { return heard.at < time; };
    const auto begin = std::lower_bound(beacon.packets.begin(), beacon.packets.end(), tick - second, atOrAfter);
    const auto end = std::lower_bound(begin, beacon.packets.end(), tick, atOrAfter);
    SecondOfSamples samples;
    for (auto heard = begin; heard != end; ++heard) {
        if (heard->rssi < 0) samples.add(heard->at, heard->rssi);
    }
    if (samples.count == 0) return std::nullopt;

    const auto [entry, isNew] = tracks.try_emplace(index);
    auto& track = entry->second;
    if (!isNew && track.tick == tick) return track.reported;
    const bool afresh = isNew || samples.first - track.lastSample >= kForgetAfter;
    const auto rssi = samples.mean();
    track.smoothed =
        afresh ? static_cast<double>(rssi) : kOldShare * track.smoothed + kNewShare * static_cast<double>(rssi);
    if (afresh) track.proximity = PlatformProximity::unknown;
    track.tick = tick;
    track.lastSample = samples.last;

    track.reported = {uuid, beacon.major, beacon.minor, PlatformProximity::unknown, -1, rssi};
    if (const auto power = std::prev(end)->measuredPower; isPlausiblePower(power)) {
        track.reported.accuracy = std::pow(10.0, (power - track.smoothed) / kPathLoss);
        track.proximity = proximityClass(track.reported.accuracy, track.proximity);
        track.reported.proximity = track.proximity;
    }
    return track.reported;
}

std::vector<RangedBeacon> PhoneModel::report(const Uuid& regionUUID, MonotonicTime tick, const std::string& region) {
    const auto area = areas_.find(regionUUID);
    if (area == areas_.end()) return {};
    auto& tracks = tracks_[{regionUUID, region}];
    std::vector<RangedBeacon> beacons;
    std::vector<RangedBeacon> silent;
    for (std::size_t index = 0; index < area->second.beacons.size(); ++index) {
        const auto& beacon = area->second.beacons[index];
        if (auto heard = heardBeacon(regionUUID, beacon, index, tick, tracks)) {
            beacons.push_back(*heard);
        } else if (const auto track = tracks.find(index);
                   track != tracks.end() && tick - track->second.lastSample <= kListedWhileSilent) {
            silent.push_back({regionUUID, beacon.major, beacon.minor, PlatformProximity::unknown, -1, 0});
        }
    }
    std::ranges::stable_sort(beacons, isNearer);
    beacons.insert(beacons.end(), silent.begin(), silent.end());
    return beacons;
}

}  // namespace quomi::simulated
