#pragma once

#include "hosts/simulated/visit/expectation.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi::simulated {

/// Holds one expectation against a trace, record by record.
class ExpectationWatch {
public:
    /// How many records it keeps of each kind for the report.
    static constexpr std::size_t kKept = 3;

    /// The expectation outlives the watch.
    explicit ExpectationWatch(const Expectation& expectation) : expectation_(expectation) {}

    /// Takes the next record of the trace.
    void record(const boost::json::object& record);

    /// Whether it holds when the trace ends here.
    [[nodiscard]] bool holds() const { return timesHold() && orderHolds(); }

    [[nodiscard]] const Expectation& expectation() const { return expectation_; }
    /// How many records matched inside of the window.
    [[nodiscard]] std::int64_t count() const { return count_; }
    [[nodiscard]] bool timesHold() const;
    /// Whether the first match came before the first of the other subject; true where there is none.
    [[nodiscard]] bool orderHolds() const;

    /// For the report: the first few matches, inside and outside of the window, and the first of the other subject.
    [[nodiscard]] const std::vector<boost::json::object>& matches() const { return matches_; }
    [[nodiscard]] const std::vector<boost::json::object>& outside() const { return outside_; }
    [[nodiscard]] const std::optional<boost::json::object>& other() const { return other_; }
    /// The few records that come nearest to the subject without matching it, the nearest first.
    [[nodiscard]] std::vector<boost::json::object> nearest() const;

private:
    struct Near {
        double likeness = 0;
        boost::json::object record;
    };

    [[nodiscard]] bool isInWindow(double seconds) const;
    void noteNear(double likeness, const boost::json::object& record);

    const Expectation& expectation_;
    std::size_t records_ = 0;
    std::int64_t count_ = 0;
    std::optional<std::size_t> firstMatch_;  // as the number of the record
    std::optional<std::size_t> firstOther_;
    std::vector<boost::json::object> matches_;
    std::vector<boost::json::object> outside_;
    std::optional<boost::json::object> other_;
    std::vector<Near> nearest_;
};

}  // namespace quomi::simulated
