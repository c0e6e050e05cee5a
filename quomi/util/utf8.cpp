#include "quomi/util/utf8.h"

#include <array>

namespace quomi {

namespace {

constexpr std::array<std::uint32_t, 5> kSmallestOfLength = {0, 0, 0x80, 0x800, 0x10000};

}  // namespace

Utf8Character firstUtf8Character(std::string_view text) {
    const auto byte = [&](std::size_t i) { return static_cast<std::uint8_t>(text[i]); };
    const std::uint8_t lead = byte(0);
    if (lead < 0x80) return {lead, 1, true};
    const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
    if (lead < 0xC0 || lead > 0xF4 || text.size() < length) return {};
    std::uint32_t codePoint = lead & (0x7FU >> length);
    for (std::size_t i = 1; i < length; ++i) {
        if (!isUtf8Continuation(text[i])) return {};
        codePoint = (codePoint << 6) | (byte(i) & 0x3FU);
    }
    const bool surrogate = codePoint >= 0xD800 && codePoint <= 0xDFFF;
    if (codePoint < kSmallestOfLength[length] || codePoint > 0x10FFFF || surrogate) return {};
    return {codePoint, length, true};
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const Utf8Character character = firstUtf8Character(text);
        if (!character.valid) return false;
        text.remove_prefix(character.length);
    }
    return true;
}

std::string_view utf8Beginning(std::string_view text, std::size_t bytes) {
    if (text.size() <= bytes) return text;
    while (bytes > 0 && isUtf8Continuation(text[bytes])) --bytes;
    return text.substr(0, bytes);
}

}  // namespace quomi
