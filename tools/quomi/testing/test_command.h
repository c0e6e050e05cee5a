#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quomi::tool {

/// `quomi test PATH…`: plays every visit with expectations below the paths, on all cores, and tells which of its cases
/// hold, one a line in a stable order (docs/testing-campaigns.md).
class TestCommand {
public:
    /// `colour`: whether the report may use it, which is the case for a terminal.
    explicit TestCommand(bool colour) : colour_(colour) {}

    /// `args` are those after the command's name. Exit status: 0 all hold (or help was asked for); 2 the arguments are
    /// wrong, the report cannot be written, a visit is invalid or there is no case; 1 a case failed or too few rules
    /// have acted; 128 and the number of the signal that ended it.
    int run(std::vector<std::string> args, std::ostream& out, std::ostream& err) const;

private:
    bool colour_;
};

}  // namespace quomi::tool
