#include "quomi/data/data.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

/// What the store in the file says of a completed start.
bool storedIsStarted(SdkFixture& app) {
    const auto platform = app.phone.platform();
    const QuomiErrors errors(platform.localization);
    const auto data = QuomiData::create(app.storeFile(), false, platform, errors);
    return data != nullptr && data->sdkIsStarted();
}

TEST(Start, WithoutARecordAnswersYesAndGoesOnWhenItHasArrived) {
    SdkFixture app;
    app.sdk->setFileLogEnabled(true);
    std::optional<Error> error = Error{"left over", 1, {}};
    EXPECT_TRUE(app.sdk->start(&error));
    EXPECT_EQ(error, std::nullopt);
    EXPECT_TRUE(app.sdk->isRunning()) << "although the start may still fail";
    EXPECT_THAT(app.phone.monitoredRegions(), IsEmpty());
    ASSERT_NE(app.sdk->user(), nullptr);
    app.settle();
    EXPECT_TRUE(app.sdk->isRunning());
    EXPECT_THAT(app.lines("re"),
                ElementsAre("request GET https://api.quomi.test/u_applications/query.json", "response 200",
                            "request GET https://api.quomi.test/u_applications/limits.json", "response 200",
                            "request POST https://api.quomi.test/u_app_users/find_or_create_by_udid.json",
                            "response 200", "request GET https://api.quomi.test/u_beacons/query.json", "response 200"));
    EXPECT_THAT(app.lines("monitor"), ElementsAre("monitor Quomi beacon service", "monitor Quomi beacon"));
    EXPECT_EQ(app.phone.rangedRegions().size(), 1U);
    EXPECT_TRUE(storedIsStarted(app));
    EXPECT_THAT(app.debugLines(), Contains("Quomi SDK successfully started"));
}

TEST(Start, TakesTheSettingsOfTheRecord) {
    for (const auto& [protocol, before, mode] : Table<const char*, std::uint64_t, std::uint64_t>{
             {"none", 1, 0}, {"rotating_advertisement", 0, 1}, {"None", 0, 0}, {"", 1, 1}}) {
        SdkFixture app;
        app.settings.beaconSecurityMode = before;
        auto answer = applicationAnswer();
        answer["anti_hacking_protocol"] = protocol;
        app.phone.transport().answer(kApplicationRequest, ScriptedAnswer::json(answer));
        app.start();
        EXPECT_EQ(app.settings.beaconSecurityMode, mode) << protocol;
        EXPECT_EQ(app.settings.beaconProximityUUIDNormal, kShopUUID);
        EXPECT_EQ(app.settings.beaconProximityUUIDSecure, "6B6E1B5A-0C0D-4A6E-9E62-0000000000B2");
        EXPECT_EQ(app.settings.beaconProximityUUIDService, "6B6E1B5A-0C0D-4A6E-9E62-0000000000B3");
        EXPECT_EQ(app.settings.proximityFarSplitThreshold, 12.0);
    }
}

TEST(Start, TwiceIsRefusedAndTheFirstGoesOn) {
    for (const bool completed : {false, true}) {
        SdkFixture app;
        app.sdk->start();
        if (completed) app.settle();
        std::optional<Error> error;
        EXPECT_FALSE(app.sdk->start(&error));
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain, "QuomiErrorDomain");
        EXPECT_EQ(error->code, 3);
        EXPECT_EQ(error->localizedDescription(), "SDK already started. Cannot start SDK if already started");
        EXPECT_EQ(app.lastError, error);
        app.settle();
        EXPECT_THAT(app.lines("error"), ElementsAre("error 3, running"));
        EXPECT_EQ(app.lines("monitor").size(), 2U);
        app.hear(1, -60);
        EXPECT_THAT(app.journal, Contains("found " + SdkFixture::beacon(1)));
    }
}

TEST(Start, LimitsThatCannotBeHadAreAnErrorButNoFailure) {
    const Table<ScriptedAnswer, std::int64_t> rows = {{ScriptedAnswer::text("", 404), 404},
                                                      {ScriptedAnswer::json({{"success", false}}), 402},
                                                      {ScriptedAnswer::failure(HttpFailureKind::connection), 1}};
    for (const auto& [answer, code] : rows) {
        SdkFixture app;
        app.phone.transport().answer(kLimitsRequest, answer);
        EXPECT_TRUE(app.start());
        EXPECT_THAT(app.lines("error"), ElementsAre(fmt::format("error {}, running", code)));
    }
}

TEST(Start, AnotherBaseURLIsAskedAfterAFailedStart) {
    SdkFixture app;
    app.phone.transport().answer(kApplicationRequest,
                                 {ScriptedAnswer::text("", 500), ScriptedAnswer::json(applicationAnswer())});
    EXPECT_FALSE(app.start());
    app.sdk->setBaseURL("http://other.test/api/");
    app.phone.transport().setBaseURLs({"http://other.test/api"});
    app.phone.transport().answer("GET /api/u_applications/query.json", ScriptedAnswer::json(applicationAnswer()));
    EXPECT_TRUE(app.start());
    EXPECT_THAT(app.journal, Contains("request GET http://other.test/api/u_applications/query.json"));
}

