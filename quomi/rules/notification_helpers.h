#pragma once

#include "quomi/util/lifetime.h"

#include <functional>

namespace quomi {

class NotificationCenter;
struct NotificationCategory;
struct NotificationSettings;

/// What the user allows of notifications, and the SDK's categories. Host's thread only.
///
/// Every completion is called once, in a later turn, and not after the object's end: with it goes whatever it began.
class QuomiNotificationHelpers {
public:
    /// The port outlives the object.
    explicit QuomiNotificationHelpers(NotificationCenter& center);

    /// Whether notifications are authorized and alerts, sounds and badges are all on.
    void areAllNotificationRightsGranted(std::function<void(bool)> completion);
    /// Whether notifications are authorized and alerts are on.
    void isBannerNotificationRightGranted(std::function<void(bool)> completion);
    /// Asks the user for badge, sound and alert together, unless all are granted.
    void requestNotificationRightsIfNeeded();

    /// Registers the category "QuomiYesNo" (buttons "Yes" and "No") where it is not registered.
    void registerCustomActionsCategories();
    /// Registers the category beside the others, in the place of one with its identifier.
    void registerCategory(const NotificationCategory& category);

private:
    void withSettings(std::function<void(const NotificationSettings&)> use);

    NotificationCenter& center_;
    Lifetime lifetime_;
};

}  // namespace quomi
