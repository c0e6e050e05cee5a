#pragma once

#include "hosts/simulated/expect/known_names.h"

#include <string>
#include <string_view>
#include <vector>

namespace quomi::tool {

// What `inactive` means, told apart.
inline constexpr const char* kOutsideDates = "inactive (dates)";
inline constexpr const char* kOutsideHours = "inactive (hours)";

/// One thing that can stop a rule.
struct RuleGate {
    std::string name;                         ///< of the decision, as expectations and traces name it
    std::vector<std::string_view> decisions;  ///< those that say that it did
};

/// The gates that a rule has by its own conditions, those of its owner and the limits of all rules together, in the
/// order in which they are asked. What only the app can refuse is none of them.
[[nodiscard]] std::vector<RuleGate> gatesOf(const simulated::KnownRule& rule, const boost::json::object* limits);

}  // namespace quomi::tool