TEST(Start, LocationBeginsAsWorkOfTheGlobalQueueUnderABackgroundTask) {
    SdkFixture app({.supportsBeacons = false});
    ASSERT_TRUE(app.start());
    ASSERT_TRUE(app.sdk->isRunning());
    const auto begin = std::ranges::find(app.journal, "task begin");
    ASSERT_NE(begin, app.journal.end());
    const std::vector<std::string> location(begin, app.journal.end());
    EXPECT_THAT(location, AllOf(Contains("updates significant on"), Contains("task end")));
    EXPECT_LT(std::ranges::find(location, "updates significant on"), std::ranges::find(location, "task end"));
    EXPECT_EQ(app.phone.runningBackgroundTasks(), 0U);

    // Stopped before the work's turn: it does nothing any more, but its task ends.
    app.sdk->setGeofencesEnabled(false);
    app.journal.clear();
    app.sdk->setGeofencesEnabled(true);
    app.sdk->stop();
    app.settle();
    EXPECT_THAT(app.lines("updates significant on"), IsEmpty());
    EXPECT_EQ(app.phone.runningBackgroundTasks(), 0U);
}

TEST(Start, LeavesNoGeofenceOfAnEarlierRunMonitored) {
    SdkFixture app({.supportsBeacons = false});
    LocationServiceDelegate ignored;
    const auto service = app.phone.platform().location.makeLocationService(ignored);
    service->startMonitoring(CircularRegion{"old", {1, 2}, 100});
    ASSERT_EQ(app.phone.monitoredRegions().size(), 1U);
    ASSERT_TRUE(app.start());
    EXPECT_THAT(app.phone.monitoredRegions(), IsEmpty());
}

TEST(Stop, EndsEverythingInOrder) {
    SdkFixture app;
    app.sdk->setFileLogEnabled(true);
    ASSERT_TRUE(app.start());
    app.hear(1, -60);
    app.phone.background();
    app.phone.runTurns();
    app.sdk->clearDebugFile();
    app.journal.clear();
    app.sdk->updateUserInformation([&app] { app.journal.emplace_back("called back"); },
                                   [&app](const Error&) { app.journal.emplace_back("called back"); });
    app.phone.range({{*Uuid::parse(kShopUUID), 1, 2, PlatformProximity::near, 2.0, -60}});
    app.phone.exitBeaconRegion(*Uuid::parse(kShopUUID));
    app.phone.active();
    app.sdk->stop();
    EXPECT_FALSE(app.sdk->isRunning());
    const auto expected =
        ElementsAre("request POST https://api.quomi.test/u_app_users/find_or_create_by_udid.json",
                    "updates significant off", "unmonitor Quomi beacon service", "unrange Quomi beacon",
                    "unmonitor Quomi beacon", "task end", "response cancelled");
    EXPECT_THAT(app.journal, expected);
    EXPECT_FALSE(storedIsStarted(app));
    app.settle(std::chrono::hours(1));
    app.phone.background();
    app.hear(3, -60);
    app.sdk->logEvent({{"a", 1}});
    app.sdk->updateUserInformation();
    app.settle();
    EXPECT_THAT(app.journal, expected) << "nothing comes afterwards";
    EXPECT_THAT(app.debugLines(), ElementsAre("Quomi SDK stopped"));
    EXPECT_EQ(app.phone.loop().pendingEvents(), 0U);
    EXPECT_EQ(app.phone.runningBackgroundTasks(), 0U);
    EXPECT_NE(app.sdk->user(), nullptr);
    EXPECT_EQ(app.sdk->delegate(), app.delegate);
}

TEST(Stop, WhileTheRecordIsOnItsWayDropsIt) {
    SdkFixture app;
    app.sdk->start();
    app.sdk->stop();
    app.settle(std::chrono::minutes(2));
    EXPECT_FALSE(app.sdk->isRunning());
    EXPECT_THAT(app.journal,
                ElementsAre("request GET https://api.quomi.test/u_applications/query.json", "response cancelled"));
    EXPECT_TRUE(app.start());
}

TEST(Start, TheEndOfTheObjectEndsAllCallbacks) {
    SdkFixture app;
    app.sdk->start();
    app.sdk.reset();
    app.settle();
    EXPECT_THAT(app.journal, Not(Contains(testing::HasSubstr("limits"))));
    EXPECT_EQ(app.phone.loop().pendingEvents(), 0U);
}

TEST(Start, TwoPhonesSideBySideShareNothing) {
    SdkFixture first;
    SdkFixture second({.supportsBeacons = false});
    first.sdk->setBaseURL("https://first.test");
    EXPECT_TRUE(first.start());
    EXPECT_TRUE(second.start());
    EXPECT_THAT(second.lines("request"), Not(Contains(testing::HasSubstr("first.test"))));
    EXPECT_THAT(second.lines("range"), IsEmpty());
    first.hear(1, -60);
    EXPECT_EQ(first.lines("found").size(), 1U);
    EXPECT_THAT(second.lines("found"), IsEmpty());
    second.sdk->stop();
    EXPECT_TRUE(first.sdk->isRunning());
    first.hear(2, -60);
    EXPECT_EQ(first.lines("found").size(), 2U);
}

}  // namespace
}  // namespace quomi::test
