#include "quomi/rules/notification_helpers.h"

#include "quomi/model/notification_rights.h"
#include "quomi/platform/notification_center.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace quomi {

namespace {

const NotificationCategory& yesNoCategory() {
    static const NotificationCategory category{
        "QuomiYesNo", {{"QuomiYes", "Yes", authenticationRequiredAction | foregroundAction}, {"QuomiNo", "No", 0}}};
    return category;
}

auto hasIdentifier(const std::string& identifier) {
    return [&identifier](const NotificationCategory& category) { return category.identifier == identifier; };
}

void replaceIn(NotificationCenter& center, std::vector<NotificationCategory> registered,
               const NotificationCategory& category) {
    std::erase_if(registered, hasIdentifier(category.identifier));
    registered.push_back(category);
    center.setCategories(std::move(registered));
}

}  // namespace

QuomiNotificationHelpers::QuomiNotificationHelpers(NotificationCenter& center) : center_(center) {}

void QuomiNotificationHelpers::withSettings(std::function<void(const NotificationSettings&)> use) {
    center_.getSettings(lifetime_.guard(std::move(use)));
}

void QuomiNotificationHelpers::areAllNotificationRightsGranted(std::function<void(bool)> completion) {
    withSettings([completion = std::move(completion)](const NotificationSettings& settings) {
        if (completion) completion(allNotificationRights(settings));
    });
}

void QuomiNotificationHelpers::isBannerNotificationRightGranted(std::function<void(bool)> completion) {
    withSettings([completion = std::move(completion)](const NotificationSettings& settings) {
        if (completion) completion(bannerNotificationRight(settings));
    });
}

void QuomiNotificationHelpers::requestNotificationRightsIfNeeded() {
    areAllNotificationRightsGranted([this](bool granted) {
        if (!granted) center_.requestAuthorization(badgeOption | soundOption | alertOption, [](bool) {});
    });
}

void QuomiNotificationHelpers::registerCustomActionsCategories() {
    center_.getCategories(lifetime_.guard([this](std::vector<NotificationCategory> registered) {
        const auto& category = yesNoCategory();
        if (std::ranges::any_of(registered, hasIdentifier(category.identifier))) return;
        replaceIn(center_, std::move(registered), category);
    }));
}

void QuomiNotificationHelpers::registerCategory(const NotificationCategory& category) {
    center_.getCategories(lifetime_.guard([this, category](std::vector<NotificationCategory> registered) {
        replaceIn(center_, std::move(registered), category);
    }));
}

}  // namespace quomi
