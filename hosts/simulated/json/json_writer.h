#pragma once

#include <string>

#include <boost/json/fwd.hpp>

namespace quomi::simulated {

/// The value as JSON on one line; numbers in the fewest digits that read back the same, 12.5 where Boost writes 1.25E1;
/// null for one that is not finite.
[[nodiscard]] std::string jsonText(const boost::json::value& value);
[[nodiscard]] std::string jsonText(const boost::json::object& object);

}  // namespace quomi::simulated
