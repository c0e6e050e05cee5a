#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::test {

struct Include {
    std::string name;      ///< what stands between the quotes or brackets
    bool isQuoted = true;  ///< "name", not <name>
    std::size_t line = 0;  ///< from 1
};

/// A C++ file of the project.
struct SourceFile {
    std::string path;  ///< from the project's root, with '/': "quomi/util/time.h"
    /// The text with blanks in place of comments, of what is inside quotes, and of include lines; line breaks stay.
    std::string code;
    std::vector<Include> includes;

    [[nodiscard]] bool isHeader() const { return path.ends_with(".h"); }
};

/// Reads one file's text.
[[nodiscard]] SourceFile parseSource(std::string path, std::string_view text);

/// All .h and .cpp files below the project's code folders, by path.
[[nodiscard]] std::vector<SourceFile> readSources(const std::filesystem::path& root);

/// The line, from 1, on which the position of the code is.
[[nodiscard]] std::size_t lineOf(std::string_view code, std::size_t position);

}  // namespace quomi::test
