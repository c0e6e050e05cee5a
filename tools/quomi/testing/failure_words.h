#pragma once

#include "hosts/simulated/expect/expectation_watch.h"
#include "tools/quomi/testing/case_run.h"
#include "tools/quomi/timeline/beacon_names.h"
#include "tools/quomi/timeline/local_clock.h"

#include <span>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi::tool {

/// Tells why expectations of a visit did not hold, in words without control characters.
class FailureWords {
public:
    explicit FailureWords(const simulated::Visit& visit);

    /// `rules` are all `rule` records of the trace.
    [[nodiscard]] Failure describe(const simulated::ExpectationWatch& watch,
                                   std::span<const boost::json::object> rules) const;

private:
    [[nodiscard]] std::string moment(double seconds) const;
    [[nodiscard]] std::string expected(const simulated::Expectation& expectation) const;
    [[nodiscard]] std::string came(const simulated::ExpectationWatch& watch) const;
    [[nodiscard]] std::string order(const simulated::ExpectationWatch& watch) const;
    [[nodiscard]] std::string moments(const std::vector<boost::json::object>& records) const;
    [[nodiscard]] std::string line(const boost::json::object& record) const;
    [[nodiscard]] std::vector<std::string> story(const simulated::Expectation& expectation,
                                                 std::span<const boost::json::object> rules) const;

    const LocalClock clock_;
    const BeaconNames names_;
};

}  // namespace quomi::tool
