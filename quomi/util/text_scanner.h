#pragma once

#include "quomi/util/ascii.h"

#include <cstddef>
#include <optional>
#include <string_view>

namespace quomi {

/// Walks over a text of fixed-width fields. Each step moves on only when it succeeds; the text must outlive it.
class TextScanner {
public:
    explicit TextScanner(std::string_view text) : rest_(text) {}

    [[nodiscard]] bool atEnd() const { return rest_.empty(); }
    /// Whether a digit is next.
    [[nodiscard]] bool atDigit() const { return !rest_.empty() && isDigit(rest_.front()); }

    /// Takes the character when it is next.
    bool take(char c) {
        if (!rest_.starts_with(c)) return false;
        rest_.remove_prefix(1);
        return true;
    }
    /// Takes one of the characters; 0 when none of them is next.
    char takeOneOf(std::string_view set) {
        if (rest_.empty() || set.find(rest_.front()) == std::string_view::npos) return 0;
        return takeAny();
    }
    /// Takes a number of exactly so many digits (at most 9) that lies between the bounds.
    std::optional<int> takeNumber(std::size_t digits, int least, int most) {
        if (rest_.size() < digits) return std::nullopt;
        int value = 0;
        for (const char c : rest_.substr(0, digits)) {
            if (!isDigit(c)) return std::nullopt;
            value = value * 10 + (c - '0');
        }
        if (value < least || value > most) return std::nullopt;
        rest_.remove_prefix(digits);
        return value;
    }
    /// Takes all digits that follow; empty when there is none.
    std::string_view takeDigits() {
        std::size_t count = 0;
        while (count < rest_.size() && isDigit(rest_[count])) ++count;
        const std::string_view digits = rest_.substr(0, count);
        rest_.remove_prefix(count);
        return digits;
    }

private:
    char takeAny() {
        const char c = rest_.front();
        rest_.remove_prefix(1);
        return c;
    }

    std::string_view rest_;
};

}  // namespace quomi
