#include "hosts/posix/files.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace quomi::posix {
namespace {

namespace fs = std::filesystem;

constexpr mode_t kFileMode = S_IRUSR | S_IWUSR;
constexpr mode_t kDirectoryMode = S_IRWXU;
constexpr std::string_view kTemporarySuffix = ".tmp";
constexpr std::size_t kUniqueLength = 6;                        // of the X that mkostemps replaces
constexpr std::size_t kLargestTransfer = std::size_t{1} << 30;  // some systems refuse 2 GiB in one call

bool fail(std::error_code& error, int code) {
    error.assign(code, std::generic_category());
    return false;
}

/// Runs `work` with a cleared error; what it throws (memory ran out) becomes the error, and the result is empty.
template <typename Work>
auto guarded(std::error_code& error, Work&& work) -> decltype(work()) {
    error.clear();
    try {
        return work();
    } catch (const std::exception&) {
        error = std::make_error_code(std::errc::not_enough_memory);
        return {};
    }
}

template <typename Call>
auto retried(Call&& call) -> decltype(call()) {
    while (true) {
        const auto result = call();
        if (result != -1 || errno != EINTR) return result;
    }
}

/// What stands at a path and is no regular file has no bytes of ours: opening it may wait for somebody at its other
/// end.
int codeOfSpecialFile(mode_t mode) {
    return S_ISDIR(mode) ? EISDIR : ENOTSUP;
}

class Descriptor {
public:
    explicit Descriptor(int number) : number_(number) {}
    /// Never waits, whatever stands at the path.
    Descriptor(const fs::path& path, int flags)
        : number_(retried([&] { return ::open(path.c_str(), flags | kNeverWaiting, kFileMode); })) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (isOpen()) ::close(number_);
    }

    [[nodiscard]] bool isOpen() const { return number_ >= 0; }
    [[nodiscard]] int number() const { return number_; }

private:
    static constexpr int kNeverWaiting = O_CLOEXEC | O_NONBLOCK | O_NOCTTY;

    int number_;
};

/// The size of the open file; nothing, with an error, when it is not open or no regular file.
std::optional<std::uint64_t> sizeOf(const Descriptor& file, std::error_code& error) {
    struct stat status {};
    if (!file.isOpen() || ::fstat(file.number(), &status) != 0) {
        // A FIFO that nobody reads is not even opened for writing.
        fail(error, errno == ENXIO ? ENOTSUP : errno);
        return std::nullopt;
    }
    if (S_ISREG(status.st_mode)) return static_cast<std::uint64_t>(status.st_size);
    fail(error, codeOfSpecialFile(status.st_mode));
    return std::nullopt;
}

/// Whether a file may take the place: nothing stands there, or a regular file.
bool mayBeReplaced(const fs::path& path, std::error_code& error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0 || S_ISREG(status.st_mode)) return true;
    return fail(error, codeOfSpecialFile(status.st_mode));
}

