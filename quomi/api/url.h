#pragma once

#include "quomi/util/export.h"

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quomi {

using QueryParameters = std::vector<std::pair<std::string, std::string>>;

/// The URL in absolute form when it is an http or https URL with a host; empty for everything else. Characters that no
/// URL may hold (blanks, controls, non-ASCII) are percent-encoded rather than refused.
[[nodiscard]] QUOMI_EXPORT std::optional<std::string> normalizedHttpUrl(std::string_view url);

/// The text with every character that no URL may hold (blanks, controls, braces, non-ASCII) percent-encoded.
[[nodiscard]] std::string withoutForbiddenCharacters(std::string_view url);

/// Scheme, host and port of a normalised URL, in lower case: what one connection belongs to.
[[nodiscard]] QUOMI_EXPORT std::string originOf(std::string_view url);

/// Base and path in one: the path begins with a slash, a slash at the end of the base is dropped.
[[nodiscard]] QUOMI_EXPORT std::string joinUrl(std::string_view base, std::string_view path);

/// The URL with the parameters as its query, names and values percent-encoded.
[[nodiscard]] std::string withQuery(std::string_view url, const QueryParameters& parameters);

}  // namespace quomi
