#pragma once

#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/application.h"
#include "quomi/platform/notification_center.h"

#include <functional>
#include <optional>
#include <vector>

namespace quomi::simulated {

/// The phone's notification centre. What the app posts is kept whatever its rights; rights only answer questions.
class SimulatedNotifications final : public NotificationCenter {
public:
    /// What it refers to outlives it. `application` carries the badge.
    SimulatedNotifications(VirtualLoop& loop, const PhoneObserver& observer, Application& application,
                           const NotificationSettings& rights);

    /// Lever: from now on settings are so. Nobody is called back.
    void setSettings(const NotificationSettings& settings) { settings_ = settings; }
    [[nodiscard]] const NotificationSettings& settings() const { return settings_; }

    /// Notifications on show, in the order in which they were posted last.
    [[nodiscard]] const std::vector<NotificationRequest>& notifications() const { return notifications_; }
    [[nodiscard]] const std::vector<NotificationCategory>& categories() const { return categories_; }

    void getSettings(std::function<void(NotificationSettings)> completion) override;
    /// Undetermined rights are granted in a later turn, exactly the options asked for. Settled ones stay: the answer is
    /// true when they are authorized or provisional.
    void requestAuthorization(unsigned options, std::function<void(bool)> completion) override;
    void getCategories(std::function<void(std::vector<NotificationCategory>)> completion) override;
    void setCategories(std::vector<NotificationCategory> categories) override;
    /// A badge of the notification becomes the application's.
    void add(const NotificationRequest& request) override;

private:
    VirtualLoop& loop_;
    const PhoneObserver& observer_;
    Application& application_;
    NotificationSettings settings_;
    std::vector<NotificationCategory> categories_;
    std::vector<NotificationRequest> notifications_;
};

}  // namespace quomi::simulated
