#include "quomi/data/column_values.h"

#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"

#include <bit>
#include <functional>
#include <string_view>

#include <SQLiteCpp/Column.h>
#include <SQLiteCpp/Statement.h>
#include <boost/json/array.hpp>
#include <boost/json/serialize.hpp>

namespace quomi {

namespace {

double secondsOf(WallTime date) {
    return toSeconds(date.time_since_epoch());
}
WallTime dateOf(double seconds) {
    return WallTime(toDuration(Seconds(seconds)));
}
constexpr std::string_view kEmptyHistory = "[]";

}  // namespace

void bindValue(SQLite::Statement& statement, int position, bool value) {
    statement.bind(position, value ? 1 : 0);
}
void bindValue(SQLite::Statement& statement, int position, std::int32_t value) {
    statement.bind(position, value);
}
void bindValue(SQLite::Statement& statement, int position, std::int64_t value) {
    statement.bind(position, value);
}
void bindValue(SQLite::Statement& statement, int position, double value) {
    statement.bind(position, value);
}
void bindValue(SQLite::Statement& statement, int position, const std::string& value) {
    statement.bind(position, value);
}
void bindValue(SQLite::Statement& statement, int position, WallTime value) {
    statement.bind(position, secondsOf(value));
}
void bindValue(SQLite::Statement& statement, int position, const std::vector<WallTime>& value) {
    if (value.empty()) {
        statement.bindNoCopy(position, kEmptyHistory.data());
        return;
    }
    boost::json::array dates;
    dates.reserve(value.size());
    for (const WallTime date : value) dates.emplace_back(secondsOf(date));
    statement.bind(position, boost::json::serialize(dates));
}
void bindNull(SQLite::Statement& statement, int position) {
    statement.bind(position);
}

void readValue(const SQLite::Column& column, bool& value) {
    value = column.getInt() != 0;
}
void readValue(const SQLite::Column& column, std::int32_t& value) {
    value = column.getInt();
}
void readValue(const SQLite::Column& column, double& value) {
    value = column.getDouble();
}
void readValue(const SQLite::Column& column, std::string& value) {
    value = column.getString();
}
void readValue(const SQLite::Column& column, WallTime& value) {
    value = dateOf(column.getDouble());
}
void readValue(const SQLite::Column& column, std::vector<WallTime>& value) {
    value.clear();
    const std::string_view text(column.getText(), static_cast<std::size_t>(column.getBytes()));
    if (text == kEmptyHistory) return;
    const auto dates = parseJson(text);
    if (!dates || !dates->is_array()) return;
    for (const auto& date : dates->get_array()) {
        if (const auto seconds = numberOf(&date)) value.push_back(dateOf(seconds->doubleValue()));
    }
}

bool isNull(const SQLite::Column& column) {
    return column.isNull();
}

std::uint64_t imageOf(bool value) {
    return value ? 1 : 0;
}
std::uint64_t imageOf(std::int32_t value) {
    return static_cast<std::uint32_t>(value);
}
std::uint64_t imageOf(double value) {
    return std::bit_cast<std::uint64_t>(value);
}
std::uint64_t imageOf(const std::string& value) {
    return std::hash<std::string_view>()(value);
}
std::uint64_t imageOf(WallTime value) {
    return static_cast<std::uint64_t>(value.time_since_epoch().count());
}
std::uint64_t imageOf(const std::vector<WallTime>& value) {
    return std::hash<std::string_view>()(
        std::string_view(reinterpret_cast<const char*>(value.data()), value.size() * sizeof(WallTime)));
}

boost::json::value jsonOf(bool value) {
    return value;
}
boost::json::value jsonOf(std::int32_t value) {
    return value;
}
boost::json::value jsonOf(double value) {
    return value;
}
boost::json::value jsonOf(const std::string& value) {
    return boost::json::value(value);
}
boost::json::value jsonOf(WallTime value) {
    return boost::json::value(QuomiUtils::stringUTCForDate(value, "UTC"));
}
boost::json::value jsonOf(const std::vector<WallTime>& value) {
    boost::json::array dates;
    dates.reserve(value.size());
    for (const WallTime date : value) dates.push_back(jsonOf(date));
    return dates;
}

}  // namespace quomi
