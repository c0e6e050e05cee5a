#include "hosts/simulated/simulated_phone.h"

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/temporary_directory.h"
#include "quomi/platform/console.h"
#include "quomi/platform/device.h"
#include "quomi/platform/files.h"
#include "quomi/platform/localization.h"
#include "quomi/platform/screens.h"
#include "quomi/platform/user_defaults.h"

#include <chrono>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::simulated {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

using Log = std::vector<std::string>;

const Uuid kShop = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1");
const Uuid kOther = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A2");

BeaconRegion beacons(const std::string& identifier = "beacons", const Uuid& uuid = kShop) {
    return {identifier, uuid, true, true, true};
}

CircularRegion circle(const std::string& identifier) {
    return {identifier, {53.5, -2.25}, 100};
}

/// Writes down what its location service tells.
class Listener final : public LocationServiceDelegate {
public:
    Listener(SimulatedPhone& phone, Log& log, std::string name)
        : log_(log), name_(std::move(name)), service_(phone.platform().location.makeLocationService(*this)) {}

    [[nodiscard]] LocationService& service() { return *service_; }
    void end() { service_.reset(); }

    void didChangeAuthorizationStatus(AuthorizationStatus status) override {
        note("authorization", static_cast<int>(status));
    }
    void didUpdateLocations(const std::vector<Location>& locations) override {
        note("location", locations.front().coordinate.latitude);
    }
    void didFailWithError(const PlatformError& error) override { note("location failure", error.code); }
    void didStartMonitoring(const Region& region) override { note("monitoring", regionIdentifier(region)); }
    void monitoringDidFail(const Region& region, const PlatformError& error) override {
        note("monitoring failure " + regionIdentifier(region), error.code);
    }
    void didDetermineState(RegionState state, const Region& region) override {
        note("state " + regionIdentifier(region), static_cast<int>(state));
    }
    void didEnterRegion(const Region& region) override { note("enter", regionIdentifier(region)); }
    void didExitRegion(const Region& region) override { note("exit", regionIdentifier(region)); }
    void didRangeBeacons(const std::vector<RangedBeacon>& ranged, const BeaconRegion& region) override {
        std::string minors;
        for (const auto& beacon : ranged) minors += fmt::format(" {}", beacon.minor);
        note("range", region.identifier + minors);
    }
    void rangingBeaconsDidFail(const BeaconRegion& region, const PlatformError& error) override {
        note("ranging failure " + region.identifier, error.code);
    }

private:
    template <class Value>
    void note(const std::string& what, const Value& value) {
        log_.push_back(fmt::format("{} {} {}", name_, what, value));
    }

    Log& log_;
    std::string name_;
    std::unique_ptr<LocationService> service_;
};

class SimulatedPhoneTest : public testing::Test {
protected:
    /// What was told since the last call, after everything that needs no time.
    Log news(SimulatedPhone& phone) {
        phone.runTurns();
        return std::exchange(log_, {});
    }
    Log news() { return news(phone_); }
    void forget() { news(); }

