#include "quomi/sdk/authorization_manager.h"

#include "hosts/posix/run_loop.h"
#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

using simulated::PhoneConfig;

constexpr NotificationAuthorization kAuthorized = NotificationAuthorization::authorized;

/// A host app with an authorization manager whose reports it counts.
struct Watched {
    explicit Watched(PhoneConfig config = {}) : app(std::move(config)) {
        const auto count = [this](bool) {
            ++reports;
            if (inCallback) inCallback();
        };
        *delegate = {count, count, count, count, count};
        manager->setAuthorizationDelegate(delegate);
    }
    SdkFixture app;
    const Platform platform = app.phone.platform();
    int reports = 0;
    std::function<void()> inCallback;
    std::shared_ptr<QuomiAuthorizationDelegate> delegate = std::make_shared<QuomiAuthorizationDelegate>();
    std::unique_ptr<QuomiAuthorizationManager> manager =
        std::make_unique<QuomiAuthorizationManager>(platform, *app.sdk);
};

TEST(AuthorizationManager, AnswersByTheStateOfThePhone) {
    for (const bool on : {true, false}) {
        for (int status = 0; status <= 4; ++status) {
            const Watched watched({.locationServices = on, .authorization = static_cast<AuthorizationStatus>(status)});
            EXPECT_EQ(watched.manager->isLocationServiceEnabled(), on && status >= 3);
        }
    }
}

TEST(AuthorizationManager, MayBeDestroyedInEveryReport) {
    const std::function<void(SdkFixture&)> causes[] = {
        [](SdkFixture& app) { app.phone.setBluetooth(BluetoothState::unauthorized); },
        [](SdkFixture& app) { app.phone.setLocationServices(false); },
        [](SdkFixture& app) { app.phone.setBackgroundRefresh(BackgroundRefreshStatus::denied); },
        [](SdkFixture& app) { app.sdk->setBeaconsEnabled(true); },
        [](SdkFixture& app) { app.sdk->setGeofencesEnabled(true); },
        [](SdkFixture& app) { app.sdk->stop(); },
    };
    for (const auto& cause : causes) {
        Watched watched;
        ASSERT_TRUE(watched.app.start());
        watched.reports = 0;
        watched.inCallback = [&watched] { watched.manager.reset(); };
        cause(watched.app);
        watched.app.phone.setBluetooth(BluetoothState::resetting);
        watched.app.settle();
        EXPECT_EQ(watched.reports, 1);
    }
}

TEST(AuthorizationManager, WaitsOnTheSimulatedPhoneForWhatNeedsNoTime) {
    Watched watched;
    ASSERT_TRUE(watched.app.start());
    bool timerRan = false;
    const auto timer = watched.platform.runLoop.scheduleOnce(1ms, [&] { timerRan = true; });
    EXPECT_TRUE(watched.manager->areAllNotificationRightsGranted());
    EXPECT_FALSE(timerRan);
    watched.app.phone.suspend();
    EXPECT_FALSE(watched.manager->areAllNotificationRightsGranted()) << "nothing runs, so nothing answers";
    watched.app.phone.resume();
    watched.inCallback = [&] {
        watched.inCallback = {};
        EXPECT_TRUE(watched.manager->areAllNotificationRightsGranted());
    };
    watched.app.phone.setBluetooth(BluetoothState::poweredOff);
    EXPECT_TRUE(watched.manager->isBannerNotificationRightGranted()) << "with a question inside of a question";
    EXPECT_FALSE(watched.inCallback);
    watched.inCallback = [&] { watched.manager.reset(); };
    watched.app.phone.setBluetooth(BluetoothState::poweredOn);
    EXPECT_TRUE(watched.manager->areAllNotificationRightsGranted()) << "and destroyed while it waits";
}

/// A notification centre that answers from a thread of its own, or forgets the question there.
class ThreadedCenter final : public NotificationCenter {
public:
    explicit ThreadedCenter(RunLoop& loop) : loop_(loop) {}
    ~ThreadedCenter() override {
        for (auto& thread : threads_) thread.join();
    }
    ThreadedCenter(const ThreadedCenter&) = delete;
    ThreadedCenter& operator=(const ThreadedCenter&) = delete;

    bool forgets = false;

    void getSettings(std::function<void(NotificationSettings)> completion) override {
        threads_.emplace_back([this, completion = std::move(completion), forgets = forgets]() mutable {
            std::this_thread::sleep_for(5ms);
            auto& loop = loop_;
            loop.post([completion = std::move(completion), forgets] {
                if (!forgets) completion({kAuthorized, true, true, true});
            });
        });
    }
    void requestAuthorization(unsigned, std::function<void(bool)>) override {}
    void getCategories(std::function<void(std::vector<NotificationCategory>)>) override {}
    void setCategories(std::vector<NotificationCategory>) override {}
    void add(const NotificationRequest&) override {}

private:
    RunLoop& loop_;
    std::vector<std::thread> threads_;
};

TEST(AuthorizationManager, WaitsOnARealLoopWhileAnotherThreadAnswers) {
    simulated::SimulatedPhone phone;
    const Platform base = phone.platform();
    posix::RunLoop loop;
    ThreadedCenter center(loop);
    const Platform platform = base.with(loop).with(center);
    QuomiSettings settings({}, platform.location);
    QuomiSDK sdk(platform, settings);
    const QuomiAuthorizationManager manager(platform, sdk);
    EXPECT_TRUE(manager.areAllNotificationRightsGranted());
    bool inner = false;
    loop.post([&] { inner = manager.isBannerNotificationRightGranted(); });
    EXPECT_TRUE(manager.areAllNotificationRightsGranted()) << "with a question inside of a question";
    EXPECT_TRUE(inner);
    bool elsewhere = true;
    std::thread([&] { elsewhere = manager.areAllNotificationRightsGranted(); }).join();
    EXPECT_FALSE(elsewhere);
    center.forgets = true;
    EXPECT_FALSE(manager.areAllNotificationRightsGranted()) << "the phone has dropped the question";
    center.forgets = false;
    loop.post([&] { loop.stop(); });
    EXPECT_FALSE(manager.areAllNotificationRightsGranted()) << "the host ends";
    loop.runUntilIdle();
}

}  // namespace
}  // namespace quomi::test
