#include "quomi/sdk/authorization_logger.h"

#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

constexpr NotificationSettings kGranted{NotificationAuthorization::authorized, true, true, true};
constexpr NotificationSettings kDenied{NotificationAuthorization::denied, true, true, true};

/// The permissions that were logged, in brief: "bluetooth_state on", "permission_location granted".
std::vector<std::string> logged(SdkFixture& app) {
    app.settle();
    std::vector<std::string> states;
    for (const auto& line : app.lines("event ")) {
        const auto event = boost::json::parse(line.substr(6)).as_object();
        const auto* what = event.if_contains("permission_type");
        if (what == nullptr && event.at("type") != "bluetooth_state") continue;
        const auto& name = what != nullptr ? *what : event.at("type");
        states.push_back(std::string(name.as_string()) + " " + std::string(event.at("state").as_string()));
    }
    app.journal.clear();
    return states;
}

const char* const kNotificationsGranted = "permission_notifications granted";

TEST(AuthorizationLogger, EveryStartLogsTheStateOfNotifications) {
    const TemporaryDirectory container;
    for (const bool granted : {false, true, true}) {
        SdkFixture app({.notificationRights = granted ? kGranted : kDenied, .container = container.path()});
        ASSERT_TRUE(app.start());
        EXPECT_THAT(logged(app),
                    ElementsAre("bluetooth_state on", "permission_location granted",
                                std::string("permission_notifications ") + (granted ? "granted" : "denied")));
        EXPECT_EQ(app.sdk->authorizationLogger()->lastNotificationAuthorizationStatus(), granted);
        app.sdk->stop();
        ASSERT_TRUE(app.start());
        EXPECT_EQ(logged(app).size(), 1U) << "the phone reports Bluetooth and location once";
    }
}

TEST(AuthorizationLogger, LogsLocationAsGrantedOnlyForAlways) {
    SdkFixture app;
    app.phone.runTurns();
    ASSERT_TRUE(app.start());
    EXPECT_THAT(logged(app), ElementsAre(kNotificationsGranted)) << "reported before there was a log";
    app.phone.setAuthorization(AuthorizationStatus::authorizedWhenInUse);
    app.phone.setAuthorization(AuthorizationStatus::authorizedAlways);
    EXPECT_THAT(logged(app), ElementsAre("permission_location denied", "permission_location granted"));
}

TEST(AuthorizationLogger, BeaconEventsLogNotificationsWhenTheyHaveChangedOnce) {
    const std::function<void(SdkFixture&)> events[] = {
        [](SdkFixture& app) { app.phone.enterBeaconRegion(*Uuid::parse(kShopUUID)); },
        [](SdkFixture& app) { app.phone.exitBeaconRegion(*Uuid::parse(kShopUUID)); },
        [](SdkFixture& app) { app.hear(2, -60); },
        [](SdkFixture& app) { app.hear(1, -60); },
        [](SdkFixture& app) { app.settle(std::chrono::seconds(6)); },
    };
    for (const auto& event : events) {
        SdkFixture app({.notificationRights = kDenied});
        ASSERT_TRUE(app.start());
        app.hear(1, -60);
        logged(app);
        app.phone.setNotificationSettings(kGranted);
        app.phone.background();
        app.phone.active();
        EXPECT_THAT(logged(app), IsEmpty()) << "the app's state is no reason";
        event(app);
        event(app);
        EXPECT_THAT(logged(app), ElementsAre(kNotificationsGranted));
        event(app);
        app.hear(3, -60);
        EXPECT_THAT(logged(app), IsEmpty());
    }
}

TEST(AuthorizationLogger, ManyEventsOfOneMomentLogOneChangeOnce) {
    SdkFixture app;
    ASSERT_TRUE(app.start());
    logged(app);
    app.phone.setNotificationSettings(kDenied);
    app.phone.range({{*Uuid::parse(kShopUUID), 1, 1, PlatformProximity::near, 2.0, -60},
                     {*Uuid::parse(kShopUUID), 1, 2, PlatformProximity::near, 2.0, -60}});
    app.sdk->authorizationLogger()->logNotificationAuthorizationStatusIfNeeded();
    app.sdk->authorizationLogger()->forceLogNotificationAuthorizationStatus();
    EXPECT_THAT(logged(app), ElementsAre("permission_notifications denied"));
}

}  // namespace
}  // namespace quomi::test
