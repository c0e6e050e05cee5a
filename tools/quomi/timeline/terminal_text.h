#pragma once

#include "hosts/simulated/json/neutral_text.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace quomi::tool {

using simulated::neutralised;

/// Terminal columns that UTF-8 text takes: two for wide East Asian characters and most emoji, none for combining marks.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

/// The text, filled up with blanks to that many columns; longer text stays as it is.
[[nodiscard]] std::string leftAligned(std::string text, std::size_t columns);
[[nodiscard]] std::string rightAligned(const std::string& text, std::size_t columns);

/// The text, cut to that many columns with an ellipsis as the last one.
[[nodiscard]] std::string clipped(std::string text, std::size_t columns);

/// The text in lines of at most so many columns, broken between words (a word that is longer stands whole); all lines
/// but the first begin with `indent` blanks. 0 columns: one line.
[[nodiscard]] std::string wrapped(const std::string& text, std::size_t columns, std::size_t indent);

/// A span for people: "0.4 s", "12 s", "6 min 30 s", "1 h 2 min".
[[nodiscard]] std::string spanText(double seconds);

}  // namespace quomi::tool
