#pragma once

#include "hosts/simulated/phone_config.h"
#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/application.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quomi::simulated {

/// The app that hosts the SDK, as the phone runs it.
class SimulatedApplication final : public Application {
public:
    /// What it refers to outlives it.
    SimulatedApplication(VirtualLoop& loop, const PhoneConfig& config, const PhoneObserver& observer);
    ~SimulatedApplication() override;

    /// Levers. Each changes the state at once (to background, inactive, active, inactive; `terminate` leaves it) and
    /// posts the application's notification as one turn, observers in order.
    void background() { change(ApplicationState::background, ApplicationEvent::didEnterBackground); }
    void foreground() { change(ApplicationState::inactive, ApplicationEvent::willEnterForeground); }
    void active() { change(ApplicationState::active, ApplicationEvent::didBecomeActive); }
    void inactive() { change(ApplicationState::inactive, ApplicationEvent::willResignActive); }
    void terminate() { change(state_, ApplicationEvent::willTerminate); }
    /// Lever: the change is notified; nothing when it is the status already.
    void setBackgroundRefresh(BackgroundRefreshStatus status);
    /// Lever: each background task that runs has its expiry handler called, in order of beginning. Only the app ends
    /// its tasks.
    void expireBackgroundTasks();
    [[nodiscard]] std::size_t runningBackgroundTasks() const { return tasks_.size(); }

    [[nodiscard]] ApplicationState state() const override { return state_; }
    [[nodiscard]] std::unique_ptr<ApplicationObservation> observe(
        std::function<void(ApplicationEvent)> observer) override;
    /// Tasks are numbered from 1.
    [[nodiscard]] BackgroundTaskIdentifier beginBackgroundTask(std::function<void()> expiryHandler) override;
    void endBackgroundTask(BackgroundTaskIdentifier task) override;
    [[nodiscard]] std::int64_t badgeNumber() const override { return badge_; }
    void setBadgeNumber(std::int64_t badge) override { badge_ = badge; }
    /// By the URL's scheme alone, in either case.
    [[nodiscard]] bool canOpenURL(const std::string& url) const override;
    bool openURL(const std::string& url) override;
    /// "app-settings:", which the phone opens.
    [[nodiscard]] std::optional<std::string> settingsURL() const override;
    [[nodiscard]] BackgroundRefreshStatus backgroundRefreshStatus() const override { return backgroundRefresh_; }

private:
    class Observation;
    using Observer = std::shared_ptr<std::function<void(ApplicationEvent)>>;

    void change(ApplicationState state, ApplicationEvent event);
    void post(ApplicationEvent event);

    VirtualLoop& loop_;
    const PhoneConfig& config_;
    const PhoneObserver& observer_;
    ApplicationState state_;
    BackgroundRefreshStatus backgroundRefresh_;
    std::int64_t badge_;
    std::vector<Observer> observers_;
    std::map<BackgroundTaskIdentifier, std::function<void()>> tasks_;
    BackgroundTaskIdentifier lastTask_ = kBackgroundTaskInvalid;
};

}  // namespace quomi::simulated
