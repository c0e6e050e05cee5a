#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace quomi::fuzz {

/// What libFuzzer made up, as text.
inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

/// Ends the run with a report when something that is promised does not hold.
inline void require(bool holds) {
    if (!holds) __builtin_trap();
}

}  // namespace quomi::fuzz

/// libFuzzer's entry: called again and again, each time with one input.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);
