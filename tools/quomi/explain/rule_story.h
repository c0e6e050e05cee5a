#pragma once

#include "quomi/model/rule_decision.h"
#include "tools/quomi/timeline/beacon_names.h"
#include "tools/quomi/timeline/local_clock.h"

#include <cstddef>
#include <deque>
#include <iosfwd>
#include <optional>
#include <set>
#include <string>

#include <boost/json/object.hpp>

namespace quomi::tool {

/// Tells one rule's story of a visit in sentences: each time that an event reached it, what became of it and why, and
/// at the end when it could act next. No control character of the trace reaches the stream.
class RuleStory {
public:
    /// With `at` the story ends there (seconds). Sentences are wrapped to so many columns, with 0 they are not. Stream
    /// and names outlive it.
    RuleStory(std::ostream& out, const LocalClock& clock, const BeaconNames& names, std::string rule,
              std::optional<double> at, std::size_t columns = 0);

    /// Takes the next record of the trace.
    void record(const boost::json::object& record);
    void finish();

private:
    void say(const std::string& sentences, std::size_t indent = 0);
    [[nodiscard]] std::string moment(double seconds) const;
    [[nodiscard]] std::string reason(const boost::json::object& record) const;
    /// Takes note that such a wait is over; whether there was one.
    bool endsWait(RuleWait wait);
    [[nodiscard]] std::string next() const;
    [[nodiscard]] std::optional<std::string> whenLimitAllows() const;

    std::ostream& out_;
    const LocalClock& clock_;
    const BeaconNames& names_;
    const std::string rule_;
    const std::optional<double> at_;
    const std::size_t columns_;
    std::size_t outcomes_ = 0;
    std::size_t executed_ = 0;
    std::deque<double> latchEnds_;  // of the latch times that run, in order
    std::size_t unanswered_ = 0;    // requests to its server
    boost::json::object last_;      // the rule's last record
    boost::json::object limit_;     // detail of the limit that stopped it last, until it passes the limits again
    std::set<std::string> others_;  // rules that events reached
};

}  // namespace quomi::tool
