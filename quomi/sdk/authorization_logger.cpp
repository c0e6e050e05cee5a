#include "quomi/sdk/authorization_logger.h"

#include "quomi/model/notification_rights.h"
#include "quomi/platform/bluetooth.h"
#include "quomi/platform/user_defaults.h"

#include <utility>

#include <boost/json/object.hpp>

namespace quomi {

namespace {

constexpr const char* kLastStatusKey = "allNotificationStatus";

}  // namespace

QuomiAuthorizationLogger::QuomiAuthorizationLogger(const Platform& platform, LogEvent logEvent)
    : platform_(platform),
      logEvent_(std::move(logEvent)),
      bluetoothManager_(
          platform.bluetooth.makeCentral(false, [this](BluetoothState state) { logBluetoothState(state); })),
      coreLocationManager_(platform.location.makeLocationService(*this)) {}

QuomiAuthorizationLogger::~QuomiAuthorizationLogger() = default;

void QuomiAuthorizationLogger::logBluetoothState(BluetoothState state) const {
    logEvent_({{"type", "bluetooth_state"}, {"state", state == BluetoothState::poweredOn ? "on" : "off"}});
}

void QuomiAuthorizationLogger::logPermission(const char* type, bool granted) const {
    logEvent_({{"type", "permission"}, {"permission_type", type}, {"state", granted ? "granted" : "denied"}});
}

void QuomiAuthorizationLogger::didChangeAuthorizationStatus(AuthorizationStatus status) {
    // When in use counts as denied: deliberate, regions are monitored only with the right to do so always.
    logPermission("permission_location", status == AuthorizationStatus::authorizedAlways);
}

template <class Answered>
void QuomiAuthorizationLogger::askForRights(Answered answered) {
    const std::shared_ptr<void> question = std::make_shared<char>();
    question_ = question;
    platform_.notifications.getSettings(
        [question, answered = std::move(answered)](const NotificationSettings& settings) {
            answered(allNotificationRights(settings));
        });
}

void QuomiAuthorizationLogger::logNotificationAuthorizationStatusIfNeeded() {
    if (!question_.expired()) return;
    askForRights(sinceForced_.guard([this](bool granted) {
        if (granted != lastNotificationAuthorizationStatus()) forceLogNotificationAuthorizationStatus();
    }));
}

void QuomiAuthorizationLogger::forceLogNotificationAuthorizationStatus() {
    sinceForced_.renew();
    askForRights(lifetime_.guard([this](bool granted) {
        logPermission("permission_notifications", granted);
        setLastNotificationAuthorizationStatus(granted);
    }));
}

bool QuomiAuthorizationLogger::lastNotificationAuthorizationStatus() const {
    return platform_.defaults.boolForKey(kLastStatusKey).value_or(false);
}

void QuomiAuthorizationLogger::setLastNotificationAuthorizationStatus(bool granted) {
    platform_.defaults.setBool(kLastStatusKey, granted);
}

}  // namespace quomi
