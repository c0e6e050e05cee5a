#include "quomi/diagnostics/event_record.h"

#include "quomi/platform/console.h"
#include "quomi/util/dates.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi {
namespace {

constexpr std::string_view kMissing = "(null)";

}  // namespace

QuomiDLog QuomiDLog::ofEvent(const boost::json::object& event, WallTime time) {
    std::string data;
    for (const char c : boost::json::serialize(event)) {
        // JSON has this character in texts only.
        c == ';' ? data += "\\u003b" : data += c;
    }
    return {time, std::move(data)};
}

std::string QuomiDLog::description(std::string_view zone) const {
    return fmt::format("{};{}", logTime ? QuomiUtils::logDateString(*logTime, zone) : std::string(kMissing),
                       logData ? std::string_view(*logData) : kMissing);
}

boost::json::object QuomiDLog::dictionary() const {
    boost::json::object result;
    if (logTime) result["logTime"] = logTime->time_since_epoch().count();
    if (logData) result["logData"] = *logData;
    return result;
}

std::optional<QuomiDLog> QuomiDLog::quomiDLogFromString(std::string_view line, Console& console) {
    if (std::ranges::count(line, ';') != 1) {
        console.log(fmt::format("Quomi SDK error while parsing log string: {}", line));
        return std::nullopt;
    }
    const std::size_t separator = line.find(';');
    const auto time = QuomiUtils::parseLogDate(line.substr(0, separator));
    const std::string_view data = line.substr(separator + 1);
    if (!time || !data.starts_with('{') || !data.ends_with('}')) return std::nullopt;
    return QuomiDLog{*time, std::string(data)};
}

std::vector<QuomiDLog> QuomiDLog::quomiDLogsFromString(std::string_view text, Console& console) {
    std::vector<QuomiDLog> records;
    for (const std::string_view line : componentsSeparatedBy(text, '\n')) {
        if (line.empty()) continue;
        if (auto record = quomiDLogFromString(line, console)) records.push_back(std::move(*record));
    }
    return records;
}

}  // namespace quomi
