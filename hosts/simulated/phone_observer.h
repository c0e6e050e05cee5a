#pragma once

#include "quomi/api/http_transport.h"
#include "quomi/platform/application.h"
#include "quomi/platform/location.h"
#include "quomi/platform/notification_center.h"

#include <functional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace quomi::simulated {

/// How a request ended: the status of its answer, or one of the words "connection", "timeout", "tls" (no answer),
/// "cancelled" (dropped by who sent it) and "invalid" (a status from 200 to 299 with a body neither blank nor JSON,
/// where JSON was asked for).
using ResponseOutcome = std::variant<int, std::string>;

/// Is told of everything that the app does to its simulated phone, in the order in which it happens. All empty at
/// first. Every call comes on the host's thread, from inside the app's own call; what it throws is dropped. It must not
/// call the phone back.
struct PhoneObserver {
    /// The app asks to monitor a region, refused or not; it ends monitoring one that was monitored.
    std::function<void(const Region&)> monitor{};
    std::function<void(const Region&)> unmonitor{};
    /// The same for ranging.
    std::function<void(const BeaconRegion&)> range{};
    std::function<void(const BeaconRegion&)> unrange{};
    /// A location service begins or ends "significant" or "standard" updates. Not told when it did so already.
    std::function<void(std::string_view kind, bool on)> updates{};
    /// "always" or "whenInUse"; also when the question is settled.
    std::function<void(std::string_view level)> authorizationRequest{};
    /// Options as bits of NotificationOption; also when the question is settled.
    std::function<void(unsigned options)> notificationRightsRequest{};
    std::function<void(const NotificationRequest&)> notification{};
    /// A category that was not registered yet, or not so.
    std::function<void(const NotificationCategory&)> categoryRegistered{};
    /// A page shows a URL.
    std::function<void(const std::string& url)> webPage{};
    /// A URL is handed to the phone, whether or not anything opens it.
    std::function<void(const std::string& url)> openURL{};
    std::function<void(const std::string& title, const std::string& message)> alert{};
    /// The app made the phone ask the user to switch Bluetooth on.
    std::function<void()> bluetoothPowerAlert{};
    /// "begin" or "end" of a background task.
    std::function<void(std::string_view what, BackgroundTaskIdentifier task)> backgroundTask{};
    /// A line of the system log. One from another thread is told in a later turn.
    std::function<void(std::string_view text)> console{};
    /// A value written to the user defaults.
    std::function<void(const std::string& key, bool value)> defaults{};
    /// A request as it is sent, and how it ended, before its completion runs.
    std::function<void(const HttpRequest&)> request{};
    std::function<void(const std::string& url, const ResponseOutcome& outcome)> response{};
};

/// Calls what is not empty and drops what it throws: an observer, or a callback of the app.
template <class... Parameters, class... Arguments>
void tell(const std::function<void(Parameters...)>& function, Arguments&&... arguments) {
    try {
        if (function) function(std::forward<Arguments>(arguments)...);
    } catch (...) {
        // Whoever listens has no way to fail.
    }
}

}  // namespace quomi::simulated