    PhoneObserver observer() {
        PhoneObserver told;
        told.monitor = [this](const Region& region) { asked_.push_back("monitor " + regionIdentifier(region)); };
        told.unmonitor = [this](const Region& region) { asked_.push_back("unmonitor " + regionIdentifier(region)); };
        told.range = [this](const BeaconRegion& region) { asked_.push_back("range " + region.identifier); };
        told.unrange = [this](const BeaconRegion& region) { asked_.push_back("unrange " + region.identifier); };
        told.updates = [this](std::string_view kind, bool on) { asked_.push_back(fmt::format("{} {}", kind, on)); };
        told.authorizationRequest = [this](std::string_view level) { asked_.push_back(fmt::format("ask {}", level)); };
        told.notificationRightsRequest = [this](unsigned options) { asked_.push_back(fmt::format("ask {}", options)); };
        told.notification = [this](const NotificationRequest& request) {
            asked_.push_back("post " + request.identifier);
        };
        told.categoryRegistered = [this](const NotificationCategory& some) {
            asked_.push_back("category " + some.identifier);
        };
        told.webPage = [this](const std::string& url) { asked_.push_back("page " + url); };
        told.openURL = [this](const std::string& url) { asked_.push_back("open " + url); };
        told.alert = [this](const std::string& title, const std::string&) { asked_.push_back("alert " + title); };
        told.bluetoothPowerAlert = [this] { asked_.push_back("power alert"); };
        told.backgroundTask = [this](std::string_view what, BackgroundTaskIdentifier task) {
            asked_.push_back(fmt::format("{} {}", what, task));
        };
        told.console = [this](std::string_view text) { asked_.push_back(fmt::format("console {}", text)); };
        told.defaults = [this](const std::string& key, bool value) {
            asked_.push_back(fmt::format("{}={}", key, value));
        };
        return told;
    }
    Log asked() { return std::exchange(asked_, {}); }

    Log log_;
    Log asked_;
    SimulatedPhone phone_{{}, observer()};
};

TEST_F(SimulatedPhoneTest, EachServiceReportsTheAuthorizationOnceAfterItsCreation) {
    Listener a(phone_, log_, "a");
    Listener b(phone_, log_, "b");
    Listener gone(phone_, log_, "gone");
    gone.end();
    EXPECT_THAT(log_, IsEmpty());
    EXPECT_THAT(news(), ElementsAre("a authorization 3", "b authorization 3"));
    phone_.setAuthorization(AuthorizationStatus::authorizedAlways);
    EXPECT_THAT(news(), IsEmpty()) << "a setting that stands as before";
    phone_.setAuthorization(AuthorizationStatus::denied);
    EXPECT_THAT(news(), ElementsAre("a authorization 2", "b authorization 2"));
    phone_.setLocationServices(true);
    EXPECT_THAT(news(), ElementsAre("a authorization 2", "b authorization 2"));
}

TEST_F(SimulatedPhoneTest, RegionsAreSharedAndTheirCallbacksReachEveryServiceInOrderOfCreation) {
    Listener a(phone_, log_, "a");
    Listener b(phone_, log_, "b");
    forget();
    b.service().startMonitoring(beacons());
    a.service().startMonitoring(circle("shop"));
    EXPECT_THAT(log_, IsEmpty());
    EXPECT_THAT(news(),
                ElementsAre("a monitoring beacons", "b monitoring beacons", "a monitoring shop", "b monitoring shop"));
    a.service().requestState(beacons());
    EXPECT_THAT(news(), ElementsAre("a state beacons 0", "b state beacons 0"));
    EXPECT_EQ(a.service().monitoredRegions().size(), 2u);

    phone_.beaconRegionState(kShop, RegionState::inside);
    phone_.enterBeaconRegion(kShop);
    phone_.enterBeaconRegion(kOther);
    phone_.exitRegion("shop");
    phone_.enterRegion("beacons");
    EXPECT_THAT(news(), ElementsAre("a state beacons 1", "b state beacons 1", "a enter beacons", "b enter beacons",
                                    "a exit shop", "b exit shop"));
    b.end();
    a.service().requestState(beacons());
    a.service().stopMonitoring("shop");
    a.service().stopMonitoring("unheard of");
    phone_.enterRegion("shop");
    phone_.monitoringFails("6b6e1b5a-0c0d-4a6e-9e62-0000000000a1", 4);
    EXPECT_THAT(news(), ElementsAre("a state beacons 1", "a monitoring failure beacons 4"));
    EXPECT_THAT(asked(), ElementsAre("monitor beacons", "monitor shop", "unmonitor shop"));
}

