#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace quomi::tool {

/// `quomi replay VISIT.json [--json] [--state DIR] [--geojson OUT] [--backoffice URL]`: plays a visit and shows its
/// timeline, or writes its trace as JSON lines; and writes what happened where as GeoJSON.
class ReplayCommand {
public:
    /// `colour`: whether the timeline may use it, which is the case for a terminal.
    explicit ReplayCommand(bool colour) : colour_(colour) {}

    /// `args` are those after the command's name. Exit status: 0 played to the end (or help was asked for); 2 the
    /// visit cannot be read or is not valid, with one line on `err` and nothing played; 1 anything else, wrong
    /// arguments included.
    int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) const;

private:
    bool colour_;
};

}  // namespace quomi::tool
