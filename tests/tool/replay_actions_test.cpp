#include "hosts/simulated/simulated_phone.h"
#include "quomi/core/sdk.h"
#include "quomi/core/settings.h"
#include "tests/tool/replay_support.h"
#include "tools/quomi/replay/deciding_delegate.h"
#include "tools/quomi/visit/visit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// What the host opens, and what the phone then shows.
namespace quomi::test {
namespace {

using testing::ElementsAre;

class ReplayActionsTest : public testing::Test {
protected:
    /// Records from t = 1 on of a visit whose host has that delegate.
    [[nodiscard]] std::vector<std::string> laterLines(const std::string& steps, const char* delegate = "{}") const {
        auto visit = shopVisit(R"([{"at": 0, "call": "start"}, )" + steps + "]");
        visit["app"].as_object()["delegate"] = asJson(delegate);
        visit["app"].as_object()["resources"] = asJson(R"({"help.html": "<p>"})");
        std::vector<std::string> later;
        for (const auto& line : bench.play(visit).lines()) {
            if (line[0] != '0') later.push_back(line);
        }
        return later;
    }

    ReplayBench bench;
};

TEST_F(ReplayActionsTest, PagesAndLinksOfTheHostOpenWithoutAsking) {
    EXPECT_THAT(
        laterLines(R"(
        {"at": 1, "call": "openWebPageForUrl", "with": "file://help.html"}, {"at": 2, "presentScreen": true},
        {"at": 3, "call": "openWebPageForUrl", "with": "https://shop.test"}, {"at": 4, "presentScreen": false},
        {"at": 5, "closeWebPage": true}, {"at": 6, "call": "openWebPageForUrl", "with": "https://shop.test/x"},
        {"at": 7, "call": "openDeepLinkForURL", "with": "https://shop.test/y"},
        {"at": 8, "call": "openDeepLinkForURL", "with": "shop://y"}, {"at": 9, "call": "openNotification"},
        {"at": 10, "call": "stop"}, {"at": 11, "call": "openDeepLinkForURL", "with": "https://shop.test/y"})",
                   R"({"shouldExecuteOpenWebPageRequest": false, "shouldExecuteOpenDeepLinkRequest": false})"),
        ElementsAre("1 call openWebPageForUrl true", "1 webPage file://help.html",
                    "3 console Quomi SDK Warning: can't present view controller for web page action, a "
                    "UIVIewController is already presented by UIVIewController <UIViewController>",
                    "3 call openWebPageForUrl false", "6 call openWebPageForUrl true", "6 webPage https://shop.test/x",
                    "7 call openDeepLinkForURL true", "7 openURL https://shop.test/y",
                    "8 call openDeepLinkForURL false", "9 call openNotification", "10 unrange Quomi beacon",
                    "10 unmonitor Quomi beacon", "10 call stop", "11 call openDeepLinkForURL false"));
}

TEST(DecidingDelegate, AnswersAndReportsAsTheVisitSaysAndTracesBoth) {
    simulated::SimulatedPhone phone;
    QuomiSettings settings(Deployment{}, phone.platform().location);
    QuomiSDK sdk(phone.platform(), settings);
    std::vector<std::string> lines;
    const tool::Trace trace(phone.platform().clock, [&](const boost::json::object& record) {
        EXPECT_EQ(formFault(record), "");
        lines.push_back(brief(record) +
                        (record.contains("answer") ? record.at("answer").as_bool() ? " yes" : " no" : ""));
    });
    const auto note = [&](const char* line) { return [&lines, line](const auto&...) { lines.emplace_back(line); }; };
    const NotificationRequest request{"QuomiNotificationRequest", {}, {}, "Hi", 1, "default", {}, {}, {}};
    using How = tool::DelegateServerRequest;
    const std::vector<std::pair<std::optional<How>, const char*>> cases = {
        {How::performs, nullptr}, {How::succeeds, "success"}, {How::fails, "failure"}};
    for (const auto& [how, reported] : cases) {
        lines.clear();
        tool::DelegateConfig config;
        config.shouldExecuteNotificationRequest = {true, std::chrono::seconds(2)};
        config.executeNotificationRequest = config.executeOpenWebPageRequest = config.executeOpenDeepLinkRequest = true;
        config.shouldExecuteOpenWebPageRequest = config.shouldExecuteServerNotificationRequest = false;
        config.executeServerNotificationRequest = how;
        QuomiSDKDelegate delegate;
        tool::DecidingDelegate deciding(trace, phone.platform().runLoop);
        deciding.implement(config, delegate);
        EXPECT_FALSE(delegate.shouldExecuteNotificationRequest || delegate.shouldExecuteOpenDeepLinkRequest);
        delegate.shouldExecuteNotificationRequestCompletionBlock(
            sdk, request, 2, [&](bool answer) { lines.emplace_back(answer ? "block yes" : "block no"); });
        delegate.executeNotificationRequest(sdk, request, 2);
        EXPECT_FALSE(delegate.shouldExecuteOpenWebPageRequest(sdk, "u", 1));
        delegate.executeOpenWebPageRequest(sdk, "u", 1);
        delegate.executeOpenDeepLinkRequest(sdk, "u", 1);
        EXPECT_FALSE(delegate.shouldExecuteServerNotificationRequest(sdk, "u", 1));
        delegate.executeServerNotificationRequest(sdk, "u", 1, note("success"), note("failure"));
        EXPECT_EQ(lines.back().substr(2), "delegate executeServerNotificationRequest u") << "it reports later";
        phone.advanceBy(std::chrono::seconds(2));
        EXPECT_EQ(lines.back(), "block yes");
        EXPECT_EQ(lines[0].substr(2), "delegate shouldExecuteNotificationRequest yes");
        EXPECT_EQ(lines.size(), reported != nullptr ? 9U : 8U);
        EXPECT_EQ(lines[7], reported != nullptr ? reported : "block yes");
    }
}

}  // namespace
}  // namespace quomi::test
