#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quomi {

/// What an attribute holds and how its column does: integers and booleans as INTEGER, reals as REAL, dates as REAL
/// seconds since 1970-01-01 00:00 UTC, histories as the text of a JSON array of such seconds.
enum class AttributeType { integer16, integer32, real, text, boolean, date, history, number };

/// One attribute of an entity. The default is written as in SQL; empty for none.
struct Attribute {
    std::string_view name;
    AttributeType type;
    bool optional = true;
    std::string_view defaultValue = {};
};

/// The to-one side of a relationship: a column that holds the owner's key. The rows go with their owner.
struct OwnerRelationship {
    std::string_view name;
    std::string_view destination;
};

/// One entity: a table of its name with a column for each attribute, and the indices that queries ask for.
struct Entity {
    std::string_view name;
    std::vector<Attribute> attributes;
    std::vector<OwnerRelationship> owners = {};
    std::vector<std::string_view> indices = {};  ///< column lists
};

/// The column that holds a row's key, beside the attributes.
inline constexpr std::string_view kKeyColumn = "_id";

/// Type of the column that holds an attribute of the type, as SQL names it.
[[nodiscard]] std::string_view columnType(AttributeType type);

/// The nine entities of the current version, described once: the store's tables are made of this.
[[nodiscard]] const std::vector<Entity>& currentSchema();

/// The statements that make the entity's table and indices, one by one. By their texts a store of this version
/// is known at a glance; another order of its columns or other indices do not make it another version.
[[nodiscard]] std::vector<std::string> createStatements(const Entity& entity);

}  // namespace quomi
