#pragma once

#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

/// The host's description of the person who uses the device; sent to the back office, whose rules may depend on it.
struct QuomiUser {
    std::optional<std::string> userID;  ///< the host's identifier of the user
    std::optional<boost::json::object> properties;
    std::optional<std::vector<std::string>> tags;
    bool advertisingTrackingModeEnabled = false;  ///< set by the facade before each upload; not compared

    /// Whether identifier, properties and tags (in order) are equal.
    [[nodiscard]] bool isEqualToQuomiUser(const QuomiUser& other) const {
        return userID == other.userID && properties == other.properties && tags == other.tags;
    }
};

}  // namespace quomi
