#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// The name that was probably meant by a misspelt one: the nearest by letters inserted, left out, replaced or swapped,
/// when at most a third of them are; the first of several. Empty when none is near.
[[nodiscard]] std::string_view likeliestName(std::string_view misspelt, const std::vector<std::string_view>& names);

/// `; did you mean "NAME"?`, or nothing.
[[nodiscard]] std::string didYouMean(std::string_view misspelt, const std::vector<std::string_view>& names);

}  // namespace quomi::simulated
