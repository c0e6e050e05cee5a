#pragma once

namespace quomi {

/// Version of the SDK as servers and hosts get to see it.
inline constexpr const char* kSDKVersion = "1.25.1";

}  // namespace quomi
