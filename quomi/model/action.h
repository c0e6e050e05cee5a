#pragma once

#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

// Types of actions, as the server writes them and logs show them.
inline constexpr const char* kActionNotifyUser = "notify_user";       ///< `param`: JSON of a notification, or its text
inline constexpr const char* kActionOpenUrl = "open_url";             ///< `param`: a URL, "file" ones name a resource
inline constexpr const char* kActionOpenDeepLink = "open_deep_link";  ///< `param`: JSON with "iosURL", "genericURL"
inline constexpr const char* kActionNotifyServer = "notify_server";   ///< `param`: a URL with placeholders

/// One action of a rule: what to do, and with what.
struct QuomiAction {
    std::string type;
    std::string param;

    /// Reads "action_type" and "action_param"; what is missing is the empty text.
    [[nodiscard]] static QuomiAction createFromDictionary(const boost::json::object& dictionary);
    [[nodiscard]] static QuomiAction createWithType(std::string type, std::string param);
    /// The serialised form: both keys, always.
    [[nodiscard]] boost::json::object dictionary() const;

    bool operator==(const QuomiAction&) const = default;
};

}  // namespace quomi