bool writeAll(const Descriptor& file, std::string_view bytes, std::error_code& error) {
    while (!bytes.empty()) {
        const std::size_t count = std::min(bytes.size(), kLargestTransfer);
        const ssize_t written = retried([&] { return ::write(file.number(), bytes.data(), count); });
        if (written < 0) return fail(error, errno);
        if (written == 0) return fail(error, EIO);
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

/// What follows the offset: `expected` bytes or more, as the file has, but hardly more than `most`.
std::optional<std::string> readFrom(const Descriptor& file, std::uint64_t offset, std::uint64_t expected,
                                    std::uint64_t most, std::error_code& error) {
    std::string bytes;
    bytes.resize(static_cast<std::size_t>(expected) + 1);  // one more, so that the end is seen without growing
    std::size_t filled = 0;
    while (true) {
        const std::size_t count = std::min(bytes.size() - filled, kLargestTransfer);
        const auto position = static_cast<off_t>(offset + filled);
        const ssize_t got = retried([&] { return ::pread(file.number(), bytes.data() + filled, count, position); });
        if (got < 0) {
            fail(error, errno);
            return std::nullopt;
        }
        filled += static_cast<std::size_t>(got);
        if (got == 0 || filled >= most) break;
        if (filled == bytes.size()) bytes.resize(bytes.size() * 2);
    }
    bytes.resize(filled);
    return bytes;
}

/// The last `count` bytes, or all of them.
std::optional<std::string> readEnd(const fs::path& path, std::uint64_t count, std::error_code& error) {
    const Descriptor file(path, O_RDONLY);
    const auto size = sizeOf(file, error);
    if (!size) return std::nullopt;
    const std::uint64_t expected = std::min(*size, count);
    auto bytes = readFrom(file, *size - expected, expected, UINT64_MAX, error);
    if (bytes && bytes->size() > count) bytes->erase(0, bytes->size() - count);  // the file grew meanwhile
    return bytes;
}

/// Forces to the disk what the descriptor stands for.
bool synchronize(const Descriptor& file, std::error_code& error) {
#ifdef F_FULLFSYNC
    if (::fcntl(file.number(), F_FULLFSYNC) == 0) return true;  // where fsync stops at the drive's own memory
#endif
    if (retried([&] { return ::fsync(file.number()); }) == 0) return true;
    return fail(error, errno);
}

fs::path directoryOf(const fs::path& path) {
    return path.has_parent_path() ? path.parent_path() : fs::path(".");
}

bool synchronizeDirectory(const fs::path& path, std::error_code& error) {
    const Descriptor directory(path, O_RDONLY | O_DIRECTORY);
    if (!directory.isOpen()) return fail(error, errno);
    if (synchronize(directory, error)) return true;
    if (error != std::errc::invalid_argument) return false;
    error.clear();  // a file system that has nothing to force for directories says so with this code
    return true;
}

std::string temporaryPrefix(const fs::path& path) {
    return "." + path.filename().string() + ".";
}

bool isLeftover(const std::string& name, const std::string& prefix) {
    return name.size() == prefix.size() + kUniqueLength + kTemporarySuffix.size() && name.starts_with(prefix) &&
           name.ends_with(kTemporarySuffix);
}

bool writeAndRename(const fs::path& path, std::string_view bytes, std::error_code& error) {
    std::string temporary = (directoryOf(path) / (temporaryPrefix(path) + std::string(kUniqueLength, 'X'))).string();
    temporary += kTemporarySuffix;
    const Descriptor file(
        retried([&] { return ::mkostemps(temporary.data(), static_cast<int>(kTemporarySuffix.size()), O_CLOEXEC); }));
    if (!file.isOpen()) return fail(error, errno);
    if (writeAll(file, bytes, error) && synchronize(file, error)) {
        if (::rename(temporary.c_str(), path.c_str()) == 0) return true;
        fail(error, errno);
    }
    ::unlink(temporary.c_str());
    return false;
}

bool isDirectory(const fs::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool makeDirectories(const fs::path& path, std::error_code& error) {
    if (isDirectory(path)) return true;
    const fs::path parent = path.parent_path();
    if (!parent.empty() && parent != path && !makeDirectories(parent, error)) return false;
    if (::mkdir(path.c_str(), kDirectoryMode) == 0 || isDirectory(path)) return true;
    return fail(error, errno == EEXIST ? ENOTDIR : errno);
}

bool climbs(const fs::path& path) {
    return std::ranges::find(path, "..") != path.end();
}

}  // namespace

PosixFiles::PosixFiles(fs::path root, fs::path bundle) : root_(std::move(root)), bundle_(std::move(bundle)) {}

fs::path PosixFiles::libraryDirectory() const {
    return root_ / "Library";
}

fs::path PosixFiles::documentsDirectory() const {
    return root_ / "Documents";
}

fs::path PosixFiles::cachesDirectory() const {
    return root_ / "Library" / "Caches";
}

std::optional<std::string> PosixFiles::bundleResource(const std::string& path) const {
    std::error_code error;
    return guarded(error, [&]() -> std::optional<std::string> {
        const fs::path resource(path);
        if (bundle_.empty() || resource.empty() || resource.is_absolute() || climbs(resource)) return std::nullopt;
        return read(bundle_ / resource, error);
    });
}

fs::file_type PosixFiles::type(const fs::path& path, std::error_code& error) const {
    const fs::file_type type = fs::status(path, error).type();
    if (type != fs::file_type::none) error.clear();
    return type;
}

bool PosixFiles::createDirectories(const fs::path& path, std::error_code& error) {
    return guarded(error, [&] { return makeDirectories(path, error); });
}

std::optional<std::string> PosixFiles::read(const fs::path& path, std::error_code& error) const {
    return guarded(error, [&] { return readEnd(path, UINT64_MAX, error); });
}

bool PosixFiles::replace(const fs::path& path, std::string_view bytes, std::error_code& error) {
    return guarded(error, [&] {
        if (!mayBeReplaced(path, error)) return false;
        removeLeftoversOnce(path);
        return writeAndRename(path, bytes, error) && synchronizeDirectory(directoryOf(path), error);
    });
}

bool PosixFiles::append(const fs::path& path, std::string_view bytes, std::error_code& error) {
    error.clear();
    const Descriptor file(path, O_WRONLY | O_APPEND | O_CREAT);
    return sizeOf(file, error) && writeAll(file, bytes, error);
}

std::optional<std::string> PosixFiles::readTail(const fs::path& path, std::uint64_t count,
                                                std::error_code& error) const {
    return guarded(error, [&] { return readEnd(path, count, error); });
}

std::optional<std::string> PosixFiles::readPart(const fs::path& path, std::uint64_t offset, std::uint64_t count,
                                                std::error_code& error) const {
    return guarded(error, [&]() -> std::optional<std::string> {
        const Descriptor file(path, O_RDONLY);
        const auto size = sizeOf(file, error);
        if (!size) return std::nullopt;
        const std::uint64_t expected = std::min(count, *size - std::min(*size, offset));
        auto bytes = readFrom(file, offset, expected, count, error);
        if (bytes && bytes->size() > count) bytes->resize(count);
        return bytes;
    });
}

bool PosixFiles::truncate(const fs::path& path, std::uint64_t size, std::error_code& error) {
    error.clear();
    const Descriptor file(path, O_WRONLY);
    const auto before = sizeOf(file, error);
    if (!before || *before <= size) return before.has_value();
    if (retried([&] { return ::ftruncate(file.number(), static_cast<off_t>(size)); }) == 0) return true;
    return fail(error, errno);
}

std::optional<std::uint64_t> PosixFiles::size(const fs::path& path, std::error_code& error) const {
    error.clear();
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        fail(error, errno);
        return std::nullopt;
    }
    if (S_ISREG(status.st_mode)) return static_cast<std::uint64_t>(status.st_size);
    fail(error, codeOfSpecialFile(status.st_mode));
    return std::nullopt;
}

bool PosixFiles::move(const fs::path& from, const fs::path& to, std::error_code& error) {
    return guarded(error, [&] {
        if (!mayBeReplaced(to, error)) return false;
        const Descriptor file(from, O_RDONLY);
        if (!file.isOpen()) return fail(error, errno);
        if (!synchronize(file, error)) return false;
        if (::rename(from.c_str(), to.c_str()) != 0) return fail(error, errno);
        return synchronizeDirectory(directoryOf(to), error);
    });
}

bool PosixFiles::remove(const fs::path& path, std::error_code& error) {
    error.clear();
    if (::unlink(path.c_str()) == 0 || errno == ENOENT || errno == ENOTDIR) return true;
    return fail(error, errno);
}

void PosixFiles::removeLeftoversOnce(const fs::path& path) {
    const std::lock_guard lock(mutex_);
    if (!cleaned_.insert(path).second) return;
    const std::string prefix = temporaryPrefix(path);
    std::error_code ignored;
    for (fs::directory_iterator entry(directoryOf(path), ignored), end; !ignored && entry != end;
         entry.increment(ignored)) {
        if (isLeftover(entry->path().filename().string(), prefix)) ::unlink(entry->path().c_str());
    }
}

}  // namespace quomi::posix
