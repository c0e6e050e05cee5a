#pragma once

#include "tools/quomi/timeline/terminal.h"

#include <iosfwd>
#include <string>
#include <vector>

namespace quomi::tool {

/// `quomi replay VISIT.json … [-v|-vv|--json] [--state DIR] [--geojson OUT] [--backoffice URL] [--color WHEN]`: plays
/// visits, one after the other, and shows their timelines, or writes their traces as JSON lines; and writes what
/// happened where as GeoJSON.
class ReplayCommand {
public:
    explicit ReplayCommand(const Terminal& terminal = {}) : terminal_(terminal) {}

    /// `args` are those after the command's name. Exit status: 0 played to the end (or help was asked for); 2 what was
    /// given cannot be used (arguments, a visit, a file to write), with one line on `err` and nothing played; 1 it was
    /// used and failed; 128 and the signal's number when it was interrupted.
    int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) const;

private:
    const Terminal terminal_;
};

}  // namespace quomi::tool
