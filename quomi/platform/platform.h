#pragma once

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
};

}  // namespace quomi
