#pragma once

#include "quomi/platform/files.h"

#include <mutex>
#include <set>

namespace quomi::posix {

/// Files of one container directory, laid out `Documents/`, `Library/` and `Library/Caches/`. Nothing is created until
/// an operation asks for it.
///
/// Directories are made with mode 0700 and files with 0600. The first replacement of a file removes what killed
/// replacements of it left behind (`.name.XXXXXX.tmp` beside the file): processes that share a container replace a file
/// only while they hold its lock.
class PosixFiles : public Files {
public:
    /// Resources are looked up below `bundle`; with an empty path there are none.
    explicit PosixFiles(std::filesystem::path root, std::filesystem::path bundle = {});

    [[nodiscard]] std::filesystem::path libraryDirectory() const override;
    [[nodiscard]] std::filesystem::path documentsDirectory() const override;
    [[nodiscard]] std::filesystem::path cachesDirectory() const override;
    /// A path that is absolute or climbs with ".." names no resource.
    [[nodiscard]] std::optional<std::string> bundleResource(const std::string& path) const override;

    [[nodiscard]] std::filesystem::file_type type(const std::filesystem::path& path,
                                                  std::error_code& error) const override;
    bool createDirectories(const std::filesystem::path& path, std::error_code& error) override;
    [[nodiscard]] std::optional<std::string> read(const std::filesystem::path& path,
                                                  std::error_code& error) const override;
    /// Writes a file beside it, forces that to the disk, renames it over the old one and forces the directory too.
    bool replace(const std::filesystem::path& path, std::string_view bytes, std::error_code& error) override;
    /// One write to a descriptor opened for appending, so that lines of several threads do not mix; only a disk that
    /// takes less than all of it makes it several. Nothing is forced to the disk.
    bool append(const std::filesystem::path& path, std::string_view bytes, std::error_code& error) override;
    [[nodiscard]] std::optional<std::string> readTail(const std::filesystem::path& path, std::uint64_t count,
                                                      std::error_code& error) const override;
    [[nodiscard]] std::optional<std::string> readPart(const std::filesystem::path& path, std::uint64_t offset,
                                                      std::uint64_t count, std::error_code& error) const override;
    /// A file that is shorter stays as it is.
    bool truncate(const std::filesystem::path& path, std::uint64_t size, std::error_code& error) override;
    [[nodiscard]] std::optional<std::uint64_t> size(const std::filesystem::path& path,
                                                    std::error_code& error) const override;
    bool move(const std::filesystem::path& from, const std::filesystem::path& to, std::error_code& error) override;
    bool remove(const std::filesystem::path& path, std::error_code& error) override;
    /// The lock is that of an empty file beside it, `.name.lock`, which stays (`flock`). A file system without locks
    /// grants every one.
    [[nodiscard]] std::unique_ptr<FileLock> lock(const std::filesystem::path& path, std::chrono::milliseconds patience,
                                                 std::error_code& error) override;

private:
    void removeLeftoversOnce(const std::filesystem::path& path);

    std::filesystem::path root_;
    std::filesystem::path bundle_;
    std::mutex mutex_;  // guards cleaned_
    std::set<std::filesystem::path> cleaned_;
};

}  // namespace quomi::posix
