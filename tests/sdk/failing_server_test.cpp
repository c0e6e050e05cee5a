// An app in a shop whose server fails or cannot be reached: ten beacons in view, a ranging report a second.
#include "quomi/data/data.h"
#include "tests/support/sdk_fixture.h"

#include <ctime>
#include <malloc.h>

namespace quomi::test {
namespace {

double processorSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

class FailingServer : public testing::Test {
protected:
    void SetUp() override {
        app.phone.jumpClock(std::chrono::hours(24 * 20'000));  // everything is due
        app.phone.transport().answer("POST /u_applications/shop/log_multi.json", ScriptedAnswer::text(""));
        app.phone.transport().answer(kBeaconsRequest, ScriptedAnswer::text("", 503));
        ASSERT_TRUE(app.start());
        app.journal.clear();
    }
    void look(int seconds) {
        std::vector<RangedBeacon> view;
        for (std::uint16_t minor = 1; minor <= 10; ++minor) {
            view.push_back({Uuid::parse(kShopUUID).value(), 1, minor, PlatformProximity::near, 2.0, -65});
        }
        for (int second = 0; second < seconds; ++second) {
            app.phone.range(view);
            app.settle();
        }
    }
    std::size_t downloads() { return app.phone.transport().requests(kBeaconsRequest); }

    SdkFixture app;
};

TEST_F(FailingServer, IsAskedAtMost75TimesAnHourAndNamedOnce) {
    const ScriptedAnswer useless = ScriptedAnswer::json(boost::json::object{{"u_beacons", boost::json::array()}});
    for (const auto& answer : {ScriptedAnswer::text("", 503), useless}) {
        app.phone.transport().answer(kBeaconsRequest, answer);
        const auto before = downloads();
        app.journal.clear();
        app.phone.network(false);
        app.settle();
        app.phone.network(true);
        look(3600);
        EXPECT_LE(downloads() - before, 75U);
        EXPECT_GE(downloads() - before, 60U) << "it is tried all the time";
        EXPECT_THAT(app.lines("console Quomi SDK Error"), SizeIs(1));
    }
}

TEST_F(FailingServer, EventsAreSentWhileEveryDownloadTimesOut) {
    app.phone.transport().answer(kBeaconsRequest, ScriptedAnswer::failure(HttpFailureKind::timeout));
    look(1);
    ASSERT_FALSE(app.lines("event ").empty());
    look(44);
    EXPECT_FALSE(app.lines("request POST").empty());
}

TEST_F(FailingServer, HoursWithoutNetworkLeaveNothingAndTheReturnIsCheap) {
    boost::json::array beacons;
    for (int i = 0; i < 300; ++i) {
        beacons.push_back({{"id", std::to_string(i)}, {"proximity_uid", kShopUUID}, {"major", 2}, {"minor", i}});
    }
    app.phone.transport().answer(kBeaconsRequest, rulesAnswer("u_beacons", beacons));
    app.phone.network(false);
    look(600);
    app.journal = {};
    const auto heap = mallinfo2().uordblks;
    for (int part = 0; part < 10; ++part) {
        look(60);
        app.journal.clear();
    }
    EXPECT_LT(mallinfo2().uordblks, heap + 100'000);
    app.phone.network(true);
    const double begin = processorSeconds();
    app.settle(5s);
    EXPECT_LT(processorSeconds() - begin, 1.0) << "ten answers of 300 beacons, each taken once";
    EXPECT_EQ(downloads(), 11U) << "the first of them failed";
}

}  // namespace
}  // namespace quomi::test
