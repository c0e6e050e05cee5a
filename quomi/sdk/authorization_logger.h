#pragma once

#include "quomi/platform/location.h"
#include "quomi/platform/platform.h"
#include "quomi/util/export.h"
#include "quomi/util/lifetime.h"

#include <cstdint>
#include <functional>
#include <memory>

#include <boost/json/fwd.hpp>

namespace quomi {

class BluetoothCentral;
enum class BluetoothState : std::int64_t;

/// Writes the user's permissions into the event log, so that the back office sees them:
///
///     {"type": "bluetooth_state", "state": "on" | "off"}
///     {"type": "permission", "permission_type": "permission_location", "state": "granted" | "denied"}
///     {"type": "permission", "permission_type": "permission_notifications", "state": "granted" | "denied"}
///
/// The first two when the phone reports them: once after the logger has been made, and at every change. The third when
/// it is asked to. Host's thread only.
class QUOMI_EXPORT QuomiAuthorizationLogger : private LocationServiceDelegate {
public:
    using LogEvent = std::function<void(const boost::json::object&)>;

    /// What the platform refers to outlives the logger; `logEvent` takes the events and may not destroy it.
    QuomiAuthorizationLogger(const Platform& platform, LogEvent logEvent);
    ~QuomiAuthorizationLogger() override;
    QuomiAuthorizationLogger(const QuomiAuthorizationLogger&) = delete;
    QuomiAuthorizationLogger& operator=(const QuomiAuthorizationLogger&) = delete;

    /// Asks the phone for the notification rights and logs them, in a later turn, when they are not those logged last.
    /// Nothing while an earlier question waits for its answer: many events of one moment log one change once.
    void logNotificationAuthorizationStatusIfNeeded();
    /// Asks for the notification rights and logs them in a later turn, whatever was logged last.
    void forceLogNotificationAuthorizationStatus();

    /// Whether all notification rights were granted when they were logged last; NO when they never were. Kept in the
    /// user defaults, across launches of the app.
    [[nodiscard]] bool lastNotificationAuthorizationStatus() const;
    void setLastNotificationAuthorizationStatus(bool granted);

private:
    void logBluetoothState(BluetoothState state) const;
    void logPermission(const char* type, bool granted) const;
    void didChangeAuthorizationStatus(AuthorizationStatus status) override;
    template <class Answered>
    void askForRights(Answered answered);

    const Platform platform_;
    const LogEvent logEvent_;
    std::weak_ptr<void> question_;  // the latest; alive while its answer is awaited
    std::unique_ptr<BluetoothCentral> bluetoothManager_;
    std::unique_ptr<LocationService> coreLocationManager_;
    Lifetime sinceForced_;  // a question of its own is answered by one that was forced later
    const Lifetime lifetime_;
};

}  // namespace quomi
