#include "tests/data/store_support.h"

#include <csignal>
#include <numeric>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <SQLiteCpp/Statement.h>

namespace quomi::test {
namespace {

constexpr uid_t kNobody = 65534;

unsigned modeOf(const std::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 ? status.st_mode & 07777U : 0U;
}

/// A store with something in it, closed again.
void makeStore(StoreHost& host) {
    const auto data = host.open();
    ASSERT_NE(data, nullptr);
    ASSERT_TRUE(data->insertOrUpdateApplication(record("kept")));
    data->setSdkIsStarted(true);
}

bool isAsMade(QuomiData* data) {
    if (data == nullptr) return false;
    const auto application = data->getApplication();
    return application && application->appNamespace == "kept" && data->sdkIsStarted();
}

bool isEmpty(QuomiData* data) {
    return data != nullptr && !data->getApplication() && !data->sdkIsStarted();
}

TEST(StoreFile, IsItsOwnersAlone) {
    StoreHost host;
    const mode_t before = ::umask(0);
    const auto data = host.open();
    data->setSdkIsStarted(true);
    ::umask(before);
    for (const char* suffix : {"", "-wal", "-shm"}) EXPECT_EQ(modeOf(host.file.string() + suffix), 0600U) << suffix;
    EXPECT_EQ(modeOf(host.file.parent_path()), 0700U);
}

struct Content {
    const char* what;
    std::function<void(StoreHost&)> make;
};

void makeStoreAnd(StoreHost& host, const std::string& sql) {
    makeStore(host);
    host.connect().exec(sql);
}

std::string bigEndian(std::size_t number) {
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8) bytes += static_cast<char>(number >> shift & 0xFFU);
    return bytes;
}

/// A rollback journal of several files, as SQLite writes it: at the end stands the file that lists them all, which goes
/// when the journal has been rolled back.
std::string journalNaming(const std::filesystem::path& list) {
    const auto name = list.string();
    const auto sum = std::accumulate(name.begin(), name.end(), std::size_t{0});
    return std::string(512, 'x') + name + bigEndian(name.size()) + bigEndian(sum) + "\xd9\xd5\x05\xf9\x20\xa1\x63\xd7";
}

TEST(StoreFile, ContentThatIsNoStoreOfOurs) {
    const std::vector<Content> contents{
        {"few bytes", [](StoreHost& host) { write(host.file, "none"); }},
        {"many bytes", [](StoreHost& host) { write(host.file, std::string(20000, 'x')); }},
        {"another app's", [](StoreHost& host) { host.connect().exec("CREATE TABLE Notes (text TEXT)"); }},
        {"another app's, WAL",
         [](StoreHost& host) { host.connect().exec("PRAGMA journal_mode = WAL; CREATE TABLE Notes (text TEXT)"); }},
        {"cut short",
         [](StoreHost& host) {
             makeStore(host);
             std::filesystem::resize_file(host.file, 3000);
         }},
        {"with a trigger",
         [](StoreHost& host) {
             makeStoreAnd(host,
                          "CREATE TRIGGER t AFTER UPDATE ON QuomiStatusInfo BEGIN DELETE FROM QuomiApplication; END");
         }},
        {"of a later version", [](StoreHost& host) { makeStoreAnd(host, "PRAGMA user_version = 14"); }},
        {"with a journal that names a file", [](StoreHost& host) {
             makeStore(host);
             write(host.file.string() + "-journal", journalNaming(host.phone.container() / "canary"));
         }}};
    for (const auto& [what, make] : contents) {
        SCOPED_TRACE(what);
        StoreHost host;
        const auto canary = host.phone.container() / "canary";
        write(canary, "");
        make(host);
        const auto before = contentOf(host.file);
        EXPECT_EQ(host.failureOf(), 601);
        const auto error = host.error.value_or(Error());
        const bool saysLaterVersion =
            error.localizedDescription().value_or("").find("by a later version") != std::string::npos;
        EXPECT_EQ(saysLaterVersion, std::string_view(what) == "of a later version");
        EXPECT_EQ(error.domain, kErrorDomain);
        EXPECT_EQ(contentOf(host.file), before);
        EXPECT_TRUE(isEmpty(host.open(true).get()));
        EXPECT_EQ(modeOf(host.file), 0600U);
        EXPECT_TRUE(std::filesystem::exists(canary));
    }
}

/// What a doctored store says is neither run when it is opened nor when it is used.
TEST(StoreFile, StatementsInNamesAndTablesAreNotRun) {
    StoreHost host;
    const auto outside = host.phone.container() / "outside";
    makeStoreAnd(host, fmt::format("CREATE INDEX \"a\"\"; ATTACH '{}' AS o; CREATE TABLE o.t (x); --\""
                                   " ON QuomiDebugLog (logTime); CREATE INDEX a ON QuomiDebugLog (logTime);"
                                   "PRAGMA user_version = 0",
                                   outside.string()));
    EXPECT_TRUE(isAsMade(host.open().get()));
    EXPECT_FALSE(std::filesystem::exists(outside));

    host.connect().exec(
        "PRAGMA writable_schema = ON; UPDATE sqlite_master SET"
        " sql = replace(sql, '\"isStarted\" INTEGER', '\"isStarted\" INTEGER CHECK (isStarted)')");
    const auto data = host.open();
    ASSERT_TRUE(isAsMade(data.get()));
    EXPECT_TRUE(data->setSdkIsStarted(false));
}

TEST(StoreFile, UpkeepByOtherToolsIsNoOtherVersion) {
    for (const char* sql : {"ANALYZE", "VACUUM", "ANALYZE; VACUUM", "PRAGMA journal_mode = DELETE", "REINDEX"}) {
        SCOPED_TRACE(sql);
        StoreHost host;
        makeStoreAnd(host, sql);
        EXPECT_TRUE(isAsMade(host.open().get()));
    }
}

TEST(StoreFile, EmptyFileIsAStoreToBe) {
    StoreHost host;
    write(host.file, "");
    EXPECT_TRUE(isEmpty(host.open().get()));
}

/// Damage behind sound tables is found when rows are read, and mended when deletion is allowed.
TEST(StoreFile, DamagedRows) {
    StoreHost host;
    makeStore(host);
    const int page = [&host] {
        auto database = host.connect();
        return database.execAndGet("SELECT rootpage FROM sqlite_master WHERE name = 'QuomiStatusInfo'").getInt();
    }();
    auto bytes = contentOf(host.file);
    bytes.replace(static_cast<std::size_t>(page - 1) * 4096, 4096, std::string(4096, '\xFF'));
    write(host.file, bytes);
    EXPECT_EQ(host.failureOf(), 600);
    EXPECT_EQ(contentOf(host.file), bytes);
    EXPECT_TRUE(isEmpty(host.open(true).get()));
}

TEST(StoreFile, DirectoriesAndFilesInTheWrongPlaces) {
    for (const char* suffix : {"", "-wal", "-shm", "-journal"}) {
        StoreHost host;
        const auto fifo = host.file.string() + suffix;
        std::filesystem::create_directories(host.file.parent_path());
        ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
        EXPECT_EQ(host.failureOf(true), 603) << suffix;
        EXPECT_TRUE(std::filesystem::is_fifo(fifo)) << suffix;
    }
    StoreHost directory;
    std::filesystem::create_directories(directory.file / "inside");
    StoreHost file;
    write(file.file.parent_path(), "a file");
    StoreHost above;
    write(above.file.parent_path().parent_path(), "a file");
    for (const bool allowDeletion : {false, true}) {
        EXPECT_EQ(directory.failureOf(allowDeletion), 603);
        EXPECT_TRUE(std::filesystem::is_directory(directory.file / "inside"));
        EXPECT_EQ(file.failureOf(allowDeletion), 604);
        EXPECT_EQ(contentOf(file.file.parent_path()), "a file");
        EXPECT_EQ(above.failureOf(allowDeletion), 603);
    }
}

TEST(StoreFile, LockedByAnotherProcess) {
    StoreHost host;
    makeStore(host);
    {
        auto other = host.connect();
        other.exec("PRAGMA locking_mode = EXCLUSIVE; BEGIN EXCLUSIVE; DELETE FROM QuomiDebugLog");
        EXPECT_EQ(host.failureOf(true), 603);
    }
    EXPECT_TRUE(isAsMade(host.open().get()));
}

/// Runs it as somebody who is not allowed everything, in a process of its own, which exits with 0 when all is as
/// expected.
void inAnotherProcess(const std::function<bool()>& work) {
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && ::setuid(kNobody) != 0) std::_Exit(2);
            std::_Exit(work() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}

TEST(StoreFileDeathTest, FilesThatMayNotBeWrittenOrRead) {
    for (const unsigned mode : {0400U, 0000U}) {
        SCOPED_TRACE(mode);
        StoreHost host;
        makeStore(host);
        if (::geteuid() == 0) {
            ASSERT_EQ(::chown(host.file.c_str(), kNobody, kNobody), 0);
            for (auto at = host.file.parent_path(); at != host.phone.container().parent_path(); at = at.parent_path()) {
                ASSERT_EQ(::chown(at.c_str(), kNobody, kNobody), 0);
            }
        }
        ASSERT_EQ(::chmod(host.file.c_str(), mode), 0);
        const auto before = contentOf(host.file);
        inAnotherProcess([&] { return host.failureOf(false) == 603 && host.failureOf(true) == 603; });
        EXPECT_EQ(contentOf(host.file), before);
        ASSERT_EQ(::chmod(host.file.c_str(), 0600), 0);
        EXPECT_TRUE(isAsMade(host.open().get()));
    }
}

/// Every size at which the disk may turn out to be full while a store is made.
TEST(StoreFileDeathTest, FullDiskNeverCostsTheStore) {
    for (const rlim_t room : {0U, 1U, 4096U, 20000U, 40000U, 100000U}) {
        SCOPED_TRACE(room);
        StoreHost host;
        const auto openWithLittleRoom = [&] {
            std::signal(SIGXFSZ, SIG_IGN);
            const rlimit limit{room, room};
            if (::setrlimit(RLIMIT_FSIZE, &limit) != 0) return false;
            const auto code = host.failureOf(true);
            return code == 603 || code == 600 || code == 0;
        };
        EXPECT_EXIT(std::_Exit(openWithLittleRoom() ? 0 : 1), testing::ExitedWithCode(0), "");
        EXPECT_TRUE(isEmpty(host.open().get()));
        makeStore(host);
        EXPECT_EXIT(std::_Exit(openWithLittleRoom() ? 0 : 1), testing::ExitedWithCode(0), "");
        EXPECT_TRUE(isAsMade(host.open().get()));
    }
}

TEST(StoreFile, TwoProcessesOfTheAppShareAStore) {
    StoreHost host;
    const auto first = host.open();
    const auto second = host.open();
    ASSERT_NE(second, nullptr);
    first->insertOrUpdateApplication(record("kept"));
    second->setSdkIsStarted(true);
    EXPECT_TRUE(isAsMade(first.get()));
    EXPECT_TRUE(isAsMade(second.get()));
}

}  // namespace
}  // namespace quomi::test
