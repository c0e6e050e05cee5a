#include "quomi/platform/notification_center.h"
#include "quomi/platform/screens.h"
#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

NotificationRequest opened(boost::json::object userInfo) {
    NotificationRequest request;
    request.userInfo = std::move(userInfo);
    return request;
}

/// A delegate that decides and performs, and writes it into the journal.
void decide(SdkFixture& app) {
    const auto note = [&app](const char* what) {
        return [&app, what](QuomiSDK& sdk, const std::string& url, int by) {
            EXPECT_EQ(&sdk, app.sdk.get());
            app.journal.push_back(fmt::format("{} {} {}", what, url, by));
            if (app.inCallback) app.inCallback(app.journal.back());
            return true;
        };
    };
    app.delegate->shouldExecuteOpenWebPageRequest = note("asked");
    app.delegate->executeOpenWebPageRequest = note("performs");
}

TEST(OpenedNotification, IsLoggedByItsAreaAndItsActionIsPerformed) {
    const Table<const char*, const char*> cases = {
        {R"({"area_type": "beacon", "rule_id": "r", "beacon_id": "b", "geofence_id": "g"})",
         R"(event {"type":"open_notif","area_type":"beacon","rule_id":"r","beacon_id":"b"})"},
        {R"({"area_type": "geofence", "rule_id": 7, "geofence_id": "g"})",
         R"(event {"type":"open_notif","area_type":"geofence","rule_id":7,"geofence_id":"g"})"},
        {R"({"area_type": "geofence", "rule_id": "r", "beacon_id": "b"})",
         R"(event {"type":"open_notif","area_type":"geofence","rule_id":"r"})"},
        {R"({"area_type": "beacon", "type": "open_url", "param": "u", "triggeredBy": 2})", "asked u 2 | performs u 2"}};
    const auto openedWith = [](const char* info) { return opened(boost::json::parse(info).as_object()); };
    SdkFixture app;
    decide(app);
    app.sdk->executeNotificationRequestActions(openedWith(std::get<0>(cases.back())));
    EXPECT_THAT(app.journal, IsEmpty()) << "not started";
    EXPECT_TRUE(app.sdk->resetCounters());
    app.sdk->executeNotificationRequestActions(openedWith(std::get<0>(cases.front())));
    EXPECT_EQ(app.journal, parts(std::get<1>(cases.front()))) << "the store is open";
    ASSERT_TRUE(app.start());
    for (const auto& [info, lines] : cases) {
        app.journal.clear();
        app.sdk->executeNotificationRequestActions(openedWith(info));
        EXPECT_EQ(app.journal, parts(lines));
    }
}

TEST(OpenedNotification, StopFromInsideAnythingThatItCausesIsTheEnd) {
    for (std::size_t stopsAt = 1; stopsAt <= 3; ++stopsAt) {
        SdkFixture app;
        decide(app);
        ASSERT_TRUE(app.start());
        app.journal.clear();
        std::size_t told = 0;
        app.inCallback = [&](const std::string&) {
            if (++told == stopsAt) app.sdk->stop();
        };
        app.sdk->executeNotificationRequestActions(
            opened({{"area_type", "beacon"}, {"rule_id", "r"}, {"type", "open_url"}, {"param", "https://a.test"}}));
        app.settle();
        EXPECT_EQ(told, stopsAt);
        EXPECT_EQ(app.phone.shownWebPage(), "");
    }
}

TEST(PresentationScreen, BelongsToTheRun) {
    SdkFixture app;
    const auto screen = app.phone.presentScreen(true);
    app.sdk->setPresentationViewController(screen);
    EXPECT_EQ(app.sdk->presentationViewController(), nullptr);
    EXPECT_FALSE(app.sdk->openWebPageForUrl("https://a.test"));
    ASSERT_TRUE(app.start());
    app.sdk->setPresentationViewController(screen);
    EXPECT_EQ(app.sdk->presentationViewController(), screen);
    EXPECT_FALSE(app.sdk->openWebPageForUrl("https://a.test"));
    app.sdk->stop();
    EXPECT_EQ(app.sdk->presentationViewController(), nullptr);
    ASSERT_TRUE(app.start());
    EXPECT_TRUE(app.sdk->openWebPageForUrl("https://a.test"));
    app.settle();
    app.sdk->stop();
    app.settle();
    EXPECT_EQ(app.phone.shownWebPage(), "https://a.test") << "the user closes pages, not stop";
    app.sdk.reset();
    EXPECT_EQ(app.phone.shownWebPage(), "");
}

TEST(Start, AsksForNotificationRightsUnlessAllAreGrantedAndRegistersTheCategory) {
    for (const bool granted : {true, false}) {
        SdkFixture app({.notificationRights = {NotificationAuthorization::notDetermined, granted, granted, granted}});
        if (granted) app.phone.setNotificationSettings({NotificationAuthorization::authorized, true, true, true});
        ASSERT_TRUE(app.start());
        EXPECT_EQ(app.phone.categories().size(), 1U);
        bool isGranted = false;
        app.phone.platform().notifications.getSettings([&](auto settings) { isGranted = settings.badge; });
        app.settle();
        EXPECT_TRUE(isGranted);
    }
    SdkFixture stopped;
    stopped.sdk->start();
    stopped.sdk->stop();
    stopped.settle();
    EXPECT_THAT(stopped.phone.categories(), IsEmpty());
}

}  // namespace
}  // namespace quomi::test
