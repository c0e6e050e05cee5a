#pragma once

#include "quomi/util/time.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class Console;

/// One record of the event log. Records that were read from a file have both fields.
struct QuomiDLog {
    std::optional<WallTime> logTime;     ///< when the event happened; a file keeps whole seconds
    std::optional<std::string> logData;  ///< the event's dictionary as a JSON object's text

    /// The record of an event. In its data ";" stands as the JSON escape "\u003b", so that its line can be read.
    [[nodiscard]] static QuomiDLog ofEvent(const boost::json::object& event, WallTime time);

    /// The record's line without its line break: the time in the zone as `QuomiUtils::logDateString` writes it, ";",
    /// the data. "(null)" stands for a missing field.
    [[nodiscard]] std::string description(std::string_view zone) const;
    [[nodiscard]] std::string stringFromQuomiDLog(std::string_view zone) const { return description(zone); }
    /// "logTime" in microseconds since 1970 and "logData"; without the fields that are missing.
    [[nodiscard]] boost::json::object dictionary() const;

    /// The record of a line: a time, one ";" and data that begins with "{" and ends with "}". Empty for any other line.
    /// Data that itself contains ";" makes its line unreadable, deliberately; only then, or when there is no ";", the
    /// console says so.
    [[nodiscard]] static std::optional<QuomiDLog> quomiDLogFromString(std::string_view line, Console& console);
    /// The records of the text's lines, in order. Lines that hold none are left out.
    [[nodiscard]] static std::vector<QuomiDLog> quomiDLogsFromString(std::string_view text, Console& console);

    bool operator==(const QuomiDLog&) const = default;
};

}  // namespace quomi
