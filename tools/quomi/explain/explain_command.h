#pragma once

#include "tools/quomi/timeline/terminal.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace quomi::tool {

/// `quomi explain VISIT.json --rule ID [--at SECONDS]`: plays the visit and tells in sentences what became of the rule.
/// `args` are those after the command's name; the exit status is that of `quomi replay`.
int runExplain(std::vector<std::string> args, const Terminal& terminal, std::ostream& out, std::ostream& err);

}  // namespace quomi::tool