TEST_F(SimulatedPhoneTest, RangingReportsEachRangedRegionItsBeaconsInTheGivenOrder) {
    Listener a(phone_, log_, "a");
    forget();
    phone_.range({{kShop, 1, 7}});
    EXPECT_THAT(news(), IsEmpty()) << "nothing is ranged";
    a.service().startRangingBeacons(beacons());
    a.service().startRangingBeacons(beacons("others", kOther));
    phone_.range({{kShop, 1, 9}, {kShop, 1, 7}});
    phone_.rangingFails("others", 16);
    EXPECT_THAT(news(), ElementsAre("a range beacons 9 7", "a range others", "a ranging failure others 16"));
    a.service().stopRangingBeacons("beacons");
    phone_.range({{kShop, 1, 9}});
    EXPECT_THAT(news(), ElementsAre("a range others"));
    EXPECT_THAT(asked(), ElementsAre("range beacons", "range others", "unrange beacons"));
}

TEST_F(SimulatedPhoneTest, CirclesBeyondTheLimitAreRefused) {
    SimulatedPhone phone({.maxMonitoredRegions = 2}, observer());
    Listener a(phone, log_, "a");
    news(phone);
    a.service().startMonitoring(beacons());
    a.service().startMonitoring(circle("1"));
    a.service().startMonitoring(circle("2"));
    a.service().startMonitoring(circle("1"));
    a.service().startMonitoring(beacons("others", kOther));
    EXPECT_THAT(news(phone), ElementsAre("a monitoring beacons", "a monitoring 1", "a monitoring failure 2 5",
                                         "a monitoring 1", "a monitoring others"));
    EXPECT_EQ(phone.monitoredRegions().size(), 3u);
    EXPECT_THAT(asked(), ElementsAre("monitor beacons", "monitor 1", "monitor 2", "monitor 1", "monitor others"));
}

TEST_F(SimulatedPhoneTest, NothingIsReportedWithoutRightsOrWithServicesOff) {
    Listener a(phone_, log_, "a");
    forget();
    const auto everything = [&] {
        a.service().startMonitoring(beacons());
        a.service().startMonitoring(circle("shop"));
        a.service().requestState(beacons());
        a.service().startRangingBeacons(beacons());
        a.service().startUpdatingLocation();
        phone_.setLocation({1, 2}, 5);
        phone_.locationFails(0);
        phone_.range({{kShop, 1, 7}});
        phone_.enterRegion("shop");
        phone_.monitoringFails("shop", 4);
        phone_.rangingFails("beacons", 4);
        a.service().stopUpdatingLocation();
        return news();
    };
    phone_.setAuthorization(AuthorizationStatus::denied);
    EXPECT_THAT(news(), ElementsAre("a authorization 2"));
    EXPECT_THAT(everything(), IsEmpty());
    EXPECT_EQ(phone_.monitoredRegions().size(), 2u) << "listed all the same";
    phone_.setAuthorization(AuthorizationStatus::authorizedWhenInUse);
    phone_.setLocationServices(false);
    EXPECT_THAT(news(), ElementsAre("a authorization 4", "a authorization 4"));
    EXPECT_THAT(everything(), IsEmpty());
    phone_.setLocationServices(true);
    EXPECT_THAT(news(), ElementsAre("a authorization 4"));
    EXPECT_EQ(everything().size(), 8u);
}

TEST_F(SimulatedPhoneTest, LocationRequestsAreGrantedOnceInALaterTurn) {
    SimulatedPhone phone({.authorization = AuthorizationStatus::notDetermined}, observer());
    Listener a(phone, log_, "a");
    Listener b(phone, log_, "b");
    EXPECT_THAT(news(phone), ElementsAre("a authorization 0", "b authorization 0"));
    a.service().requestWhenInUseAuthorization();
    b.service().requestAlwaysAuthorization();
    EXPECT_EQ(phone.platform().location.authorizationStatus(), AuthorizationStatus::notDetermined);
    EXPECT_THAT(news(phone), ElementsAre("a authorization 4", "b authorization 4"));
    EXPECT_THAT(asked(), ElementsAre("ask whenInUse", "ask always"));
}

