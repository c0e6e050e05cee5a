#include "hosts/simulated/expect/expectation_watch.h"

#include "hosts/simulated/expect/subject_match.h"

#include <algorithm>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

constexpr double kNearEnough = 0.4;

void keep(std::vector<json::object>& records, const json::object& record) {
    if (records.size() < ExpectationWatch::kKept) records.push_back(record);
}

/// The time of a record, which is cut to milliseconds, as the ends of windows are for the comparison.
std::chrono::milliseconds cut(Duration moment) {
    return std::chrono::floor<std::chrono::milliseconds>(moment);
}

}  // namespace

void ExpectationWatch::record(const json::object& record) {
    ++records_;
    const auto& before = expectation_.before;
    if (before && !other_ && simulated::matches(*before, record)) {
        firstOther_ = records_;
        other_ = record;
    }
    const double likeness = simulated::likeness(expectation_.subject, record);
    if (likeness < 1) return noteNear(likeness, record);
    if (!isInWindow(record.at("t").to_number<double>())) return keep(outside_, record);
    keep(matches_, record);
    if (count_++ == 0) firstMatch_ = records_;
}

bool ExpectationWatch::isInWindow(double seconds) const {
    const auto at = std::chrono::round<std::chrono::milliseconds>(Seconds(seconds));
    return (!expectation_.from || at >= cut(*expectation_.from)) &&
           (!expectation_.until || at <= cut(*expectation_.until));
}

bool ExpectationWatch::timesHold() const {
    return count_ >= expectation_.least && (!expectation_.most || count_ <= *expectation_.most);
}

bool ExpectationWatch::orderHolds() const {
    return !expectation_.before || (firstMatch_ && firstOther_ && *firstMatch_ < *firstOther_);
}

void ExpectationWatch::noteNear(double likeness, const json::object& record) {
    if (likeness < kNearEnough) return;
    const auto place = std::ranges::upper_bound(nearest_, likeness, std::greater<>(), &Near::likeness);
    if (place == nearest_.end() && nearest_.size() == kKept) return;
    nearest_.insert(place, {likeness, record});
    if (nearest_.size() > kKept) nearest_.pop_back();
}

std::vector<json::object> ExpectationWatch::nearest() const {
    std::vector<json::object> records;
    for (const auto& near : nearest_) records.push_back(near.record);
    return records;
}

}  // namespace quomi::simulated
