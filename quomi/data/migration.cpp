#include "quomi/data/migration.h"

#include "quomi/data/schema_versions.h"
#include "quomi/data/untrusted_file.h"
#include "quomi/platform/files.h"

#include <algorithm>
#include <cstdint>
#include <sqlite3.h>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>
#include <fmt/format.h>

namespace quomi {

namespace {

namespace fs = std::filesystem;

fs::path withSuffix(const fs::path& path, std::string_view suffix) {
    return path.string() + std::string(suffix);
}

fs::path nextFile(const fs::path& store) {
    return withSuffix(store, ".tmp");
}

void require(bool done, const std::error_code& failure, const char* operation) {
    if (!done) throw std::system_error(failure, operation);
}

void removeFile(const fs::path& path, Files& files) {
    std::error_code failure;
    require(files.remove(path, failure), failure, "removing");
}

/// From here to the closing of the connection nobody else reads or writes the store, and all of it is in one file.
void takeForOneself(SQLite::Database& store) {
    // Forces the directory too when a journal has been removed: none may be back beside the next file.
    store.exec("PRAGMA synchronous = EXTRA");
    // Leaving the write-ahead log takes it into the file and removes it; busy when anyone else has the store open.
    if (store.execAndGet("PRAGMA journal_mode = DELETE").getString() != "delete") {
        throw SQLite::Exception("the store is in use", SQLITE_BUSY);
    }
    store.exec("PRAGMA main.locking_mode = EXCLUSIVE");
    store.exec("BEGIN EXCLUSIVE");
    store.exec("COMMIT");
    int hasMoved = 0;
    sqlite3_file_control(store.getHandle(), "main", SQLITE_FCNTL_HAS_MOVED, &hasMoved);
    if (hasMoved != 0) throw SQLite::Exception("the store has been replaced meanwhile", SQLITE_BUSY);
}

std::string_view zeroOf(AttributeType type) {
    switch (type) {
        case AttributeType::text:
            return "''";
        case AttributeType::history:
            return "'[]'";
        case AttributeType::real:
        case AttributeType::date:
            return "0.0";
        case AttributeType::integer16:
        case AttributeType::integer32:
        case AttributeType::boolean:
        case AttributeType::number:
            return "0";
    }
    return "0";
}

std::string_view valueOfNone(const Attribute& attribute) {
    return attribute.defaultValue.empty() ? zeroOf(attribute.type) : attribute.defaultValue;
}

std::pair<std::int64_t, std::int64_t> limitsOf(AttributeType type) {
    if (type == AttributeType::boolean) return {0, 1};
    if (type == AttributeType::integer16) return {INT16_MIN, INT16_MAX};
    return {INT32_MIN, INT32_MAX};
}

bool isInteger(AttributeType type) {
    return type == AttributeType::integer16 || type == AttributeType::integer32 || type == AttributeType::boolean;
}

/// The expression for the attribute's value in the next version.
std::string converted(const Attribute& from, const Attribute& to) {
    std::string value = fmt::format("\"{}\"", from.name);
    if (!isInteger(from.type) && isInteger(to.type)) {
        const auto [lowest, highest] = limitsOf(to.type);
        value = fmt::format("CAST(MAX({}, MIN({}, CAST({} AS REAL))) AS INTEGER)", lowest, highest, value);
    }
    if (from.optional && !to.optional) value = fmt::format("COALESCE({}, {})", value, valueOfNone(to));
    return value;
}

/// Columns of the next version's table and the expressions, in the same order, that give their values.
class Copy {
public:
    Copy(const Entity& from, const Entity& to) {
        add(kKeyColumn, fmt::format("\"{}\"", kKeyColumn));
        for (const auto& owner : to.owners) add(owner.name, fmt::format("\"{}\"", owner.name));
        for (const auto& attribute : to.attributes) addAttribute(from, attribute);
    }

    [[nodiscard]] std::string statement(std::string_view entity) const {
        return fmt::format("INSERT INTO next.\"{0}\" ({1}) SELECT {2} FROM main.\"{0}\" ORDER BY \"{3}\"", entity,
                           columns_, values_, kKeyColumn);
    }

private:
    void addAttribute(const Entity& from, const Attribute& attribute) {
        const auto before =
            std::ranges::find_if(from.attributes, [&](const Attribute& other) { return other.name == attribute.name; });
        if (before != from.attributes.end()) {
            add(attribute.name, converted(*before, attribute));
        } else if (!attribute.optional) {
            add(attribute.name, valueOfNone(attribute));
        }
    }
    void add(std::string_view column, std::string_view value) {
        columns_ += fmt::format("{}\"{}\"", columns_.empty() ? "" : ", ", column);
        values_ += fmt::format("{}{}", values_.empty() ? "" : ", ", value);
    }

    std::string columns_;
    std::string values_;
};

void makeEmpty(const fs::path& next, const SchemaVersion& version, Files& files) {
    std::error_code failure;
    require(files.append(next, {}, failure), failure, "creating");  // which makes it its owner's alone
    SQLite::Database database(next.string(), SQLite::OPEN_READWRITE);
    database.exec("PRAGMA journal_mode = OFF");
    database.exec("PRAGMA synchronous = OFF");
    SQLite::Transaction transaction(database);
    makeTables(database, version.entities, 0);
    transaction.commit();
}

void copyRows(SQLite::Database& store, const SchemaVersion& from, const SchemaVersion& to) {
    SQLite::Transaction transaction(store);
    for (const auto& entity : to.entities) {
        const auto before =
            std::ranges::find_if(from.entities, [&](const Entity& other) { return other.name == entity.name; });
        if (before != from.entities.end()) store.exec(Copy(*before, entity).statement(entity.name));
    }
    // Marked last and always, so that there is something to commit, and the commit forces the whole file to the disk.
    store.exec(fmt::format("PRAGMA next.user_version = {}", to.number));
    transaction.commit();
}

/// Whoever is killed in here leaves half a file, which nobody reads: it needs no journal of its own.
void build(SQLite::Database& store, const fs::path& next, const SchemaVersion& from, const SchemaVersion& to,
           Files& files) {
    makeEmpty(next, to, files);
    SQLite::Statement attach(store, "ATTACH ? AS next");
    attach.bind(1, next.string());
    attach.exec();
    store.exec("PRAGMA next.journal_mode = MEMORY");  // a connection that trusts no file refuses OFF
    store.exec("PRAGMA next.synchronous = FULL");
    copyRows(store, from, to);
    store.exec("DETACH next");
}

void swapIn(const fs::path& next, const fs::path& store, Files& files) {
    for (const auto suffix : kSideFileSuffixes) removeFile(withSuffix(store, suffix), files);
    std::error_code failure;
    require(files.move(next, store, failure), failure, "replacing");
}

}  // namespace

void migrateOneStep(const fs::path& path, Files& files) {
    SQLite::Database store(path.string(), SQLite::OPEN_READWRITE, kLockPatienceMilliseconds);
    distrust(store);
    takeForOneself(store);
    const SchemaVersion* from = findVersion(store);
    if (from == nullptr || from == &currentVersion()) return;
    const fs::path next = nextFile(path);
    try {
        removeFile(next, files);
        build(store, next, *from, *(from + 1), files);
        swapIn(next, path, files);
    } catch (...) {
        removeMigrationLeftovers(path, files);
        throw;
    }
}

void removeMigrationLeftovers(const fs::path& store, Files& files) {
    std::error_code ignored;
    files.remove(nextFile(store), ignored);
}

}  // namespace quomi
