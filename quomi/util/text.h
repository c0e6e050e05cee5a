#pragma once

#include "quomi/util/export.h"

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quomi {

/// The text without leading and trailing white space and line breaks, those beyond ASCII included. Points into `text`.
[[nodiscard]] QUOMI_EXPORT std::string_view trimmed(std::string_view text);

/// The parts between the separators, empty ones included; a text without separator is one part. Point into `text`.
[[nodiscard]] std::vector<std::string_view> componentsSeparatedBy(std::string_view text, char separator);

namespace QuomiUtils {

/// A copy of `trimmed`; empty for an absent text.
[[nodiscard]] inline std::string trim(std::string_view text) {
    return std::string(trimmed(text));
}
template <std::same_as<std::optional<std::string>> Text>
[[nodiscard]] std::string trim(const Text& text) {
    return text ? trim(std::string_view(*text)) : std::string();
}

/// True for an absent text and for one of which `trim` leaves nothing.
[[nodiscard]] inline bool isEmpty(std::string_view text) {
    return trimmed(text).empty();
}
template <std::same_as<std::optional<std::string>> Text>
[[nodiscard]] bool isEmpty(const Text& text) {
    return !text || isEmpty(std::string_view(*text));
}

[[nodiscard]] inline std::string emptyStringIfNil(std::optional<std::string> text) {
    return std::move(text).value_or(std::string());
}

/// Blanks are removed, then every two characters are a byte in base 16. A pair that is no number counts as far as it is
/// one ("1g" is 1, "g1" is 0), a single last character is ignored.
[[nodiscard]] std::vector<std::uint8_t> hexStringToData(std::string_view text);
/// Two lower-case digits per byte.
[[nodiscard]] std::string dataToHexString(std::span<const std::uint8_t> data);
/// The data with zero bytes appended up to the length; never shorter than it was.
[[nodiscard]] std::vector<std::uint8_t> padData(std::vector<std::uint8_t> data, std::size_t length);

/// Mean of the values from one index to another, both included; the end is cut to the last index. 0.0 for a negative
/// index and for an empty range.
[[nodiscard]] double calculateAverage(std::span<const double> values, std::int64_t startIndex, std::int64_t endIndex);

}  // namespace QuomiUtils

namespace QuomiURLEncoder {

/// Percent-encodes every byte except those of `:/?#[]@!$ &'()*+,;="<>%{}|\^~` and the backquote. That letters and
/// digits are encoded and the reserved characters are not is deliberate: servers of notify-server rules expect it.
[[nodiscard]] std::string URLEncodeString(std::string_view text);
/// An absent text stays absent.
template <std::same_as<std::optional<std::string>> Text>
[[nodiscard]] std::optional<std::string> URLEncodeString(const Text& text) {
    if (!text) return std::nullopt;
    return URLEncodeString(std::string_view(*text));
}

}  // namespace QuomiURLEncoder

}  // namespace quomi
