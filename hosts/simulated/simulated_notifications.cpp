#include "hosts/simulated/simulated_notifications.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

SimulatedNotifications::SimulatedNotifications(VirtualLoop& loop, const PhoneObserver& observer,
                                               Application& application, const NotificationSettings& rights)
    : loop_(loop), observer_(observer), application_(application), settings_(rights) {}

void SimulatedNotifications::getSettings(std::function<void(NotificationSettings)> completion) {
    loop_.post([this, completion = std::move(completion)] { tell(completion, settings_); });
}

void SimulatedNotifications::requestAuthorization(unsigned options, std::function<void(bool)> completion) {
    tell(observer_.notificationRightsRequest, options);
    loop_.post([this, options, completion = std::move(completion)] {
        if (settings_.status == NotificationAuthorization::notDetermined) {
            settings_ = {NotificationAuthorization::authorized, (options & alertOption) != 0,
                         (options & soundOption) != 0, (options & badgeOption) != 0};
        }
        tell(completion, settings_.status != NotificationAuthorization::denied);
    });
}

void SimulatedNotifications::getCategories(std::function<void(std::vector<NotificationCategory>)> completion) {
    loop_.post([this, completion = std::move(completion)] { tell(completion, categories_); });
}

void SimulatedNotifications::setCategories(std::vector<NotificationCategory> categories) {
    const auto before = std::exchange(categories_, std::move(categories));
    for (const auto& category : categories_) {
        if (std::ranges::find(before, category) == before.end()) {
            tell(observer_.categoryRegistered, category);
        }
    }
}

void SimulatedNotifications::add(const NotificationRequest& request) {
    std::erase_if(notifications_, [&](const auto& earlier) { return earlier.identifier == request.identifier; });
    notifications_.push_back(request);
    if (request.badge) application_.setBadgeNumber(*request.badge);
    tell(observer_.notification, request);
}

}  // namespace quomi::simulated
