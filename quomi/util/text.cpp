#include "quomi/util/text.h"

#include "quomi/util/ascii.h"
#include "quomi/util/percent.h"
#include "quomi/util/utf8.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace quomi {

namespace {

using namespace std::string_view_literals;

// White space and line separators in UTF-8.
constexpr std::array kSpaces = {
    " "sv,      "\t"sv,     "\n"sv,     "\v"sv,     "\f"sv,     "\r"sv,     "\u0085"sv, "\u00a0"sv, "\u1680"sv,
    "\u2000"sv, "\u2001"sv, "\u2002"sv, "\u2003"sv, "\u2004"sv, "\u2005"sv, "\u2006"sv, "\u2007"sv, "\u2008"sv,
    "\u2009"sv, "\u200a"sv, "\u2028"sv, "\u2029"sv, "\u202f"sv, "\u205f"sv, "\u3000"sv,
};

std::size_t leadingSpace(std::string_view text) {
    const auto* space = std::ranges::find_if(kSpaces, [&](auto candidate) { return text.starts_with(candidate); });
    return space == kSpaces.end() ? 0 : space->size();
}

std::size_t trailingSpace(std::string_view text) {
    const auto* space = std::ranges::find_if(kSpaces, [&](auto candidate) { return text.ends_with(candidate); });
    return space == kSpaces.end() ? 0 : space->size();
}

std::uint8_t hexPair(char high, char low) {
    const int first = hexDigit(high);
    const int second = hexDigit(low);
    if (first < 0) return 0;
    return static_cast<std::uint8_t>(second < 0 ? first : first * 16 + second);
}

/// One byte per UTF-16 unit of the text, blanks left out; those beyond ASCII, which pair up like any other, become '?'.
std::string hexCharacters(std::string_view text) {
    std::string characters;
    characters.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == ' ' || isUtf8Continuation(c)) continue;
        characters.append(byte >= 0xF0U ? 2 : 1, isAscii(c) ? c : '?');
    }
    return characters;
}

}  // namespace

std::string_view trimmed(std::string_view text) {
    while (const std::size_t size = leadingSpace(text)) text.remove_prefix(size);
    while (const std::size_t size = trailingSpace(text)) text.remove_suffix(size);
    return text;
}

std::vector<std::string_view> componentsSeparatedBy(std::string_view text, char separator) {
    std::vector<std::string_view> parts;
    while (true) {
        const std::size_t end = text.find(separator);
        parts.push_back(text.substr(0, end));
        if (end == std::string_view::npos) return parts;
        text.remove_prefix(end + 1);
    }
}

namespace QuomiUtils {

std::vector<std::uint8_t> hexStringToData(std::string_view text) {
    const std::string characters = hexCharacters(text);
    std::vector<std::uint8_t> data(characters.size() / 2);
    for (std::size_t i = 0; i < data.size(); ++i) data[i] = hexPair(characters[2 * i], characters[2 * i + 1]);
    return data;
}

std::string dataToHexString(std::span<const std::uint8_t> data) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    text.reserve(data.size() * 2);
    for (const std::uint8_t byte : data) {
        text += digits[byte >> 4];
        text += digits[byte & 0xF];
    }
    return text;
}

std::vector<std::uint8_t> padData(std::vector<std::uint8_t> data, std::size_t length) {
    data.resize(std::max(data.size(), length));
    return data;
}

double calculateAverage(std::span<const double> values, std::int64_t startIndex, std::int64_t endIndex) {
    if (startIndex < 0 || endIndex < 0) return 0.0;
    const std::int64_t last = std::min(endIndex, std::ssize(values) - 1);
    if (last < startIndex) return 0.0;
    const auto count = static_cast<std::size_t>(last - startIndex + 1);
    const auto range = values.subspan(static_cast<std::size_t>(startIndex), count);
    return std::accumulate(range.begin(), range.end(), 0.0) / static_cast<double>(count);
}

}  // namespace QuomiUtils

namespace QuomiURLEncoder {

std::string URLEncodeString(std::string_view text) {
    constexpr auto kept = ":/?#[]@!$ &'()*+,;=\"<>%{}|\\^~`"sv;
    static_assert(kept.size() == 30);
    std::string encoded;
    encoded.reserve(text.size() * 3);
    for (const char c : text) {
        if (kept.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            appendPercentEncoded(encoded, c);
        }
    }
    return encoded;
}

}  // namespace QuomiURLEncoder

}  // namespace quomi
