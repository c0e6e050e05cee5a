#include "hosts/simulated/simulated_phone.h"

#include "hosts/simulated/beacon_radio.h"
#include "hosts/simulated/observed_transport.h"
#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_application.h"
#include "hosts/simulated/simulated_bluetooth.h"
#include "hosts/simulated/simulated_device.h"
#include "hosts/simulated/simulated_location.h"
#include "hosts/simulated/simulated_notifications.h"
#include "hosts/simulated/simulated_screens.h"
#include "hosts/simulated/temporary_directory.h"
#include "hosts/simulated/world_radio.h"

#include <utility>

namespace quomi::simulated {

namespace {

constexpr const char* kPhoneFile = "phone.json";

}  // namespace

/// In the order in which they refer to each other. What still waits is dropped first, while all are there.
struct SimulatedPhone::Parts {
    Parts(PhoneConfig ownConfig, PhoneObserver ownObserver, HttpTransport* outerHttp)
        : config(std::move(ownConfig)),
          observer(std::move(ownObserver)),
          container(config.container.empty() ? temporary.emplace().path() : config.container),
          loop(config.start, config.timeZone),
          files(container, config),
          defaults(files, observer),
          console(loop, observer),
          localization(config),
          device(config),
          reachability(loop, config.network),
          bluetooth(loop, observer, config.bluetooth),
          application(loop, config, observer),
          notifications(loop, observer, application, config.notificationRights),
          screens(loop, observer),
          location(loop, config, observer, files, container / kPhoneFile),
          scripted(loop),
          http(outerHttp != nullptr ? *outerHttp : scripted, observer),
          radio(loop, location),
          world(loop, radio) {}

    ~Parts() { loop.clear(); }
    Parts(const Parts&) = delete;
    Parts& operator=(const Parts&) = delete;

