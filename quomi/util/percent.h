#pragma once

#include "quomi/util/export.h"

#include <string>
#include <string_view>

namespace quomi {

/// Adds the byte as "%" and two upper-case digits.
void appendPercentEncoded(std::string& text, char byte);

/// Every byte but letters, digits and "-._~" percent-encoded.
[[nodiscard]] std::string percentEncoded(std::string_view text);

/// Every "%" with two hexadecimal digits after it as that byte; any other "%" stays.
[[nodiscard]] QUOMI_EXPORT std::string percentDecoded(std::string_view text);

}  // namespace quomi
