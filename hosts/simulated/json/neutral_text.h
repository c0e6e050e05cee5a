#pragma once

#include <string>
#include <string_view>

namespace quomi::simulated {

/// Foreign text made fit for one line of a terminal: control characters stand as their pictures, invalid UTF-8 and
/// characters that reorder or hide text as U+FFFD. Nothing of it can move the cursor, ring or change colours.
[[nodiscard]] std::string neutralised(std::string_view text);

}  // namespace quomi::simulated
