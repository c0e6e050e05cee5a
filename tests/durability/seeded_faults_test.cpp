// Handlings of the files that lose something when they are killed: the walk has to notice each of them.

#include "quomi/data/records.h"
#include "quomi/diagnostics/event_log.h"
#include "tests/diagnostics/faulty_files.h"
#include "tests/durability/scenarios.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <SQLiteCpp/Transaction.h>

namespace quomi::test {
namespace {

using Path = std::filesystem::path;
using Code = std::error_code;

class AppendWritesTheFileAnew final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool append(const Path& path, std::string_view bytes, Code& error) override {
        const auto before = files_.read(path, error).value_or("");
        files_.truncate(path, 0, error);
        return files_.append(path, before + std::string(bytes), error);
    }
};

class ReplaceWritesInPlace final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        files_.truncate(path, 0, error);
        return files_.append(path, bytes, error);
    }
};

/// The log is shortened before the batch file is there.
class BatchFileComesLast final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        if (path.filename() == kQuomiBOTmpLogFileName) {
            late_.emplace(path, bytes);
            return true;
        }
        return files_.replace(path, bytes, error) && writeLate(error);
    }
    bool remove(const Path& path, Code& error) override { return files_.remove(path, error) && writeLate(error); }

private:
    bool writeLate(Code& error) {
        const auto late = std::exchange(late_, std::nullopt);
        return !late || files_.replace(late->first, late->second, error);
    }
    std::optional<std::pair<Path, std::string>> late_;
};

/// A long log is drained from where an earlier one ended.
class OffsetIsNotReset final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        return (path.filename() == kQuomiBODrainOffsetFileName && bytes == "0") || files_.replace(path, bytes, error);
    }
};

class BatchFileIsForgotten final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    [[nodiscard]] std::optional<std::string> read(const Path& path, Code& error) const override {
        return path.filename() == kQuomiBOTmpLogFileName ? std::string() : files_.read(path, error);
    }
};

class EndOfTheLogIsNotLookedAt final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    [[nodiscard]] std::optional<std::string> readTail(const Path&, std::uint64_t, Code&) const override { return ""; }
};

/// A torn line that ends with the brace of an inner object passes for a whole one.
class BraceEndsARecord final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    [[nodiscard]] std::optional<std::string> readTail(const Path& path, std::uint64_t count,
                                                      Code& error) const override {
        if (files_.readTail(path, 1, error) == "}") files_.append(path, "\n", error);
        return files_.readTail(path, count, error);
    }
};

class OldFileIsDeletedFirst final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool move(const Path& from, const Path& to, Code& error) override {
        return files_.remove(to, error) && files_.move(from, to, error);
    }
};

class NewFileIsCopiedOver final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool move(const Path& from, const Path& to, Code& error) override {
        const auto bytes = files_.read(from, error);
        return bytes && files_.truncate(to, 0, error) && files_.append(to, *bytes, error) && files_.remove(from, error);
    }
};

template <class Fault>
Scenario with(Scenario scenario) {
    scenario.fault = [](Files& files) { return std::make_unique<Fault>(files); };
    return scenario;
}

SQLite::Database connect(const Platform& platform) {
    return SQLite::Database(storePath(platform).string(), SQLite::OPEN_READWRITE);
}

void saveStatusInTwoChanges(const Platform& platform, int generation) {
    auto database = connect(platform);
    database.exec("DELETE FROM QuomiStatusInfo");
    database.exec(fmt::format("INSERT INTO QuomiStatusInfo (globalTriggersCount, globalMaxEvents) VALUES ({0}, {0})",
                              generation));
}

void updateEachBeacon(SQLite::Database& database, int generation) {
    const auto keys = database.execAndGet("SELECT MAX(_id) FROM QuomiBeaconData").getInt();
    for (int key = 1; key <= keys; ++key) {
        database.exec(fmt::format("UPDATE QuomiBeaconData SET name = '{}' WHERE _id = {}", generation, key));
    }
}

void updateWithoutTransaction(const Platform& platform, int generation) {
    auto database = connect(platform);
    updateEachBeacon(database, generation);
}

void updateWithoutJournal(const Platform& platform, int generation) {
    auto database = connect(platform);
    database.exec("PRAGMA journal_mode = DELETE");
    database.exec("PRAGMA journal_mode = OFF");
    SQLite::Transaction transaction(database);
    updateEachBeacon(database, generation);
    transaction.commit();
}

TEST(SeededFaults, AreNoticed) {
    if (const auto reason = whyNoTracing(); !reason.empty()) GTEST_SKIP() << reason;
    auto events = loggingAndUploading(LogsFirst::no);
    events.everyByte = false;
    const auto logsFirst = loggingAndUploading(LogsFirst::yes);
    const std::vector<std::pair<Scenario, std::string>> faults{
        {with<AppendWritesTheFileAnew>(events), "lost 0"},
        {with<ReplaceWritesInPlace>(events), "lost"},
        {with<BatchFileComesLast>(events), "lost 0"},
        {with<BatchFileIsForgotten>(events), "lost 0"},
        {with<BatchFileComesLast>(loggingAndUploading(LogsFirst::no, LogLength::isLong)), "lost 0"},
        {with<OffsetIsNotReset>(loggingAndUploading(LogsFirst::no, LogLength::isLong)), "lost 0"},
        {with<EndOfTheLogIsNotLookedAt>(logsFirst), "lost 120"},
        {with<BraceEndsARecord>(logsFirst), "nobody logged"},
        {with<OldFileIsDeletedFirst>(migrationStep(9)), "the store is gone"},
        {with<NewFileIsCopiedOver>(migrationStep(9)), "the store is of version 0"},
        {savingStatus(saveStatusInTwoChanges), "save 0 found after save 1 had returned"},
        {bulkUpdating(updateWithoutTransaction), "half an update"},
        {bulkUpdating(updateWithoutJournal), "half an update"}};
    for (std::size_t i = 0; i < faults.size(); ++i) {
        const auto& [scenario, complaint] = faults[i];
        const auto noticed = walk(scenario, Extent::changes, complaint).complaints;
        EXPECT_THAT(noticed, testing::Contains(testing::HasSubstr(complaint))) << i << ": " << scenario.name;
    }
}

}  // namespace
}  // namespace quomi::test
