#include "quomi/rules/action_executor.h"

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/api/api_client.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "quomi/platform/application_helpers.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/web_page.h"
#include "tests/rules/hooked_host.h"
#include "tests/support/prelude.h"

namespace quomi::test {
namespace {

using simulated::ScriptedAnswer;

constexpr const char* kPage = "https://shop.test/offers";
constexpr const char* kLink = R"({"iosURL": "https://shop.test/link"})";
constexpr const char* kEvent =
    R"(event {"type":"action","action":"notify_user","area_type":"beacon","rule_id":"r1","beacon_id":"b1"})";

/// An executor on a phone, and what happened in order.
class ActionExecutorTest : public testing::Test {
protected:
    ActionExecutorTest() {
        executor_ = std::make_unique<QuomiActionExecutor>(ActionExecutorContext{
            platform_, pages_, actionHost_,
            [this](const boost::json::object& event) { note("event " + boost::json::serialize(event)); },
            [] {
                return boost::json::object{{"name", "Ann"}};
            }});
        executor_->setApiClient(&api_);
        phone_.transport().answer("GET https://shop.test/a.png", ScriptedAnswer::text("image"));
    }

    simulated::PhoneObserver observer() {
        simulated::PhoneObserver observer;
        observer.notification = [this](const auto& request) {
            journal_.push_back(fmt::format("notification {} {}", *request.body, request.attachments.size()));
        };
        observer.categoryRegistered = [this](const auto& category) {
            journal_.push_back("category " + category.identifier);
        };
        observer.webPage = [this](const auto& url) { journal_.push_back("page " + url); };
        observer.openURL = [this](const auto& url) { journal_.push_back("open " + url); };
        observer.console = [this](std::string_view text) { journal_.push_back("console " + std::string(text)); };
        observer.request = [this](const HttpRequest& request) { journal_.push_back("request " + request.url); };
        return observer;
    }

    /// Every hook and the event log call this with what they are told.
    void note(const std::string& line) {
        journal_.push_back(line);
        if (inCallback_) inCallback_(line);
    }

    auto asked(bool answer) {
        return [this, answer](const std::string& url, int by) {
            note(fmt::format("asked {} {}", url, by));
            return answer;
        };
    }
    auto performs() {
        return [this](const std::string& url, int by) { note(fmt::format("performs {} {}", url, by)); };
    }

    void notify(const std::string& param = "Hello {name}") {
        executor_->executeNotifyUserAction(param, {{"rule_id", "r1"}, {"beacon_id", "b1"}}, 2,
                                           [this](bool shown) { note(shown ? "shown" : "refused"); });
    }
    ActionOutcome notifyServer(const std::string& url = "https://shop.test/hook") {
        return executor_->executeNotifyServerAction(
            {url, [this] { note("success"); },
             [this](const Error& error) { note(fmt::format("failure {}", error.code)); }, [this] { note("enabled"); }},
            1, {{"rule_id", "r1"}});
    }
    void settle() { phone_.advanceBy(std::chrono::seconds(1)); }

