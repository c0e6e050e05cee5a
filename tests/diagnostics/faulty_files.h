#pragma once

#include "quomi/platform/files.h"
#include "tests/support/prelude.h"

namespace quomi::test {

/// Hands everything on; a fault overrides one operation.
class FilesWrapper : public Files {
public:
    using Path = std::filesystem::path;
    using Code = std::error_code;

    explicit FilesWrapper(Files& files) : files_(files) {}

    [[nodiscard]] Path libraryDirectory() const override { return files_.libraryDirectory(); }
    [[nodiscard]] Path documentsDirectory() const override { return files_.documentsDirectory(); }
    [[nodiscard]] Path cachesDirectory() const override { return files_.cachesDirectory(); }
    [[nodiscard]] std::optional<std::string> bundleResource(const std::string& path) const override {
        return files_.bundleResource(path);
    }
    [[nodiscard]] std::filesystem::file_type type(const Path& path, Code& error) const override {
        return files_.type(path, error);
    }
    bool createDirectories(const Path& path, Code& error) override { return files_.createDirectories(path, error); }
    [[nodiscard]] std::optional<std::string> read(const Path& path, Code& error) const override {
        return files_.read(path, error);
    }
    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        return files_.replace(path, bytes, error);
    }
    bool append(const Path& path, std::string_view bytes, Code& error) override {
        return files_.append(path, bytes, error);
    }
    [[nodiscard]] std::optional<std::string> readTail(const Path& path, std::uint64_t count,
                                                      Code& error) const override {
        return files_.readTail(path, count, error);
    }
    [[nodiscard]] std::optional<std::string> readPart(const Path& path, std::uint64_t offset, std::uint64_t count,
                                                      Code& error) const override {
        return files_.readPart(path, offset, count, error);
    }
    bool truncate(const Path& path, std::uint64_t size, Code& error) override {
        return files_.truncate(path, size, error);
    }
    [[nodiscard]] std::optional<std::uint64_t> size(const Path& path, Code& error) const override {
        return files_.size(path, error);
    }
    bool move(const Path& from, const Path& to, Code& error) override { return files_.move(from, to, error); }
    bool remove(const Path& path, Code& error) override { return files_.remove(path, error); }
    [[nodiscard]] std::unique_ptr<FileLock> lock(const Path& path, std::chrono::milliseconds patience,
                                                 Code& error) override {
        return files_.lock(path, patience, error);
    }

protected:
    static bool refuse(Code& error) {
        error = std::make_error_code(std::errc::no_space_on_device);
        return false;
    }
    Files& files_;
};

/// A full disk: appends take their first `room` bytes, and files for which `isFull` says so cannot be replaced.
class FullDisk : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;

    bool append(const Path& path, std::string_view bytes, Code& error) override {
        if (bytes.size() <= room) return files_.append(path, bytes, error);
        files_.append(path, bytes.substr(0, room), error);
        return refuse(error);
    }
    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        if (writesThenFails) files_.replace(path, bytes, error);
        return isFull(path.filename().string()) ? refuse(error) : files_.replace(path, bytes, error);
    }

    std::size_t room = 1'000'000;
    std::function<bool(const std::string&)> isFull = [](const std::string&) { return false; };
    bool writesThenFails = false;  ///< the file is replaced, only the directory could not be forced to the disk
};

}  // namespace quomi::test
