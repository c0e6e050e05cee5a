#pragma once

#include <cstddef>

namespace quomi::tool {

/// Where a command writes for people.
struct Terminal {
    bool hasColours = false;
    std::size_t columns = 0;     ///< lines are wrapped to so many; 0: no terminal, they are as long as they are
    bool showsProgress = false;  ///< standard error is a terminal on which a line can be written anew

    /// What the process's standard streams and its environment say: no colours with TERM=dumb or a NO_COLOR that is
    /// not empty.
    [[nodiscard]] static Terminal ofProcess();
};

}  // namespace quomi::tool
