#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quomi {

/// Port: the translations of the host app's main bundle, keyed by the English text. Any thread.
class Localization {
public:
    virtual ~Localization() = default;
    /// The translation; empty when the app has none, and then the English text stands.
    [[nodiscard]] virtual std::optional<std::string> localizedString(std::string_view english) const = 0;
};

}  // namespace quomi
