#pragma once

#include "quomi/platform/notification_center.h"

namespace quomi {

/// Whether the user lets notifications be shown, heard and counted.
[[nodiscard]] inline bool allNotificationRights(const NotificationSettings& settings) {
    return settings.status == NotificationAuthorization::authorized && settings.alert && settings.sound &&
           settings.badge;
}

/// Whether the user lets notifications be shown.
[[nodiscard]] inline bool bannerNotificationRight(const NotificationSettings& settings) {
    return settings.status == NotificationAuthorization::authorized && settings.alert;
}

}  // namespace quomi
