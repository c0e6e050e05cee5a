#include "tests/structure/source_tree.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <optional>

namespace quomi::test {

namespace {

constexpr std::string_view kFolders[] = {"quomi", "hosts", "tools", "tests", "bench", "fuzz"};

bool isWordCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_';
}

/// Walks over a text once and blanks what is no code.
class Blanker {
public:
    explicit Blanker(std::string_view text) : text_(text), code_(text) {}

    std::string run() {
        while (position_ < text_.size()) {
            const std::string_view rest = text_.substr(position_);
            if (rest.starts_with("//")) {
                blankTo(text_.find('\n', position_));
            } else if (rest.starts_with("/*")) {
                blankTo(endOf("*/", position_ + 2));
            } else if (isRawString()) {
                blankRawString();
            } else if (rest.front() == '"' || (rest.front() == '\'' && !isDigitSeparator())) {
                blankTo(endOfQuoted(rest.front()));
            } else {
                ++position_;
            }
        }
        return code_;
    }

private:
    void blankTo(std::size_t end) {
        for (end = std::min(end, text_.size()); position_ < end; ++position_) {
            if (text_[position_] != '\n') code_[position_] = ' ';
        }
    }

    std::size_t endOf(std::string_view closing, std::size_t from) const {
        const std::size_t at = text_.find(closing, from);
        return at == std::string_view::npos ? at : at + closing.size();
    }

    std::size_t endOfQuoted(char quote) const {
        std::size_t at = position_ + 1;
        while (at < text_.size() && text_[at] != quote && text_[at] != '\n') at += text_[at] == '\\' ? 2 : 1;
        return at + 1;
    }

    bool isRawString() const {
        return text_.substr(position_).starts_with("R\"") && (position_ == 0 || !isWordCharacter(text_[position_ - 1]));
    }

    void blankRawString() {
        const std::size_t open = text_.find('(', position_);
        if (open == std::string_view::npos) return blankTo(open);
        const std::string_view delimiter = text_.substr(position_ + 2, open - position_ - 2);
        blankTo(endOf(")" + std::string(delimiter) + "\"", open));
    }

    bool isDigitSeparator() const { return position_ > 0 && isWordCharacter(text_[position_ - 1]); }

    std::string_view text_;
    std::string code_;
    std::size_t position_ = 0;
};

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
    SourceFile source{std::move(path), Blanker(text).run(), {}};
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
