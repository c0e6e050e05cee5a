#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quomi {

class Console;

/// The URL of a rule's server, made of a template with placeholders.
class ServerUrl {
public:
    /// The longest one, in bytes.
    static constexpr std::size_t kLongest = 8192;

    /// The template outlives it, the console too.
    ServerUrl(std::string_view urlTemplate, Console& console) : template_(urlTemplate), console_(console) {}

    /// Says what stands for the placeholder ("{id}"), in every place of it. The value stands as it is, whatever
    /// placeholders it seems to hold.
    ServerUrl& fill(std::string_view placeholder, std::string value);
    /// With the area type added to its query. What no URL may hold is percent-encoded: braces of placeholders that
    /// stayed, blanks of values. One that is too long is empty, and the console says so.
    [[nodiscard]] std::string withAreaType(std::string_view areaType) const;

private:
    [[nodiscard]] std::string filled() const;

    std::string_view template_;
    Console& console_;
    std::vector<std::pair<std::string_view, std::string>> values_;
};

/// The text with every percent sign encoded that no two hexadecimal digits follow.
[[nodiscard]] std::string withoutStrayPercents(std::string_view text);

}  // namespace quomi
