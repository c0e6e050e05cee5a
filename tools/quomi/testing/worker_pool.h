#pragma once

#include <cstddef>
#include <functional>

namespace quomi::tool {

/// Calls `work` for 0 to `count` - 1, on so many threads, and `tell` for each on the caller's thread: in order, and as
/// soon as those before it are done. Neither throws.
void inOrder(std::size_t count, unsigned threads, const std::function<void(std::size_t)>& work,
             const std::function<void(std::size_t)>& tell);

}  // namespace quomi::tool
