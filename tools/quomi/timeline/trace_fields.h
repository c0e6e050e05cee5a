#pragma once

#include "quomi/platform/location.h"

#include <cstdint>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

namespace quomi::tool {

/// Lenient readers of a trace record's fields. All texts come back neutralised for a terminal.

/// A field's value; null when it is not there.
[[nodiscard]] const boost::json::value& fieldOf(const boost::json::object& record, std::string_view key);
/// An object field; an empty object when it is not there or something else.
[[nodiscard]] const boost::json::object& objectOf(const boost::json::object& record, std::string_view key);
/// A number field; `otherwise` when it is not there or something else.
[[nodiscard]] double numberOf(const boost::json::object& record, std::string_view key, double otherwise);
/// A text as it stands, null as the empty text, an array of plain values as its elements between blanks; anything else
/// as JSON.
[[nodiscard]] std::string textOf(const boost::json::value& value);
[[nodiscard]] std::string textOf(const boost::json::object& record, std::string_view key);

/// Where a record's `location` lies; zeros for what is no number.
[[nodiscard]] Coordinate placeOf(const boost::json::object& record);

/// The key that names the record's kind; empty when there is none.
[[nodiscard]] std::string_view kindOf(const boost::json::object& record);
/// Everything of the record but its time and its naming key, as "key value, key value".
[[nodiscard]] std::string otherFields(const boost::json::object& record, std::string_view kind);
[[nodiscard]] std::string pairsText(const boost::json::object& object);

/// An error record in words; "no error" for null.
[[nodiscard]] std::string errorText(const boost::json::value& error);

}  // namespace quomi::tool
