#include "hosts/simulated/simulated_phone.h"
#include "quomi/core/sdk.h"
#include "quomi/core/settings.h"
#include "tests/tool/replay_support.h"
#include "tools/quomi/replay/deciding_delegate.h"
#include "tools/quomi/visit/visit.h"

// What the host opens, and what the phone then shows.
namespace quomi::test {
namespace {

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

}  // namespace
}  // namespace quomi::test
