#pragma once

#include "quomi/util/export.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quomi {

/// A 128-bit identifier, held by value. Its text is the canonical 8-4-4-4-12 form in upper case, because names made of
/// it are compared as strings across the system.
class QUOMI_EXPORT Uuid {
public:
    using Bytes = std::array<std::uint8_t, 16>;

    constexpr Uuid() = default;
    constexpr explicit Uuid(const Bytes& bytes) : bytes_(bytes) {}

    /// Reads the canonical form in either case; empty for anything else.
    [[nodiscard]] static std::optional<Uuid> parse(std::string_view text);

    [[nodiscard]] const Bytes& bytes() const { return bytes_; }
    /// 36 characters, upper case.
    [[nodiscard]] std::string string() const;

    auto operator<=>(const Uuid&) const = default;

private:
    Bytes bytes_{};
};

}  // namespace quomi
