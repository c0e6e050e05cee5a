#include "quomi/beacons/beacon_service_manager.h"

#include "hosts/simulated/simulated_phone.h"
#include "quomi/model/settings.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

const Uuid kService = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A3");
const Uuid kOther = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A1");

class ServiceManagerTest : public testing::Test {
protected:
    ServiceManagerTest() {
        delegate_->didFindLowBatteryAdvertisement = [this](const Uuid& uuid, std::uint16_t id, std::uint16_t code) {
            EXPECT_EQ(uuid, kService);
            reports_.push_back(fmt::format("{:04x} {:04x}", id, code));
        };
        manager_.setDelegate(delegate_);
    }

    static RangedBeacon advertisement(std::uint16_t major, std::uint16_t minor) {
        return {kService, major, minor, PlatformProximity::unknown, -1, 0};
    }
    std::vector<std::string> range(const std::vector<RangedBeacon>& beacons) {
        phone_.range(beacons);
        phone_.runTurns();
        return std::exchange(reports_, {});
    }
    [[nodiscard]] bool isRanging() const { return !phone_.rangedRegions().empty(); }

    simulated::SimulatedPhone phone_;
    const Platform platform_ = phone_.platform();
    QuomiSettings settings_{{}, platform_.location};
    QuomiBeaconServiceManager manager_{kService, platform_, settings_};
    std::shared_ptr<QuomiBeaconServiceManagerDelegate> delegate_ =
        std::make_shared<QuomiBeaconServiceManagerDelegate>();
    std::vector<std::string> reports_;
};

TEST_F(ServiceManagerTest, ReportsEachAdvertisedPairOnceInItsLife) {
    ASSERT_TRUE(manager_.start());
    phone_.enterBeaconRegion(kService);
    phone_.runTurns();
    ASSERT_TRUE(isRanging());
    EXPECT_THAT(range({advertisement(0x12AB, 0xCD34), advertisement(0x12AB, 0xCD34), {kOther, 1, 2}}),
                ElementsAre("1234 abcd"));
    EXPECT_THAT(range({advertisement(0x12AB, 0xCD34)}), IsEmpty());
    EXPECT_THAT(range({advertisement(0x12AB, 0xCE34)}), ElementsAre("1234 abce")) << "another code is another pair";

    phone_.exitBeaconRegion(kService);
    phone_.runTurns();
    EXPECT_TRUE(isRanging()) << "an exit does not end ranging";
    manager_.stop();
    EXPECT_FALSE(isRanging());
    EXPECT_THAT(phone_.monitoredRegions(), IsEmpty());
    ASSERT_TRUE(manager_.start());
    phone_.enterBeaconRegion(kService);
    phone_.runTurns();
    EXPECT_THAT(range({advertisement(0x12AB, 0xCD34)}), IsEmpty()) << "not even a stop forgets";
}

TEST_F(ServiceManagerTest, LaunchInsideTheRegionBeginsToRangeOnce) {
    phone_.beaconRegionState(kService, RegionState::inside);
    ASSERT_TRUE(manager_.start());
    phone_.runTurns();
    EXPECT_TRUE(isRanging());
    LocationServiceDelegate ignored;
    platform_.location.makeLocationService(ignored)->stopRangingBeacons(settings_.beaconProximityIdentifierService);
    phone_.beaconRegionState(kService, RegionState::inside);
    phone_.runTurns();
    EXPECT_FALSE(isRanging()) << "the second state is no entry";
    phone_.setAuthorization(AuthorizationStatus::authorizedWhenInUse);
    phone_.beaconRegionState(kService, RegionState::inside);
    phone_.runTurns();
    EXPECT_TRUE(isRanging()) << "a new permission arms it again";
}

TEST_F(ServiceManagerTest, RefusesToStartTwiceAndWithoutMonitoring) {
    std::optional<Error> error;
    ASSERT_TRUE(manager_.start(&error));
    EXPECT_FALSE(manager_.start(&error));
    EXPECT_EQ(error->code, 1001);

    simulated::SimulatedPhone old({.supportsBeacons = false});
    const Platform platform = old.platform();
    QuomiBeaconServiceManager manager(kService, platform, settings_);
    EXPECT_FALSE(manager.start(&error));
    EXPECT_EQ(error->code, 802);
    EXPECT_FALSE(manager.isStarted());
}

TEST_F(ServiceManagerTest, MayBeStoppedByItsOwnReport) {
    delegate_->didFindLowBatteryAdvertisement = [this](const Uuid&, std::uint16_t, std::uint16_t) {
        reports_.emplace_back("report");
        manager_.stop();
    };
    ASSERT_TRUE(manager_.start());
    phone_.enterBeaconRegion(kService);
    phone_.runTurns();
    EXPECT_THAT(range({advertisement(1, 1), advertisement(2, 2)}), ElementsAre("report"));
}

}  // namespace
}  // namespace quomi