TEST_F(SimulatedPhoneTest, UpdatesDeliverThePositionOnceWhenTheyStartAndThenEveryChange) {
    Listener a(phone_, log_, "a");
    Listener b(phone_, log_, "b");
    forget();
    a.service().startUpdatingLocation();
    EXPECT_THAT(news(), IsEmpty()) << "there is no position yet";
    phone_.setLocation({1, 2}, 5);
    EXPECT_THAT(news(), ElementsAre("a location 1"));
    b.service().startMonitoringSignificantLocationChanges();
    b.service().startMonitoringSignificantLocationChanges();
    a.service().startUpdatingLocation();
    a.service().startMonitoringSignificantLocationChanges();
    EXPECT_THAT(news(), ElementsAre("b location 1", "a location 1"));
    phone_.setLocation({3, 2}, 5);
    phone_.locationFails(2);
    EXPECT_THAT(news(), ElementsAre("a location 3", "b location 3", "a location failure 2", "b location failure 2"));
    a.service().stopUpdatingLocation();
    b.service().stopMonitoringSignificantLocationChanges();
    b.service().stopMonitoringSignificantLocationChanges();
    phone_.setLocation({4, 2}, 5);
    EXPECT_THAT(news(), ElementsAre("a location 4"));
    EXPECT_THAT(asked(), ElementsAre("standard true", "significant true", "significant true", "standard false",
                                     "significant false"));
}

TEST_F(SimulatedPhoneTest, TheModelRangesOnTheBeatAndTellsEntryAndExit) {
    Listener a(phone_, log_, "a");
    a.service().startMonitoring(beacons());
    forget();
    phone_.advanceBy(300ms);
    a.service().startRangingBeacons(beacons());
    phone_.advanceBy(2500ms);
    EXPECT_THAT(news(), IsEmpty()) << "no model yet";
    phone_.attachModel();
    phone_.advanceBy(499ms);
    EXPECT_THAT(news(), IsEmpty());
    phone_.advanceBy(1ms);
    EXPECT_THAT(news(), ElementsAre("a range beacons")) << "3 s after ranging began";
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    phone_.hearPacket({kShop, 1, 8, -59, -60});
    EXPECT_THAT(news(), ElementsAre("a state beacons 1", "a enter beacons"));
    phone_.advanceBy(1s);
    EXPECT_THAT(news(), ElementsAre("a range beacons 8 7"));
    a.service().stopRangingBeacons("beacons");
    phone_.advanceBy(19s);
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    phone_.advanceBy(30s - 1us);
    EXPECT_THAT(news(), IsEmpty());
    phone_.advanceBy(1us);
    EXPECT_THAT(news(), ElementsAre("a state beacons 2", "a exit beacons"));
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    EXPECT_THAT(news(), ElementsAre("a state beacons 1", "a enter beacons"));
    a.service().requestState(beacons());
    EXPECT_THAT(news(), ElementsAre("a state beacons 1"));
}

TEST_F(SimulatedPhoneTest, ThePhoneGoesOnWhileTheAppIsSuspended) {
    Listener a(phone_, log_, "a");
    a.service().startMonitoring(beacons());
    a.service().startRangingBeacons(beacons());
    phone_.attachModel();
    forget();
    auto timer = phone_.loop().scheduleOnce(1500ms, [this] { log_.emplace_back("timer"); });
    phone_.suspend();
    phone_.advanceBy(1s);
    phone_.hearPacket({kShop, 1, 7, -59, -65});
    phone_.advanceBy(1s);
    phone_.setBluetooth(BluetoothState::poweredOff);
    EXPECT_THAT(news(), IsEmpty());
    phone_.resume();
    EXPECT_THAT(news(),
                ElementsAre("a range beacons", "a state beacons 1", "a enter beacons", "timer", "a range beacons 7"));
}

