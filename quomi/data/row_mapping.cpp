#include "quomi/data/row_mapping.h"

#include "quomi/util/json_readers.h"

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

}  // namespace

void bindValue(SQLite::Statement& statement, int position, bool value) {
    statement.bind(position, value ? 1 : 0);
}
void bindValue(SQLite::Statement& statement, int position, std::int32_t value) {
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
    boost::json::array dates;
    dates.reserve(value.size());
    for (const WallTime date : value) dates.emplace_back(secondsOf(date));
    statement.bind(position, boost::json::serialize(dates));
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
    const auto dates = parseJson(column.getString());
    if (!dates || !dates->is_array()) return;
    for (const auto& date : dates->get_array()) {
        if (const auto seconds = numberOf(&date)) value.push_back(dateOf(seconds->doubleValue()));
    }
}

}  // namespace quomi
