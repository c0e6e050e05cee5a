#pragma once

#include "hosts/simulated/visit/expectation.h"

#include <string_view>

#include <boost/json/object.hpp>

namespace quomi::simulated {

/// Whether the text is what the pattern says; `*` in it stands for any text, also none.
[[nodiscard]] bool matches(std::string_view pattern, std::string_view text);

/// Whether the record of a trace is one of those that the subject speaks of. Objects may have more members than are
/// asked for, arrays not more elements; numbers are equal by value.
[[nodiscard]] bool matches(const Subject& subject, const boost::json::object& record);

/// How near a record comes to the subject, from 0 to 1: the part of the members that it has. 0 for a record of another
/// kind.
[[nodiscard]] double likeness(const Subject& subject, const boost::json::object& record);

}  // namespace quomi::simulated
