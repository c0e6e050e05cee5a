#include "quomi/beacons/beacon_security.h"

#include "quomi/util/dates.h"
#include "quomi/util/text.h"

#include <vector>

#include <boost/crc.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

constexpr std::size_t kShortestSecret = 6;  // bytes
constexpr std::size_t kHexLength = 36;
constexpr auto kDay = std::chrono::seconds(86400);

constexpr unsigned high(std::uint16_t value) {
    return value >> 8;
}
constexpr unsigned low(std::uint16_t value) {
    return value & 0xFFU;
}
constexpr std::uint16_t joined(unsigned highByte, unsigned lowByte) {
    return static_cast<std::uint16_t>((highByte << 8) | lowByte);
}

/// The year as the clock's register has it: since 2000 for the years 2000 to 2255.
std::uint8_t yearOfRegister(int year) {
    return static_cast<std::uint8_t>((year > 1999 ? year + 48 : year) % 256);
}

std::string secretAsHex(std::string_view secret) {
    return QuomiUtils::dataToHexString(QuomiUtils::padData({secret.begin(), secret.end()}, kShortestSecret));
}

}  // namespace

std::uint16_t QuomiCRCCalculator::computeCRC16(std::span<const std::uint8_t> bytes) {
    boost::crc_16_type crc;
    crc.process_bytes(bytes.data(), bytes.size());
    return crc.checksum();
}

std::uint16_t QuomiCRCCalculator::crc16TableValue(std::uint8_t index) {
    return computeCRC16({&index, 1});
}

std::uint8_t QuomiBCDConvertor::decToBCD(std::uint8_t value) {
    return static_cast<std::uint8_t>((value % 10U) | ((value / 10U) << 4));
}

std::uint8_t QuomiBCDConvertor::BCDToDec(std::uint8_t value) {
    return static_cast<std::uint8_t>((value & 0xFU) + (value >> 4) * 10U);
}

QuomiDS1337RTC::Block QuomiDS1337RTC::prepareDataFromDate(WallTime date, std::string_view zone) {
    const auto time = QuomiUtils::calendarTimeOfDate(date, zone);
    const auto packed = [](int value) { return QuomiBCDConvertor::decToBCD(static_cast<std::uint8_t>(value)); };
    return {packed(time.second),
            packed(time.minute),
            packed(time.hour),
            packed(time.weekday),
            packed(time.day),
            packed(time.month),
            QuomiBCDConvertor::decToBCD(yearOfRegister(time.year))};
}

std::optional<WallTime> QuomiDS1337RTC::prepareDateFromData(std::span<const std::uint8_t> data, std::string_view zone) {
    if (data.size() < Block().size()) return std::nullopt;
    const auto number = [&data](std::size_t index) {
        return static_cast<int>(QuomiBCDConvertor::BCDToDec(data[index]));
    };
    return QuomiUtils::dateOfCalendarTime(
        {2000 + number(6), number(5), number(4), number(2), number(1), number(0), number(3)}, zone);
}

std::uint16_t QuomiBeaconSecurity::getMajorForSecureAdsertisement(std::uint16_t major, std::uint16_t crc) {
    return joined(high(major), high(crc));
}

std::uint16_t QuomiBeaconSecurity::getMinorForSecureAdsertisement(std::uint16_t major, std::uint16_t crc) {
    return joined(low(crc), low(major));
}

std::uint16_t QuomiBeaconSecurity::getMajorFromSecureMajor(std::uint16_t secureMajor, std::uint16_t secureMinor) {
    return joined(high(secureMajor), low(secureMinor));
}

std::uint16_t QuomiBeaconSecurity::getCRCFromSecureMajor(std::uint16_t secureMajor, std::uint16_t secureMinor) {
    return joined(low(secureMajor), high(secureMinor));
}

std::string QuomiBeaconSecurity::generateHexStringForCRCCode(WallTime date, std::string_view zone,
                                                             std::string_view serialHexString,
                                                             std::string_view secretHexString, std::uint16_t major) {
    const auto block = QuomiDS1337RTC::prepareDataFromDate(date, zone);
    auto text = fmt::format("{}{}{:02x}{:02x}{:02x}{:02x}{:02x}", serialHexString, secretHexString, block[6], block[5],
                            block[4], high(major), low(major));
    if (text.size() < kHexLength) text.resize(kHexLength, '0');
    return text;
}

std::uint16_t QuomiBeaconSecurity::computeCRCCode(WallTime date, std::string_view zone,
                                                  std::string_view serialHexString, std::string_view secretHexString,
                                                  std::uint16_t major) {
    return QuomiCRCCalculator::computeCRC16(
        QuomiUtils::hexStringToData(generateHexStringForCRCCode(date, zone, serialHexString, secretHexString, major)));
}

bool QuomiBeaconSecurity::isAdvertisementMatchingCRCCode(std::uint16_t code, WallTime date, std::string_view zone,
                                                         std::string_view serialHexString, std::string_view secret,
                                                         std::uint16_t major, bool useTolerance) {
    const auto secretHex = secretAsHex(secret);
    const auto isOf = [&](WallTime day) {
        return computeCRCCode(day, zone, serialHexString, secretHex, major) == code;
    };
    return isOf(date) || (useTolerance && (isOf(date - kDay) || isOf(date + kDay)));
}

}  // namespace quomi
