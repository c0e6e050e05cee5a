#include "quomi/util/uuid.h"

#include "quomi/util/ascii.h"

#include <cctype>

namespace quomi {

namespace {

constexpr bool isDashPosition(std::size_t i) {
    return i == 8 || i == 13 || i == 18 || i == 23;
}

}  // namespace

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Bytes bytes{};
    std::size_t nibble = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (isDashPosition(i)) {
            if (text[i] != '-') return std::nullopt;
            continue;
        }
        const int digit = hexDigit(text[i]);
        if (digit < 0) return std::nullopt;
        auto& byte = bytes[nibble / 2];
        byte = static_cast<std::uint8_t>((byte << 4) | digit);
        ++nibble;
    }
    return Uuid(bytes);
}

std::string Uuid::string() const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string text(36, '-');
    std::size_t at = 0;
    for (const auto byte : bytes_) {
        if (isDashPosition(at)) ++at;
        text[at++] = digits[byte >> 4];
        text[at++] = digits[byte & 0xF];
    }
    return text;
}

}  // namespace quomi
