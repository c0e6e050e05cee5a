#include "hosts/posix/files.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace quomi::posix {
namespace {

namespace fs = std::filesystem;

constexpr std::chrono::milliseconds kPauseBetweenTries{1};

/// Beside the file, because replacing a file puts another one in its place.
fs::path lockFileOf(const fs::path& path) {
    return path.parent_path() / ("." + path.filename().string() + ".lock");
}

class HeldLock final : public FileLock {
public:
    explicit HeldLock(int file) : file_(file) {}
    HeldLock(const HeldLock&) = delete;
    HeldLock& operator=(const HeldLock&) = delete;
    ~HeldLock() override { ::close(file_); }

private:
    const int file_;
};

/// 0 once it is locked, or why not. A file system without locks is taken for locked: it is not shared either.
int lockWithin(int file, std::chrono::milliseconds patience) {
    const auto end = std::chrono::steady_clock::now() + patience;
    while (::flock(file, LOCK_EX | LOCK_NB) != 0) {
        if (errno == ENOTSUP || errno == ENOSYS || errno == ENOLCK) return 0;
        if (errno != EWOULDBLOCK && errno != EINTR) return errno;
        if (std::chrono::steady_clock::now() >= end) return ETIMEDOUT;
        std::this_thread::sleep_for(kPauseBetweenTries);
    }
    return 0;
}

}  // namespace

std::unique_ptr<FileLock> PosixFiles::lock(const fs::path& path, std::chrono::milliseconds patience,
                                           std::error_code& error) {
    error.clear();
    try {
        const int flags = O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK | O_NOFOLLOW;
        const int file = ::open(lockFileOf(path).c_str(), flags, S_IRUSR | S_IWUSR);
        if (file < 0) {
            error.assign(errno, std::generic_category());
            return nullptr;
        }
        auto lock = std::make_unique<HeldLock>(file);
        error.assign(lockWithin(file, patience), std::generic_category());
        if (!error) return lock;
    } catch (const std::exception&) {
        error = std::make_error_code(std::errc::not_enough_memory);
    }
    return nullptr;
}

}  // namespace quomi::posix
