#include "quomi/data/schema.h"

#include <fmt/format.h>

namespace quomi {

namespace {

using enum AttributeType;

std::string columnDefinition(const Attribute& attribute) {
    return fmt::format("\"{}\" {}{}{}{}", attribute.name, columnType(attribute.type),
                       attribute.optional ? "" : " NOT NULL", attribute.defaultValue.empty() ? "" : " DEFAULT ",
                       attribute.defaultValue);
}

}  // namespace

std::string_view columnType(AttributeType type) {
    switch (type) {
        case integer16:
        case integer32:
        case boolean:
            return "INTEGER";
        case real:
        case date:
            return "REAL";
        case text:
        case history:
            return "TEXT";
        case number:
            return "NUMERIC";
    }
    return "BLOB";
}

std::vector<std::string> createStatements(const Entity& entity) {
    std::string table = fmt::format("CREATE TABLE \"{}\" (\"{}\" INTEGER PRIMARY KEY", entity.name, kKeyColumn);
    for (const auto& attribute : entity.attributes) table += ", " + columnDefinition(attribute);
    for (const auto& owner : entity.owners) {
        table += fmt::format(", \"{}\" INTEGER REFERENCES \"{}\" (\"{}\") ON DELETE CASCADE", owner.name,
                             owner.destination, kKeyColumn);
    }
    std::vector<std::string> statements{table + ")"};
    int position = 0;
    for (const auto& columns : entity.indices) {
        statements.push_back(
            fmt::format("CREATE INDEX \"{0}_{1}\" ON \"{0}\" ({2})", entity.name, ++position, columns));
    }
    return statements;
}

}  // namespace quomi
