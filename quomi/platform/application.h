#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace quomi {

/// State of the host's app, as the platform numbers it.
enum class ApplicationState : std::int64_t { active = 0, inactive = 1, background = 2 };

/// What happens to the app; `willTerminate` leaves no later turn.
enum class ApplicationEvent {
    didBecomeActive,
    willResignActive,
    didEnterBackground,
    willEnterForeground,
    willTerminate,
    backgroundRefreshStatusDidChange,
};

/// Whether the phone starts the app in the background, as the platform numbers it.
enum class BackgroundRefreshStatus : std::int64_t { restricted = 0, denied = 1, available = 2 };

/// Names a running background task.
using BackgroundTaskIdentifier = std::uint64_t;
/// Names none.
inline constexpr BackgroundTaskIdentifier kBackgroundTaskInvalid = 0;

/// An owned observation of the app's events. Dropping it ends it, also from inside its own callback.
class ApplicationObservation {
public:
    virtual ~ApplicationObservation() = default;
};

/// Port: the app that hosts the SDK. Host's thread only; every callback is on the host's thread.
class Application {
public:
    virtual ~Application() = default;

    [[nodiscard]] virtual ApplicationState state() const = 0;

    /// Observers are told of an event in the order in which they began to observe.
    [[nodiscard]] virtual std::unique_ptr<ApplicationObservation> observe(
        std::function<void(ApplicationEvent)> observer) = 0;

    /// Asks the phone for time in the background. `expiryHandler` is called when the time runs out before
    /// `endBackgroundTask`. Returns `kBackgroundTaskInvalid` where the phone gives no time.
    [[nodiscard]] virtual BackgroundTaskIdentifier beginBackgroundTask(std::function<void()> expiryHandler) = 0;
    /// Ends the task; nothing when it has ended or is the invalid one.
    virtual void endBackgroundTask(BackgroundTaskIdentifier task) = 0;

    /// The number on the app's icon; 0 for none.
    [[nodiscard]] virtual std::int64_t badgeNumber() const = 0;
    virtual void setBadgeNumber(std::int64_t badge) = 0;

    /// Whether some app on the phone opens such URLs.
    [[nodiscard]] virtual bool canOpenURL(const std::string& url) const = 0;
    /// Hands the URL to the phone; false when nothing opens it.
    virtual bool openURL(const std::string& url) = 0;
    /// URL of the app's page in the phone's settings; empty on a phone that has none.
    [[nodiscard]] virtual std::optional<std::string> settingsURL() const = 0;

    [[nodiscard]] virtual BackgroundRefreshStatus backgroundRefreshStatus() const = 0;
};

}  // namespace quomi
