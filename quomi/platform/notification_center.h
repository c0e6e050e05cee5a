#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi {

/// The user's answer to the request for notifications. `authorized` alone lets banners through.
enum class NotificationAuthorization : std::int64_t { notDetermined = -1, denied = 0, authorized = 1, provisional = 2 };

/// What the user allows. A setting that is false is off or not supported.
struct NotificationSettings {
    NotificationAuthorization status = NotificationAuthorization::notDetermined;
    bool alert = false;
    bool sound = false;
    bool badge = false;
};

/// Bits of a request for notification rights.
enum NotificationOption : unsigned { badgeOption = 1, soundOption = 2, alertOption = 4 };

/// Bits of a button's options.
enum NotificationActionOption : unsigned {
    authenticationRequiredAction = 1,
    destructiveAction = 2,
    foregroundAction = 4,
};

/// A button of a category; options are bits of NotificationActionOption.
struct NotificationAction {
    std::string identifier;
    std::string title;
    unsigned options = 0;
    bool operator==(const NotificationAction&) const = default;
};

/// Notifications that name the category have its buttons.
struct NotificationCategory {
    std::string identifier;
    std::vector<NotificationAction> actions;
    bool operator==(const NotificationCategory&) const = default;
};

/// A local notification. Texts that are not set are left out of what is shown.
struct NotificationRequest {
    std::string identifier;
    std::optional<std::string> title;
    std::optional<std::string> subtitle;
    std::optional<std::string> body;
    std::optional<std::int64_t> badge;
    std::optional<std::string> sound;  ///< "default" or the name of a sound of the bundle
    std::optional<std::string> category;
    boost::json::object userInfo;
    std::vector<std::string> attachments;  ///< paths of files
};

/// Port: the phone's notification centre. Host's thread; every completion is called once, on the host's thread, in a
/// later turn.
class NotificationCenter {
public:
    virtual ~NotificationCenter() = default;

    virtual void getSettings(std::function<void(NotificationSettings)> completion) = 0;
    /// Asks the user for the options (bits of NotificationOption); the answer is whether they were granted.
    virtual void requestAuthorization(unsigned options, std::function<void(bool)> completion) = 0;
    virtual void getCategories(std::function<void(std::vector<NotificationCategory>)> completion) = 0;
    /// Replaces all registered categories.
    virtual void setCategories(std::vector<NotificationCategory> categories) = 0;
    /// Shows a notification at once; one with the identifier of an earlier one replaces it.
    virtual void add(const NotificationRequest& request) = 0;
};

}  // namespace quomi