    const PhoneConfig config;
    const PhoneObserver observer;
    std::optional<TemporaryDirectory> temporary;
    const std::filesystem::path container;
    VirtualLoop loop;
    SimulatedFiles files;
    SimulatedDefaults defaults;
    SimulatedConsole console;
    SimulatedLocalization localization;
    SimulatedDevice device;
    SimulatedReachability reachability;
    SimulatedBluetooth bluetooth;
    SimulatedApplication application;
    SimulatedNotifications notifications;
    SimulatedScreens screens;
    SimulatedLocation location;
    ScriptedTransport scripted;
    ObservedTransport http;
    BeaconRadio radio;
    WorldRadio world;
};

SimulatedPhone::SimulatedPhone(PhoneConfig config, PhoneObserver observer, HttpTransport* http)
    : parts_(std::make_unique<Parts>(std::move(config), std::move(observer), http)) {}

SimulatedPhone::~SimulatedPhone() = default;

Platform SimulatedPhone::platform() {
    auto& parts = *parts_;
    return {parts.loop,        parts.loop,         parts.location, parts.bluetooth,   parts.notifications,
            parts.application, parts.screens,      parts.device,   parts.files,       parts.defaults,
            parts.console,     parts.localization, parts.http,     parts.reachability};
}

VirtualLoop& SimulatedPhone::loop() {
    return parts_->loop;
}

const std::filesystem::path& SimulatedPhone::container() const {
    return parts_->container;
}

ScriptedTransport& SimulatedPhone::transport() {
    return parts_->scripted;
}

const std::vector<Region>& SimulatedPhone::monitoredRegions() const {
    return parts_->location.monitoredRegions();
}

const std::vector<BeaconRegion>& SimulatedPhone::rangedRegions() const {
    return parts_->location.rangedRegions();
}

const std::optional<Location>& SimulatedPhone::location() const {
    return parts_->location.location();
}

const std::vector<NotificationRequest>& SimulatedPhone::notifications() const {
    return parts_->notifications.notifications();
}

const std::vector<NotificationCategory>& SimulatedPhone::categories() const {
    return parts_->notifications.categories();
}

std::int64_t SimulatedPhone::badge() const {
    return parts_->application.badgeNumber();
}

std::string SimulatedPhone::shownWebPage() const {
    return parts_->screens.shownURL();
}

std::size_t SimulatedPhone::runningBackgroundTasks() const {
    return parts_->application.runningBackgroundTasks();
}

void SimulatedPhone::range(const std::vector<RangedBeacon>& beacons) {
    parts_->location.range(beacons);
}

void SimulatedPhone::enterBeaconRegion(const Uuid& proximityUUID) {
    parts_->location.enterBeaconRegion(proximityUUID);
}

void SimulatedPhone::exitBeaconRegion(const Uuid& proximityUUID) {
    parts_->location.exitBeaconRegion(proximityUUID);
}

void SimulatedPhone::beaconRegionState(const Uuid& proximityUUID, RegionState state) {
    parts_->location.beaconRegionState(proximityUUID, state);
}

void SimulatedPhone::setLocation(const Coordinate& coordinate, double accuracy) {
    parts_->location.setLocation(coordinate, accuracy);
    if (parts_->world.isUsed()) parts_->world.move({coordinate, {}, std::nullopt, {}});
}

void SimulatedPhone::enterRegion(const std::string& identifier) {
    parts_->location.enterRegion(identifier);
}

void SimulatedPhone::exitRegion(const std::string& identifier) {
    parts_->location.exitRegion(identifier);
}

void SimulatedPhone::monitoringFails(std::string_view region, std::int64_t code) {
    parts_->location.monitoringFails(region, code);
}

void SimulatedPhone::rangingFails(std::string_view region, std::int64_t code) {
    parts_->location.rangingFails(region, code);
}

void SimulatedPhone::locationFails(std::int64_t code) {
    parts_->location.locationFails(code);
}

void SimulatedPhone::setAuthorization(AuthorizationStatus status) {
    parts_->location.setAuthorization(status);
}

void SimulatedPhone::setLocationServices(bool on) {
    parts_->location.setLocationServices(on);
}

void SimulatedPhone::attachModel() {
    parts_->radio.switchOn();
}

void SimulatedPhone::hearPacket(const Packet& packet) {
    parts_->radio.hear(packet);
}

void SimulatedPhone::walk(const Leg& leg) {
    parts_->location.moveTo(leg.from, kTrackAccuracy, leg.age);
    parts_->world.move(leg);
}

bool SimulatedPhone::follow(const Track& track, double speed) {
    const auto began = loop().monotonicNow();
    for (std::size_t point = 0; point < track.size(); ++point) {
        if (!advanceTo(began + playedTime(track[point].offset, speed))) return false;
        walk(legOf(track, point, speed));
    }
    return runTurns();
}

void SimulatedPhone::placeBeacons(const std::vector<PlacedBeacon>& beacons) {
    parts_->radio.switchOn();
    parts_->world.place(beacons);
}

void SimulatedPhone::setBluetooth(BluetoothState state) {
    parts_->bluetooth.setState(state);
}

void SimulatedPhone::setBackgroundRefresh(BackgroundRefreshStatus status) {
    parts_->application.setBackgroundRefresh(status);
}

void SimulatedPhone::setNotificationSettings(const NotificationSettings& settings) {
    parts_->notifications.setSettings(settings);
}

void SimulatedPhone::network(bool reachable) {
    setNetworkStatus(reachable ? NetworkStatus::reachableViaWiFi : NetworkStatus::notReachable);
}

void SimulatedPhone::setNetworkStatus(NetworkStatus status) {
    parts_->reachability.setStatus(status);
}

void SimulatedPhone::jumpClock(Seconds seconds) {
    parts_->loop.jumpWallClock(seconds);
}

void SimulatedPhone::setTimeZone(std::string name) {
    parts_->loop.setTimeZone(std::move(name));
}

void SimulatedPhone::background() {
    parts_->application.background();
}

void SimulatedPhone::foreground() {
    parts_->application.foreground();
}

void SimulatedPhone::active() {
    parts_->application.active();
}

void SimulatedPhone::inactive() {
    parts_->application.inactive();
}

void SimulatedPhone::terminate() {
    parts_->application.terminate();
}

void SimulatedPhone::suspend() {
    parts_->loop.suspend();
}

void SimulatedPhone::resume() {
    parts_->loop.resume();
}

void SimulatedPhone::expireBackgroundTasks() {
    parts_->application.expireBackgroundTasks();
}

std::shared_ptr<Screen> SimulatedPhone::presentScreen(bool present) {
    return present ? SimulatedScreens::makeBusyScreen() : nullptr;
}

bool SimulatedPhone::closeWebPage() {
    return parts_->screens.closeWebPage();
}

bool SimulatedPhone::dismissWebPage() {
    return parts_->screens.dismissWebPage();
}

}  // namespace quomi::simulated
