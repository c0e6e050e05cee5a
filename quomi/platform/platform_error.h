#pragma once

#include <cstdint>
#include <string>

namespace quomi {

/// A failure as the platform words it. It is logged and handed on, never compared beyond its code.
struct PlatformError {
    std::string domain;
    std::int64_t code = 0;
    std::string description;
    bool operator==(const PlatformError&) const = default;
};

}  // namespace quomi
