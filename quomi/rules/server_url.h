#pragma once

#include <string>
#include <string_view>

namespace quomi {

/// The URL of a rule's server while its placeholders are being filled.
class ServerUrl {
public:
    explicit ServerUrl(std::string urlTemplate) : text_(std::move(urlTemplate)) {}

    /// Puts the value in every place of the placeholder ("{id}"), those that earlier values brought along included.
    ServerUrl& fill(std::string_view placeholder, std::string_view value);
    /// With the area type added to its query. What no URL may hold is percent-encoded: braces of placeholders that
    /// stayed, blanks of values.
    [[nodiscard]] std::string withAreaType(std::string_view areaType) const;

private:
    std::string text_;
};

}  // namespace quomi
