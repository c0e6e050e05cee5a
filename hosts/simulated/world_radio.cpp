#include "hosts/simulated/world_radio.h"

#include "hosts/simulated/circle_watch.h"
#include "quomi/location/location_utils.h"

#include <algorithm>
#include <cmath>

namespace quomi::simulated {

namespace {

constexpr Duration kReportInterval = std::chrono::seconds(1);
constexpr double kLossPerDecade = 25;  // ten times the exponent 2.5
constexpr std::int32_t kStrongest = -1;
constexpr double kFarthestReach = 1e6;

bool isWithin(double value, double oneEnd, double otherEnd, double margin) {
    return value >= std::min(oneEnd, otherEnd) - margin && value <= std::max(oneEnd, otherEnd) + margin;
}

/// Whether a point may lie within so many metres of the leg.
bool mayBeNear(const Coordinate& point, double metres, const Leg& leg) {
    const auto to = leg.to.value_or(leg.from);
    if (!isWithin(point.latitude, leg.from.latitude, to.latitude, extentOf(metres, 0, 0).latitudes)) return false;
    const auto extent = extentOf(metres, leg.from.latitude, to.latitude);
    const double turned = longitudeBetween(leg.from.longitude, to.longitude);
    return isWithin(longitudeBetween(leg.from.longitude, point.longitude), 0, turned, extent.longitudes);
}

}  // namespace

std::int32_t WorldRadio::rssiAt(double metres, std::int32_t txPower) {
    const double rssi = txPower - kLossPerDecade * std::log10(std::max(metres, kNearest));
    return std::min(static_cast<std::int32_t>(std::lround(rssi)), kStrongest);
}

void WorldRadio::place(const std::vector<PlacedBeacon>& beacons) {
    senders_.clear();
    for (const auto& beacon : beacons) {
        // Half a dBm more than the weakest one rounds to.
        const double reach = std::pow(10.0, (beacon.txPower - kWeakest + 0.5) / kLossPerDecade);
        senders_.push_back({beacon, std::min(reach, kFarthestReach)});
    }
    gather();
    schedule();
}

void WorldRadio::move(const Leg& leg) {
    if (!zero_) zero_ = loop_.monotonicNow();
    leg_ = leg;
    began_ = loop_.monotonicNow();
    timer_.reset();
    gather();
    const bool goesOnAtOnce = leg.to && leg.duration <= Duration::zero();
    if (near_.empty() || goesOnAtOnce) return;
    if ((began_ - *zero_) % kReportInterval == Duration::zero()) beat();
    schedule();
}

void WorldRadio::gather() {
    near_.clear();
    if (!zero_) return;
    for (const auto& sender : senders_) {
        if (mayBeNear(sender.beacon.position, sender.reach, leg_)) near_.push_back(&sender.beacon);
    }
}

/// The next beat of this leg. That of its last moment belongs to the next leg: the position comes first.
void WorldRadio::schedule() {
    timer_.reset();
    if (near_.empty()) return;
    const auto now = loop_.monotonicNow();
    const Duration wait = kReportInterval - (now - *zero_) % kReportInterval;
    if (leg_.to && now + wait >= began_ + leg_.duration) return;
    timer_ = loop_.schedulePhoneTimer(wait, Duration::zero(), [this] {
        beat();
        schedule();
    });
}

void WorldRadio::beat() {
    const auto here = place();
    for (const auto* beacon : near_) {
        const double metres = QuomiLocationUtils::calculateDistance(here, beacon->position);
        const auto rssi = rssiAt(metres, beacon->txPower);
        if (rssi < kWeakest) continue;
        radio_.hear({beacon->proximityUUID, beacon->major, beacon->minor, beacon->txPower, rssi});
    }
}

Coordinate WorldRadio::place() const {
    if (!leg_.to || leg_.duration <= Duration::zero()) return leg_.from;
    const double share = std::min(Seconds(loop_.monotonicNow() - began_) / Seconds(leg_.duration), 1.0);
    const double turned = longitudeBetween(leg_.from.longitude, leg_.to->longitude);
    return {std::lerp(leg_.from.latitude, leg_.to->latitude, share),
            longitudeBetween(0, leg_.from.longitude + share * turned)};
}

}  // namespace quomi::simulated
