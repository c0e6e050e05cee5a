#include "quomi/rules/rule_observer.h"
#include "quomi/sdk/authorization_logger.h"
#include "quomi/sdk/authorization_manager.h"
#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

const Uuid kShop = *Uuid::parse(kShopUUID);

/// What may still come once the host has done something.
enum class Afterwards { everything, ownBlocks, nothing };

struct Operation {
    const char* name;
    std::function<void(SdkFixture&, QuomiSDK&)> run;
    Afterwards afterwards = Afterwards::everything;
};

/// A host that shows a dialogue runs the loop inside of its callback.
void runTheLoop(SdkFixture& app) {
    for (int turns = 0; turns < 200 && app.phone.loop().runOneSource(); ++turns) {
    }
}

const std::vector<Operation>& operations() {
    constexpr const char* kElsewhere = "https://other.test";
    static const std::vector<Operation> all{
        {"stop", [](auto&, auto& sdk) { sdk.stop(); }, Afterwards::nothing},
        {"start", [](auto&, auto& sdk) { sdk.start(); }},
        {"stop and start", [](auto&, auto& sdk) { sdk.stop(), sdk.start(); }},
        {"stop, start, stop", [](auto&, auto& sdk) { sdk.stop(), sdk.start(), sdk.stop(); }, Afterwards::nothing},
        {"stop, move, start",
         [](auto&, auto& sdk) { sdk.stop(), sdk.setAppNamespace("other"), sdk.setBaseURL(kElsewhere), sdk.start(); }},
        {"beacons off", [](auto&, auto& sdk) { sdk.setBeaconsEnabled(false); }},
        {"beacons on", [](auto&, auto& sdk) { sdk.setBeaconsEnabled(true); }},
        {"beacons off and on", [](auto&, auto& sdk) { sdk.setBeaconsEnabled(false), sdk.setBeaconsEnabled(true); }},
        {"geofences off and on",
         [](auto&, auto& sdk) { sdk.setGeofencesEnabled(false), sdk.setGeofencesEnabled(true); }},
        {"other setters",
         [](auto&, auto& sdk) {
             sdk.setRequestWhenInUseAuthorization(true), sdk.setUseExtendedBackgroundRangingTime(true);
             sdk.setFileLogEnabled(false), sdk.setEventLogsEnabled(false), sdk.setEnableIDFACollection(true);
             sdk.clearDebugFile();
         }},
        {"namespace", [](auto&, auto& sdk) { sdk.setAppNamespace("other"); }},
        {"base URL", [](auto&, auto& sdk) { sdk.setBaseURL(kElsewhere); }},
        {"event",
         [](auto&, auto& sdk) {
             sdk.logEvent(boost::json::object{{"again", 1}});
         }},
        {"error",
         [](auto&, auto& sdk) {
             sdk.forwardErrorToDelegate(Error{"again", 1, {}});
         }},
        {"user", [](auto&, auto& sdk) { sdk.updateUserInformation(); }},
        {"other user", [](auto&, auto& sdk) { sdk.setUser(std::make_shared<QuomiUser>("another")); }},
        {"no user", [](auto&, auto& sdk) { sdk.setUser(nullptr); }},
        {"run the loop", [](auto& app, auto&) { runTheLoop(app); }},
        {"stop and run the loop", [](auto& app, auto& sdk) { sdk.stop(), runTheLoop(app); }, Afterwards::nothing},
        {"beacons off and run the loop", [](auto& app, auto& sdk) { sdk.setBeaconsEnabled(false), runTheLoop(app); }},
        {"stop, move, start and ask for rights",
         [](auto& app, auto& sdk) {
             const auto platform = app.phone.platform();
             const QuomiAuthorizationManager manager(platform, sdk);
             sdk.stop(), sdk.setBaseURL(kElsewhere), sdk.start();
             EXPECT_TRUE(manager.areAllNotificationRightsGranted());
         }},
        {"synchronise", [](auto&, auto& sdk) { sdk.performServerSync([](auto) {}); }},
        {"reset counters", [](auto&, auto& sdk) { sdk.resetCounters(); }},
        {"remove all data", [](auto&, auto& sdk) { sdk.removeAllData(); }},
        {"remove all data and stop", [](auto&, auto& sdk) { sdk.removeAllData(), sdk.stop(); }, Afterwards::nothing},
        {"update all rules", [](auto&, auto& sdk) { sdk.updateAllRulesData(); }},
        {"no rule observer", [](auto&, auto& sdk) { sdk.setRuleObserver({}); }},
        {"no authorization logger", [](auto&, auto& sdk) { sdk.setAuthorizationLogger(nullptr); }},
        {"no delegate", [](auto&, auto& sdk) { sdk.setDelegate({}); }, Afterwards::ownBlocks},
        {"delegate dies", [](auto& app, auto&) { app.delegate.reset(); }, Afterwards::ownBlocks}};
    return all;
}

