#include "tests/structure/source_tree.h"

#include "quomi/util/regular_expression.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>

namespace quomi::test {

namespace {

constexpr std::string_view kFolders[] = {"quomi", "hosts", "tools", "tests", "bench", "fuzz"};

/// The text with blanks in place of comments and of what is inside quotes; line breaks stay.
std::string codeOf(std::string_view text) {
    static const auto noCode =
        CompiledExpression::create(
            R"x(//[^\n]*|/\*(?:[^*]|\*+[^*/])*\*+/|\bR"x\((?:[^)]|\)+[^)x])*\)+x"|\bR"\((?:[^)]|\)+[^)"])*\)+")x"
            R"x(|"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])')x")
            .value();
    const auto blanked = [](std::string found) {
        std::ranges::replace_if(
            found, [](char c) { return c != '\n'; }, ' ');
        return found;
    };
    return QuomiRegularExpression::stringByReplacingMatchesInString(
        text, noCode, QuomiRegularExpression::MatchingOptions::none, {}, "$0", blanked);
}

std::string_view withoutIndent(std::string_view line) {
    const std::size_t first = line.find_first_not_of(" \t");
    return first == std::string_view::npos ? std::string_view() : line.substr(first);
}

std::optional<Include> includeOf(std::string_view line) {
    line = withoutIndent(line);
    if (!line.starts_with('#')) return std::nullopt;
    line = withoutIndent(line.substr(1));
    if (!line.starts_with("include")) return std::nullopt;
    line = withoutIndent(line.substr(7));
    if (line.empty() || (line.front() != '"' && line.front() != '<')) return std::nullopt;
    const bool isQuoted = line.front() == '"';
    const std::size_t end = line.find(isQuoted ? '"' : '>', 1);
    if (end == std::string_view::npos) return std::nullopt;
    return Include{std::string(line.substr(1, end - 1)), isQuoted, 0};
}

}  // namespace

SourceFile parseSource(std::string path, std::string_view text) {
    SourceFile source{std::move(path), codeOf(text), {}};
    std::size_t line = 1;
    for (std::size_t begin = 0; begin < text.size(); ++line) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        // The code tells whether the line is an include at all, the text what it includes.
        const bool isDirective =
            withoutIndent(std::string_view(source.code).substr(begin, end - begin)).starts_with('#');
        if (auto include = isDirective ? includeOf(text.substr(begin, end - begin)) : std::nullopt) {
            include->line = line;
            source.includes.push_back(*std::move(include));
            std::fill(source.code.begin() + static_cast<std::ptrdiff_t>(begin),
                      source.code.begin() + static_cast<std::ptrdiff_t>(end), ' ');
        }
        begin = end + 1;
    }
    return source;
}

std::vector<SourceFile> readSources(const std::filesystem::path& root) {
    std::vector<SourceFile> sources;
    for (const std::string_view folder : kFolders) {
        std::error_code error;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(root / folder, error)) {
            const std::string extension = entry.path().extension().string();
            if (!entry.is_regular_file() || (extension != ".h" && extension != ".cpp")) continue;
            std::ifstream file(entry.path(), std::ios::binary);
            const std::string text{std::istreambuf_iterator<char>(file), {}};
            sources.push_back(parseSource(entry.path().lexically_relative(root).generic_string(), text));
        }
    }
    std::ranges::sort(sources, {}, &SourceFile::path);
    return sources;
}

std::size_t lineOf(std::string_view code, std::size_t position) {
    const std::string_view before = code.substr(0, position);
    return 1 + static_cast<std::size_t>(std::ranges::count(before, '\n'));
}

}  // namespace quomi::test
