#include "hosts/simulated/temporary_directory.h"

#include <stdlib.h>
#include <string>
#include <system_error>

namespace quomi::simulated {

TemporaryDirectory::TemporaryDirectory() {
    std::error_code ignored;
    auto parent = std::filesystem::temp_directory_path(ignored);
    if (parent.empty()) parent = "/tmp";
    std::string name = parent / "quomi-phone-XXXXXX";
    const bool isMade = ::mkdtemp(name.data()) != nullptr;
    path_ = isMade ? std::filesystem::path(name) : parent / "quomi-phone-none";
}

TemporaryDirectory::~TemporaryDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
}

}  // namespace quomi::simulated
