#include "quomi/data/migration.h"

#include "tests/data/migration_support.h"

#include <cmath>
#include <cstdlib>

namespace quomi::test {
namespace {

/// What stands in a migrated row for an attribute that the store's version did not have.
std::string valueOfNew(const SQLite::Database& database, int version, const std::string& table,
                       const std::string& column) {
    // Its default was 0 when it came, and what is stored stays when a default changes.
    if (column == "proximityFarSplitThreshold" && version < 10) return "0.0";
    const auto of = [&](const char* what) {
        return texts(database,
                     fmt::format("SELECT {} FROM pragma_table_info('{}') WHERE name = '{}'", what, table, column))
            .front();
    };
    const std::string defaultValue = of("dflt_value");
    if (!defaultValue.empty()) return defaultValue;
    return of("\"notnull\"") == "1" ? "''" : "NULL";
}

/// What stands in a migrated row for an attribute that it had.
std::string valueOfOld(int version, const std::string& table, const std::string& column, const std::string& value) {
    if (version == 4 && table == "QuomiGeofence" && column == "entryCount") {
        return fmt::format("{}", std::trunc(std::strtod(value.c_str(), nullptr)) + 0.0);
    }
    if (value == "NULL" && column == "latchTime") return "0";
    if (value == "NULL" && column == "lastSeenAt") return "0.0";
    return value;
}

Rows migrated(const SQLite::Database& current, int version, const Rows& before) {
    Rows after;
    for (const auto& [table, empty] : rowsOf(current)) {
        auto& rows = after[table];
        if (!before.contains(table)) continue;
        const auto columns = texts(current, fmt::format("SELECT name FROM pragma_table_info('{}')", table));
        for (const auto& old : before.at(table)) {
            auto& row = rows.emplace_back();
            for (const auto& column : columns) {
                row[column] = old.contains(column) ? valueOfOld(version, table, column, old.at(column))
                                                   : valueOfNew(current, version, table, column);
            }
        }
    }
    return after;
}

TEST_F(MigrationTest, EveryVersionBecomesTheCurrentOneWithRowsAndCounters) {
    const auto empty = directory_.path() / "empty.sqlite";
    make(13, 0, empty);
    for (int version = 4; version <= 13; ++version) {
        SCOPED_TRACE(version);
        make(version, 7);
        const auto before = rowsOf(store());
        EXPECT_EQ(open(), 0);
        const auto after = rowsOf(store());
        EXPECT_EQ(after, migrated(SQLite::Database(empty.string(), SQLite::OPEN_READWRITE), version, before));
        EXPECT_EQ(after.at("QuomiBeaconRuleWithActions").size(), 7U);
        EXPECT_EQ(markOf(store()), 13);

        EXPECT_EQ(open(), 0);
        EXPECT_EQ(rowsOf(store()), after);
        EXPECT_THAT(namesInDirectory(), UnorderedElementsAre("QuomiData.sqlite", "empty.sqlite"));
        EXPECT_EQ(std::filesystem::status(store()).permissions(),
                  version == 13 ? std::filesystem::status(empty).permissions()
                                : std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
        std::filesystem::remove(store());
    }
}

TEST_F(MigrationTest, AStoreOfTheCurrentVersionIsNotTouched) {
    ASSERT_EQ(open(), 0);  // the first opening sets what the tool did not
    const auto before = bytes(store());
    EXPECT_EQ(open(), 0);
    EXPECT_EQ(bytes(store()), before);
}

TEST_F(MigrationTest, AStoreOfTheCurrentTablesGetsTheIndicesAndTheMarkOfNow) {
    make(12, 3);
    const auto before = rowsOf(store());
    SQLite::Database(store().string(), SQLite::OPEN_READWRITE)
        .exec("PRAGMA user_version = 0; CREATE INDEX old ON QuomiDebugLog (logTime)");
    EXPECT_EQ(open(), 0);
    const SQLite::Database database(store().string(), SQLite::OPEN_READWRITE);
    EXPECT_EQ(rowsOf(database), before);
    const auto indices = texts(database, "SELECT name FROM sqlite_master WHERE type = 'index'");
    EXPECT_THAT(indices, Contains("QuomiBeaconData_1"));
    EXPECT_THAT(indices, Not(Contains("old")));
    EXPECT_EQ(markOf(store()), 13);
}

TEST_F(MigrationTest, ARealThatBecomesAnIntegerLosesItsFractionAndSaturates) {
    make(4, 6);
    SQLite::Database(store().string(), SQLite::OPEN_READWRITE)
        .exec(
            "UPDATE QuomiGeofence SET entryCount = CASE _id WHEN 1 THEN 2.9 WHEN 2 THEN -2.9 WHEN 3 THEN 1e300"
            " WHEN 4 THEN -9e999 WHEN 5 THEN 2147483647.0 ELSE 'three' END");
    EXPECT_EQ(open(), 0);
    EXPECT_THAT(texts(SQLite::Database(store().string()), "SELECT quote(entryCount) FROM QuomiGeofence ORDER BY _id"),
                ElementsAre("2", "-2", "2147483647", "-2147483648", "2147483647", "0"));
}

TEST_F(MigrationTest, TakesAlongWhatOnlyTheWriteAheadLogHolds) {
    make(11, 4);
    moveRowsIntoLog(store());
    ASSERT_GT(std::filesystem::file_size(store().string() + "-wal"), 0U);
    EXPECT_EQ(open(), 0);
    const auto rows = rowsOf(store());
    EXPECT_EQ(rows.at("QuomiDebugLog").size(), 3U);
    EXPECT_THAT(rows.at("QuomiBeaconData").front().at("name"), testing::HasSubstr("in the log"));
}

TEST_F(MigrationTest, AFileOfNoVersionStaysAsItIsWithItsLog) {
    make(9, 3);
    SQLite::Database(store().string(), SQLite::OPEN_READWRITE).exec("CREATE TABLE more (x)");
    moveRowsIntoLog(store());
    const auto before = bytes(store());
    const auto log = bytes(store().string() + "-wal");
    EXPECT_EQ(open(), 601);
    EXPECT_EQ(bytes(store()), before);
    EXPECT_EQ(bytes(store().string() + "-wal"), log);

    EXPECT_EQ(open(files_, true), 0);
    EXPECT_THAT(rowsOf(store()).at("QuomiBeaconData"), testing::IsEmpty());
    EXPECT_EQ(markOf(store()), 13);
}

TEST_F(MigrationTest, AStoreThatAnotherConnectionHasOpenIsBusyAndStays) {
    make(10, 3);
    SQLite::Database other(store().string(), SQLite::OPEN_READWRITE);
    const auto before = rowsOf(other);
    EXPECT_EQ(open(files_, true), 603);
    EXPECT_EQ(rowsOf(other), before);
    EXPECT_EQ(texts(other, "PRAGMA user_version"), std::vector<std::string>{"10"});
}

/// Refuses one kind of operation, as a full or a protected disk does.
class RefusingFiles final : public posix::PosixFiles {
public:
    enum class Refused { creating, removing, moving };
    RefusingFiles(const std::filesystem::path& root, Refused refused) : PosixFiles(root), refused_(refused) {}

    bool append(const std::filesystem::path& path, std::string_view bytes, std::error_code& error) override {
        return allows(Refused::creating, error) && PosixFiles::append(path, bytes, error);
    }
    bool remove(const std::filesystem::path& path, std::error_code& error) override {
        return allows(Refused::removing, error) && PosixFiles::remove(path, error);
    }
    bool move(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error) override {
        return allows(Refused::moving, error) && PosixFiles::move(from, to, error);
    }

private:
    bool allows(Refused operation, std::error_code& error) const {
        if (refused_ == operation) error = std::make_error_code(std::errc::no_space_on_device);
        return refused_ != operation;
    }

    Refused refused_;
};

TEST_F(MigrationTest, AStoreIsNeverDeletedForWhatTheDiskRefuses) {
    using Refused = RefusingFiles::Refused;
    for (const auto refused : {Refused::creating, Refused::removing, Refused::moving}) {
        SCOPED_TRACE(static_cast<int>(refused));
        make(8, 3);
        const auto before = rowsOf(store());
        RefusingFiles files(directory_.path(), refused);
        EXPECT_EQ(open(files, true), 603);
        EXPECT_EQ(rowsOf(store()), before);
        EXPECT_EQ(markOf(store()), 8);
        EXPECT_EQ(open(), 0);
        EXPECT_EQ(rowsOf(store()).at("QuomiBeaconData").size(), 3U);
        std::filesystem::remove(store());
    }
}

TEST_F(MigrationTest, WhatAKilledMigrationLeftIsRemoved) {
    for (const int version : {6, 13}) {
        SCOPED_TRACE(version);
        make(version, 2);
        std::error_code failure;
        ASSERT_TRUE(files_.append(store().string() + ".tmp", "half a file", failure));
        EXPECT_EQ(open(), 0);
        EXPECT_THAT(namesInDirectory(), ElementsAre("QuomiData.sqlite"));
        std::filesystem::remove(store());
    }
}

TEST_F(MigrationTest, TheToolTellsWhatItMade) {
    make(7, 4);
    std::ostringstream out;
    std::ostringstream err;
    const auto before = bytes(store());
    EXPECT_EQ(tool::runStore({"info", store().string()}, out, err), 0);
    EXPECT_THAT(out.str(), testing::StartsWith("QuomiObjectModel_v007\n  QuomiStatusInfo                      1\n"));
    EXPECT_EQ(bytes(store()), before);
    EXPECT_THAT(namesInDirectory(), ElementsAre("QuomiData.sqlite"));
    EXPECT_EQ(tool::runStore({"make", store().string()}, out, err), 2);
    EXPECT_EQ(tool::runStore({"make", "--version", "14", "x"}, out, err), 2);
    EXPECT_EQ(tool::runStore({"info", (directory_.path() / "none").string()}, out, err), 2);
    EXPECT_EQ(bytes(store()), before);
}

}  // namespace
}  // namespace quomi::test
