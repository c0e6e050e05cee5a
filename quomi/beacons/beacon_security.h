#pragma once

#include "quomi/util/time.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace quomi {

/// The CRC-16 of the ARC parameter set: reflected polynomial 0xA001, initial value 0, no final XOR.
struct QuomiCRCCalculator {
    /// 0 for no bytes.
    [[nodiscard]] static std::uint16_t computeCRC16(std::span<const std::uint8_t> bytes);
    /// The CRC of one byte, as the byte-wise table has it.
    [[nodiscard]] static std::uint16_t crc16TableValue(std::uint8_t index);
};

/// Packed decimals: tens in the high half of a byte, units in the low one.
struct QuomiBCDConvertor {
    [[nodiscard]] static std::uint8_t decToBCD(std::uint8_t value);
    [[nodiscard]] static std::uint8_t BCDToDec(std::uint8_t value);
};

/// The seven time-keeping registers of a real-time clock, packed decimals: seconds, minutes, hours, weekday (1 Sunday),
/// day, month, year since 2000. Local times of the zone (an IANA name).
struct QuomiDS1337RTC {
    using Block = std::array<std::uint8_t, 7>;
    [[nodiscard]] static Block prepareDataFromDate(WallTime date, std::string_view zone);
    /// Nothing for less than seven bytes and for a block that is no time.
    [[nodiscard]] static std::optional<WallTime> prepareDateFromData(std::span<const std::uint8_t> data,
                                                                     std::string_view zone);
};

/// Rotating advertisements of secure beacons: the packing of true major and check code into the advertised pair, and
/// the check code itself, which is of one local day. Pure functions. ("Adsertisement" is deliberate: callers know the
/// operations by these names.)
struct QuomiBeaconSecurity {
    [[nodiscard]] static std::uint16_t getMajorForSecureAdsertisement(std::uint16_t major, std::uint16_t crc);
    [[nodiscard]] static std::uint16_t getMinorForSecureAdsertisement(std::uint16_t major, std::uint16_t crc);
    [[nodiscard]] static std::uint16_t getMajorFromSecureMajor(std::uint16_t secureMajor, std::uint16_t secureMinor);
    [[nodiscard]] static std::uint16_t getCRCFromSecureMajor(std::uint16_t secureMajor, std::uint16_t secureMinor);

    /// What the code is computed of, as hexadecimal text: serial, secret, year, month and day of the local date, major;
    /// filled up with zeros to 36 digits.
    [[nodiscard]] static std::string generateHexStringForCRCCode(WallTime date, std::string_view zone,
                                                                 std::string_view serialHexString,
                                                                 std::string_view secretHexString, std::uint16_t major);
    [[nodiscard]] static std::uint16_t computeCRCCode(WallTime date, std::string_view zone,
                                                      std::string_view serialHexString,
                                                      std::string_view secretHexString, std::uint16_t major);
    /// Whether the code is that of the date, or with tolerance of the date 86,400 s before or after. The secret is
    /// plain text, zero-filled to 6 bytes.
    [[nodiscard]] static bool isAdvertisementMatchingCRCCode(std::uint16_t code, WallTime date, std::string_view zone,
                                                             std::string_view serialHexString, std::string_view secret,
                                                             std::uint16_t major, bool useTolerance);
};

}  // namespace quomi
