#pragma once

#include "quomi/platform/location.h"

#include <string>

namespace quomi {

/// One line for logs: kind, identifier and what makes the region.
[[nodiscard]] std::string describe(const Region& region);

/// One line for logs: domain, code and text.
[[nodiscard]] std::string describe(const PlatformError& error);

}  // namespace quomi
