#include "quomi/data/column_values.h"

#include "quomi/data/prepared_statement.h"
#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/number.h"

#include <bit>
#include <functional>
#include <string_view>

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

void bindValue(PreparedStatement& statement, int position, bool value) {
    statement.bind(position, std::int64_t{value});
}
void bindValue(PreparedStatement& statement, int position, std::int32_t value) {
    statement.bind(position, std::int64_t{value});
}
void bindValue(PreparedStatement& statement, int position, std::int64_t value) {
    statement.bind(position, value);
}
void bindValue(PreparedStatement& statement, int position, double value) {
    statement.bind(position, value);
}
void bindValue(PreparedStatement& statement, int position, const std::string& value) {
    statement.bind(position, std::string_view(value));
}
void bindValue(PreparedStatement& statement, int position, WallTime value) {
    statement.bind(position, secondsOf(value));
}
void bindValue(PreparedStatement& statement, int position, const std::vector<WallTime>& value) {
    if (value.empty()) {
        statement.bind(position, kEmptyHistory);
        return;
    }
    boost::json::array dates;
    dates.reserve(value.size());
    for (const WallTime date : value) dates.emplace_back(secondsOf(date));
    statement.bind(position, std::string_view(boost::json::serialize(dates)));
}
void bindNull(PreparedStatement& statement, int position) {
    statement.bindNull(position);
}

void readValue(const PreparedStatement& row, int column, bool& value) {
    value = row.integer(column) != 0;
}
void readValue(const PreparedStatement& row, int column, std::int32_t& value) {
    value = saturate<std::int32_t>(row.integer(column));
}
void readValue(const PreparedStatement& row, int column, double& value) {
    value = row.real(column);
}
void readValue(const PreparedStatement& row, int column, std::string& value) {
    value = row.text(column);
}
void readValue(const PreparedStatement& row, int column, WallTime& value) {
    value = dateOf(row.real(column));
}
void readValue(const PreparedStatement& row, int column, std::vector<WallTime>& value) {
    value.clear();
    const auto text = row.text(column);
    if (text == kEmptyHistory) return;
    const auto dates = parseJson(text);
    if (!dates || !dates->is_array()) return;
    for (const auto& date : dates->get_array()) {
        if (const auto seconds = numberOf(&date)) value.push_back(dateOf(seconds->doubleValue()));
    }
}

bool isNull(const PreparedStatement& row, int column) {
    return row.isNull(column);
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
