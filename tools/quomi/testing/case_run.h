#pragma once

#include "hosts/simulated/visit/visit.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace quomi::tool {

/// An expectation that did not hold, in words without control characters.
struct Failure {
    std::string path;                  ///< JSON path in the visit: "$.expect[2]"
    std::string expected;              ///< "rule rule-welcome executed, once, until 11:31:00 (60 s)"
    std::string came;                  ///< "twice: 11:30:03 (3 s), 11:35:00 (300 s)"
    std::vector<std::string> records;  ///< some of those that came, with their times
    std::vector<std::string> nearest;  ///< where none came: those that come nearest
    std::vector<std::string> story;    ///< of a rule, in their place: what became of it, as `quomi explain` tells it
};

enum class Outcome { passed, failed, invalid };

/// What became of the rules of a visit: by rule and owner, how often each decision was made about it.
using RuleDecisions = std::map<std::pair<std::string, std::string>, std::map<std::string, std::size_t>>;

struct CaseResult {
    Outcome outcome = Outcome::passed;
    std::string error{};  ///< why an invalid visit is, or what went wrong beside the expectations; one line
    std::vector<Failure> failures{};
    double seconds = 0;  ///< that it took
    RuleDecisions rules{};
};

/// Plays a visit in a container of its own and holds its expectations against the trace. Several may run at once, each
/// on a thread of its own.
[[nodiscard]] CaseResult runCase(const simulated::Visit& visit);

}  // namespace quomi::tool