TEST_F(SimulatedPhoneTest, ARelaunchedAppFindsItsMonitoredRegions) {
    const TemporaryDirectory directory;
    const PhoneConfig config{.container = directory.path() / "state"};
    {
        SimulatedPhone phone(config);
        Listener a(phone, log_, "a");
        a.service().startMonitoring(beacons());
        a.service().startMonitoring(circle("one"));
        a.service().startMonitoring(circle("two"));
        a.service().stopMonitoring("one");
        a.service().startRangingBeacons(beacons());
        phone.platform().defaults.setBool("key", true);
    }
    {
        SimulatedPhone phone(config);
        EXPECT_THAT(phone.monitoredRegions(), ElementsAre(Region(beacons()), Region(circle("two"))));
        EXPECT_THAT(phone.rangedRegions(), IsEmpty());
        EXPECT_EQ(phone.platform().defaults.boolForKey("key"), true);
    }
    std::ofstream(config.container / "phone.json") << R"({"monitoredRegions": [7, {"identifier": "x"}]})";
    EXPECT_THAT(SimulatedPhone(config).monitoredRegions(), IsEmpty());
}

TEST_F(SimulatedPhoneTest, TwoPhonesShareNothing) {
    SimulatedPhone other;
    Listener a(phone_, log_, "a");
    Listener b(other, log_, "b");
    a.service().startMonitoring(circle("shop"));
    other.advanceBy(10s);
    EXPECT_THAT(std::exchange(log_, {}), ElementsAre("b authorization 3"));
    EXPECT_EQ(phone_.platform().clock.monotonicNow(), MonotonicTime());
    EXPECT_THAT(other.monitoredRegions(), IsEmpty());
    EXPECT_NE(phone_.container(), other.container());
}

TEST_F(SimulatedPhoneTest, AThrowingDelegateDoesNotKeepTheNewsFromTheOthers) {
    struct Thrower final : LocationServiceDelegate {
        void didChangeAuthorizationStatus(AuthorizationStatus) override { throw std::runtime_error("no"); }
    } thrower;
    const auto service = phone_.platform().location.makeLocationService(thrower);
    Listener a(phone_, log_, "a");
    forget();
    phone_.setAuthorization(AuthorizationStatus::denied);
    EXPECT_THAT(news(), ElementsAre("a authorization 2"));
}

TEST_F(SimulatedPhoneTest, CentralsReportTheRadioOnceAndAtEveryChange) {
    auto& bluetooth = phone_.platform().bluetooth;
    const auto listen = [this](const std::string& name) {
        return
            [this, name](BluetoothState state) { log_.push_back(fmt::format("{} {}", name, static_cast<int>(state))); };
    };
    const auto a = bluetooth.makeCentral(true, listen("a"));
    auto b = bluetooth.makeCentral(false, listen("b"));
    EXPECT_THAT(news(), ElementsAre("a 5", "b 5"));
    b.reset();
    phone_.setBluetooth(BluetoothState::poweredOff);
    phone_.setBluetooth(BluetoothState::poweredOff);
    EXPECT_THAT(news(), ElementsAre("a 4"));
    EXPECT_THAT(asked(), IsEmpty());
    const auto c = bluetooth.makeCentral(true, listen("c"));
    EXPECT_THAT(news(), ElementsAre("c 4"));
    EXPECT_THAT(asked(), ElementsAre("power alert"));
}