boost::json::object ruleOf(const char* id, const char* trigger, int latchTime, boost::json::object action) {
    return {{"id", id},
            {"rule", {{"trigger", trigger}, {"proximity", 1}, {"proximity_end", 2}, {"latch_time", latchTime}}},
            {"action", std::move(action)}};
}

/// A beacon whose rules do everything that rules can do.
ScriptedAnswer beaconsAnswer() {
    const boost::json::array rules{
        ruleOf("note", "on_entry", 0, {{"notify_user", "Hello"}}),
        ruleOf("both", "on_exit", 0, {{"notify_user", "Bye"}, {"open_url", "https://shop.test/bye"}}),
        ruleOf("page", "on_entry", 0, {{"open_url", "https://shop.test/page"}}),
        ruleOf("link", "on_entry", 0, {{"open_deep_link", R"({"iosURL": "https://shop.test/link"})"}}),
        ruleOf("server", "on_entry", 0, {{"notify_server", "https://shop.test/hook"}, {"notify_user", "Asked"}}),
        ruleOf("waits", "on_entry", 1, {{"notify_user", "Still here"}}),
        ruleOf("leaves", "on_exit", 1, {{"notify_user", "Gone"}})};
    auto beacon = boost::json::parse(R"({"id": "b", "proximity_uid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1", "major": 1,
        "minor": 1, "start": "1970-01-01T00:00:00Z", "end": "2100-01-01T00:00:00Z"})");
    beacon.as_object()["rules_actions"] = rules;
    return rulesAnswer("u_beacons", {beacon});
}

/// A host that decides about every action, and does some of them itself. Its server request fails in its hands.
void decide(QuomiSDKDelegate& host, RunLoop& later, const std::function<void(const char*)>& tellTest) {
    const auto allows = [tellTest](const char* what) {
        return [tellTest, what](QuomiSDK&, const std::string&, int) { return tellTest(what), true; };
    };
    host.shouldExecuteNotificationRequestCompletionBlock = [tellTest, &later](QuomiSDK&, const auto&, int,
                                                                              const auto& answer) {
        tellTest("asksNote");
        later.post([answer] { answer(true); });
    };
    host.executeNotificationRequest = [tellTest](QuomiSDK&, const auto&, int) { tellTest("doesNote"); };
    host.shouldExecuteOpenWebPageRequest = allows("asksPage");
    host.executeOpenWebPageRequest = [tellTest](QuomiSDK&, const auto&, int) { tellTest("doesPage"); };
    host.shouldExecuteOpenDeepLinkRequest = allows("asksLink");
    host.shouldExecuteServerNotificationRequest = allows("asksServer");
    host.executeServerNotificationRequest = [tellTest](QuomiSDK&, const auto&, int, const auto&, const auto&) {
        tellTest("doesServer");
        throw std::runtime_error("the host cannot, and the SDK asks");
    };
}

/// A life of the SDK in which every callback comes, whatever the host does in one of them.
void live(SdkFixture& app) {
    app.phone.transport().answer(kLimitsRequest, {ScriptedAnswer::text("", 500)});
    app.phone.transport().answer(kBeaconsRequest, beaconsAnswer());
    app.phone.transport().answer("GET https://shop.test/hook", ScriptedAnswer::json({{"decision", "enable"}}));
    const auto tellTest = [&app](const char* block) {
        app.journal.emplace_back(block);
        if (app.inCallback) app.inCallback(block);
    };
    decide(*app.delegate, app.phone.loop(), tellTest);
    const auto observer =
        std::make_shared<RuleObserver>(RuleObserver{[tellTest](const RuleReport&) { tellTest("decided"); }});
    app.sdk->setRuleObserver(observer);
    const auto tellSwitch = [tellTest](bool, bool) { tellTest("switched"); };
    const auto running = app.sdk->observe(QuomiSDKProperty::isRunning, [tellTest](bool, bool) { tellTest("running"); });
    const auto beacons = app.sdk->observe(QuomiSDKProperty::beaconsEnabled, tellSwitch);
    const auto platform = app.phone.platform();
    QuomiAuthorizationManager manager(platform, *app.sdk);
    const auto authorization = std::make_shared<QuomiAuthorizationDelegate>();
    authorization->bluetoothStatusDidChange = [tellTest](bool) { tellTest("bluetooth"); };
    authorization->quomiBeaconsServiceStatusDidChange = [tellTest](bool) { tellTest("service"); };
    manager.setAuthorizationDelegate(authorization);
    app.sdk->start();
    app.settle();
    app.sdk->updateUserInformation([tellTest] { tellTest("success"); });
    app.settle();
    const auto user = std::make_shared<QuomiUser>("me");
    const auto tags = user->observeTags([tellTest](const auto&, const auto&) { tellTest("changed"); });
    app.sdk->setUser(user, [tellTest] { tellTest("held"); });
    app.settle();
    user->setTags({{"a"}});
    app.sdk->registerCloudMessagingPushNotificationsDeviceToken("00ff", {},
                                                                [tellTest](const Error&) { tellTest("refused"); });
    app.sdk->setBeaconsEnabled(true);
    app.settle();
    app.phone.transport().answer(kUserRequest, {ScriptedAnswer::text("", 500)});
    app.sdk->updateUserInformation({}, [tellTest](const Error&) { tellTest("failure"); });
    app.settle();
    app.phone.enterBeaconRegion(kShop);
    app.settle();
    app.phone.range({{kShop, 1, 1, PlatformProximity::near, 2.0, -60}, {kShop, 1, 2, PlatformProximity::far, 9, -80}});
    app.settle(std::chrono::seconds(2));
    app.phone.range({{kShop, 1, 2, PlatformProximity::near, 2.0, -60}, {kShop, 1, 1, PlatformProximity::far, 9, -80}});
    app.phone.background();
    app.phone.runTurns();
    app.settle(std::chrono::seconds(10));
    app.phone.exitBeaconRegion(kShop);
    app.phone.expireBackgroundTasks();
    app.settle(std::chrono::seconds(60));
}

std::string kindOf(const std::string& line) {
    return line.substr(0, line.find(' '));
}

const std::set<std::string> kCallbacks{
    "error",    "event",    "entered",  "exited",     "found",    "lost",      "updated",   "ping",     "success",
    "failure",  "held",     "refused",  "running",    "service",  "bluetooth", "changed",   "switched", "decided",
    "asksNote", "asksPage", "asksLink", "asksServer", "doesNote", "doesPage",  "doesServer"};
/// What the host hears of what it does itself, and of the phone through an object of its own.
const std::set<std::string> kOwnDoing{"bluetooth", "changed", "switched", "service", "refused"};

/// Runs the operation when the callback comes for the first time; what the host hears afterwards.
std::vector<std::string> liveWith(SdkFixture& app, const std::string& callback, const Operation& operation) {
    bool ran = false;
    std::vector<std::string> heardAfterwards;
    app.inCallback = [&](const std::string& line) {
        if (ran) {
            if (!kOwnDoing.contains(kindOf(line))) heardAfterwards.push_back(line);
        } else if (kindOf(line) == callback) {
            ran = true;
            operation.run(app, *app.sdk);
            heardAfterwards.clear();  // what the operation itself led to
        }
    };
    live(app);
    app.inCallback = {};
    EXPECT_TRUE(ran);
    return heardAfterwards;
}

/// Whatever happened, the SDK can be brought to rest and to life again.
void expectSound(SdkFixture& app) {
    app.sdk->stop();
    app.phone.runTurns();
    EXPECT_EQ(app.phone.loop().pendingEvents(), 0U);
    EXPECT_EQ(app.phone.runningBackgroundTasks(), 0U);
    EXPECT_TRUE(app.phone.monitoredRegions().empty());
    app.sdk->setBeaconsEnabled(true);
    EXPECT_TRUE(app.start());
    EXPECT_EQ(app.phone.rangedRegions().size(), 1U);
}

TEST(Reentrancy, EveryCallbackComesWhenTheHostOnlyListens) {
    SdkFixture app;
    app.inCallback = [](const std::string&) {};
    live(app);
    std::set<std::string> kinds;
    for (const auto& line : app.journal) {
        if (kCallbacks.contains(kindOf(line))) kinds.insert(kindOf(line));
    }
    EXPECT_EQ(kinds, kCallbacks);
}

class EveryCallback : public testing::TestWithParam<std::string> {};

TEST_P(EveryCallback, TakesEveryOperation) {
    for (const auto& operation : operations()) {
        SCOPED_TRACE(operation.name);
        SdkFixture app;
        const auto heard = liveWith(app, GetParam(), operation);
        if (operation.afterwards == Afterwards::nothing) {
            EXPECT_THAT(heard, testing::IsEmpty());
        }
        if (operation.afterwards == Afterwards::ownBlocks) {
            EXPECT_THAT(heard,
                        testing::Each(testing::AnyOf("success", "failure", "held", "refused", "running", "decided")));
        }
        expectSound(app);
    }
}

INSTANTIATE_TEST_SUITE_P(Reentrancy, EveryCallback, testing::ValuesIn(kCallbacks),
                         [](const auto& callback) { return callback.param; });

TEST(Reentrancy, ABeaconHeardAgainWhileTheHostIsToldOfAnotherOneIsNotLost) {
    SdkFixture app;
    ASSERT_TRUE(app.start());
    app.hear(1, -60);
    app.hear(2, -60);
    app.inCallback = [&app](const std::string& line) {
        if (!line.starts_with("lost")) return;
        app.phone.range({{kShop, 1, 2, PlatformProximity::near, 2.0, -60}});
        runTheLoop(app);
    };
    app.settle(std::chrono::seconds(6));
    EXPECT_THAT(app.lines("lost"), testing::ElementsAre("lost " + SdkFixture::beacon(1)));
}

TEST(Reentrancy, StartThatFailsTakesEveryOperation) {
    // Errors told from inside start: no namespace, no store, no geofences on this phone.
    for (const int failure : {7, 604, 5}) {
        for (const auto& operation : operations()) {
            SCOPED_TRACE(operation.name + std::string(" in ") + std::to_string(failure));
            SdkFixture app({.supportsGeofences = failure != 5});
            app.start();
            app.sdk->stop();
            app.phone.runTurns();
            if (failure == 7) app.sdk->setAppNamespace({});
            if (failure == 5) app.settings.geofencingEnabled = true;
            if (failure == 604) {
                std::filesystem::remove_all(app.storeFile().parent_path());
                std::ofstream(app.storeFile().parent_path()) << "a file";
            }
            app.inCallback = [&](const std::string& line) {
                if (!line.starts_with("error")) return;
                app.inCallback = {};
                operation.run(app, *app.sdk);
            };
            EXPECT_FALSE(app.sdk->start());
            app.settle();
            app.inCallback = {};
            app.sdk->stop();
            app.settings.geofencingEnabled = false;
            std::filesystem::remove_all(app.storeFile().parent_path());
            app.sdk->setAppNamespace("shop");
            app.sdk->setBeaconsEnabled(true);
            EXPECT_TRUE(app.start());
        }
    }
}

}  // namespace
}  // namespace quomi::test
