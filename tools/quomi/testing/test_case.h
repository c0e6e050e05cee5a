#pragma once

#include "tools/quomi/testing/case_run.h"

#include <string>

namespace quomi::tool {

/// A case of a visit, or a file that is no valid visit, and what came of it.
struct TestCase {
    std::string file;
    std::string name;                         ///< the visit's, and behind a colon the case's; empty without a visit
    const simulated::Visit* visit = nullptr;  ///< null for an invalid one
    CaseResult result;
};

}  // namespace quomi::tool
