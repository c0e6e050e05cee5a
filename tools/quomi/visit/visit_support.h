#pragma once

#include <string_view>

namespace quomi::tool {

/// The parts of a visit that name something to be done.
enum class VisitWord { step, call, delegate };

/// Whether this version plays a step, a call or a delegate operation that the format has.
[[nodiscard]] bool isSupported(VisitWord word, std::string_view name);

}  // namespace quomi::tool
