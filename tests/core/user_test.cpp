#include "tests/support/sdk_fixture.h"

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::test {
namespace {

using simulated::ScriptedAnswer;
using testing::ElementsAre;
using testing::IsEmpty;

class UserTest : public testing::Test {
protected:
    /// Starts the SDK and forgets what that led to.
    void start() {
        ASSERT_TRUE(app.start());
        app.journal.clear();
    }
    void holdMe() {
        app.sdk->setUser(me);
        app.settle();
        app.journal.clear();
    }
    /// How many times the user is sent from now on.
    std::size_t sent() {
        app.settle();
        const auto count = app.lines("request POST https://api.quomi.test/u_app_users/find_or_create").size();
        app.journal.clear();
        return count;
    }
    std::function<void()> noting(const char* what) {
        return [this, what] { app.journal.emplace_back(what); };
    }
    std::function<void(const Error&)> notingError() {
        return [this](const Error& error) { app.journal.push_back("failed " + std::to_string(error.code)); };
    }

    SdkFixture app;
    const std::shared_ptr<QuomiUser> me = std::make_shared<QuomiUser>("me");
};

TEST_F(UserTest, AreEqualWhenAllThreeFieldsAre) {
    const QuomiUser::Properties properties = boost::json::object{{"a", 1}, {"b", 2}};
    const QuomiUser::Properties turned = boost::json::object{{"b", 2}, {"a", 1}};
    const QuomiUser user("id", properties, {{"x", "y"}});
    const struct {
        QuomiUser other;
        bool isEqual;
    } rows[] = {{user, true},
                {QuomiUser("id", turned, {{"x", "y"}}), true},
                {QuomiUser("id", properties, {{"y", "x"}}), false},
                {QuomiUser("id", properties), false},
                {QuomiUser({}, properties, {{"x", "y"}}), false},
                {QuomiUser("id", {}, {{"x", "y"}}), false},
                {QuomiUser(), false}};
    for (const auto& row : rows) {
        EXPECT_EQ(user == row.other, row.isEqual);
        EXPECT_TRUE(!row.isEqual || user.hash() == row.other.hash());
    }
    EXPECT_EQ(QuomiUser().hash(), 0U);
    QuomiUser tracked(user);
    tracked.setAdvertisingTrackingModeEnabled(true);
    EXPECT_EQ(tracked, user);
    EXPECT_FALSE(QuomiUser(tracked).advertisingTrackingModeEnabled());
}

TEST_F(UserTest, ObserversHearOldAndNewUntilTheyEnd) {
    std::vector<std::string> heard;
    const auto note = [&heard](const QuomiUser::UserID& oldValue, const QuomiUser::UserID& newValue) {
        heard.push_back(oldValue.value_or("nil") + " " + newValue.value_or("nil"));
    };
    auto second = me->observeUserID([](const auto&, const auto&) { throw 1; });
    auto first = me->observeUserID(note);
    me->setUserID("you");
    me->setUserID("you");
    second = me->observeUserID([&](const auto&, const auto&) { first.reset(); });
    const auto third = me->observeUserID([&](const auto&, const auto&) { second.reset(); });
    me->setUserID({});
    me->setUserID("again");
    EXPECT_THAT(heard, ElementsAre("me you", "you you", "you nil"));
}

TEST_F(UserTest, AnotherUserIsSentAndAnEqualOneIsNot) {
    app.sdk->setUser(me, noting("held"), notingError());
    EXPECT_EQ(sent(), 0U) << "not started, and no block is called";
    app.sdk->setUser(std::make_shared<QuomiUser>("me"), noting("held"));
    EXPECT_THAT(app.journal, ElementsAre("held")) << "equal, at once";
    start();
    app.sdk->setUser(std::make_shared<QuomiUser>("you"), noting("held"), notingError());
    EXPECT_THAT(app.lines("held"), IsEmpty());
    app.settle();
    EXPECT_EQ(app.lines("held").size(), 1U);
    EXPECT_EQ(sent(), 1U);
    app.phone.transport().answer(kUserRequest, ScriptedAnswer::text("", 500));
    app.sdk->setUser(nullptr, noting("held"), notingError());
    app.settle();
    EXPECT_EQ(app.journal.back(), "failed 500");
    EXPECT_EQ(sent(), 1U) << "no user is sent as well";
    EXPECT_THAT(app.lines("error"), IsEmpty());
}

TEST_F(UserTest, ChangesOfTheHeldUserAreSent) {
    start();
    const auto empty = app.sdk->user();
    empty->setUserID("nobody looks");
    app.sdk->setUser(empty);
    empty->setUserID("still nobody");
    EXPECT_EQ(sent(), 0U) << "the user that start makes is held without observation";
    holdMe();
    me->setTags({{"a", "b"}});
    EXPECT_EQ(sent(), 1U);
    me->setTags({{"a", "b"}});
    EXPECT_EQ(sent(), 0U);
    me->setTags({{"b", "a"}});
    me->setProperties(boost::json::object{});
    me->setUserID({});
    EXPECT_EQ(sent(), 3U);
    const auto equal = std::make_shared<QuomiUser>(*me);
    app.sdk->setUser(equal);
    EXPECT_EQ(sent(), 0U);
    me->setUserID("gone");
    EXPECT_EQ(sent(), 0U) << "no longer held";
    equal->setUserID("here");
    EXPECT_EQ(sent(), 1U) << "held and observed although it was equal";
    app.sdk->stop();
    equal->setUserID("later");
    EXPECT_EQ(sent(), 0U);
}

TEST_F(UserTest, TheTrackingFlagIsTheHostsAndTheQueryAsksThePhoneToo) {
    for (const bool tracking : {false, true}) {
        SdkFixture other({.advertisingTracking = tracking});
        EXPECT_FALSE(other.sdk->enableIDFACollection());
        other.sdk->setEnableIDFACollection(true);
        EXPECT_EQ(other.sdk->enableIDFACollection(), tracking);
        ASSERT_TRUE(other.start());
        EXPECT_TRUE(other.sdk->user()->advertisingTrackingModeEnabled());
    }
}

TEST_F(UserTest, PushTokensNeedARecordWhereSomebodyWaitsForTheFailure) {
    const std::string key = "POST /u_app_users/register_push_token.json";
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff");
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff", noting("done"), notingError());
    app.sdk->start();
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff", noting("done"), notingError());
    EXPECT_THAT(app.lines("failed"), ElementsAre("failed 7", "failed 7"));
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff");
    app.settle();
    EXPECT_EQ(app.phone.transport().requests(key), 1U) << "without a record, and nobody to tell";
    app.phone.transport().answer(key, {ScriptedAnswer::text(""), ScriptedAnswer::text("", 500)});
    app.journal.clear();
    for (int i = 0; i < 2; ++i) {
        app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff", noting("done"), notingError());
    }
    app.settle();
    EXPECT_THAT(app.lines("done"), ElementsAre("done"));
    EXPECT_THAT(app.lines("failed"), ElementsAre("failed 500"));
    EXPECT_THAT(app.lines("error"), IsEmpty());
}

TEST_F(UserTest, PropertiesOfTheFacadeAreToldWhenAllIsDone) {
    std::vector<std::string> heard;
    const auto note = [&](const char* property) {
        return [&heard, property, this](bool oldValue, bool newValue) {
            heard.push_back(fmt::format("{} {} {} {}", property, oldValue, newValue, app.phone.rangedRegions().size()));
        };
    };
    const auto running = app.sdk->observe(QuomiSDKProperty::isRunning, note("running"));
    const auto geofences = app.sdk->observe(QuomiSDKProperty::geofencesEnabled, note("geofences"));
    auto beacons = app.sdk->observe(QuomiSDKProperty::beaconsEnabled, note("beacons"));
    ASSERT_TRUE(app.start());
    app.sdk->setBeaconsEnabled(false);
    app.sdk->setBeaconsEnabled(false);
    app.sdk->setBeaconsEnabled(true);
    beacons.reset();
    app.sdk->setBeaconsEnabled(false);
    app.sdk->setGeofencesEnabled(false);
    app.sdk->stop();
    app.sdk->stop();
    EXPECT_THAT(heard, ElementsAre("running false true 0", "beacons true false 0", "beacons false false 0",
                                   "beacons false true 1", "geofences true false 0", "running true false 0"));
    SdkFixture poor({.supportsBeacons = false});
    const auto refused = poor.sdk->observe(QuomiSDKProperty::beaconsEnabled, [](bool, bool) { FAIL(); });
    poor.sdk->setBeaconsEnabled(true);
}

}  // namespace
}  // namespace quomi::test