    std::vector<std::string> journal_;
    std::function<void(const std::string&)> inCallback_;
    simulated::SimulatedPhone phone_{{.resources = {{"pages/help.html", "<p>"}}}, observer()};
    const Platform platform_ = phone_.platform();
    QuomiSettings settings_{Deployment{}, platform_.location};
    DebugLog debugLog_{platform_.files, platform_.clock, [] { return false; }};
    QuomiAPI api_{"https://api.test", platform_, settings_, debugLog_};
    WebPagePresenter pages_{platform_.screens, platform_.runLoop};
    HostHooks host_;
    const HookedHost actionHost_{host_};
    std::unique_ptr<QuomiActionExecutor> executor_;
};

TEST_F(ActionExecutorTest, NotificationIsLoggedAndShownAtOnceAndItsCategoryJoinsTheOthers) {
    platform_.notifications.setCategories({{"apps own", {}}, {"QuomiCategoryIdentifier", {}}});
    journal_.clear();
    notify(R"({"alertBody": "Hello {name}"})");
    EXPECT_THAT(journal_, ElementsAre(kEvent, "notification Hello Ann 0"));
    settle();
    EXPECT_THAT(journal_, ElementsAre(kEvent, "notification Hello Ann 0", "category QuomiCategoryIdentifier"));
    ASSERT_EQ(phone_.categories().size(), 2U);
    EXPECT_EQ(phone_.categories()[0].identifier, "apps own");
    EXPECT_EQ(phone_.categories()[1].actions.size(), 1U);
    notify("Again");
    EXPECT_EQ(phone_.notifications().size(), 1U);
    EXPECT_EQ(phone_.badge(), 2);
}

TEST_F(ActionExecutorTest, ImageIsAttachedAndAFailedOneLeftOut) {
    notify(R"({"alertBody": "A", "iosImageUrl": "https://shop.test/a.png"})");
    notify(R"({"alertBody": "B", "iosImageUrl": "https://shop.test/none.png"})");
    EXPECT_THAT(journal_, ElementsAre("request https://shop.test/a.png", "request https://shop.test/none.png"));
    settle();
    EXPECT_THAT(journal_, Contains("notification A 1"));
    EXPECT_EQ(journal_.back(), "notification B 0");
}

TEST_F(ActionExecutorTest, HostDecidesOnceAtOnceOrLater) {
    std::function<void(bool)> answer;
    host_.shouldExecuteNotificationRequestCompletionBlock = [&](const auto&, int, auto block) { answer = block; };
    for (const bool yes : {true, false}) {
        journal_.clear();
        notify("Later");
        settle();
        EXPECT_THAT(journal_, IsEmpty());
        answer(yes);
        answer(!yes);
        answer(yes);
        EXPECT_EQ(journal_, yes ? Strings({kEvent, "notification Later 0"}) : Strings({"refused"}));
    }
}

TEST_F(ActionExecutorTest, HooksThatThrowCountAsMissing) {
    const auto throws = [](const auto&...) -> bool { throw std::runtime_error("host"); };
    const auto throwsToo = [](const auto&...) { throw std::runtime_error("host"); };
    host_ = {throwsToo, throws, throws, throws, throws, throwsToo, throwsToo, throwsToo, throwsToo};
    phone_.transport().answer("GET https://shop.test/hook", ScriptedAnswer::json({{"decision", "enable"}}));
    notify();
    EXPECT_TRUE(executor_->executeOpenWebPageAction(kPage, 1));
    EXPECT_TRUE(executor_->executeOpenDeepLinkAction(kLink, 1));
    EXPECT_EQ(notifyServer(), ActionOutcome::performed);
    settle();
    EXPECT_THAT(journal_, testing::IsSupersetOf({std::string("notification Hello Ann 0"),
                                                 std::string("page https://shop.test/offers"),
                                                 std::string("open https://shop.test/link"), std::string("success")}));
    // One that has answered before it throws has answered.
    journal_.clear();
    host_.shouldExecuteNotificationRequestCompletionBlock = [](const auto&, int, auto block) {
        block(false);
        throw std::runtime_error("host");
    };
    host_.executeServerNotificationRequest = [](const auto&, int, auto success, auto) {
        success();
        throw std::runtime_error("host");
    };
    notify();
    EXPECT_EQ(notifyServer(), ActionOutcome::performedByHost);
    settle();
    EXPECT_THAT(journal_, ElementsAre("refused", "success"));
}

TEST_F(ActionExecutorTest, PageOpensInALaterTurnOverTheTopScreen) {
    EXPECT_TRUE(executor_->executeOpenWebPageAction(kPage, 2));
    EXPECT_THAT(journal_, IsEmpty());
    settle();
    EXPECT_THAT(journal_, ElementsAre("page https://shop.test/offers"));
    EXPECT_TRUE(executor_->executeOpenWebPageActionWithURL("file://pages/help.html")) << "over the first page";
    settle();
    EXPECT_EQ(phone_.shownWebPage(), "file://pages/help.html");
    EXPECT_EQ(pages_.count(), 2U);
    executor_->end();
    executor_.reset();
    EXPECT_EQ(pages_.count(), 2U) << "the user closes pages, not the end";
    phone_.dismissWebPage();
    settle();
    EXPECT_EQ(pages_.count(), 1U) << "one that is swiped away is let go of";
    phone_.closeWebPage();
    settle();
    EXPECT_EQ(phone_.shownWebPage(), "");
    EXPECT_EQ(pages_.count(), 0U);
}

TEST_F(ActionExecutorTest, PageThatCannotBeShownWarnsAndIsFalse) {
    const auto busy = phone_.presentScreen(true);
    executor_->setPresentationViewController(busy);
    EXPECT_EQ(executor_->executeOpenAction(ActionKind::openUrl, kPage, 2), ActionOutcome::impossible);
    EXPECT_THAT(std::exchange(journal_, {}),
                ElementsAre("console Quomi SDK Warning: can't present view controller for web page action, a "
                            "UIVIewController is already presented by UIVIewController <UIViewController>"));
    executor_->setPresentationViewController(nullptr);
    for (const auto& [url, warning] : std::vector<std::pair<const char*, const char*>>{
             {"file://pages/none.html", "'none.html' in folder 'pages' (URL = 'file://pages/none.html')"},
             {"file:none.html", "'none.html' in folder '(null)' (URL = 'file:none.html')"}}) {
        EXPECT_FALSE(executor_->executeOpenWebPageActionWithURL(url));
        EXPECT_THAT(std::exchange(journal_, {}),
                    ElementsAre(fmt::format(
                        "console Quomi SDK Warning: Unable to load file {} for open web page action", warning)));
    }
    settle();
    EXPECT_EQ(pages_.count(), 0U);
}

TEST_F(ActionExecutorTest, SecondPageOfATurnIsRefusedAndOneWhoseScreenIsTakenMeanwhileWarns) {
    const std::string busy =
        "console Quomi SDK Warning: can't present view controller for web page action, a UIVIewController is already "
        "presented by UIVIewController <UIViewController>";
    EXPECT_TRUE(executor_->executeOpenWebPageAction(kPage, 2));
    EXPECT_FALSE(executor_->executeOpenWebPageAction("https://shop.test/second", 2));
    settle();
    EXPECT_THAT(std::exchange(journal_, {}), ElementsAre(busy, "page https://shop.test/offers"));
    EXPECT_TRUE(executor_->executeOpenWebPageAction("https://shop.test/third", 2)) << "over the first";
    const auto app = pages_.present(QuomiApplicationHelpers(platform_.screens).topViewController(), kPage);
    settle();
    EXPECT_TRUE(app);
    EXPECT_EQ(journal_.back(), busy);
    EXPECT_EQ(pages_.count(), 2U);
}

TEST_F(ActionExecutorTest, DeepLinkIsTheFirstUrlThatIsThereAndThatThePhoneOpens) {
    const Table<const char*, std::optional<std::string>, bool> cases = {
        {R"({"iosURL": "https://a.test", "genericURL": "https://b.test"})", "https://a.test", true},
        {R"({"iosURL": null, "genericURL": "https://b.test"})", "https://b.test", true},
        {R"({"genericURL": "shop://offers"})", "shop://offers", false},
        {R"({"androidURL": "https://c.test"})", std::nullopt, false},
        {R"(["iosURL"])", std::nullopt, false},
        {"https://a.test", std::nullopt, false},
    };
    for (const auto& [param, url, opens] : cases) {
        EXPECT_EQ(QuomiActionExecutor::getDeepLinkURLFromJSON(param), url) << param;
        EXPECT_EQ(executor_->executeOpenDeepLinkAction(param, 1), opens) << param;
        settle();
        EXPECT_EQ(std::exchange(journal_, {}).size(), opens ? 1U : 0U);
    }
}

TEST_F(ActionExecutorTest, HostAsksTheServerItselfAndReportsOnceWithoutEnabling) {
    std::function<void()> success;
    std::function<void(const Error&)> failure;
    host_.executeServerNotificationRequest = [&](const auto& url, int by, auto good, auto bad) {
        note(fmt::format("performs {} {}", url, by));
        success = good;
        failure = bad;
    };
    EXPECT_EQ(notifyServer(), ActionOutcome::performedByHost);
    failure({"host", 7, {}});
    success();
    EXPECT_THAT(std::exchange(journal_, {}), ElementsAre("performs https://shop.test/hook 1", "failure 7"));
    EXPECT_EQ(executor_->executeNotifyServerAction({"https://shop.test/hook"}, 1, {}), ActionOutcome::performedByHost);
    success();
    settle();
    EXPECT_THAT(journal_, ElementsAre("performs https://shop.test/hook 1"));
}

/// From inside each hook in turn the executor ends, as `stop` ends it, and goes.
TEST_F(ActionExecutorTest, EndFromInsideAnyCallbackIsTheLastThatHappens) {
    phone_.transport().answer("GET https://shop.test/hook", ScriptedAnswer::json({{"decision", "enable"}}));
    host_.shouldExecuteNotificationRequestCompletionBlock = [this](const auto&, int, auto block) {
        note("asked later");
        block(true);
    };
    host_.shouldExecuteNotificationRequest = [this](const auto&, int) {
        note("asked");
        return true;
    };
    host_.executeNotificationRequest = [this](const auto&, int) {
        note("performs");
        throw std::runtime_error("host");
    };
    host_.shouldExecuteOpenWebPageRequest = host_.shouldExecuteOpenDeepLinkRequest =
        host_.shouldExecuteServerNotificationRequest = asked(true);
    host_.executeOpenWebPageRequest = host_.executeOpenDeepLinkRequest = [this](const auto&, int) {
        note("performs");
        throw std::runtime_error("host");
    };
    const HostHooks all = host_;
    auto synchronous = all;
    synchronous.shouldExecuteNotificationRequestCompletionBlock = {};
    const std::vector<std::pair<HostHooks, std::function<void()>>> actions = {
        {all, [this] { notify(); }},
        {synchronous, [this] { notify(); }},
        {all, [this] { notify(R"({"alertBody": "A", "iosImageUrl": "https://shop.test/a.png"})"); }},
        {all, [this] { executor_->executeOpenWebPageAction(kPage, 1); }},
        {all, [this] { executor_->executeOpenDeepLinkAction(kLink, 1); }},
        {all, [this] { notifyServer(); }},
        {{}, [this] { notify(R"({"alertBody": "A"})"); }},
    };
    const auto context =
        ActionExecutorContext{platform_, pages_, actionHost_, [this](const boost::json::object&) { note("event"); },
                              [] { return boost::json::object(); }};
    for (const auto& [host, act] : actions) {
        // Each run ends at one callback later than the one before, until there is none left.
        for (std::size_t endsAt = 1;; ++endsAt) {
            std::size_t told = 0;
            host_ = host;
            executor_ = std::make_unique<QuomiActionExecutor>(context);
            executor_->setApiClient(&api_);
            inCallback_ = [&](const std::string&) {
                if (++told != endsAt) return;
                executor_->end();
                api_.cancelAllRequests();
            };
            act();
            const auto before = told >= endsAt ? journal_.size() : 0;
            settle();
            if (told < endsAt) break;
            EXPECT_EQ(told, endsAt) << journal_.back();
            if (before > 0) {
                EXPECT_EQ(journal_.size(), before) << journal_.back();
            }
        }
        if (executor_ != nullptr) executor_->end();
    }
}

TEST_F(ActionExecutorTest, AfterItsEndNothingHappens) {
    std::function<void(bool)> answer;
    std::function<void()> success;
    host_.shouldExecuteNotificationRequestCompletionBlock = [&](const auto&, int, auto block) { answer = block; };
    host_.executeServerNotificationRequest = [&](const auto&, int, auto good, auto) { success = good; };
    notify();
    notifyServer();
    notify(R"({"iosImageUrl": "https://shop.test/a.png"})");
    executor_->executeOpenWebPageAction(kPage, 1);
    executor_->executeOpenDeepLinkAction(kLink, 1);
    journal_.clear();
    executor_->end();
    answer(false);
    success();
    host_ = {};
    notify();
    EXPECT_FALSE(executor_->executeOpenWebPageAction(kPage, 1));
    EXPECT_FALSE(executor_->executeOpenWebPageActionWithURL(kPage));
    EXPECT_FALSE(executor_->executeOpenDeepLinkAction(kLink, 1));
    EXPECT_FALSE(executor_->executeOpenDeepLinkActionWithURL("https://shop.test"));
    EXPECT_EQ(notifyServer(), ActionOutcome::impossible);
    settle();
    EXPECT_THAT(journal_, IsEmpty());
}

}  // namespace
}  // namespace quomi::test
