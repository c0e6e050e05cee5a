#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

TEST(SharedInstance, IsMadeOnceOnTheInstalledPhone) {
    EXPECT_EQ(QuomiSDK::sharedInstance(), nullptr);
    EXPECT_EQ(QuomiSettings::sharedInstance(), nullptr);

    // Lives as long as the process, as the shared instance does.
    static simulated::SimulatedPhone phone;
    SdkFixture other;
    EXPECT_TRUE(QuomiSDK::installPlatform(phone.platform(), {"https://installed.test", "n", "s", "v"}));
    EXPECT_FALSE(QuomiSDK::installPlatform(other.phone.platform()));

    std::array<QuomiSDK*, 8> seen{};
    std::array<std::thread, seen.size()> threads;
    for (std::size_t i = 0; i < seen.size(); ++i) {
        threads[i] = std::thread([&seen, i] { seen[i] = QuomiSDK::sharedInstance(); });
    }
    for (auto& thread : threads) thread.join();
    for (const auto* sdk : seen) EXPECT_EQ(sdk, seen.front());
    ASSERT_NE(seen.front(), nullptr);
    EXPECT_NE(seen.front(), other.sdk.get());

    auto* settings = QuomiSettings::sharedInstance();
    ASSERT_NE(settings, nullptr);
    EXPECT_EQ(settings->baseAPIUrl, "https://installed.test");
    settings->namespace_ = "set on the settings";
    EXPECT_EQ(QuomiSDK::sharedInstance()->appNamespace(), "set on the settings");
}

}  // namespace
}  // namespace quomi::test
