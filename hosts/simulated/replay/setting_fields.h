#pragma once

#include <string_view>

#include <boost/json/value.hpp>

namespace quomi {
struct QuomiSettings;
}

namespace quomi::simulated {

/// Writes the settings field of that name; null is nil, which is the empty text, zero or false where the field cannot
/// be nil. False when there is no such field or the value is not of its type.
bool setSetting(QuomiSettings& settings, std::string_view name, const boost::json::value& value);

}  // namespace quomi::simulated
