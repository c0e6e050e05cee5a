#pragma once

#include "hosts/simulated/phone_config.h"
#include "hosts/simulated/phone_model.h"
#include "hosts/simulated/phone_observer.h"
#include "hosts/simulated/track.h"
#include "hosts/simulated/virtual_loop.h"
#include "quomi/platform/platform.h"

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi {
class Screen;
}

namespace quomi::simulated {

class ScriptedTransport;
struct PlacedBeacon;

/// A phone made of data. It gives an SDK every port, on a virtual clock that only its driver moves, and has a lever for
/// everything that can happen to a phone. Any number of phones live side by side; none shares anything.
///
///     SimulatedPhone phone({.start = someDay}, {.notification = [&](const auto& request) { … }});
///     phone.transport().answer("GET /u_beacons/query.json", ScriptedAnswer::json(beacons));
///     // make an SDK with phone.platform() and start it
///     phone.runTurns();
///     phone.range({{uuid, 1, 7, PlatformProximity::near, 2.0, -65}});
///     phone.runTurns();
///     phone.advanceBy(std::chrono::seconds(5));
///
/// A lever changes the phone at once and posts what the app is told of it; `runTurns` runs that. Everything happens on
/// the thread that made the phone. The phone outlives every SDK made with it.
///
/// A relaunch of the app is a new phone on the same container: it knows the monitored regions of the old one.
class SimulatedPhone {
public:
    /// With `http` the app talks through that transport, which outlives the phone; else through `transport()`.
    explicit SimulatedPhone(PhoneConfig config = {}, PhoneObserver observer = {}, HttpTransport* http = nullptr);
    ~SimulatedPhone();
    SimulatedPhone(const SimulatedPhone&) = delete;
    SimulatedPhone& operator=(const SimulatedPhone&) = delete;

    [[nodiscard]] Platform platform();

    // Time

    [[nodiscard]] VirtualLoop& loop();
    /// As `VirtualLoop` says.
    bool runTurns() { return loop().runTurns(); }
    bool advanceBy(Duration span) { return loop().advanceBy(span); }
    bool advanceTo(MonotonicTime time) { return loop().advanceTo(time); }

    // What the phone looks like from outside

    [[nodiscard]] const std::filesystem::path& container() const;
    [[nodiscard]] ScriptedTransport& transport();
    [[nodiscard]] const std::vector<Region>& monitoredRegions() const;
    [[nodiscard]] const std::vector<BeaconRegion>& rangedRegions() const;
    [[nodiscard]] const std::optional<Location>& location() const;
    /// Notifications on show, the most recently posted one last.
    [[nodiscard]] const std::vector<NotificationRequest>& notifications() const;
    [[nodiscard]] const std::vector<NotificationCategory>& categories() const;
    [[nodiscard]] std::int64_t badge() const;
    /// URL of the web page on top; empty when none is shown.
    [[nodiscard]] std::string shownWebPage() const;
    [[nodiscard]] std::size_t runningBackgroundTasks() const;

    // Levers: location. No region, ranging or location callback, failures included, comes while location services are
    // off or the authorization is neither always nor when in use.

    /// A ranging report to every location service, per ranged region, of the beacons with its UUID in the order given.
    void range(const std::vector<RangedBeacon>& beacons);
    /// Entry or exit callback, if a region of that UUID is monitored.
    void enterBeaconRegion(const Uuid& proximityUUID);
    void exitBeaconRegion(const Uuid& proximityUUID);
    /// State callback, if monitored; also what later state requests are answered (before: unknown).
    void beaconRegionState(const Uuid& proximityUUID, RegionState state);
    /// The device is there now: services that run significant-change or standard updates are told. Accuracy in metres.
    /// No region is entered or left by it.
    void setLocation(const Coordinate& coordinate, double accuracy);
    /// Entry or exit callback, if that circular region is monitored; wherever the device is.
    void enterRegion(const std::string& identifier);
    void exitRegion(const std::string& identifier);
    /// Failure callback for the monitored or ranged region of that identifier or UUID, if there is one.
    void monitoringFails(std::string_view region, std::int64_t code);
    void rangingFails(std::string_view region, std::int64_t code);
    /// Failure callback to every location service.
    void locationFails(std::int64_t code);
    void setAuthorization(AuthorizationStatus status);
    /// Followed by an authorization callback with the status as it stands.
    void setLocationServices(bool on);

    // Levers: beacons in the air

    /// From now on the phone model ranges and monitors, as `BeaconRadio` says; ranged regions keep their beat from when
    /// ranging began. Reports are empty as long as nothing is heard.
    void attachModel();
    /// One packet, now. Attaches the model if need be.
    void hearPacket(const Packet& packet);

    // Levers: walking

    /// The device is at a point of a track now and moves on: its position as `setLocation` tells it, then entry and
    /// exit callbacks of the circular regions that were entered and left since the point before, then the beacons in
    /// reach. A region whose monitoring begins while the device is in it is not entered by that; a state request tells
    /// it.
    void walk(const Leg& leg);
    /// Walks a whole track from now on, time passing as it takes. False as `advanceTo` says.
    bool follow(const Track& track, double speed = 1);
    /// Beacons that stand where the device walks, in place of others placed before. From its first walk on it hears
    /// those in reach, as `WorldRadio` says. Attaches the model.
    void placeBeacons(const std::vector<PlacedBeacon>& beacons);

    // Levers: settings. One that stands as before is not notified.

    void setBluetooth(BluetoothState state);
    void setBackgroundRefresh(BackgroundRefreshStatus status);
    void setNotificationSettings(const NotificationSettings& settings);
    /// Only what the phone says of its network; the transport goes on as it is told.
    void network(bool reachable);
    void setNetworkStatus(NetworkStatus status);
    void jumpClock(Seconds seconds);
    void setTimeZone(std::string name);

    // Levers: the app

    /// The application's notification; its state becomes background, inactive, active, inactive, unchanged.
    void background();
    void foreground();
    void active();
    void inactive();
    void terminate();
    /// The app's process stands still; what comes due meanwhile runs after `resume`, in the order of its times.
    void suspend();
    void resume();
    /// Every running background task's expiry handler.
    void expireBackgroundTasks();
    /// True: a screen that already presents another one, for the host to set as its presentation screen; false: null.
    [[nodiscard]] std::shared_ptr<Screen> presentScreen(bool present);
    /// The user closes the page on top; false when none is shown.
    bool closeWebPage();
    /// The page on top is swiped away; false when none is shown.
    bool dismissWebPage();

private:
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

}  // namespace quomi::simulated
