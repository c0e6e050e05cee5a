#include "tools/quomi/timeline/terminal_text.h"

#include "quomi/util/utf8.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace quomi::tool {

namespace {

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

constexpr std::array<Range, 10> kWide = {{{0x1100, 0x115F},
                                          {0x2E80, 0x303E},
                                          {0x3041, 0xA4CF},
                                          {0xAC00, 0xD7A3},
                                          {0xF900, 0xFAFF},
                                          {0xFE30, 0xFE6F},
                                          {0xFF00, 0xFF60},
                                          {0xFFE0, 0xFFE6},
                                          {0x1F300, 0x1FAFF},
                                          {0x20000, 0x3FFFD}}};
constexpr std::array<Range, 4> kCombining = {{{0x0300, 0x036F}, {0x1AB0, 0x1AFF}, {0x20D0, 0x20FF}, {0xFE00, 0xFE0F}}};
template <std::size_t n>
bool isIn(const std::array<Range, n>& ranges, std::uint32_t codePoint) {
    return std::ranges::any_of(ranges,
                               [&](const Range& range) { return codePoint >= range.first && codePoint <= range.last; });
}

std::size_t columnsOf(const Utf8Character& character) {
    if (isIn(kCombining, character.codePoint)) return 0;
    return isIn(kWide, character.codePoint) ? 2 : 1;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const auto character = firstUtf8Character(text);
        columns += columnsOf(character);
        text.remove_prefix(character.length);
    }
    return columns;
}

std::string leftAligned(std::string text, std::size_t columns) {
    const auto taken = columnsOf(text);
    if (taken < columns) text.append(columns - taken, ' ');
    return text;
}

std::string rightAligned(const std::string& text, std::size_t columns) {
    const auto taken = columnsOf(text);
    return taken < columns ? std::string(columns - taken, ' ') + text : text;
}

std::string clipped(std::string text, std::size_t columns) {
    std::string_view rest = text;
    std::size_t taken = 0;
    std::size_t cut = 0;
    while (!rest.empty()) {
        const auto character = firstUtf8Character(rest);
        taken += columnsOf(character);
        if (taken > columns) {
            text.resize(cut);
            return text + "…";
        }
        rest.remove_prefix(character.length);
        if (taken < columns) cut = text.size() - rest.size();
    }
    return text;
}

std::string wrapped(const std::string& text, std::size_t columns, std::size_t indent) {
    if (columns == 0 || columnsOf(text) <= columns) return text;
    std::string lines;
    std::size_t taken = 0;
    for (std::size_t at = 0; at < text.size();) {
        const auto wordBegins = text.find_first_not_of(' ', at);
        if (wordBegins == std::string::npos) break;
        const auto wordEnds = std::min(text.find(' ', wordBegins), text.size());
        const auto word = text.substr(wordBegins, wordEnds - wordBegins);
        const auto blanks = wordBegins - at;
        const bool fits = taken == 0 || taken + blanks + columnsOf(word) <= columns;
        if (!fits) taken = indent;
        lines += fits ? std::string(blanks, ' ') : "\n" + std::string(indent, ' ');
        lines += word;
        taken += (fits ? blanks : 0) + columnsOf(word);
        at = wordEnds;
    }
    return lines;
}

std::string spanText(double seconds) {
    if (!(seconds < 1e9)) return "ever";
    if (seconds < 9.95) return fmt::format("{:.1f} s", std::max(seconds, 0.0));
    const auto whole = std::llround(seconds);
    if (whole < 60) return fmt::format("{} s", whole);
    if (whole < 3600) return fmt::format("{} min {} s", whole / 60, whole % 60);
    return fmt::format("{} h {} min", whole / 3600, whole % 3600 / 60);
}

}  // namespace quomi::tool
