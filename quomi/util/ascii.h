#pragma once

#include <string>
#include <string_view>

namespace quomi {

// Classes of ASCII characters, whatever the process's locale; no byte beyond ASCII is in any of them.

[[nodiscard]] constexpr bool isAscii(char c) {
    return static_cast<unsigned char>(c) < 0x80;
}
[[nodiscard]] constexpr bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
[[nodiscard]] constexpr bool isUpperCase(char c) {
    return c >= 'A' && c <= 'Z';
}
[[nodiscard]] constexpr bool isLowerCase(char c) {
    return c >= 'a' && c <= 'z';
}
[[nodiscard]] constexpr bool isLetter(char c) {
    return isUpperCase(c) || isLowerCase(c);
}
[[nodiscard]] constexpr bool isLetterOrDigit(char c) {
    return isLetter(c) || isDigit(c);
}

/// The value of a hexadecimal digit of either case; -1 for any other character.
[[nodiscard]] constexpr int hexDigit(char c) {
    if (isDigit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}
[[nodiscard]] constexpr bool isHexDigit(char c) {
    return hexDigit(c) >= 0;
}

[[nodiscard]] constexpr char lowerCase(char c) {
    return isUpperCase(c) ? static_cast<char>(c - 'A' + 'a') : c;
}
[[nodiscard]] constexpr char upperCase(char c) {
    return isLowerCase(c) ? static_cast<char>(c - 'a' + 'A') : c;
}
[[nodiscard]] inline std::string lowerCase(std::string_view text) {
    std::string result(text);
    for (char& c : result) c = lowerCase(c);
    return result;
}

}  // namespace quomi
