#include "quomi/model/errors.h"
#include "tests/beacons/manager_bench.h"

namespace quomi::test {
namespace {

using enum AuthorizationStatus;

const std::string kDenied = "console: Quomi SDK Warning: Location service is denied to the application!";
const std::string kRequesting = "console: Quomi SDK: Location services not yet authorized, requesting access!";
const std::string kGone =
    "console: Quomi SDK Warning: Location services status changed and are not available anymore. Beacon support will "
    "restart when location services become available again.";

TEST(BeaconAuthorization, StartsAsFarAsThePermissionGoes) {
    const Log monitored = {"monitor Quomi beacon", "range Quomi beacon", "range Quomi beacon", "began Quomi beacon",
                           "state 0"};
    const Log ranged = {"range Quomi beacon", "range Quomi beacon"};
    // What the phone reports unasked, once, comes after the start and is taken as a change.
    for (const auto& [status, whenInUse, told] : Table<AuthorizationStatus, bool, Log>{
             {authorizedAlways, false, monitored},
             {authorizedAlways, true, monitored},
             {authorizedWhenInUse, false, ranged},
             {authorizedWhenInUse, true, ranged},
             {denied, false, {kDenied, kGone}},
             {restricted, true, {kDenied, kGone}},
             {notDetermined,
              false,
              {kRequesting, "ask always", "monitor Quomi beacon", "range Quomi beacon", "began Quomi beacon",
               "state 0"}},
             {notDetermined, true, {kRequesting, "ask whenInUse", "range Quomi beacon"}},
         }) {
        SCOPED_TRACE(static_cast<int>(status));
        ManagerBench bench({.authorization = status});
        bench.manager->setRequestWhenInUseAuthorization(whenInUse);
        std::optional<Error> error;
        EXPECT_TRUE(bench.manager->start(&error));
        EXPECT_FALSE(error);
        EXPECT_TRUE(bench.manager->isStarted());
        EXPECT_EQ(bench.news(), told);
    }
}

TEST(BeaconAuthorization, FollowsEachChangeOfThePermission) {
    for (const auto& [from, to, told] : Table<AuthorizationStatus, AuthorizationStatus, Log>{
             {denied,
              authorizedAlways,
              {"monitor Quomi beacon", "range Quomi beacon", "standard updates on", "began Quomi beacon", "state 0"}},
             {denied, authorizedWhenInUse, {"range Quomi beacon", "standard updates on"}},
             {denied, restricted, {kGone}},
             {denied, notDetermined, {}},
             {authorizedWhenInUse,
              authorizedAlways,
              {"monitor Quomi beacon", "range Quomi beacon", "began Quomi beacon", "state 0"}},
             {authorizedWhenInUse, denied, {kGone, "standard updates off"}},
             {authorizedAlways, authorizedWhenInUse, {"range Quomi beacon"}},
             {authorizedAlways, restricted, {kGone, "standard updates off"}},
             {authorizedAlways, notDetermined, {}},
         }) {
        SCOPED_TRACE(fmt::format("{} to {}", static_cast<int>(from), static_cast<int>(to)));
        ManagerBench bench({.authorization = from});
        bench.manager->setUseExtendedBackgroundRangingTime(true);
        bench.manager->start();
        bench.news();
        bench.phone.setAuthorization(to);
        EXPECT_EQ(bench.news(), told);
        EXPECT_TRUE(bench.manager->isStarted());
    }
}

TEST(BeaconAuthorization, ASecondStartFailsAndChangesNothing) {
    const auto bench = ManagerBench::started();
    bench->report({heard(1)});
    std::optional<Error> error;
    EXPECT_FALSE(bench->manager->start(&error));
    EXPECT_EQ(error.value().code, 1001);
    EXPECT_THAT(bench->news(), IsEmpty());
    EXPECT_THAT(bench->after(5s), ElementsAre("lost 1")) << "there is still one timer";
}

TEST(BeaconAuthorization, APhoneThatMonitorsNoBeaconRegionsFailsAndCreatesNothing) {
    ManagerBench bench({.supportsBeacons = false, .locationServices = false});
    std::optional<Error> error;
    EXPECT_FALSE(bench.manager->start(&error));
    EXPECT_FALSE(bench.manager->start());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 802);
    EXPECT_EQ(error->localizedDescription(),
              "Region monitoring is not available on the device. Region monitoring is not available on the device");
    EXPECT_FALSE(bench.manager->isStarted());
    bench.phone.active();
    EXPECT_THAT(bench.news(), IsEmpty());
    EXPECT_EQ(bench.phone.loop().pendingEvents(), 0U);
}

}  // namespace
}  // namespace quomi::test
