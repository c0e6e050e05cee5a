#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include <fmt/format.h>

namespace quomi::tool {

namespace {

constexpr std::string_view kReplacement = "\uFFFD";

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
constexpr std::array<Range, 8> kTreacherous = {{{0x0080, 0x009F},
                                                {0x061C, 0x061C},
                                                {0x200B, 0x200F},
                                                {0x2028, 0x202E},
                                                {0x2060, 0x206F},
                                                {0xFEFF, 0xFEFF},
                                                {0xFFF9, 0xFFFB},
                                                {0xE0000, 0xE0FFF}}};

template <std::size_t n>
bool isIn(const std::array<Range, n>& ranges, std::uint32_t codePoint) {
    return std::any_of(ranges.begin(), ranges.end(),
                       [&](const Range& range) { return codePoint >= range.first && codePoint <= range.last; });
}

struct Character {
    std::uint32_t codePoint = 0;
    std::size_t length = 1;
    bool valid = false;
};

constexpr std::array<std::uint32_t, 5> kSmallestOfLength = {0, 0, 0x80, 0x800, 0x10000};

/// The character at the beginning of text that is not empty.
Character firstCharacter(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC0 || lead > 0xF4 || text.size() < length) return {};
    std::uint32_t codePoint = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return {};
        codePoint = (codePoint << 6) | (byte(i) & 0x3FU);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < kSmallestOfLength[length] || codePoint > 0x10FFFF || surrogate) return {};
    return {codePoint, length, true};
}

std::size_t columnsOf(const Character& character) {
    if (isIn(kCombining, character.codePoint)) return 0;
    return isIn(kWide, character.codePoint) ? 2 : 1;
}

void appendSafely(std::string& out, const Character& character, std::string_view bytes) {
    if (!character.valid || isIn(kTreacherous, character.codePoint)) {
        out += kReplacement;
    } else if (character.codePoint == '\t') {
        out += ' ';
    } else if (character.codePoint < 0x20) {
        out += "\xE2\x90";  // the control pictures begin at U+2400
        out += static_cast<char>(0x80 + character.codePoint);
    } else if (character.codePoint == 0x7F) {
        out += "\u2421";
    } else {
        out += bytes;
    }
}

}  // namespace

std::string neutralised(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto character = firstCharacter(text);
        appendSafely(out, character, text.substr(0, character.length));
        text.remove_prefix(character.length);
    }
    return out;
}

std::size_t columnsOf(std::string_view text) {
    std::size_t columns = 0;
    while (!text.empty()) {
        const auto character = firstCharacter(text);
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
        const auto character = firstCharacter(rest);
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

std::string spanText(double seconds) {
    if (!(seconds < 1e9)) return "ever";
    if (seconds < 9.95) return fmt::format("{:.1f} s", std::max(seconds, 0.0));
    const auto whole = std::llround(seconds);
    if (whole < 60) return fmt::format("{} s", whole);
    if (whole < 3600) return fmt::format("{} min {:2} s", whole / 60, whole % 60);
    return fmt::format("{} h {:2} min", whole / 3600, whole % 3600 / 60);
}

}  // namespace quomi::tool
