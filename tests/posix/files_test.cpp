#include "hosts/posix/files.h"

#include "hosts/posix/defaults.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

#include <csignal>
#include <sys/resource.h>
#include <sys/stat.h>

namespace quomi::posix {
namespace {

namespace fs = std::filesystem;

class PosixFilesTest : public testing::Test {
protected:
    PosixFilesTest() { EXPECT_TRUE(files_.createDirectories(files_.documentsDirectory(), error_)); }

    std::string content(const fs::path& path) { return files_.read(path, error_).value_or("(none)"); }
    static unsigned mode(const fs::path& path) { return static_cast<unsigned>(fs::status(path).permissions()); }
    static std::size_t entries(const fs::path& directory) {
        return static_cast<std::size_t>(std::distance(fs::directory_iterator(directory), fs::directory_iterator()));
    }

    test::TemporaryDirectory directory_;
    PosixFiles files_{directory_.path() / "container", directory_.path() / "bundle"};
    fs::path file_ = files_.documentsDirectory() / "a.txt";
    std::error_code error_;
};

/// While it lives, no file of this process grows beyond the size: a full disk, as far as writes can tell.
class FileSizeLimit {
public:
    explicit FileSizeLimit(rlim_t size) {
        std::signal(SIGXFSZ, SIG_IGN);
        ::getrlimit(RLIMIT_FSIZE, &before_);
        const rlimit limit{size, before_.rlim_max};
        ::setrlimit(RLIMIT_FSIZE, &limit);
    }
    ~FileSizeLimit() {
        ::setrlimit(RLIMIT_FSIZE, &before_);
        std::signal(SIGXFSZ, SIG_DFL);
    }

private:
    rlimit before_{};
};

TEST_F(PosixFilesTest, OnlyTheOwnerMayReadWhatItCreates) {
    const mode_t before = ::umask(0);
    ASSERT_TRUE(files_.createDirectories(files_.cachesDirectory() / "x" / "y", error_));
    ASSERT_TRUE(files_.append(file_, "1", error_));
    ASSERT_TRUE(files_.replace(files_.cachesDirectory() / "b", "1", error_));
    ::umask(before);
    for (const auto& path : {directory_.path() / "container", files_.documentsDirectory(), files_.libraryDirectory(),
                             files_.cachesDirectory(), files_.cachesDirectory() / "x" / "y"}) {
        EXPECT_EQ(mode(path), 0700U) << path;
    }
    EXPECT_EQ(mode(file_), 0600U);
    EXPECT_EQ(mode(files_.cachesDirectory() / "b"), 0600U);
    fs::permissions(file_, fs::perms(0644));
    ASSERT_TRUE(files_.replace(file_, "2", error_));
    EXPECT_EQ(mode(file_), 0600U);
}

TEST_F(PosixFilesTest, ReadsWritesAndCuts) {
    EXPECT_EQ(files_.type(file_, error_), fs::file_type::not_found);
    EXPECT_FALSE(error_);
    EXPECT_EQ(files_.size(file_, error_), std::nullopt);
    EXPECT_EQ(error_, std::errc::no_such_file_or_directory);
    EXPECT_TRUE(files_.append(file_, "", error_));
    EXPECT_EQ(content(file_), "");
    EXPECT_TRUE(files_.append(file_, std::string("a\0b", 3), error_));
    EXPECT_TRUE(files_.append(file_, "cdef", error_));
    EXPECT_EQ(content(file_), std::string("a\0bcdef", 7));
    EXPECT_EQ(files_.size(file_, error_), 7U);
    EXPECT_EQ(files_.readTail(file_, 3, error_), "def");
    EXPECT_EQ(files_.readTail(file_, 100, error_), std::string("a\0bcdef", 7));
    EXPECT_TRUE(files_.truncate(file_, 100, error_));
    EXPECT_EQ(files_.size(file_, error_), 7U);
    EXPECT_TRUE(files_.truncate(file_, 1, error_));
    EXPECT_EQ(content(file_), "a");
    EXPECT_EQ(files_.type(file_, error_), fs::file_type::regular);
    EXPECT_TRUE(files_.remove(file_, error_));
    EXPECT_TRUE(files_.remove(file_, error_));
}

TEST_F(PosixFilesTest, FailuresAreReportedAndClearedByTheNextSuccess) {
    const auto inMissing = files_.documentsDirectory() / "missing" / "a";
    EXPECT_FALSE(files_.append(inMissing, "x", error_));
    EXPECT_EQ(error_, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(files_.replace(inMissing, "x", error_));
    EXPECT_FALSE(files_.read(inMissing, error_));
    EXPECT_FALSE(files_.truncate(inMissing, 0, error_));
    EXPECT_FALSE(files_.remove(files_.documentsDirectory(), error_));
    EXPECT_EQ(error_, std::errc::is_a_directory);
    EXPECT_EQ(entries(files_.documentsDirectory().parent_path()), 1U) << "the temporary file stayed";
    ASSERT_TRUE(files_.append(file_, "x", error_));
    EXPECT_FALSE(error_);
    EXPECT_FALSE(files_.createDirectories(file_ / "below", error_));
    EXPECT_EQ(error_, std::errc::not_a_directory);
}

/// A FIFO that nobody writes or reads, a device without an end, a directory.
TEST_F(PosixFilesTest, NothingButAFileIsWaitedForOrReplaced) {
    const auto fifo = files_.documentsDirectory() / "fifo";
    const auto device = files_.documentsDirectory() / "device";
    ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
    fs::create_symlink("/dev/zero", device);
    ASSERT_TRUE(files_.append(file_, "x", error_));
    for (const auto& [path, type, error] : Table<fs::path, fs::file_type, std::errc>{
             {fifo, fs::file_type::fifo, std::errc::not_supported},
             {device, fs::file_type::character, std::errc::not_supported},
             {files_.documentsDirectory(), fs::file_type::directory, std::errc::is_a_directory}}) {
        SCOPED_TRACE(path);
        const std::function<bool()> operations[] = {[&] { return files_.read(path, error_).has_value(); },
                                                    [&] { return files_.readTail(path, 1, error_).has_value(); },
                                                    [&] { return files_.size(path, error_).has_value(); },
                                                    [&] { return files_.append(path, "x", error_); },
                                                    [&] { return files_.replace(path, "x", error_); },
                                                    [&] { return files_.truncate(path, 0, error_); },
                                                    [&] { return files_.move(file_, path, error_); }};
        for (const auto& operation : operations) {
            EXPECT_FALSE(operation());
            EXPECT_EQ(error_, error);
        }
        EXPECT_EQ(fs::status(path).type(), type);
    }
    EXPECT_EQ(content(file_), "x");
    const auto path = files_.libraryDirectory() / "Preferences" / "defaults.json";
    ASSERT_TRUE(files_.createDirectories(path.parent_path(), error_));
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    JsonDefaults defaults(files_);
    defaults.setBool("a", true);
    EXPECT_EQ(defaults.boolForKey("a"), true);
    EXPECT_TRUE(fs::is_fifo(path));
}

TEST_F(PosixFilesTest, AFullDiskLeavesTheOldFileOrAPrefixOfTheAppendedBytes) {
    ASSERT_TRUE(files_.replace(file_, "old", error_));
    {
        const FileSizeLimit limit(10);
        EXPECT_FALSE(files_.replace(file_, "0123456789abcdef", error_));
        EXPECT_EQ(error_, std::errc::file_too_large);
        EXPECT_EQ(content(file_), "old");
        EXPECT_FALSE(files_.append(file_, "0123456789abcdef", error_));
        EXPECT_EQ(content(file_), "old0123456");
    }
    EXPECT_EQ(entries(files_.documentsDirectory()), 1U);
}

TEST_F(PosixFilesTest, AReplacementRemovesWhatKilledOnesLeftAndNothingElse) {
    for (const char* name :
         {".a.txt.AbCdEf.tmp", ".a.txt.123456.tmp", ".b.txt.AbCdEf.tmp", ".a.txt.tmp", "a.txt.tmp"}) {
        std::ofstream(files_.documentsDirectory() / name) << "left";
    }
    ASSERT_TRUE(files_.replace(file_, "new", error_));
    EXPECT_EQ(content(file_), "new");
    EXPECT_EQ(entries(files_.documentsDirectory()), 4U);
}

TEST_F(PosixFilesTest, ThreadsNeitherMixLinesNorSeeHalfAReplacement) {
    const auto replaced = files_.documentsDirectory() / "b.txt";
    ASSERT_TRUE(files_.replace(replaced, std::string(5000, 'x'), error_));
    std::vector<std::thread> threads;
    for (char letter = 'a'; letter < 'e'; ++letter) {
        threads.emplace_back([&, letter] {
            std::error_code error;
            for (int round = 0; round < 100; ++round) {
                EXPECT_TRUE(files_.append(file_, std::string(99, letter) + "\n", error));
                EXPECT_TRUE(files_.replace(replaced, std::string(5000, letter), error)) << error.message();
                const auto seen = files_.read(replaced, error).value_or("");
                EXPECT_EQ(seen, std::string(5000, seen.empty() ? '?' : seen.front()));
            }
        });
    }
    for (auto& thread : threads) thread.join();
    const std::string lines = content(file_);
    ASSERT_EQ(lines.size(), 40000U);
    for (std::size_t start = 0; start < lines.size(); start += 100) {
        EXPECT_EQ(lines.substr(start, 100), std::string(99, lines[start]) + "\n");
    }
    EXPECT_EQ(entries(files_.documentsDirectory()), 2U);
}

TEST_F(PosixFilesTest, ResourcesComeFromTheBundleAlone) {
    fs::create_directories(directory_.path() / "bundle" / "de");
    std::ofstream(directory_.path() / "bundle" / "de" / "texts") << "Hallo";
    std::ofstream(directory_.path() / "outside") << "secret";
    EXPECT_EQ(files_.bundleResource("de/texts"), "Hallo");
    for (const std::string path : {"", "de", "missing", "../outside", "de/../../outside", "/etc/passwd"}) {
        EXPECT_EQ(files_.bundleResource(path), std::nullopt) << path;
    }
    EXPECT_EQ(PosixFiles(directory_.path()).bundleResource("outside"), std::nullopt);
}

TEST_F(PosixFilesTest, DefaultsOutliveTheirObject) {
    const auto path = files_.libraryDirectory() / "Preferences" / "defaults.json";
    {
        JsonDefaults defaults(files_);
        EXPECT_EQ(defaults.boolForKey("a"), std::nullopt);
        defaults.setBool("a", true);
        defaults.setBool("b", false);
    }
    EXPECT_EQ(JsonDefaults(files_).boolForKey("a"), true);
    EXPECT_EQ(JsonDefaults(files_).boolForKey("b"), false);
    ASSERT_TRUE(files_.replace(path, R"({"text":"true","number":1})", error_));
    JsonDefaults foreign(files_);
    EXPECT_EQ(foreign.boolForKey("text"), std::nullopt);
    EXPECT_EQ(foreign.boolForKey("number"), std::nullopt);
    foreign.setBool("a", false);
    EXPECT_EQ(content(path), "{\"text\":\"true\",\"number\":1,\"a\":false}\n");
}

TEST_F(PosixFilesTest, DefaultsSurviveABrokenFileAndADiskThatRefuses) {
    ASSERT_TRUE(files_.createDirectories(files_.libraryDirectory() / "Preferences", error_));
    for (const char* broken : {"", "{\"a\":tr", "[true]", "\xff"}) {
        ASSERT_TRUE(files_.replace(files_.libraryDirectory() / "Preferences" / "defaults.json", broken, error_));
        JsonDefaults defaults(files_);
        EXPECT_EQ(defaults.boolForKey("a"), std::nullopt);
        defaults.setBool("a", true);
        EXPECT_EQ(JsonDefaults(files_).boolForKey("a"), true);
    }
    std::ofstream(directory_.path() / "file") << "no directory";
    PosixFiles nowhere(directory_.path() / "file");
    JsonDefaults defaults(nowhere);
    defaults.setBool("a", true);
    EXPECT_EQ(defaults.boolForKey("a"), true);
}

}  // namespace
}  // namespace quomi::posix
