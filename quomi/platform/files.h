#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace quomi {

/// An owned lock of a file. Dropping it gives the lock back.
class FileLock {
public:
    virtual ~FileLock() = default;
};

/// Port: the app's directories and the few operations on files that the SDK needs.
///
/// Any thread; calls are synchronous and short. Files and directories that an operation creates are readable and
/// writable by their owner alone. No operation throws; each reports through its error code, which is cleared on
/// success. None waits: at the place of a file a FIFO, a device or a directory is an error at once.
class Files {
public:
    virtual ~Files() = default;

    /// The app's Library directory, where the store lives.
    [[nodiscard]] virtual std::filesystem::path libraryDirectory() const = 0;
    /// The app's documents directory, where the log files live.
    [[nodiscard]] virtual std::filesystem::path documentsDirectory() const = 0;
    [[nodiscard]] virtual std::filesystem::path cachesDirectory() const = 0;
    /// Text of a resource of the app's bundle; empty when there is none of that path.
    [[nodiscard]] virtual std::optional<std::string> bundleResource(const std::string& path) const = 0;

    /// What stands at the path, links followed: `not_found` (error cleared) when nothing does.
    [[nodiscard]] virtual std::filesystem::file_type type(const std::filesystem::path& path,
                                                          std::error_code& error) const = 0;
    /// Creates the directory and those above it; true also when it was there.
    virtual bool createDirectories(const std::filesystem::path& path, std::error_code& error) = 0;
    /// The whole file; empty when it cannot be read.
    [[nodiscard]] virtual std::optional<std::string> read(const std::filesystem::path& path,
                                                          std::error_code& error) const = 0;
    /// Replaces the file, or creates it: afterwards, and after a kill or a loss of power at any moment, it holds all of
    /// the old bytes or all of the new ones.
    virtual bool replace(const std::filesystem::path& path, std::string_view bytes, std::error_code& error) = 0;
    /// Appends at the end, creating the file when there is none. What the file ends with is a prefix of `bytes` when
    /// the process is killed or the disk fills up in between.
    virtual bool append(const std::filesystem::path& path, std::string_view bytes, std::error_code& error) = 0;
    /// The last `count` bytes of the file (fewer when it is shorter); empty when it cannot be read.
    [[nodiscard]] virtual std::optional<std::string> readTail(const std::filesystem::path& path, std::uint64_t count,
                                                              std::error_code& error) const = 0;
    /// At most `count` bytes from `offset` on; fewer where the file ends. Empty when it cannot be read.
    [[nodiscard]] virtual std::optional<std::string> readPart(const std::filesystem::path& path, std::uint64_t offset,
                                                              std::uint64_t count, std::error_code& error) const = 0;
    /// Cuts the file to its first `size` bytes.
    virtual bool truncate(const std::filesystem::path& path, std::uint64_t size, std::error_code& error) = 0;
    /// Size in bytes; empty when there is no such file.
    [[nodiscard]] virtual std::optional<std::uint64_t> size(const std::filesystem::path& path,
                                                            std::error_code& error) const = 0;
    /// Moves the file, forced to the disk, into the place of another one in the same directory, or of none: after a
    /// kill or a loss of power at any moment the one or the other is there, whole.
    virtual bool move(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error) = 0;
    /// Removes a file; true also when there was none.
    virtual bool remove(const std::filesystem::path& path, std::error_code& error) = 0;
    /// Takes the lock of a file, which need not be there, in a directory that is. The lock keeps out only those who ask
    /// for it as well: this process, even the caller, and every other one. It ends with its handle and with the
    /// process, whatever becomes of the file. Null, with the error `timed_out`, when somebody else holds it for longer
    /// than `patience`; the caller's thread waits meanwhile.
    [[nodiscard]] virtual std::unique_ptr<FileLock> lock(const std::filesystem::path& path,
                                                         std::chrono::milliseconds patience,
                                                         std::error_code& error) = 0;
};

}  // namespace quomi
