#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <unistd.h>

namespace quomi::test {

/// A directory of its own for one test, gone with the object. In memory where the system offers that, so that forcing
/// files to the disk costs nothing.
class TemporaryDirectory {
public:
    TemporaryDirectory() {
        const bool inMemory = ::access("/dev/shm", W_OK | X_OK) == 0;
        std::string name = (inMemory ? std::filesystem::path("/dev/shm") : std::filesystem::temp_directory_path()) /
                           "quomi-test-XXXXXX";
        path_ = ::mkdtemp(name.data()) != nullptr ? std::filesystem::path(name) : std::filesystem::path();
    }
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
    ~TemporaryDirectory() {
        std::error_code ignored;
        if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
    }

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace quomi::test
