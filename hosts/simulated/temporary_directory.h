#pragma once

#include <filesystem>

namespace quomi::simulated {

/// A fresh directory of its owner's alone that goes, with all that is in it, when this object goes. Where none can be
/// made the path is one below the system's temporary directory that does not exist.
class TemporaryDirectory {
public:
    TemporaryDirectory();
    ~TemporaryDirectory();
    TemporaryDirectory(const TemporaryDirectory&) = delete;
    TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

    [[nodiscard]] const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

}  // namespace quomi::simulated
