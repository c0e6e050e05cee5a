#include "tools/quomi/timeline/visit_summary.h"

#include "quomi/location/location_utils.h"
#include "tools/quomi/timeline/rule_words.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace quomi::tool {

namespace json = boost::json;

namespace {

void count(std::vector<std::pair<std::string, std::size_t>>& counts, const std::string& what, std::size_t times = 1) {
    const auto known = std::ranges::find_if(counts, [&](const auto& each) { return each.first == what; });
    if (known != counts.end())
        known->second += times;
    else
        counts.emplace_back(what, times);
}

std::size_t eventsOf(const json::object& request) {
    const auto url = textOf(request, "url");
    const bool batch = std::string_view(url).substr(0, url.find('?')).ends_with("/log_multi.json");
    const auto* logs = objectOf(request, "body").if_contains("logs");
    return batch && textOf(request, "request") == "POST" && logs != nullptr && logs->is_array()
               ? logs->get_array().size()
               : 0;
}

bool showsThatItRuns(std::string_view kind, const json::object& record) {
    if (kind == "delegate") {
        const auto name = textOf(record, "delegate");
        return name != "didReceiveErrorNotification" && name != "didLogEvent";
    }
    if (kind == "request") return textOf(record, "url").find("/u_applications/limits.json") != std::string::npos;
    return kind == "monitor" || kind == "range" || kind == "updates" || kind == "rule";
}

}  // namespace

void VisitSummary::record(const json::object& record, double seconds) {
    now_ = std::max(now_, seconds);
    const auto kind = kindOf(record);
    hasRun_ = hasRun_ || showsThatItRuns(kind, record);
    if (kind == "delegate")
        delegate(record);
    else if (kind == "request")
        request(record);
    else if (kind == "response")
        response(record);
    else if (kind == "rule")
        rule(record);
    else if (kind == "call" || kind == "callback")
        noteError(record);
    // Stopping forgets the beacons nearby without reporting them lost.
    if (kind == "call" && textOf(record, "call") == "stop") endStays();
}

void VisitSummary::delegate(const json::object& record) {
    const auto name = textOf(record, "delegate");
    if (name == "didFindNewBeacon")
        beaconSeen(record, true);
    else if (name == "didUpdateBeacon" || name == "didReceivePingFromBeacon")
        beaconSeen(record, false);
    else if (name == "didLoseBeaconSignal")
        beaconLost(record);
    else if (name == "didReceiveLocationChange")
        moved(record);
    else if (name == "didReceiveEnterRegionNotification")
        ++way_.entered;
    else if (name == "didReceiveExitRegionNotification")
        ++way_.left;
    else if (name == "didLogEvent")
        ++eventsLogged_;
    else if (name == "didReceiveErrorNotification")
        noteError(record);
}

void VisitSummary::beaconSeen(const json::object& record, bool found) {
    const auto name = textOf(record, "beacon");
    const auto [index, isNew] = indexOf_.try_emplace(name, beacons_.size());
    if (isNew) {
        beacons_.push_back({});
        beacons_.back().name = name;
        beacons_.back().firstSeen = now_;
    }
    auto& beacon = beacons_[index->second];
    beacon.lastSeen = now_;
    if (found) ++beacon.found;
    auto& open = open_.try_emplace(name, Open{index->second, now_, 0}).first->second;
    settle(open);
    open.proximity =
        static_cast<std::int64_t>(std::clamp(numberOf(objectOf(record, "userInfo"), "proximity", 0), 0.0, 7.0));
}

void VisitSummary::beaconLost(const json::object& record) {
    if (const auto open = open_.extract(textOf(record, "beacon"))) {
        settle(open.mapped());
        ++beacons_[open.mapped().index].lost;
    }
}

void VisitSummary::moved(const json::object& record) {
    const auto place = placeOf(record);
    const double metres = place_ ? QuomiLocationUtils::calculateDistance(*place_, place) : 0;
    if (std::isfinite(metres)) way_.metres += metres;
    ++way_.positions;
    place_ = place;
}

void VisitSummary::settle(Open& open) {
    auto& beacon = beacons_[open.index];
    const auto span = now_ - open.since;
    beacon.inView += span;
    if (open.proximity == 1) beacon.immediate += span;
    if (open.proximity == 2) beacon.near += span;
    open.since = now_;
}

void VisitSummary::endStays() {
    for (auto& [name, open] : open_) settle(open);
    open_.clear();
}

void VisitSummary::request(const json::object& record) {
    ++requests_;
    sent_.push_back({textOf(record, "url"), eventsOf(record)});
}

void VisitSummary::response(const json::object& record) {
    count(outcomes_, textOf(record, "response"));
    const auto url = textOf(record, "url");
    const auto sent = std::ranges::find_if(sent_, [&](const Sent& each) { return each.url == url; });
    if (sent == sent_.end()) return;
    const auto status = numberOf(record, "response", 0);
    if (status >= 200 && status < 300) eventsUploaded_ += sent->events;
    sent_.erase(sent);
}

void VisitSummary::rule(const json::object& record) {
    const auto id = textOf(record, "rule");
    auto known = std::ranges::find_if(rules_, [&](const auto& each) { return each.first == id; });
    if (known == rules_.end()) known = rules_.insert(rules_.end(), {id, {}});
    auto& fate = known->second;
    const auto decision = decisionOf(record);
    // A record that waits is followed by that of the wait's end, which is what counts.
    if (decision && rowOf(*decision).begins) return;
    ++fate.considered;
    if (decision == RuleDecision::executed) {
        ++fate.executed;
    } else {
        count(fate.stops, textOf(record, "decision"));
    }
}

void VisitSummary::noteError(const json::object& record) {
    const auto& error = fieldOf(record, "error");
    if (!error.is_null()) count(errors_, errorText(error));
}

void VisitSummary::finish() {
    endStays();
    if (!sent_.empty()) count(outcomes_, "unanswered", sent_.size());
    sent_.clear();
}

}  // namespace quomi::tool
