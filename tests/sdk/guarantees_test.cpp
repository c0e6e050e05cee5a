// What docs/guarantees.md promises, as far as no other test looks after it.

#include "quomi/quomi.h"
#include "tests/sdk/town_fixture.h"

#include <malloc.h>
#include <sys/stat.h>

namespace quomi::test {
namespace {

/// A beacon 1-1 whose rule notifies, shows a page and opens a link.
const char* const kBeacons = R"({"query_params": {}, "valid_until": "2099-01-01T00:00:00Z", "remove_ids": [],
    "u_beacons": [{"id": "door", "name": "Door", "proximity_uid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1", "major": 1,
        "minor": 1, "start": "1960-01-01T00:00:00Z", "end": "2099-01-01T00:00:00Z", "updated_at": "2020-01-01T00:00:00Z",
        "rules_actions": [{"id": "r", "rule": {"trigger": "on_entry", "proximity": 1, "proximity_end": 3},
            "action": {"notify_user": "Hello", "open_url": "https://shop.test/page"}}]}]})";

void hangBeacons(SdkFixture& app) {
    app.phone.transport().answer(kBeaconsRequest, ScriptedAnswer::text(kBeacons));
}

/// Files and directories of the container, without what the phone itself remembers.
std::vector<std::filesystem::directory_entry> contentOf(const std::filesystem::path& container) {
    std::vector<std::filesystem::directory_entry> content;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(container)) {
        if (entry.path().filename() != "phone.json") content.push_back(entry);
    }
    return content;
}

/// A start, a beacon with its rule, uploads, an error and a stop, everything logged.
void visit(SdkFixture& app) {
    hangBeacons(app);
    app.sdk->setFileLogEnabled(true);
    EXPECT_TRUE(app.start());
    app.phone.enterBeaconRegion(*Uuid::parse(kShopUUID));
    app.hear(1, -60);
    app.settle(seconds(5));
    app.sdk->logEvent({{"of", "the host"}});
    EXPECT_FALSE(app.sdk->start());
    app.settle(seconds(60));
    app.sdk->stop();
    app.phone.runTurns();
}

TEST(Guarantees, AHostThatThrowsEverywhereIsAHostThatImplementsNothing) {
    SdkFixture app;
    const auto fault = [](auto&&...) { throw std::runtime_error("host"); };
    const auto refusal = [](auto&&...) -> bool { throw 1; };
    auto& host = *app.delegate;
    app.inCallback = fault;
    host.shouldExecuteNotificationRequestCompletionBlock = fault;
    host.shouldExecuteOpenWebPageRequest = host.shouldExecuteOpenDeepLinkRequest = refusal;
    host.shouldExecuteServerNotificationRequest = refusal;
    host.shouldExecuteNotificationRequest = refusal;
    host.executeNotificationRequest = fault;
    host.executeOpenWebPageRequest = host.executeOpenDeepLinkRequest = fault;
    host.didReceiveLocationChange = fault;
    const auto observer = std::make_shared<RuleObserver>();
    observer->ruleDecided = fault;
    app.sdk->setRuleObserver(observer);
    const auto running = app.sdk->observe(QuomiSDKProperty::isRunning, fault);
    app.sdk->performServerSync(fault);
    app.sdk->setUser(std::make_shared<QuomiUser>("me"), fault, fault);
    EXPECT_NO_THROW(visit(app));
    ASSERT_EQ(app.phone.notifications().size(), 1U);
    EXPECT_EQ(app.phone.notifications()[0].body, "Hello");
    EXPECT_EQ(app.phone.shownWebPage(), "https://shop.test/page");
    EXPECT_NO_THROW(app.sdk->performServerSync(fault));
}

TEST(Guarantees, TheLibraryPrintsNothing) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    {
        SdkFixture app;
        visit(app);
        std::ofstream(app.storeFile()) << "no database";
        app.sdk->start();
        app.settle();
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Guarantees, TheHostAloneHoldsItsObjects) {
    SdkFixture app;
    auto observer = std::make_shared<RuleObserver>();
    const auto view = std::make_shared<int>(1);
    app.sdk->setRuleObserver(observer);
    app.sdk->setAdPlaceholderView(view);
    app.delegate->shouldExecuteNotificationRequestCompletionBlock = [](auto&&...) {};  // waits for ever
    visit(app);
    EXPECT_TRUE(app.sdk->start());
    app.settle();
    EXPECT_EQ(app.delegate.use_count(), 1);
    EXPECT_EQ(observer.use_count(), 1);
    EXPECT_EQ(view.use_count(), 1);
    app.delegate.reset();
    EXPECT_EQ(app.sdk->delegate(), nullptr);
    EXPECT_TRUE(app.sdk->isRunning());
}

TEST(Guarantees, NoTimerIsLeftWhenIdle) {
    SdkFixture app;
    app.sdk->setEventLogsEnabled(false);
    app.sdk->setBeaconsEnabled(false);
    ASSERT_TRUE(app.start());
    app.settle(seconds(120));
    EXPECT_EQ(app.phone.loop().pendingEvents(), 0U) << "running, with nothing to watch or to send";
    app.sdk->setBeaconsEnabled(true);
    app.sdk->setEventLogsEnabled(true);
    app.sdk->logEvent({{"of", "the host"}});
    app.settle(seconds(130));
    EXPECT_EQ(app.phone.loop().pendingEvents(), 2U) << "the watch for lost beacons and the upload";
    app.sdk->stop();
    visit(app);
    EXPECT_EQ(app.phone.loop().pendingEvents(), 0U) << "stopped";
    EXPECT_EQ(app.phone.runningBackgroundTasks(), 0U);
}

