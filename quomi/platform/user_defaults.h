#pragma once

#include <optional>
#include <string>

namespace quomi {

/// Port: small persistent values of the app. Host's thread only.
class UserDefaults {
public:
    virtual ~UserDefaults() = default;
    /// Empty when the key was never written or holds no boolean.
    [[nodiscard]] virtual std::optional<bool> boolForKey(const std::string& key) const = 0;
    /// Written through at once; a write that fails is lost silently, as on the phone.
    virtual void setBool(const std::string& key, bool value) = 0;
};

}  // namespace quomi
