#pragma once

#include "hosts/simulated/visit/visit.h"

#include <optional>
#include <string>
#include <vector>

namespace quomi::tool {

/// A visit that has expectations, as it was found.
struct FoundVisit {
    std::string file;  ///< as the user would write it
    std::optional<simulated::Visit> visit;
    std::string error;  ///< why there is no visit; one line
};

/// The visits with expectations at these paths, which are files or folders; folders are searched to the bottom, hidden
/// ones left out. In the order of the paths, those of a folder by name; each file once. A file that is no visit or has
/// no expectations is passed over; one that cannot be read or is no valid visit is there with its error, and so is a
/// path where nothing is.
[[nodiscard]] std::vector<FoundVisit> findVisits(const std::vector<std::string>& paths);

}  // namespace quomi::tool
