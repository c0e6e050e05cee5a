#include "hosts/simulated/simulated_phone.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/notification_helpers.h"
#include "quomi/rules/web_page.h"
#include "tests/support/prelude.h"

namespace quomi::test {
namespace {

TEST(NotificationRights, AllAndBannerAreReadFromTheSettingsAndAskedForUnlessAllAreThere) {
    using Status = NotificationAuthorization;
    const Table<NotificationSettings, bool, bool> cases = {
        {{Status::authorized, true, true, true}, true, true},
        {{Status::authorized, true, false, true}, false, true},
        {{Status::authorized, true, true, false}, false, true},
        {{Status::authorized, false, true, true}, false, false},
        {{Status::provisional, true, true, true}, false, false},
        {{Status::denied, true, true, true}, false, false},
        {{Status::notDetermined, false, false, false}, false, false},
    };
    for (const auto& [settings, all, banner] : cases) {
        std::vector<unsigned> asked;
        simulated::PhoneObserver observer;
        observer.notificationRightsRequest = [&](unsigned options) { asked.push_back(options); };
        simulated::SimulatedPhone phone({.notificationRights = settings}, observer);
        QuomiNotificationHelpers helpers(phone.platform().notifications);
        std::optional<bool> isAll;
        std::optional<bool> isBanner;
        helpers.areAllNotificationRightsGranted([&](bool granted) { isAll = granted; });
        helpers.isBannerNotificationRightGranted([&](bool granted) { isBanner = granted; });
        helpers.requestNotificationRightsIfNeeded();
        phone.runTurns();
        EXPECT_EQ(isAll, all);
        EXPECT_EQ(isBanner, banner);
        EXPECT_EQ(asked, all ? std::vector<unsigned>() : std::vector<unsigned>{7});
    }
}

TEST(NotificationCategories, YesNoIsRegisteredOnceAndBesideTheOthers) {
    simulated::SimulatedPhone phone;
    phone.platform().notifications.setCategories({{"apps own", {}}});
    QuomiNotificationHelpers helpers(phone.platform().notifications);
    const NotificationCategory yesNo{"QuomiYesNo", {{"QuomiYes", "Yes", 5}, {"QuomiNo", "No", 0}}};
    for (int i = 0; i < 2; ++i) {
        helpers.registerCustomActionsCategories();
        helpers.registerCategory({"apps other", {}});
        phone.runTurns();
        EXPECT_THAT(phone.categories(),
                    ElementsAre(NotificationCategory{"apps own", {}}, yesNo, NotificationCategory{"apps other", {}}));
    }
    const NotificationCategory changed{"QuomiYesNo", {}};
    phone.platform().notifications.setCategories({changed});
    helpers.registerCustomActionsCategories();
    phone.runTurns();
    EXPECT_THAT(phone.categories(), ElementsAre(changed)) << "the app's own of that name stays";
}

TEST(NotificationRights, NothingComesOfWhatWasBegunAfterTheEnd) {
    simulated::PhoneObserver observer;
    bool isTold = false;
    observer.notificationRightsRequest = [&](unsigned) { isTold = true; };
    observer.categoryRegistered = [&](const auto&) { isTold = true; };
    simulated::SimulatedPhone phone({.notificationRights = {}}, observer);
    {
        QuomiNotificationHelpers helpers(phone.platform().notifications);
        helpers.areAllNotificationRightsGranted([&](bool) { isTold = true; });
        helpers.requestNotificationRightsIfNeeded();
        helpers.registerCustomActionsCategories();
        helpers.registerCategory({"x", {}});
    }
    phone.runTurns();
    EXPECT_FALSE(isTold);
}

/// A page of the host's that only notes what is done to it.
struct NotingScreens : Screens {
    struct Page : WebPage {
        explicit Page(std::vector<std::string>& lines) : log(lines) {}
        ~Page() override { log.emplace_back("gone"); }
        Page(const Page&) = delete;
        Page& operator=(const Page&) = delete;
        void load(const std::string& url) override { log.push_back("load " + url); }
        void dismiss() override { log.emplace_back("dismiss"); }
        void showActivity(bool shown) override { log.emplace_back(shown ? "busy" : "idle"); }
        std::vector<std::string>& log;
    };
    [[nodiscard]] std::shared_ptr<Screen> rootScreen() const override { return nullptr; }
    [[nodiscard]] std::unique_ptr<WebPage> presentWebPage(const std::shared_ptr<Screen>&, WebPageEvents told) override {
        events = std::move(told);
        return std::make_unique<Page>(log);
    }
    void presentAlert(const std::shared_ptr<Screen>&, const std::string&, const std::string&,
                      const std::string&) override {}

    WebPageEvents events;
    std::vector<std::string> log;
};

TEST(WebPage, LoadsOnceItHasAppearedAndForgetsItsUrlWhenItDisappears) {
    NotingScreens screens;
    auto page = QuomiWebPageViewController::present(screens, nullptr, {});
    page->navigateToUrl("a");
    EXPECT_THAT(screens.log, ElementsAre());
    screens.events.didAppear();
    page->navigateToUrl("b");
    EXPECT_THAT(std::exchange(screens.log, {}), ElementsAre("load a", "load b"));
    screens.events.loadDidStart();
    screens.events.loadDidEnd();
    EXPECT_THAT(std::exchange(screens.log, {}), ElementsAre("busy", "idle"));
    screens.events.didDisappear();
    EXPECT_EQ(page->targetURL(), std::nullopt);
    screens.events.didAppear();
    EXPECT_THAT(screens.log, ElementsAre()) << "nothing to load any more";
    page.reset();
    screens.events.didAppear();
    EXPECT_THAT(screens.log, ElementsAre("gone"));
}

}  // namespace
}  // namespace quomi::test
