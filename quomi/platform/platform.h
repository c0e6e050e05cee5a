#pragma once

#include <type_traits>

namespace quomi {

class Application;
class BluetoothPlatform;
class Clock;
class Console;
class Device;
class Files;
class HttpTransport;
class Localization;
class LocationPlatform;
class NotificationCenter;
class Reachability;
class RunLoop;
class Screens;
class UserDefaults;

/// Everything that one phone gives one SDK. A host fills it once; what it refers to outlives every SDK made with it.
struct Platform {
    Clock& clock;
    RunLoop& runLoop;
    LocationPlatform& location;
    BluetoothPlatform& bluetooth;
    NotificationCenter& notifications;
    Application& application;
    Screens& screens;
    Device& device;
    Files& files;
    UserDefaults& defaults;
    Console& console;
    Localization& localization;
    HttpTransport& http;
    Reachability& reachability;

    /// The same phone, but `other` takes the place of each port that it implements; it too outlives every SDK made with
    /// them.
    template <class Other>
    [[nodiscard]] Platform with(Other& other) const {
        return {pick(clock, other),         pick(runLoop, other),     pick(location, other), pick(bluetooth, other),
                pick(notifications, other), pick(application, other), pick(screens, other),  pick(device, other),
                pick(files, other),         pick(defaults, other),    pick(console, other),  pick(localization, other),
                pick(http, other),          pick(reachability, other)};
    }

private:
    template <class Port, class Other>
    [[nodiscard]] static Port& pick(Port& own, Other& other) {
        if constexpr (std::is_base_of_v<Port, Other>) {
            return other;
        } else {
            return own;
        }
    }
};

}  // namespace quomi
