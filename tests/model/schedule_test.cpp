#include "quomi/model/schedule.h"

#include "quomi/util/dates.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

constexpr const char* kZone = "Europe/Berlin";

/// Whether the schedule is open at a moment, asked as its owners ask.
bool isOpen(const QuomiSchedule& schedule, std::string_view instant, std::string_view zone = kZone) {
    const auto date = QuomiUtils::isoDate(instant).value();
    return schedule.isOpen(date, QuomiUtils::secondsSinceMidnightOfDate(date, zone), zone);
}

QuomiSchedule scheduleOf(std::string_view json) {
    QuomiSchedule schedule;
    EXPECT_TRUE(schedule.setFromJSONString(json)) << json;
    return schedule;
}

struct Moment {
    const char* instant;
    bool open;
};

TEST(Schedule, DefaultExample) {
    QuomiSchedule schedule;
    schedule.setFromDictionary(QuomiSchedule::getDefaultScheduleData());
    for (const auto& [instant, open] : {
             Moment{"2013-11-08T12:59:59+01:00", true},   // a Friday
             Moment{"2013-11-08T13:15:00+01:00", false},  // its break
             Moment{"2013-11-08T13:30:00+01:00", true}, Moment{"2013-11-08T08:59:59+01:00", false},
             Moment{"2013-11-08T09:00:00+01:00", true}, Moment{"2013-11-08T19:00:00+01:00", false},
             Moment{"2013-11-10T12:00:00+01:00", false},  // a Sunday
             Moment{"2013-10-27T10:00:00+01:00", false},  // listed as open, but still a Sunday
             Moment{"2013-12-25T12:00:00+01:00", false},  // a Wednesday, listed as closed
             Moment{"2013-12-27T09:30:00+01:00", false},  // a Friday with shorter hours
             Moment{"2013-12-27T14:00:00+01:00", true}, Moment{"2013-12-27T13:10:00+01:00", false},  // its break
         }) {
        EXPECT_EQ(isOpen(schedule, instant), open) << instant;
    }
}

TEST(Schedule, WhatIsNotListedIsOpenAndWhatMakesNoSenseIsClosed) {
    for (const auto& [json, monday, tuesday] : Table<const char*, bool, bool>{
             {"{}", true, true},
             {R"({"week": {}})", true, true},
             {R"({"week": {"mon": {"open": 0, "close": 100}}})", false, true},
             {R"({"week": {"mon": {"open": 79200, "close": 7200}}})", false, true},
             {R"({"week": {"mon": {"open": 43200, "close": 43201}}})", true, true},
             {R"({"week": {"mon": {"close": 86400}, "tue": {"open": 1}}})", true, false},
             {R"({"week": {"mon": null}, "breaks": null})", true, true},
             {R"({"week": 5, "breaks": [], "specific_days": "x"})", true, true},
             {R"({"breaks": {"mon": {"open": 0, "close": 86400}}})", false, true},
             {"[1]", true, true},
         }) {
        const auto schedule = scheduleOf(json);
        EXPECT_EQ(isOpen(schedule, "2025-06-02T12:00:00+02:00"), monday) << json;
        EXPECT_EQ(isOpen(schedule, "2025-06-03T12:00:00+02:00"), tuesday) << json;
    }
}

TEST(Schedule, HoursOfDaysWithAClockChangeAreElapsedSeconds) {
    const auto nineToNoon = scheduleOf(R"({"week": {"sun": {"open": 32400, "close": 43200}}})");
    for (const auto& [zone, instant, open] : Table<const char*, const char*, bool>{
             // An hour is missing before nine: the hours begin and end an hour later by the clock.
             {"Europe/Berlin", "2025-03-30T09:30:00+02:00", false},
             {"Europe/Berlin", "2025-03-30T10:00:00+02:00", true},
             {"Europe/Berlin", "2025-03-30T12:59:59+02:00", true},
             {"Europe/Berlin", "2025-03-30T13:00:00+02:00", false},
             // An hour comes twice: an hour earlier.
             {"Europe/Berlin", "2025-10-26T08:00:00+01:00", true},
             {"Europe/Berlin", "2025-10-26T11:00:00+01:00", false},
             {"America/New_York", "2025-03-09T09:30:00-04:00", false},
             {"America/New_York", "2025-03-09T10:00:00-04:00", true},
             {"America/New_York", "2025-11-02T08:00:00-05:00", true},
             {"America/New_York", "2025-11-02T11:30:00-05:00", false},
             // The same instant is another day elsewhere.
             {"Asia/Tokyo", "2025-06-01T09:30:00+09:00", true},
             {"Europe/Berlin", "2025-06-01T09:30:00+09:00", false},
         }) {
        EXPECT_EQ(isOpen(nineToNoon, instant, zone), open) << zone << " " << instant;
    }
}

TEST(Schedule, KeepsItsContentWhenATextCannotBeRead) {
    auto schedule = scheduleOf(R"({"week": {"mon": {"open": 1, "close": 2, "note": null}}})");
    const std::string before = schedule.toJSONString();
    EXPECT_EQ(before, R"({"week":{"mon":{"open":1,"close":2}}})");
    std::optional<Error> error;
    EXPECT_FALSE(schedule.setFromJSONString(" ", &error));
    EXPECT_FALSE(error);
    EXPECT_FALSE(schedule.setFromJSONString("{", &error));
    EXPECT_TRUE(error);
    EXPECT_EQ(schedule.toJSONString(), before);
    EXPECT_EQ(QuomiSchedule::getWeekdayAbbrevation(0), "");
    EXPECT_EQ(QuomiSchedule::getWeekdayAbbrevation(7), "sat");
    EXPECT_EQ(QuomiSchedule::getWeekdayAbbrevation(8), "");
}

}  // namespace
}  // namespace quomi