TEST_F(SimulatedPhoneTest, NotificationCentreAnswersInLaterTurns) {
    SimulatedPhone phone({.notificationRights = {}, .badge = 2}, observer());
    auto& centre = phone.platform().notifications;
    const auto note = [this](NotificationSettings some) {
        log_.push_back(fmt::format("{} {}{}{}", static_cast<int>(some.status), some.alert, some.sound, some.badge));
    };
    centre.getSettings(note);
    centre.requestAuthorization(alertOption | badgeOption,
                                [this](bool granted) { log_.push_back(fmt::format("{}", granted)); });
    centre.getSettings(note);
    EXPECT_THAT(log_, IsEmpty());
    EXPECT_THAT(news(phone), ElementsAre("-1 falsefalsefalse", "true", "1 truefalsetrue"));
    phone.setNotificationSettings({NotificationAuthorization::denied, false, false, false});
    centre.requestAuthorization(7, [this](bool granted) { log_.push_back(fmt::format("{}", granted)); });
    EXPECT_THAT(news(phone), ElementsAre("false"));
    EXPECT_THAT(asked(), ElementsAre("ask 5", "ask 7"));

    centre.setCategories({{"one", {}}});
    centre.setCategories({{"one", {}}, {"two", {}}});
    centre.setCategories({{"one", {{"ok", "OK", 1}}}, {"two", {}}});
    centre.getCategories([this](const auto& all) { log_.push_back(fmt::format("{}", all.size())); });
    EXPECT_THAT(news(phone), ElementsAre("2"));
    EXPECT_THAT(asked(), ElementsAre("category one", "category two", "category one"));

    NotificationRequest request;
    request.identifier = "a";
    request.badge = 7;
    centre.add(request);
    request.identifier = "b";
    request.badge = std::nullopt;
    centre.add(request);
    request.identifier = "a";
    request.title = "again";
    centre.add(request);
    EXPECT_EQ(phone.badge(), 7);
    ASSERT_EQ(phone.notifications().size(), 2u);
    EXPECT_EQ(phone.notifications().back().title, "again");
}

TEST_F(SimulatedPhoneTest, ApplicationEventsStateAndBackgroundTasks) {
    auto& application = phone_.platform().application;
    std::unique_ptr<ApplicationObservation> b;
    const auto a = application.observe([&](ApplicationEvent event) {
        log_.push_back(fmt::format("{} {}", static_cast<int>(event), static_cast<int>(application.state())));
        if (event == ApplicationEvent::willTerminate) b.reset();
    });
    b = application.observe([&](ApplicationEvent) { log_.emplace_back("b"); });
    for (const auto& lever : {&SimulatedPhone::background, &SimulatedPhone::foreground, &SimulatedPhone::active,
                              &SimulatedPhone::inactive, &SimulatedPhone::terminate}) {
        (phone_.*lever)();
        phone_.runTurns();
    }
    phone_.setBackgroundRefresh(BackgroundRefreshStatus::denied);
    phone_.setBackgroundRefresh(BackgroundRefreshStatus::denied);
    EXPECT_THAT(news(), ElementsAre("2 2", "b", "3 1", "b", "0 0", "b", "1 1", "b", "4 1", "5 1"));

    BackgroundTaskIdentifier second = kBackgroundTaskInvalid;
    const auto first = application.beginBackgroundTask([&] {
        log_.emplace_back("first expires");
        application.endBackgroundTask(second);
    });
    second = application.beginBackgroundTask([&] { log_.emplace_back("never"); });
    phone_.expireBackgroundTasks();
    EXPECT_THAT(news(), ElementsAre("first expires"));
    application.endBackgroundTask(first);
    application.endBackgroundTask(first);
    EXPECT_THAT(asked(), ElementsAre("begin 1", "begin 2", "end 2", "end 1"));
}

TEST_F(SimulatedPhoneTest, OpensWhatItsSchemesSay) {
    auto& application = phone_.platform().application;
    EXPECT_TRUE(application.canOpenURL("HTTPS://a.test"));
    EXPECT_FALSE(application.canOpenURL("shop://a"));
    EXPECT_FALSE(application.canOpenURL("no scheme"));
    EXPECT_TRUE(application.openURL(application.settingsURL().value()));
    EXPECT_FALSE(application.openURL("shop://a"));
    EXPECT_THAT(asked(), ElementsAre("open app-settings:", "open shop://a"));
    EXPECT_EQ(SimulatedPhone({.settingsURL = false}).platform().application.settingsURL(), std::nullopt);
}

