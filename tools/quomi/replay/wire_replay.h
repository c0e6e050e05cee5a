#pragma once

#include "hosts/simulated/replay/replay.h"

#include <filesystem>
#include <optional>
#include <string>

namespace quomi::tool {

/// How a command plays a visit: tracks are GPX files, and a campaign is served on a loopback port and spoken to over
/// HTTP, the virtual clock standing still meanwhile. With `server`, the base URL of a running server, all requests go
/// there instead of the visit's back office.
[[nodiscard]] simulated::ReplayOptions wireReplay(const simulated::Visit& visit, std::filesystem::path state = {},
                                                  const std::optional<std::string>& server = {});

}  // namespace quomi::tool
