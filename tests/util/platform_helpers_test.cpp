#include "quomi/platform/application_helpers.h"
#include "quomi/platform/device_helpers.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

struct TestScreen : Screen {
    explicit TestScreen(Kind kind, std::shared_ptr<Screen> child = nullptr) : kind_(kind), child_(std::move(child)) {}
    [[nodiscard]] Kind kind() const override { return kind_; }
    [[nodiscard]] std::shared_ptr<Screen> presentedScreen() const override { return presented; }
    [[nodiscard]] std::shared_ptr<Screen> visibleChild() const override { return child_; }

    std::shared_ptr<Screen> presented;

private:
    Kind kind_;
    std::shared_ptr<Screen> child_;
};

struct TestScreens : Screens {
    [[nodiscard]] std::shared_ptr<Screen> rootScreen() const override { return root; }
    [[nodiscard]] std::unique_ptr<WebPage> presentWebPage(const std::shared_ptr<Screen>&, WebPageEvents) override {
        return nullptr;
    }
    void presentAlert(const std::shared_ptr<Screen>&, const std::string&, const std::string&,
                      const std::string&) override {}

    std::shared_ptr<Screen> root;
};

std::shared_ptr<TestScreen> screen(Screen::Kind kind, std::shared_ptr<Screen> child = nullptr) {
    return std::make_shared<TestScreen>(kind, std::move(child));
}

TEST(ApplicationHelpers, FindsTheTopScreenAndItsNavigation) {
    const auto page = screen(Screen::Kind::plain);
    const auto other = screen(Screen::Kind::plain);
    const auto tabs = screen(Screen::Kind::tabs, page);
    const auto navigation = screen(Screen::Kind::navigation, tabs);
    TestScreens screens;
    const QuomiApplicationHelpers helpers(screens);
    EXPECT_EQ(helpers.topViewController(), nullptr);

    screens.root = navigation;
    EXPECT_EQ(helpers.topViewController(), page);
    EXPECT_EQ(helpers.topNavigationViewController(), navigation);

    navigation->presented = other;
    EXPECT_EQ(helpers.topViewController(), other);
    EXPECT_EQ(helpers.topNavigationViewController(), nullptr);

    other->presented = screen(Screen::Kind::navigation, page);
    EXPECT_EQ(helpers.topViewController(), page);
    EXPECT_EQ(helpers.topNavigationViewController(), other->presented);
}

TEST(ApplicationHelpers, AContainerThatShowsNothingHasNoTopScreen) {
    for (const auto kind : {Screen::Kind::navigation, Screen::Kind::tabs}) {
        TestScreens screens;
        screens.root = screen(kind);
        EXPECT_EQ(QuomiApplicationHelpers::topViewControllerWithRootViewController(screens.root), nullptr);
        EXPECT_EQ(QuomiApplicationHelpers(screens).topNavigationViewController(), nullptr);
    }
}

struct TestDevice : Device {
    explicit TestDevice(std::string version) : version_(std::move(version)) {}
    [[nodiscard]] std::string identifierForVendor() const override { return "11111111-2222-3333-4444-555555555555"; }
    [[nodiscard]] std::string systemName() const override { return "iOS"; }
    [[nodiscard]] std::string systemVersion() const override { return version_; }
    [[nodiscard]] std::string model() const override { return "phone"; }
    [[nodiscard]] std::vector<std::string> preferredLanguages() const override { return {}; }
    [[nodiscard]] std::optional<std::string> advertisingIdentifier() const override { return std::nullopt; }
    [[nodiscard]] bool isAdvertisingTrackingEnabled() const override { return false; }

private:
    std::string version_;
};

TEST(DeviceHelpers, SplitsTheSystemVersion) {
    const Table<const char*, std::size_t, int, int> cases = {
        {"17.4.1", 3, 17, 4}, {"9.0", 2, 9, 0}, {"18", 1, 18, 0}, {"", 1, 0, 0}, {"x.7b", 2, 0, 7}};
    for (const auto& [version, compounds, major, minor] : cases) {
        const TestDevice device(version);
        EXPECT_EQ(QuomiUtils::iOSVersionCompounds(device).size(), compounds) << version;
        EXPECT_EQ(QuomiUtils::majoriOSVersion(device), major) << version;
        EXPECT_EQ(QuomiUtils::minoriOSVersion(device), minor) << version;
    }
    EXPECT_EQ(QuomiUDID::udid(TestDevice("1")), "11111111-2222-3333-4444-555555555555");
}

}  // namespace
}  // namespace quomi
