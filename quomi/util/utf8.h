#pragma once

#include "quomi/util/export.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quomi {

/// One character of UTF-8 text. Bytes that are no character count one by one as invalid ones.
struct Utf8Character {
    std::uint32_t codePoint = 0;
    std::size_t length = 1;  ///< in bytes
    bool valid = false;
};

/// The character at the beginning of text that is not empty. Overlong forms, surrogates and code points beyond
/// U+10FFFF are invalid.
[[nodiscard]] QUOMI_EXPORT Utf8Character firstUtf8Character(std::string_view text);

/// Whether the text is UTF-8 throughout.
[[nodiscard]] QUOMI_EXPORT bool isUtf8(std::string_view text);

/// Whether the byte goes on with a character that an earlier byte began.
[[nodiscard]] constexpr bool isUtf8Continuation(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

/// At most so many bytes of the text's beginning, cut between characters.
[[nodiscard]] QUOMI_EXPORT std::string_view utf8Beginning(std::string_view text, std::size_t bytes);

}  // namespace quomi
