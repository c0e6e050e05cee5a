#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

TEST(User, AreEqualWhenAllThreeFieldsAre) {
    const QuomiUser::Properties properties = boost::json::object{{"a", 1}, {"b", 2}};
    const QuomiUser::Properties turned = boost::json::object{{"b", 2.0}, {"a", 1}};
    const QuomiUser user("id", properties, {{"x", "y"}});
    QuomiUser tracked("id", turned, {{"x", "y"}});
    tracked.setAdvertisingTrackingModeEnabled(true);
    EXPECT_EQ(tracked, user);
    EXPECT_EQ(tracked.hash(), user.hash());
    EXPECT_FALSE(QuomiUser(tracked).advertisingTrackingModeEnabled());
    const QuomiUser others[] = {QuomiUser("id", properties, {{"y", "x"}}), QuomiUser("id", properties),
                                QuomiUser({}, properties, {{"x", "y"}}), QuomiUser("id", {}, {{"x", "y"}})};
    for (const auto& other : others) EXPECT_FALSE(user == other);
    EXPECT_EQ(QuomiUser().hash(), 0U);
}

TEST(User, ObserversHearOldAndNewUntilTheyEnd) {
    QuomiUser me("me");
    std::vector<std::string> heard;
    auto second = me.observeUserID([](const auto&, const auto&) { throw 1; });
    auto first = me.observeUserID([&heard](const QuomiUser::UserID& oldValue, const QuomiUser::UserID& newValue) {
        heard.push_back(oldValue.value_or("nil") + " " + newValue.value_or("nil"));
    });
    me.setUserID("you");
    me.setUserID("you");
    second = me.observeUserID([&](const auto&, const auto&) { first.reset(); });
    const auto third = me.observeUserID([&](const auto&, const auto&) { second.reset(); });
    me.setUserID({});
    me.setUserID("again");
    EXPECT_THAT(heard, ElementsAre("me you", "you you", "you nil"));
}

TEST(User, OnlyTheHeldOneIsSent) {
    SdkFixture app;
    std::vector<std::string> told;
    const auto held = [&told] { told.emplace_back("held"); };
    const auto sent = [&app] {
        app.settle();
        const auto count = app.lines("request POST https://api.quomi.test/u_app_users/find_or_create").size();
        app.journal.clear();
        return count;
    };
    const auto me = std::make_shared<QuomiUser>("me");
    app.sdk->setUser(me, held, [](const Error&) { FAIL(); });
    EXPECT_EQ(sent(), 0U) << "not started, and no block is called";
    const auto equal = std::make_shared<QuomiUser>(*me);
    app.sdk->setUser(equal, held);
    EXPECT_THAT(told, ElementsAre("held")) << "at once";
    app.sdk->setEnableIDFACollection(true);
    ASSERT_TRUE(app.start());
    EXPECT_EQ(sent(), 1U) << "by the start";
    EXPECT_TRUE(equal->advertisingTrackingModeEnabled());
    EXPECT_FALSE(app.sdk->enableIDFACollection()) << "the phone's user does not let himself be tracked";
    me->setUserID("gone");
    EXPECT_EQ(sent(), 0U) << "no longer held";
    equal->setTags({{"a", "b"}});
    equal->setTags({{"a", "b"}});
    equal->setTags({{"b", "a"}});
    equal->setProperties({{{"n", 1}}});
    equal->setProperties({{{"n", 1.0}}});
    EXPECT_EQ(sent(), 3U) << "held and observed although it was equal";
    app.sdk->stop();
    equal->setUserID("later");
    EXPECT_EQ(sent(), 0U);
}

TEST(User, PushTokensWithoutARecordAreRegisteredWhereNobodyWaitsForTheFailure) {
    SdkFixture app;
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff");
    app.sdk->start();
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff", {},
                                                                [](const Error& error) { EXPECT_EQ(error.code, 7); });
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff");
    app.settle();
    EXPECT_EQ(app.phone.transport().requests("POST /u_app_users/register_push_token.json"), 1U);
}

}  // namespace
}  // namespace quomi::test
