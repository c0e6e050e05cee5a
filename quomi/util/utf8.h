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

}  // namespace quomi
