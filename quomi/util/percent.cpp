#include "quomi/util/percent.h"

#include "quomi/util/ascii.h"

namespace quomi {

void appendPercentEncoded(std::string& text, char byte) {
    static constexpr char digits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    text += '%';
    text += digits[value >> 4];
    text += digits[value & 0xF];
}

std::string percentEncoded(std::string_view text) {
    static constexpr std::string_view unreserved = "-._~";
    std::string encoded;
    for (const char c : text) {
        if (isLetterOrDigit(c) || unreserved.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            appendPercentEncoded(encoded, c);
        }
    }
    return encoded;
}

std::string percentDecoded(std::string_view text) {
    std::string decoded;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isEscape =
            text[i] == '%' && i + 2 < text.size() && isHexDigit(text[i + 1]) && isHexDigit(text[i + 2]);
        decoded += isEscape ? static_cast<char>(hexDigit(text[i + 1]) * 16 + hexDigit(text[i + 2])) : text[i];
        if (isEscape) i += 2;
    }
    return decoded;
}

}  // namespace quomi
