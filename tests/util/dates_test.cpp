#include "quomi/util/dates.h"

#include "tests/support/prelude.h"
#include "tests/util/random_text.h"

namespace quomi {
namespace {

using namespace QuomiUtils;

WallTime at(std::string_view text) {
    const auto date = isoDate(text);
    EXPECT_TRUE(date) << text;
    return date.value_or(WallTime());
}

TEST(IsoDate, ReadsExtendedAndBasicForms) {
    const Table<const char*, std::int64_t> cases = {
        {"1970-01-01", 0},
        {"19700102", 86'400'000},
        {"1970-01-01T01", 3'600'000},
        {"1970-01-01T01:02", 3'720'000},
        {"1970-01-01t01:02:03z", 3'723'000},
        {"1970-01-01 01:02:03", 3'723'000},
        {"19700101T010203Z", 3'723'000},
        {"19700101T0102+0102", 0},
        {"1970-01-01T00:00:00.25Z", 250},
        {"1970-01-01T00:00:00,0019999999999999999999Z", 1},
        {"1970-01-01T01:30.5Z", 5'430'000},
        {"1970-01-01T01.5Z", 5'400'000},
        {"1970-01-01T02:00:00+02", 0},
        {"1970-01-01T00:00:00-05:30", 19'800'000},
        {"1970-01-01T00:00:00-00:00", 0},
        {"1969-12-31T24:00:00Z", 0},
        {"1969-12-31T23:59:60Z", 0},
        {"1969-12-31T23:59:59.5Z", -500},
        {"2024-02-29T00:00:00Z", 1'709'164'800'000},
        {"0000-01-01T00:00:00+23:59", -62'167'305'540'000},
        {"9999-12-31T23:59:59.999Z", 253'402'300'799'999},
    };
    for (const auto& [text, expected] : cases) {
        const auto date = isoDate(text);
        ASSERT_TRUE(date) << text;
        EXPECT_EQ(std::chrono::floor<std::chrono::milliseconds>(*date).time_since_epoch().count(), expected) << text;
    }
}

TEST(IsoDate, RefusesEverythingElse) {
    for (const auto& text :
         parts(" | soon | 1970 | 1970-01 | 1970-0101 | 197001-01 | 1970-13-01 | 1970-00-01 | 2023-02-29 | 1970-01-32 | "
               "1970-1-1 | 1970-01-01T | 1970-01-01T25 | 1970-01-01T24:01 | 1970-01-01T00:60 | 1970-01-01T00:00:61 | "
               "1970-01-01T0000:00 | 1970-01-01T00:0000 | 1970-01-01T00: | 1970-01-01T00:00:00. | "
               "1970-01-01T00:00:00.Z | 1970-01-01Z | 1970-01-01T24:00:00.5 | 1970-01-01T00:00:00+24 | "
               "1970-01-01T00:00:00+01:60 | 1970-01-01T00:00:00+1 | 1970-01-01T00:00:00+01: | 1970-01-01T00:00:00Zx | "
               " 1970-01-01 | 1970-01-01  | -970-01-01 | 1970-01-01T00:00:00 Z | १९७०-01-01")) {
        EXPECT_FALSE(isoDate(text)) << text;
    }
}

TEST(Formatting, WritesLocalTimeAndALiteralZ) {
    const WallTime date = at("2026-11-21T23:33:48.123456Z");
    EXPECT_EQ(stringUTCForDate(date, "UTC"), "2026-11-21T23:33:48.123Z");
    EXPECT_EQ(stringUTCForDate(date, "Europe/Berlin"), "2026-11-22T00:33:48.123Z");
    EXPECT_EQ(stringUTCForDate(date, "No/Such_Zone"), "2026-11-21T23:33:48.123Z");
    EXPECT_EQ(stringUTCForDate(date, ""), "2026-11-21T23:33:48.123Z");
    EXPECT_EQ(stringUTCForDate(at("1969-12-31T23:59:59.9999Z"), "UTC"), "1969-12-31T23:59:59.999Z");
    EXPECT_EQ(dayStringForDate(date, "Asia/Kolkata"), "2026-11-22");
    EXPECT_EQ(descriptionOfDate(date), "2026-11-21 23:33:48 +0000");
    EXPECT_EQ(descriptionOfDate(at("2027-01-01")), "2027-01-01 00:00:00 +0000");
}

TEST(Formatting, BoundsDatesBeyondTheCalendar) {
    for (const WallTime date : {WallTime::min(), WallTime::max()}) {
        EXPECT_EQ(descriptionOfDate(date).size(), 25U);
        EXPECT_TRUE(parseLogDate(logDateString(date, "Pacific/Kiritimati")));
        EXPECT_EQ(stringUTCForDate(date, "Pacific/Pago_Pago").size(), 24U);
        EXPECT_GE(secondsSinceMidnightOfDate(date, "America/Santiago"), 0);
        EXPECT_GE(weekdayForDate(date, "America/Santiago"), 1);
    }
}

TEST(LogDate, WritesTheYearOfTheWeek) {
    const Table<const char*, const char*, const char*> cases = {
        {"2026-11-21T03:33:48Z", "Europe/Berlin", "2026-11-21 04:33:48 +0100"},
        {"2026-07-21T03:33:48Z", "Europe/Berlin", "2026-07-21 05:33:48 +0200"},
        {"2026-07-21T03:33:48Z", "America/St_Johns", "2026-07-21 01:03:48 -0230"},
        {"2024-12-29T12:00:00Z", "UTC", "2024-12-29 12:00:00 +0000"},
        {"2024-12-30T12:00:00Z", "UTC", "2025-12-30 12:00:00 +0000"},
        {"2021-01-01T12:00:00Z", "UTC", "2020-01-01 12:00:00 +0000"},
        {"2021-01-04T12:00:00Z", "UTC", "2021-01-04 12:00:00 +0000"},
        {"2027-01-01T12:00:00Z", "UTC", "2026-01-01 12:00:00 +0000"},
        {"2024-12-29T23:30:00Z", "Europe/Berlin", "2025-12-30 00:30:00 +0100"},
    };
    for (const auto& [date, zone, expected] : cases) {
        EXPECT_EQ(logDateString(at(date), zone), expected);
        EXPECT_EQ(logDateString(parseLogDate(expected).value_or(WallTime()), zone), expected) << "it keeps its text";
    }
}

TEST(LogDate, ComesBackAsItWasAwayFromNewYear) {
    for (const char* zone : {"UTC", "Europe/Berlin", "America/St_Johns", "Australia/Lord_Howe", "Asia/Kathmandu"}) {
        for (WallTime date = at("2023-01-05T00:00:07Z"); date < at("2023-12-28"); date += std::chrono::minutes(4327)) {
            EXPECT_EQ(parseLogDate(logDateString(date, zone)), date) << zone << " " << descriptionOfDate(date);
        }
    }
    EXPECT_EQ(parseLogDate("2020-01-01 12:00:00 +0000"), at("2020-01-01T12:00:00Z"));
}

TEST(LogDate, RefusesWhatItDoesNotWrite) {
    for (const char* text : {"", "2026-11-21", "2026-11-21 04:33:48", "2026-11-21 04:33:48 +01",
                             "2026-11-21 04:33:48 +01:00", "2026-11-21 04:33:48 Z", "2026-11-21T04:33:48 +0100",
                             "2026-11-31 04:33:48 +0100", "2026-11-21 24:00:00 +0100", "2026-11-21 04:33:60 +0100",
                             "2026-11-21 04:33:48 +0160", "2026-11-21 04:33:48 +0100 ", " 2026-11-21 04:33:48 +0100",
                             "0000-11-21 04:33:48 +0100", "2026-11-21 4:33:48 +0100"}) {
        EXPECT_FALSE(parseLogDate(text)) << text;
    }
}

TEST(DateParsers, SurviveDamagedText) {
    RandomText random(2);
    for (int i = 0; i < 50'000; ++i) {
        if (const auto date = isoDate(random.like("2026-11-21T04:33:48.250+01:00"))) {
            ASSERT_EQ(isoDate(descriptionOfDate(*date).substr(0, 10)), std::chrono::floor<std::chrono::days>(*date));
        }
        if (const auto date = parseLogDate(random.like("2026-06-21 04:33:48 +0100"))) {
            ASSERT_EQ(descriptionOfDate(*date).size(), 25U);
        }
    }
}

TEST(Calendar, SecondsSinceMidnightFollowTheClockChanges) {
    const Table<const char*, const char*, const char*, int> cases = {
        {"plain day", "2026-11-21T11:00:00.999Z", "Europe/Berlin", 12 * 3600},
        {"unknown zone", "2026-11-21T11:00:00Z", "No/Such_Zone", 11 * 3600},
        {"last second", "2026-11-21T22:59:59Z", "Europe/Berlin", 86'399},
        {"spring, before", "2026-03-29T00:59:59Z", "Europe/Berlin", 2 * 3600 - 1},
        {"spring, clock shows 03:00", "2026-03-29T01:00:00Z", "Europe/Berlin", 2 * 3600},
        {"spring, last second", "2026-03-29T21:59:59Z", "Europe/Berlin", 23 * 3600 - 1},
        {"autumn, second 02:30", "2026-10-25T01:30:00Z", "Europe/Berlin", 3 * 3600 + 1800},
        {"autumn, last second", "2026-10-25T22:59:59Z", "Europe/Berlin", 25 * 3600 - 1},
        {"no midnight, first moment is 01:00", "2024-09-08T04:00:00Z", "America/Santiago", 0},
        {"no midnight, the second before", "2024-09-08T03:59:59Z", "America/Santiago", 86'399},
        {"no midnight, 12:00", "2024-09-08T15:00:00Z", "America/Santiago", 11 * 3600},
        {"23:30 twice, second time", "2024-04-07T03:30:00Z", "America/Santiago", 24 * 3600 + 1800},
        {"00:30 twice, second time", "2024-11-03T05:30:00Z", "America/Havana", 3600 + 1800},
    };
    for (const auto& [what, date, zone, seconds] : cases) {
        EXPECT_EQ(secondsSinceMidnightOfDate(at(date), zone), seconds) << what;
    }
}

}  // namespace
}  // namespace quomi
