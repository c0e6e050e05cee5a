#pragma once

#include "quomi/util/export.h"
#include "quomi/util/observers.h"

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

class Device;

/// The host's description of the person who uses the device; sent to the back office, whose rules may depend on it.
///
/// Identifier, properties and tags are replaced as a whole, and each replacement is told to whoever observes the field,
/// with the old and the new value, after it has happened. Host's thread only.
class QUOMI_EXPORT QuomiUser {
public:
    using UserID = std::optional<std::string>;
    using Properties = std::optional<boost::json::object>;
    using Tags = std::optional<std::vector<std::string>>;

    QuomiUser() = default;
    explicit QuomiUser(UserID userID, Properties properties = {}, Tags tags = {});
    /// A user with the same three fields; nobody observes it, and its tracking flag is NO.
    QuomiUser(const QuomiUser& other);
    QuomiUser& operator=(const QuomiUser&) = delete;

    /// The host's identifier of the user. It does not name the device: `quomiUserID` does.
    [[nodiscard]] const UserID& userID() const { return userID_; }
    void setUserID(UserID userID);
    [[nodiscard]] const Properties& properties() const { return properties_; }
    void setProperties(Properties properties);
    [[nodiscard]] const Tags& tags() const { return tags_; }
    void setTags(Tags tags);

    /// Whether the advertising identifier may be sent with the user; the facade sets it before each upload. Neither
    /// compared nor observed.
    [[nodiscard]] bool advertisingTrackingModeEnabled() const { return advertisingTrackingModeEnabled_; }
    void setAdvertisingTrackingModeEnabled(bool enabled) { advertisingTrackingModeEnabled_ = enabled; }

    [[nodiscard]] std::unique_ptr<Observation> observeUserID(Observers<UserID>::Observer observer);
    [[nodiscard]] std::unique_ptr<Observation> observeProperties(Observers<Properties>::Observer observer);
    [[nodiscard]] std::unique_ptr<Observation> observeTags(Observers<Tags>::Observer observer);

    /// Whether identifier, properties (numbers by value: 1 is 1.0) and tags (in order) are equal; a field that is not
    /// set equals only such a one.
    [[nodiscard]] bool isEqualToQuomiUser(const QuomiUser& other) const;
    [[nodiscard]] static bool areEqual(const Properties& a, const Properties& b);
    bool operator==(const QuomiUser& other) const { return isEqualToQuomiUser(other); }
    /// Equal for equal users.
    [[nodiscard]] std::size_t hash() const;

    /// The identifier under which the server knows the device.
    [[nodiscard]] static std::string quomiUserID(const Device& device);
    /// The device's advertising identifier as a UUID's text; nothing where the phone gives none. It never goes into a
    /// log.
    [[nodiscard]] static std::optional<std::string> idfa(const Device& device);

private:
    UserID userID_;
    Properties properties_;
    Tags tags_;
    bool advertisingTrackingModeEnabled_ = false;
    Observers<UserID> userIDObservers_;
    Observers<Properties> propertiesObservers_;
    Observers<Tags> tagsObservers_;
};

}  // namespace quomi
