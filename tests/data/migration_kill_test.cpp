#include "quomi/data/migration.h"
#include "tests/data/migration_support.h"

#include <chrono>
#include <csignal>
#include <functional>
#include <random>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace quomi::test {
namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

/// Operations on files that this process may still do; the one after them kills it.
int g_operationsLeft = 0;

bool isLast() {
    return --g_operationsLeft < 0;
}

void die() {
    ::raise(SIGKILL);
}

// Stand in for the system calls with which SQLite changes files. A killed write has written a half.

ssize_t mortalWrite(int file, const void* bytes, std::size_t count) {
    if (!isLast()) return ::write(file, bytes, count);
    [[maybe_unused]] const auto half = ::write(file, bytes, count / 2);
    die();
    return -1;
}

ssize_t mortalWriteAt(int file, const void* bytes, std::size_t count, off_t offset) {
    if (!isLast()) return ::pwrite(file, bytes, count, offset);
    [[maybe_unused]] const auto half = ::pwrite(file, bytes, count / 2, offset);
    die();
    return -1;
}

int mortalUnlink(const char* path) {
    if (isLast()) die();
    return ::unlink(path);
}

int mortalTruncate(int file, off_t size) {
    if (isLast()) die();
    return ::ftruncate(file, size);
}

template <class Function>
void replaceSystemCall(const char* name, Function* function) {
    sqlite3_vfs* system = sqlite3_vfs_find(nullptr);
    system->xSetSystemCall(system, name, reinterpret_cast<sqlite3_syscall_ptr>(function));
}

/// The operations of the migration itself, killed before they happen and, when they move a file, after too.
class MortalFiles final : public posix::PosixFiles {
public:
    using PosixFiles::PosixFiles;

    bool append(const std::filesystem::path& path, std::string_view bytes, std::error_code& error) override {
        if (isLast()) die();
        return PosixFiles::append(path, bytes, error);
    }
    bool remove(const std::filesystem::path& path, std::error_code& error) override {
        if (isLast()) die();
        return PosixFiles::remove(path, error);
    }
    bool move(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error) override {
        if (isLast()) die();
        const bool done = PosixFiles::move(from, to, error);
        if (isLast()) die();
        return done;
    }
};

class KilledMigration : public MigrationTest {
protected:
    /// A store of the version whose last changes stand only in its log, and what a whole migration makes of it.
    void prepare(int version, int rows) {
        make(version, rows, origin());
        moveRowsIntoLog(origin());
        restore();
        ASSERT_EQ(open(), 0);
        expected_ = rowsOf(store());
    }
    void restore() {
        std::filesystem::remove(store());
        for (const char* suffix : {"", "-wal"}) {
            std::filesystem::copy_file(origin().string() + suffix, store().string() + suffix,
                                       std::filesystem::copy_options::overwrite_existing);
        }
    }

    pid_t openInChild(const std::function<void()>& before) {
        const pid_t child = ::fork();
        if (child != 0) return child;
        before();
        MortalFiles files(directory_.path());
        migrateOneStep(store(), files);  // without an opening before it, which would take in the log
        ::_exit(open(files) == 0 ? 0 : 1);
    }

    /// What the next launch finds.
    void expectWholeStore() {
        ASSERT_EQ(open(), 0);
        ASSERT_EQ(rowsOf(store()), expected_);
        ASSERT_EQ(markOf(store()), 13);
        for (const auto& name : namesInDirectory()) ASSERT_THAT(name, testing::Not(testing::HasSubstr(".tmp")));
    }

private:
    [[nodiscard]] std::filesystem::path origin() const { return directory_.path() / "origin.sqlite"; }

    Rows expected_;
};

TEST_F(KilledMigration, AtEveryOperationOnFilesLosesNothing) {
    prepare(11, 2);
    int status = -1;
    int operations = 0;
    for (; status != 0; ++operations) {
        SCOPED_TRACE(operations);
        restore();
        const pid_t child = openInChild([operations] {
            g_operationsLeft = operations;
            replaceSystemCall("write", mortalWrite);
            replaceSystemCall("pwrite", mortalWriteAt);
            replaceSystemCall("pwrite64", mortalWriteAt);
            replaceSystemCall("unlink", mortalUnlink);
            replaceSystemCall("ftruncate", mortalTruncate);
        });
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(status == 0 || (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL)) << status;
        expectWholeStore();
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(operations, 60);  // of two steps
}

TEST_F(KilledMigration, AtAnyTimeLosesNothing) {
    prepare(4, 200);
    restore();
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(open(), 0);
    const Milliseconds whole = std::chrono::steady_clock::now() - begin;

    constexpr unsigned kSeed = 20240229;
    std::minstd_rand random(kSeed);
    std::uniform_real_distribution<double> share(0, 1);
    int killed = 0;
    for (int i = 0; i < 12; ++i) {
        SCOPED_TRACE(i);
        restore();
        const pid_t child = openInChild([] { g_operationsLeft = 1 << 30; });
        std::this_thread::sleep_for(share(random) * whole);
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        killed += WIFSIGNALED(status) ? 1 : 0;
        expectWholeStore();
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(killed, 3);
}

}  // namespace
}  // namespace quomi::test
