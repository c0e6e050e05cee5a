#include "hosts/simulated/json/neutral_text.h"

#include "quomi/util/utf8.h"

#include <algorithm>
#include <cstdint>

namespace quomi::simulated {

namespace {

constexpr std::string_view kReplacement = "\uFFFD";

struct Range {
    std::uint32_t first;
    std::uint32_t last;
};

constexpr Range kTreacherous[] = {{0x0080, 0x009F}, {0x061C, 0x061C}, {0x200B, 0x200F}, {0x2028, 0x202E},
                                  {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE0FFF}};

bool isTreacherous(std::uint32_t codePoint) {
    return std::ranges::any_of(kTreacherous,
                               [&](const Range& range) { return codePoint >= range.first && codePoint <= range.last; });
}

bool isPrintableAscii(char byte) {
    return byte >= 0x20 && byte < 0x7F;
}

void appendSafely(std::string& out, const Utf8Character& character, std::string_view bytes) {
    if (!character.valid || isTreacherous(character.codePoint)) {
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
    if (std::ranges::all_of(text, isPrintableAscii)) return std::string(text);
    std::string out;
    out.reserve(text.size());
    while (!text.empty()) {
        const auto character = firstUtf8Character(text);
        appendSafely(out, character, text.substr(0, character.length));
        text.remove_prefix(character.length);
    }
    return out;
}

}  // namespace quomi::simulated
