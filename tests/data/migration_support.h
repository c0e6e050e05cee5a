#pragma once

#include "hosts/posix/files.h"
#include "quomi/data/store_file.h"
#include "quomi/model/errors.h"
#include "quomi/platform/localization.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"
#include "tools/quomi/store/store_command.h"

#include <sqlite3.h>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

namespace quomi::test {

class EnglishOnly final : public Localization {
public:
    [[nodiscard]] std::optional<std::string> localizedString(std::string_view) const override { return std::nullopt; }
};

/// A row: its columns with their values as SQL writes them, which tells 1 from 1.0 and NULL from nothing.
using Row = std::map<std::string, std::string>;
/// The rows of all tables, in the order of their keys.
using Rows = std::map<std::string, std::vector<Row>>;

inline std::vector<std::string> texts(const SQLite::Database& database, const std::string& query) {
    std::vector<std::string> all;
    SQLite::Statement statement(database, query);
    while (statement.executeStep()) all.push_back(statement.getColumn(0).getString());
    return all;
}

inline Rows rowsOf(const SQLite::Database& database) {
    Rows rows;
    for (const auto& table : texts(database, "SELECT name FROM sqlite_master WHERE type = 'table'")) {
        const auto columns = texts(database, fmt::format("SELECT name FROM pragma_table_info('{}')", table));
        std::string quoted;
        for (const auto& column : columns) quoted += fmt::format("{}quote(\"{}\")", quoted.empty() ? "" : ", ", column);
        SQLite::Statement query(database, fmt::format("SELECT {} FROM \"{}\" ORDER BY _id", quoted, table));
        auto& list = rows[table];
        while (query.executeStep()) {
            auto& row = list.emplace_back();
            for (std::size_t i = 0; i < columns.size(); ++i) {
                row[columns[i]] = query.getColumn(static_cast<int>(i)).getString();
            }
        }
    }
    return rows;
}

inline Rows rowsOf(const std::filesystem::path& file) {
    return rowsOf(SQLite::Database(file.string(), SQLite::OPEN_READWRITE));
}

inline int markOf(const std::filesystem::path& file) {
    return SQLite::Database(file.string(), SQLite::OPEN_READWRITE).execAndGet("PRAGMA user_version").getInt();
}

/// Leaves all rows in the write-ahead log, as a killed app does.
inline void moveRowsIntoLog(const std::filesystem::path& store) {
    SQLite::Database database(store.string(), SQLite::OPEN_READWRITE);
    sqlite3_db_config(database.getHandle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, nullptr);
    database.exec("UPDATE QuomiBeaconData SET name = name || ' in the log'; DELETE FROM QuomiDebugLog WHERE _id = 2");
}

/// A directory with one store file in it.
class MigrationTest : public testing::Test {
protected:
    [[nodiscard]] std::filesystem::path store() const { return directory_.path() / "QuomiData.sqlite"; }

    void make(int version, int rows) const { make(version, rows, store()); }
    static void make(int version, int rows, const std::filesystem::path& file) {
        std::ostringstream out;
        ASSERT_EQ(tool::runStore(
                      {"make", "--version", std::to_string(version), "--rows", std::to_string(rows), file.string()},
                      out, out),
                  0)
            << out.str();
    }

    /// 0, or the code of the error.
    std::int64_t open(Files& files, bool allowDeletion = false) {
        std::optional<Error> error;
        const auto opened = StoreFile::open(store(), allowDeletion, files, errors_, &error);
        EXPECT_EQ(opened == nullptr, error.has_value());
        return error ? error->code : 0;
    }
    std::int64_t open() { return open(files_); }

    [[nodiscard]] std::string bytes(const std::filesystem::path& file) const {
        std::error_code failure;
        return files_.read(file, failure).value_or("unreadable: " + failure.message());
    }
    [[nodiscard]] std::vector<std::string> namesInDirectory() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(directory_.path())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    TemporaryDirectory directory_;
    posix::PosixFiles files_{directory_.path()};
    EnglishOnly localization_;
    QuomiErrors errors_{localization_};
};

}  // namespace quomi::test
