#pragma once

#include "tools/quomi/testing/test_case.h"

#include <span>
#include <string>

namespace quomi::tool {

/// The results as a JUnit report (docs/testing-campaigns.md): a suite for each visit's file, a case for each case.
/// Invalid visits are errors.
[[nodiscard]] std::string junitReport(std::span<const TestCase> cases);

}  // namespace quomi::tool
