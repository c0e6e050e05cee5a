#pragma once

#include "quomi/util/export.h"

#include <concepts>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>

namespace quomi {

/// The value in a narrower integer type: what does not fit becomes that type's nearest bound, fractions are cut off
/// towards zero, NaN becomes 0.
template <std::integral To>
requires(!std::same_as<To, bool>) [[nodiscard]] constexpr To saturate(double value) {
    using Limits = std::numeric_limits<To>;
    if (value != value) return 0;
    if (value <= static_cast<double>(Limits::min())) return Limits::min();
    if (value >= static_cast<double>(Limits::max())) return Limits::max();
    return static_cast<To>(value);
}

template <std::integral To, std::integral From>
requires(!std::same_as<To, bool> && !std::same_as<From, bool>) [[nodiscard]] constexpr To saturate(From value) {
    using Limits = std::numeric_limits<To>;
    if (std::cmp_less(value, Limits::min())) return Limits::min();
    if (std::cmp_greater(value, Limits::max())) return Limits::max();
    return static_cast<To>(value);
}

/// The number at the beginning of a text, after white space: sign, digits, point, exponent; what follows is ignored.
/// A text that does not begin with a number gives 0, one too large for a double the largest finite double. The decimal
/// point is always a point.
[[nodiscard]] double doubleOfText(std::string_view text);

/// The decimal integer at the beginning of a text, after white space, saturating; 0 when there is none.
[[nodiscard]] std::int64_t integerOfText(std::string_view text);

/// A number object: an integer or a finite double, as JSON brought it. Booleans are the numbers 0 and 1.
class Number {
public:
    constexpr Number() = default;
    template <std::integral T>
    constexpr Number(T value) : value_(store(value)) {}
    constexpr Number(double value) : value_(value) {}

    [[nodiscard]] QUOMI_EXPORT double doubleValue() const;
    /// True for anything but zero.
    [[nodiscard]] bool boolValue() const { return doubleValue() != 0; }
    /// As an integer of the type, by the rules of `saturate`.
    template <std::integral T>
    requires(!std::same_as<T, bool>) [[nodiscard]] T as() const {
        return std::visit([](auto value) { return saturate<T>(value); }, value_);
    }
    /// Integers plainly, doubles in the fewest digits that read back as the same double ("12.5", "3", "1e+21").
    [[nodiscard]] std::string text() const;
    /// Calls the visitor with what is held: `std::int64_t`, `std::uint64_t` (only above the former's range) or
    /// `double`.
    template <class Visitor>
    decltype(auto) visit(Visitor&& visitor) const {
        return std::visit(std::forward<Visitor>(visitor), value_);
    }

    /// Numbers are equal by value: 1 and 1.0 are.
    bool operator==(const Number& other) const;

private:
    using Value = std::variant<std::int64_t, std::uint64_t, double>;

    template <std::integral T>
    static constexpr Value store(T value) {
        const auto wide =
            static_cast<std::conditional_t<std::unsigned_integral<T>, std::uint64_t, std::int64_t>>(value);
        if (std::in_range<std::int64_t>(wide)) return static_cast<std::int64_t>(wide);
        return static_cast<std::uint64_t>(wide);
    }

    Value value_ = std::int64_t{0};
};

}  // namespace quomi