TEST(Guarantees, FilesArePrivate) {
    using std::filesystem::perms;
    const auto mask = ::umask(0);
    SdkFixture app;
    visit(app);
    ::umask(mask);
    const auto content = contentOf(app.directory.path());
    EXPECT_GE(content.size(), 6U) << "the store, two logs and their directories";
    for (const auto& entry : content) {
        const auto expected = entry.is_directory() ? perms::owner_all : perms::owner_read | perms::owner_write;
        EXPECT_EQ(entry.status().permissions(), expected) << entry.path();
    }
}

/// What a visit with a beacon and a geofence logs while another process writes to the store all the time. Rules do not
/// run meanwhile, since nothing can be counted.
TEST(Guarantees, ALockedStoreCostsNoEvent) {
    std::vector<std::vector<std::string>> events;
    for (const bool isLocked : {false, true}) {
        Town app({geofenceOf("well", {ruleOf("in", "on_entry")})});
        hangBeacons(app);
        ASSERT_TRUE(app.begin());
        app.hear(2, -60);
        app.settle(seconds(60));
        SQLite::Database other(app.storeFile().string(), SQLite::OPEN_READWRITE);
        if (isLocked) other.exec("BEGIN IMMEDIATE");
        app.journal.clear();
        const auto begin = std::chrono::steady_clock::now();
        for (int i = 0; i < 20; ++i) {
            app.hear(1, -60);
            app.enter("well");
            app.settle(seconds(10));
            app.leave("well");
        }
        // One wait in vain, not one an operation.
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 5s);
        events.push_back(app.lines("event {\"type\":\"view\""));
    }
    EXPECT_GE(events[0].size(), 59U);
    EXPECT_EQ(events[0], events[1]);
}

TEST(Guarantees, AThousandStartsAndStopsKeepNothing) {
    SdkFixture app;
    hangBeacons(app);
    // The phone keeps what is shown.
    app.delegate->shouldExecuteNotificationRequest = [](auto&&...) { return false; };
    app.delegate->shouldExecuteOpenWebPageRequest = [](auto&&...) { return false; };
    const auto cycle = [&app] {
        EXPECT_TRUE(app.start());
        app.hear(1, -60);
        app.sdk->stop();
        app.phone.runTurns();
        app.journal.clear();
    };
    for (int i = 0; i < 20; ++i) cycle();
    const auto before = ::mallinfo2();
    for (int i = 0; i < 1000; ++i) cycle();
    const auto after = ::mallinfo2();
    const auto inUse = [](const auto& info) { return static_cast<std::int64_t>(info.uordblks + info.hblkhd); };
    RecordProperty("bytes_grown", std::to_string(inUse(after) - inUse(before)));
    EXPECT_LT(inUse(after) - inUse(before), 1 << 20);
}

/// Every operation of the facade that others do not call in all states.
void callEverything(QuomiSDK& sdk) {
    sdk.stop(), sdk.setAuthorizationLogger(nullptr), sdk.setPresentationViewController(nullptr);
    EXPECT_EQ(sdk.presentationViewController(), nullptr);
    sdk.executeNotificationRequestActions({});
    sdk.openWebPageForUrl("https://shop.test/"), sdk.openDeepLinkForURL("shop://");
    sdk.setServerNotificationRequestHeader("X-A", "1"), sdk.setServerNotificationRequestHeader("X-A", std::nullopt);
    sdk.updateAllRulesData(), sdk.triggerLocationUpdate(), sdk.updateLocation();
    sdk.resetCounters(), sdk.removeAllData();
    sdk.performServerSync({}), sdk.performServerSync([](std::uint64_t) {});
    sdk.forwardErrorToDelegate(std::nullopt), sdk.logEvent({});
    static_cast<void>(sdk.getDebugFileContent());
    sdk.clearDebugFile(), sdk.registerCloudMessagingPushNotificationsDeviceToken("");
    sdk.setUser(nullptr), sdk.setBaseURL(""), sdk.start();
}

TEST(Guarantees, EveryOperationInEveryState) {
    const std::function<void(SdkFixture&)> states[] = {
        [](SdkFixture&) {},
        [](SdkFixture& app) { app.sdk->start(); },
        [](SdkFixture& app) { app.start(); },
        [](SdkFixture& app) { visit(app); },
        [](SdkFixture& app) {
            app.sdk->setAppNamespace({});
            app.sdk->start();
        },
        [](SdkFixture& app) { app.phone.terminate(); },
    };
    for (const auto& bring : states) {
        SdkFixture app;
        bring(app);
        for (int i = 0; i < 2; ++i) EXPECT_NO_THROW(callEverything(*app.sdk));
        app.sdk->setAppNamespace("shop");
        app.settle(seconds(30));
        EXPECT_TRUE(app.start());
        app.sdk->stop();
        app.phone.runTurns();
        EXPECT_EQ(app.phone.loop().pendingEvents(), 0U);
    }
}

}  // namespace
}  // namespace quomi::test
