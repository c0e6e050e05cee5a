#include "quomi/util/number.h"

#include "quomi/util/ascii.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <charconv>

#include <fmt/format.h>

namespace quomi {

namespace {

std::size_t skipDigits(std::string_view text, std::size_t at) {
    while (at < text.size() && isDigit(text[at])) ++at;
    return at;
}

/// Length of the unsigned number at the text's beginning; 0 when there is none. An exponent without digits is left out.
std::size_t lengthOfNumber(std::string_view text) {
    std::size_t end = skipDigits(text, 0);
    std::size_t digits = end;
    if (end < text.size() && text[end] == '.') {
        const std::size_t fractionEnd = skipDigits(text, end + 1);
        digits += fractionEnd - end - 1;
        end = fractionEnd;
    }
    if (digits == 0) return 0;
    if (end == text.size() || (text[end] != 'e' && text[end] != 'E')) return end;
    std::size_t exponent = end + 1;
    if (exponent < text.size() && (text[exponent] == '+' || text[exponent] == '-')) ++exponent;
    const std::size_t exponentEnd = skipDigits(text, exponent);
    return exponentEnd > exponent ? exponentEnd : end;
}

/// Whether a number that is out of a double's range is too large rather than too small.
bool isTooLarge(std::string_view number) {
    const std::size_t mantissaEnd = std::min(number.find_first_of("eE"), number.size());
    const std::string_view mantissa = number.substr(0, mantissaEnd);
    const auto point = static_cast<std::int64_t>(std::min(mantissa.find('.'), mantissa.size()));
    const auto first = static_cast<std::int64_t>(std::min(mantissa.find_first_of("123456789"), mantissa.size()));
    const std::int64_t exponent = mantissaEnd < number.size() ? integerOfText(number.substr(mantissaEnd + 1)) : 0;
    return exponent > first - point;
}

/// Removes a sign; true for a minus.
bool takeSign(std::string_view& text) {
    if (text.empty() || (text[0] != '-' && text[0] != '+')) return false;
    const bool isNegative = text[0] == '-';
    text.remove_prefix(1);
    return isNegative;
}

}  // namespace

double doubleOfText(std::string_view text) {
    text = trimmed(text);
    const bool isNegative = takeSign(text);
    const std::string_view number = text.substr(0, lengthOfNumber(text));
    double value = 0;
    const auto [end, failure] = std::from_chars(number.data(), number.data() + number.size(), value);
    if (failure == std::errc::result_out_of_range) {
        value = isTooLarge(number) ? std::numeric_limits<double>::max() : 0;
    }
    return isNegative ? -value : value;
}

std::int64_t integerOfText(std::string_view text) {
    using Limits = std::numeric_limits<std::int64_t>;
    text = trimmed(text);
    if (text.starts_with('+')) {
        text.remove_prefix(1);
        if (text.starts_with('-')) return 0;
    }
    std::int64_t value = 0;
    const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (failure == std::errc::result_out_of_range) return text.starts_with('-') ? Limits::min() : Limits::max();
    return value;
}

double Number::doubleValue() const {
    return std::visit([](auto value) { return static_cast<double>(value); }, value_);
}

std::string Number::text() const {
    return std::visit([](auto value) { return fmt::format("{}", value); }, value_);
}

bool Number::operator==(const Number& other) const {
    if (value_.index() == other.value_.index()) return value_ == other.value_;
    return doubleValue() == other.doubleValue();
}

}  // namespace quomi
