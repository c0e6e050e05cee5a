#pragma once

#include "quomi/platform/notification_center.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace quomi {

/// Identifier of every notification of the SDK, so that each replaces the one before.
inline constexpr const char* kNotificationRequestIdentifier = "QuomiNotificationRequest";
inline constexpr const char* kNotificationCategoryIdentifier = "QuomiCategoryIdentifier";
/// Sound of a notification that names none.
inline constexpr const char* kDefaultNotificationSound = "default";

/// The message with each "{key}" replaced by the value at that key path ("address.city") in the properties: a text, or
/// a number's decimal text. What is not there becomes the bare key: deliberate, "{firstName}" then reads "firstName".
[[nodiscard]] std::string replacePlaceholdersInNotificationMessage(std::string_view message,
                                                                   const boost::json::object& withProperties);
/// The same in all texts of a dictionary or an array, however deep; keys and other values stay.
[[nodiscard]] boost::json::object replacePlaceholdersInDictionary(const boost::json::object& dictionary,
                                                                  const boost::json::object& withProperties);
[[nodiscard]] boost::json::array replacePlaceholdersInArray(const boost::json::array& array,
                                                            const boost::json::object& withProperties);

/// What an action "notify_user" asks for.
struct NotificationContent {
    NotificationRequest request;
    /// To be registered; none for a plain text.
    std::optional<NotificationCategory> category;
    /// Image to be attached; http or https.
    std::optional<std::string> imageUrl;
};

/// Reads the `param` of an action: an object of JSON with "payload", "alertTitle", "alertBody", "alertSubtitle",
/// "soundName", "badgeNumber", "badgeNumberIncr", "iosNotificationActions" and "iosImageUrl", all optional; anything
/// else is the body itself. The badge is one more than the app's unless the action says otherwise. Nulls of the user
/// info become empty texts.
[[nodiscard]] NotificationContent notificationContent(const std::string& param, const boost::json::object& userInfo,
                                                      std::int64_t applicationBadge,
                                                      const boost::json::object& properties);

}  // namespace quomi
