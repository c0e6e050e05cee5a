#pragma once

#include "tests/structure/source_tree.h"

#include <string>
#include <vector>

namespace quomi::test {

// What the project's structure demands. Each check returns its findings, one line of text each ("FILE:LINE: …"), and
// none when all is well.

/// No file includes itself, directly or through others. A finding names the files of one cycle.
[[nodiscard]] std::vector<std::string> findIncludeCycles(const std::vector<SourceFile>& sources);

/// A quoted include names a file of the project by its path from the root, so that the other checks see it.
[[nodiscard]] std::vector<std::string> findUnknownIncludes(const std::vector<SourceFile>& sources);

/// Arrows point down: each room includes only those that it stands on.
[[nodiscard]] std::vector<std::string> findUpwardIncludes(const std::vector<SourceFile>& sources);

/// Headers of foreign libraries are included only where the library belongs, those that no library code should
/// include nowhere in it.
[[nodiscard]] std::vector<std::string> findMisplacedLibraries(const std::vector<SourceFile>& sources);

/// The library neither ends nor changes the host's process, writes to its streams, nor depends on its locale.
[[nodiscard]] std::vector<std::string> findForbiddenCalls(const std::vector<SourceFile>& sources);

/// Every header says `#pragma once`.
[[nodiscard]] std::vector<std::string> findUnguardedHeaders(const std::vector<SourceFile>& sources);

}  // namespace quomi::test
