#include "quomi/beacons/secure_beacon.h"

#include "hosts/simulated/simulated_phone.h"
#include "quomi/beacons/beacon_security.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "quomi/util/dates.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

constexpr const char* kZone = "Europe/Berlin";
const Uuid kSecure = *Uuid::parse("6B6E1B5A-0C0D-4A6E-9E62-0000000000A2");

WallTime at(std::string_view instant) {
    return QuomiUtils::isoDate(instant).value();
}

std::span<const std::uint8_t> bytesOf(std::string_view text) {
    return {reinterpret_cast<const std::uint8_t*>(text.data()), text.size()};
}

TEST(BeaconSecurity, CRCIsTheOneOfItsParameterSet) {
    EXPECT_EQ(QuomiCRCCalculator::computeCRC16({}), 0);
    EXPECT_EQ(QuomiCRCCalculator::computeCRC16(bytesOf("123456789")), 0xBB3D);
    EXPECT_EQ(QuomiCRCCalculator::crc16TableValue(0), 0);
    EXPECT_EQ(QuomiCRCCalculator::crc16TableValue(1), 0xC0C1);
    EXPECT_EQ(QuomiCRCCalculator::crc16TableValue(255), 0x4040);
}

TEST(BeaconSecurity, PackingIsUndoneForEveryPair) {
    using S = QuomiBeaconSecurity;
    EXPECT_EQ(S::getMajorForSecureAdsertisement(0x1234, 0xABCD), 0x12AB);
    EXPECT_EQ(S::getMinorForSecureAdsertisement(0x1234, 0xABCD), 0xCD34);
    for (std::uint32_t i = 0; i <= 0xFFFF; ++i) {
        const auto major = static_cast<std::uint16_t>(i);
        const auto code = static_cast<std::uint16_t>(i * 40503U);
        const auto secureMajor = S::getMajorForSecureAdsertisement(major, code);
        const auto secureMinor = S::getMinorForSecureAdsertisement(major, code);
        ASSERT_EQ(S::getMajorFromSecureMajor(secureMajor, secureMinor), major);
        ASSERT_EQ(S::getCRCFromSecureMajor(secureMajor, secureMinor), code);
    }
}

TEST(BeaconSecurity, DateBlockIsPackedLocalTime) {
    EXPECT_EQ(QuomiBCDConvertor::decToBCD(59), 0x59);
    EXPECT_EQ(QuomiBCDConvertor::BCDToDec(0x59), 59);
    const auto date = at("2016-03-09T23:45:07+01:00");  // a Wednesday
    const auto block = QuomiDS1337RTC::prepareDataFromDate(date, kZone);
    EXPECT_THAT(block, ElementsAre(0x07, 0x45, 0x23, 0x04, 0x09, 0x03, 0x16));
    EXPECT_EQ(QuomiDS1337RTC::prepareDateFromData(block, kZone), date);
    EXPECT_EQ(QuomiDS1337RTC::prepareDataFromDate(date, "Asia/Tokyo")[4], 0x10) << "already the next day there";
    EXPECT_EQ(QuomiDS1337RTC::prepareDateFromData(std::span(block).first(6), kZone), std::nullopt);
    auto broken = block;
    broken[5] = 0x13;
    EXPECT_EQ(QuomiDS1337RTC::prepareDateFromData(broken, kZone), std::nullopt) << "there is no thirteenth month";
}

TEST(BeaconSecurity, CodeIsComputedOfSerialSecretDayAndMajor) {
    const auto date = at("2016-03-09T12:00:00+01:00");
    const auto hex =
        QuomiBeaconSecurity::generateHexStringForCRCCode(date, kZone, "0123456789ab", "616263640000", 0x1234);
    EXPECT_EQ(hex,
              "0123456789ab61626364000016030912"
              "3400");
    EXPECT_EQ(QuomiBeaconSecurity::generateHexStringForCRCCode(date, kZone, std::string(40, 'f'), "", 1),
              std::string(40, 'f') + "1603090001");
}

TEST(BeaconSecurity, CodeHoldsForItsDayAndWithToleranceForItsNeighbours) {
    constexpr std::uint16_t kMajor = 7;
    const auto day = at("2025-06-10T08:00:00+02:00");
    const auto codeOf = [&](WallTime date) {
        return QuomiBeaconSecurity::computeCRCCode(date, kZone, "00a1b2", "6b6579000000", kMajor);
    };
    for (const auto& [days, strict, tolerant] : Table<int, bool, bool>{
             {0, true, true}, {-1, false, true}, {1, false, true}, {-2, false, false}, {2, false, false}}) {
        const auto code = codeOf(day + std::chrono::hours(24 * days));
        for (const bool useTolerance : {false, true}) {
            EXPECT_EQ(QuomiBeaconSecurity::isAdvertisementMatchingCRCCode(code, day, kZone, "00a1b2", "key", kMajor,
                                                                          useTolerance),
                      useTolerance ? tolerant : strict)
                << days;
        }
    }
    EXPECT_EQ(codeOf(day), codeOf(at("2025-06-10T23:59:59+02:00"))) << "the time of day does not enter";
    EXPECT_FALSE(
        QuomiBeaconSecurity::isAdvertisementMatchingCRCCode(codeOf(day), day, kZone, "00a1b2", "kez", kMajor, true));
    EXPECT_TRUE(QuomiBeaconSecurity::isAdvertisementMatchingCRCCode(
        QuomiBeaconSecurity::computeCRCCode(day, kZone, "00a1b2", "000000000000", kMajor), day, kZone, "00a1b2", "",
        kMajor, false));
}

TEST(SecureBeacon, IsTrackedByWhatItAdvertises) {
    simulated::SimulatedPhone phone;
    const Platform platform = phone.platform();
    QuomiSettings settings({}, platform.location);
    DebugLog log(platform.files, platform.clock, {});
    QuomiSecureBeaconManager manager(kSecure, platform, settings, log);
    const auto delegate = std::make_shared<QuomiBeaconManagerDelegate>();
    std::vector<boost::json::object> found;
    delegate->didFindBeacon = [&found](const QuomiBeacon& beacon) { found.push_back(beacon.dictionary()); };
    manager.setDelegate(delegate);
    ASSERT_TRUE(manager.start());
    phone.runTurns();
    phone.range({{kSecure, 0x12AB, 0xCD34, PlatformProximity::near, 1, -60},
                 {kSecure, 0x12AB, 0xCE34, PlatformProximity::near, 1, -60},
                 {kSecure, 0x12AB, 0xCD34, PlatformProximity::near, 1, -60}});
    phone.runTurns();
    ASSERT_EQ(found.size(), 2U) << "two codes are two beacons";
    EXPECT_EQ(found[0].at("name").get_string(), kSecure.string() + "/4779-52532");
    EXPECT_EQ(found[0].at("major"), 0x1234);
    EXPECT_EQ(found[0].at("minor"), 0xABCD);
    EXPECT_EQ(found[0].at("advertizedMajor"), 0x12AB);
    EXPECT_EQ(found[0].at("advertizedMinor"), 0xCD34);
    EXPECT_TRUE(found[0].at("isSecure").get_bool());
    phone.advanceBy(std::chrono::seconds(6));
    EXPECT_TRUE(manager.getNearbyBeacons().empty()) << "the timeout finds them by their advertised names";
}

}  // namespace
}  // namespace quomi
