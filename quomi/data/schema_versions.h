#pragma once

#include "quomi/data/schema.h"

#include <string>
#include <vector>

namespace SQLite {
class Database;
}

namespace quomi {

/// A version of the schema that stores in the field have. Indices belong to the current version alone: nothing asks a
/// store of an earlier one.
struct SchemaVersion {
    int number;
    std::string name;  ///< "QuomiObjectModel_v013"
    std::vector<Entity> entities;
};

/// All versions, oldest first, without gaps in their numbers; the last is the current one.
[[nodiscard]] const std::vector<SchemaVersion>& allVersions();
[[nodiscard]] const SchemaVersion& currentVersion();

/// Number of the current version, known without making the others.
inline constexpr int kCurrentVersionNumber = 13;

/// Makes the version's tables and indices and marks the file with its number (`PRAGMA user_version`). Inside the
/// caller's transaction; throws what SQLite throws.
void makeTables(SQLite::Database& database, const std::vector<Entity>& entities, int versionNumber);

/// The version that the file's own tables are of: names, types, optionality, defaults, keys and owners of all columns,
/// in any order; indices do not count. Where versions differ in none of these the file's mark decides, and without a
/// mark the newest one is taken. Null when the file is of no version: when it has anything but tables and indices, a
/// generated column, or the mark of a later version than there are. Only reads; throws what SQLite throws.
[[nodiscard]] const SchemaVersion* findVersion(const SQLite::Database& database);

}  // namespace quomi
