#pragma once

#include "quomi/util/time.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include <SQLiteCpp/Column.h>
#include <fmt/format.h>

namespace SQLite {
class Statement;
}

namespace quomi {

/// A value on its way into a statement and out of a row.
void bindValue(SQLite::Statement& statement, int position, bool value);
void bindValue(SQLite::Statement& statement, int position, std::int32_t value);
void bindValue(SQLite::Statement& statement, int position, double value);
void bindValue(SQLite::Statement& statement, int position, const std::string& value);
void bindValue(SQLite::Statement& statement, int position, WallTime value);
void bindValue(SQLite::Statement& statement, int position, const std::vector<WallTime>& value);
void readValue(const SQLite::Column& column, bool& value);
void readValue(const SQLite::Column& column, std::int32_t& value);
void readValue(const SQLite::Column& column, double& value);
void readValue(const SQLite::Column& column, std::string& value);
void readValue(const SQLite::Column& column, WallTime& value);
void readValue(const SQLite::Column& column, std::vector<WallTime>& value);

/// Which member of a record holds which attribute. Types, defaults and the rest of the description stand in the schema.
template <class Record>
struct RowMapping {
    using Member = std::variant<bool Record::*, std::int32_t Record::*, double Record::*, std::string Record::*,
                                WallTime Record::*, std::vector<WallTime> Record::*>;
    struct Field {
        std::string_view attribute;
        Member member;
    };
    std::string_view entity;
    std::vector<Field> fields;

    [[nodiscard]] std::string selectAll() const { return fmt::format("SELECT {} FROM \"{}\"", columns(), entity); }
    [[nodiscard]] std::string deleteAll() const { return fmt::format("DELETE FROM \"{}\"", entity); }
    [[nodiscard]] std::string insert() const {
        std::string places;
        for (std::size_t i = 0; i < fields.size(); ++i) places += i == 0 ? "?" : ", ?";
        return fmt::format("INSERT INTO \"{}\" ({}) VALUES ({})", entity, columns(), places);
    }

    void bind(SQLite::Statement& statement, const Record& record) const {
        int position = 0;
        for (const auto& field : fields) {
            ++position;
            std::visit([&](auto member) { bindValue(statement, position, record.*member); }, field.member);
        }
    }
    template <class Row>
    [[nodiscard]] Record read(Row& row) const {
        Record record;
        int position = 0;
        for (const auto& field : fields) {
            std::visit([&](auto member) { readValue(row.getColumn(position), record.*member); }, field.member);
            ++position;
        }
        return record;
    }

private:
    [[nodiscard]] std::string columns() const {
        std::string names;
        for (const auto& field : fields) names += fmt::format("{}\"{}\"", names.empty() ? "" : ", ", field.attribute);
        return names;
    }
};

}  // namespace quomi
