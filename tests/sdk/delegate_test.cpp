#include "quomi/sdk/event_upload.h"
#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

const Uuid kShop = *Uuid::parse(kShopUUID);

/// Everything that the delegate hears of a visit, once.
void visit(SdkFixture& app) {
    app.phone.enterBeaconRegion(kShop);
    app.phone.runTurns();
    app.hear(1, -60);
    app.hear(1, -60);
    app.settle(std::chrono::seconds(6));
    app.phone.exitBeaconRegion(kShop);
    app.phone.runTurns();
    app.sdk->forwardErrorToDelegate(Error{"test", 9, {}});
}

TEST(Delegate, EmptyOperationsMissingOnesAndThrowingOnesAreTheSame) {
    const std::function<void(SdkFixture&)> faults[] = {
        [](SdkFixture& app) { *app.delegate = {}; },
        [](SdkFixture& app) { app.delegate.reset(); },
        [](SdkFixture& app) { app.sdk->setDelegate({}); },
        [](SdkFixture& app) { app.inCallback = [](const std::string&) { throw std::runtime_error("host"); }; },
        [](SdkFixture& app) { app.inCallback = [](const std::string&) { throw 1; }; },
    };
    for (const auto& fault : faults) {
        SdkFixture app({.supportsGeofences = false});
        app.sdk->setFileLogEnabled(true);
        fault(app);
        app.sdk->setBaseURL("");
        EXPECT_TRUE(app.start());
        visit(app);
        EXPECT_FALSE(app.sdk->start());
        EXPECT_EQ(app.lines("request POST https://api.quomi.test/u_applications/shop/log").size(), 0U);
        app.settle(std::chrono::seconds(60));
        EXPECT_EQ(app.lines("request POST https://api.quomi.test/u_applications/shop/log").size(), 1U)
            << "events are logged all the same";
        app.sdk->stop();
        EXPECT_FALSE(app.sdk->isRunning());
    }
}

TEST(Delegate, BlocksOfTheHostThatThrowHoldNothingUp) {
    SdkFixture app;
    ASSERT_TRUE(app.start());
    app.sdk->updateUserInformation([] { throw 1; });
    int calls = 0;
    app.sdk->updateUserInformation([&calls] { ++calls; });
    app.settle();
    EXPECT_EQ(calls, 1);
    app.phone.transport().answer(kUserRequest, simulated::ScriptedAnswer::text("", 500));
    app.sdk->updateUserInformation({}, [](const Error&) { throw 1; });
    app.sdk->updateUserInformation({}, [&calls](const Error& error) { calls += static_cast<int>(error.code); });
    app.sdk->updateUserInformation();
    app.settle();
    EXPECT_EQ(calls, 501);
    EXPECT_THAT(app.lines("error"), IsEmpty()) << "the blocks alone hear of it";
}

TEST(Delegate, ErrorsAreLoggedAndOnlyRealOnesForwarded) {
    SdkFixture app;
    app.sdk->setFileLogEnabled(true);
    app.sdk->forwardErrorToDelegate(std::nullopt);
    app.sdk->forwardErrorToDelegate(Error{"test", 9, {{kLocalizedDescriptionKey, "broken"}}});
    EXPECT_THAT(app.journal, ElementsAre("error 9"));
    EXPECT_THAT(app.debugLines(),
                ElementsAre("Quomi SDK Error: (null)", "Quomi SDK Error: Error Domain=test Code=9 \"broken\""));
    app.sdk->clearDebugFile();
    EXPECT_EQ(app.sdk->getDebugFileContent(), "");
    app.sdk->setFileLogEnabled(false);
    app.sdk->forwardErrorToDelegate(std::nullopt);
    EXPECT_EQ(app.sdk->getDebugFileContent(), "");
}

TEST(Delegate, HearsOfEventsThatWereAccepted) {
    SdkFixture app;
    app.sdk->logEvent({{"early", 1}});
    ASSERT_TRUE(app.start());
    app.journal.clear();
    WallTime at;
    const auto record = app.delegate->didLogEvent;
    app.delegate->didLogEvent = [&](QuomiSDK& sdk, const boost::json::object& event, WallTime time) {
        at = time;
        record(sdk, event, time);
    };
    app.sdk->logEvent({{"n", 1}});
    EXPECT_EQ(at, app.phone.loop().now());
    // Once each, though the host logs what goes wrong.
    const auto recordError = app.delegate->didReceiveErrorNotification;
    app.delegate->didReceiveErrorNotification = [&](QuomiSDK& sdk, const Error& error) {
        recordError(sdk, error);
        sdk.logEvent({{"n", "\xFF"}});
    };
    app.sdk->logEvent({{"n", "\xFF"}});
    app.sdk->logEvent({{"n", std::string(EventUploadLoop::kLargestEvent, 'x')}});
    app.delegate->didReceiveErrorNotification = recordError;
    app.sdk->setEventLogsEnabled(false);
    app.sdk->logEvent({{"n", 2}});
    EXPECT_THAT(app.journal, ElementsAre("event {\"n\":1}", "error 600, running", "error 600, running"));
}

TEST(Delegate, AppStateGoesToTheDebugLogAndTheBackgroundTakesATask) {
    SdkFixture app;
    app.sdk->setFileLogEnabled(true);
    ASSERT_TRUE(app.start());
    app.sdk->clearDebugFile();
    app.journal.clear();
    app.phone.inactive();
    app.phone.background();
    app.phone.foreground();
    app.phone.active();
    app.phone.terminate();
    app.phone.runTurns();
    EXPECT_THAT(app.debugLines(), ElementsAre("applicationWillResignActive", "applicationDidEnterBackground",
                                              "applicationWillEnterForeground", "applicationDidBecomeActive",
                                              "applicationWillTerminate"));
    EXPECT_THAT(app.journal, ElementsAre("task begin"));
    app.phone.expireBackgroundTasks();
    app.phone.runTurns();
    app.settings.beaconEnabled = false;
    app.journal.clear();
    app.phone.background();
    app.phone.runTurns();
    EXPECT_THAT(app.journal, IsEmpty()) << "nothing to range";
}

}  // namespace
}  // namespace quomi::test
