#pragma once

#include "quomi/data/schema.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/value.hpp>

namespace quomi {

class PreparedStatement;

/// How a member's type goes into a column and comes back. A missing optional is NULL.
void bindValue(PreparedStatement& statement, int position, bool value);
void bindValue(PreparedStatement& statement, int position, std::int32_t value);
void bindValue(PreparedStatement& statement, int position, std::int64_t value);
void bindValue(PreparedStatement& statement, int position, double value);
void bindValue(PreparedStatement& statement, int position, const std::string& value);
void bindValue(PreparedStatement& statement, int position, WallTime value);
void bindValue(PreparedStatement& statement, int position, const std::vector<WallTime>& value);
void bindNull(PreparedStatement& statement, int position);

void readValue(const PreparedStatement& row, int column, bool& value);
void readValue(const PreparedStatement& row, int column, std::int32_t& value);
void readValue(const PreparedStatement& row, int column, double& value);
void readValue(const PreparedStatement& row, int column, std::string& value);
void readValue(const PreparedStatement& row, int column, WallTime& value);
void readValue(const PreparedStatement& row, int column, std::vector<WallTime>& value);
[[nodiscard]] bool isNull(const PreparedStatement& row, int column);

/// 64 bits that tell a value from another one of its type: the value itself for numbers and dates, a hash for texts
/// and histories.
[[nodiscard]] std::uint64_t imageOf(bool value);
[[nodiscard]] std::uint64_t imageOf(std::int32_t value);
[[nodiscard]] std::uint64_t imageOf(double value);
[[nodiscard]] std::uint64_t imageOf(const std::string& value);
[[nodiscard]] std::uint64_t imageOf(WallTime value);
[[nodiscard]] std::uint64_t imageOf(const std::vector<WallTime>& value);

/// As dictionaries show it: dates as ISO 8601 texts in UTC.
[[nodiscard]] boost::json::value jsonOf(bool value);
[[nodiscard]] boost::json::value jsonOf(std::int32_t value);
[[nodiscard]] boost::json::value jsonOf(double value);
[[nodiscard]] boost::json::value jsonOf(const std::string& value);
[[nodiscard]] boost::json::value jsonOf(WallTime value);
[[nodiscard]] boost::json::value jsonOf(const std::vector<WallTime>& value);

template <class Value>
void bindValue(PreparedStatement& statement, int position, const std::optional<Value>& value) {
    value ? bindValue(statement, position, *value) : bindNull(statement, position);
}
template <class Value>
void readValue(const PreparedStatement& row, int column, std::optional<Value>& value) {
    if (isNull(row, column)) {
        value.reset();
    } else {
        readValue(row, column, value.emplace());
    }
}
template <class Value>
[[nodiscard]] std::uint64_t imageOf(const std::optional<Value>& value) {
    constexpr std::uint64_t missing = 0x9e3779b97f4a7c15;  // no number or date that a store holds looks like it
    return value ? imageOf(*value) : missing;
}
template <class Value>
[[nodiscard]] boost::json::value jsonOf(const std::optional<Value>& value) {
    return value ? jsonOf(*value) : boost::json::value(nullptr);
}

/// The attribute type of a member's type.
template <class Value>
struct AttributeTypeOf;
template <class Value>
struct AttributeTypeOf<std::optional<Value>> : AttributeTypeOf<Value> {};
template <AttributeType Type>
struct AttributeTypeConstant {
    static constexpr AttributeType value = Type;
};
template <>
struct AttributeTypeOf<bool> : AttributeTypeConstant<AttributeType::boolean> {};
template <>
struct AttributeTypeOf<std::int32_t> : AttributeTypeConstant<AttributeType::integer32> {};
template <>
struct AttributeTypeOf<double> : AttributeTypeConstant<AttributeType::real> {};
template <>
struct AttributeTypeOf<std::string> : AttributeTypeConstant<AttributeType::text> {};
template <>
struct AttributeTypeOf<WallTime> : AttributeTypeConstant<AttributeType::date> {};
template <>
struct AttributeTypeOf<std::vector<WallTime>> : AttributeTypeConstant<AttributeType::history> {};

}  // namespace quomi