TEST_F(SimulatedPhoneTest, AWebPageCoversItsPresenterUntilItIsDismissed) {
    auto& screens = phone_.platform().screens;
    const auto root = screens.rootScreen();
    std::unique_ptr<WebPage> page;
    const WebPageEvents events{[&] { log_.emplace_back("there"); }, [&] { log_.emplace_back("gone"); },
                               [&] { page->dismiss(); }};
    EXPECT_FALSE(phone_.closeWebPage());
    page = screens.presentWebPage(root, events);
    EXPECT_THAT(news(), ElementsAre("there"));
    page->load("https://a.test");
    EXPECT_EQ(phone_.shownWebPage(), "https://a.test");
    ASSERT_TRUE(root->presentedScreen());
    EXPECT_EQ(root->presentedScreen()->kind(), Screen::Kind::navigation);
    EXPECT_EQ(screens.presentWebPage(root, {}), nullptr) << "it presents something already";
    EXPECT_TRUE(screens.presentWebPage(root->presentedScreen()->visibleChild(), {}));
    EXPECT_TRUE(phone_.closeWebPage());
    EXPECT_THAT(news(), ElementsAre("gone"));
    EXPECT_FALSE(root->presentedScreen());
    screens.presentAlert(root, "title", "message", "OK");
    EXPECT_THAT(asked(), ElementsAre("page https://a.test", "alert title"));
    EXPECT_TRUE(phone_.presentScreen(true)->presentedScreen());
    EXPECT_EQ(phone_.presentScreen(false), nullptr);
}

TEST_F(SimulatedPhoneTest, TextsDefaultsConsoleAndNetworkAreThoseOfTheConfiguration) {
    SimulatedPhone phone(
        {.languages = {"de-AT", "en"}, .localization = {{"Yes", "Ja"}}, .resources = {{"pages/a.html", "<p>"}}},
        observer());
    const auto platform = phone.platform();
    EXPECT_EQ(platform.localization.localizedString("Yes"), "Ja");
    EXPECT_EQ(platform.localization.localizedString("No"), std::nullopt);
    EXPECT_EQ(platform.files.bundleResource("pages/a.html"), "<p>");
    EXPECT_EQ(platform.files.bundleResource("a.html"), std::nullopt);
    EXPECT_EQ(platform.device.preferredLanguages().front(), "de-AT");
    platform.defaults.setBool("k", false);
    platform.console.log("line");
    EXPECT_THAT(asked(), ElementsAre("k=false", "console line"));

    auto watch = platform.reachability.observe(
        [this](NetworkStatus status) { log_.push_back(fmt::format("{}", static_cast<int>(status))); });
    phone.network(true);
    phone.network(false);
    EXPECT_THAT(news(phone), ElementsAre("0"));
    watch.reset();
    phone.network(true);
    EXPECT_THAT(news(phone), IsEmpty());
}

TEST_F(SimulatedPhoneTest, AFreshContainerGoesWithItsPhone) {
    std::filesystem::path container;
    {
        SimulatedPhone phone;
        container = phone.container();
        phone.platform().defaults.setBool("k", true);
        EXPECT_TRUE(std::filesystem::exists(container / "Library/Preferences/defaults.json"));
    }
    EXPECT_FALSE(std::filesystem::exists(container));
}

TEST_F(SimulatedPhoneTest, WhatTheAppLeftWaitingGoesWhileThePhoneIsThere) {
    auto log = std::make_shared<Log>();
    auto phone = std::make_unique<SimulatedPhone>();
    auto listener = std::make_shared<Listener>(*phone, *log, "a");
    phone->loop().post([log, listener] {});
    listener.reset();
    phone.reset();
    EXPECT_THAT(*log, IsEmpty());
}

}  // namespace
}  // namespace quomi::simulated
