#include "tests/tool/replay_support.h"

// How time passes in a replay: turns, ties, repetitions, recordings, suspension, clock, end.
namespace quomi::test {
namespace {

class ReplayTest : public testing::Test {
protected:
    ReplayBench bench;
};

TEST_F(ReplayTest, ARelaunchFindsStoreAndRegionsAndHearsThePhoneOnlyAfterStartHasReturned) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"}])");
    visit["end"] = 30;
    ASSERT_EQ(bench.play(visit, bench.keepState()).status, 0);
    for (const char* name : {"Library/Application Support/QuomiData/QuomiData.sqlite", "phone.json"}) {
        EXPECT_TRUE(std::filesystem::is_regular_file(bench.state() / name)) << name;
    }
    const auto replayed = bench.play(visit, bench.keepState());
    EXPECT_THAT(replayed.lines(), ElementsAre("0 request GET /u_applications/limits.json",  //
                                              "0 range Quomi beacon",                       //
                                              "0 call start true",                          //
                                              "0 category QuomiYesNo",                      //
                                              "0 range Quomi beacon",                       //
                                              "0.05 response 200 /u_applications/limits.json",
                                              "0.05 request POST /u_app_users/find_or_create_by_udid.json",
                                              "0.1 response 200 /u_app_users/find_or_create_by_udid.json"));
}

TEST_F(ReplayTest, StepsOfEqualTimeRunInFileOrderRepetitionsIncluded) {
    const auto replayed = bench.play(shopVisit(R"([
        {"at": 3, "call": "logEvent", "with": {"n": 3}},
        {"at": 1, "every": 0.5, "until": 3, "call": "logEvent", "with": {"n": 1}},
        {"at": 2, "every": 1, "until": 3.9, "call": "logEvent", "with": {"n": 2}},
        {"at": 0, "call": "start"}])"));
    EXPECT_THAT(replayed.lines("delegate didLogEvent"),
                ElementsAre("1 delegate didLogEvent {\"n\":1}", "1.5 delegate didLogEvent {\"n\":1}",
                            "2 delegate didLogEvent {\"n\":1}", "2 delegate didLogEvent {\"n\":2}",
                            "2.5 delegate didLogEvent {\"n\":1}", "3 delegate didLogEvent {\"n\":3}",
                            "3 delegate didLogEvent {\"n\":1}", "3 delegate didLogEvent {\"n\":2}"));
}

TEST_F(ReplayTest, TimersComeBeforeAnswersAndBothBeforeStepsOfTheirTime) {
    // At 6.05 the SDK notices that a beacon last heard at 2 is gone, an answer arrives and a step is due.
    auto visit = shopVisit(R"([
        {"at": 0, "call": "start"},
        )" + near(2, 7) + R"(,
        {"at": 3, "call": "updateUserInformation"},
        {"at": 6.05, "call": "getDebugFileContent"}])");
    answersOf(visit)["POST /u_app_users/find_or_create_by_udid.json"] =
        asJson(R"([{"json": {}}, {"json": {}, "delay": 3.05}])");
    const auto lines = bench.play(visit).lines();
    const auto first = std::ranges::find(lines, "6.05 delegate didLoseBeaconSignal 1-7");
    ASSERT_NE(first, lines.end());
    EXPECT_THAT(std::vector(first, lines.end()),
                ElementsAre("6.05 delegate didLoseBeaconSignal 1-7", testing::StartsWith("6.05 delegate didLogEvent"),
                            "6.05 response 200 /u_app_users/find_or_create_by_udid.json",
                            "6.05 callback updateUserInformation success", "6.05 call getDebugFileContent ",
                            testing::StartsWith("40 request POST"), testing::StartsWith("40.05 response 404")));
}

constexpr const char* kPackets =
    "t_ms,kind,uuid,major,minor,measured_power,rssi\n"
    "5000,scan,,,,,\n"
    "6000,beacon,6B6E1B5A-0C0D-4A6E-9E62-0000000000B1,1,7,-59,-64\n"
    "9000,beacon,6B6E1B5A-0C0D-4A6E-9E62-0000000000B1,1,7,-59,-64\n"
    "15000,scan,,,,,\n";

TEST_F(ReplayTest, PacketsBeginWithTheFirstRowAndRunAtTheirSpeed) {
    // Ranging began at 0.05, so reports come at 1.05, 2.05, …
    const Table<const char*, const char*, const char*, const char*> cases = {
        {R"({"at": 10, "packets": {"csv": "packets.csv"}})", "11", "11.05", "44"},
        {R"({"at": 10, "packets": {"csv": "packets.csv", "speed": 2}})", "10.5", "11.05", "42"},
        {R"({"at": 10.25, "packets": {"csv": "packets.csv", "speed": 0.8}})", "11.5", "12.05", "45.25"},
    };
    bench.write("packets.csv", kPackets);
    for (const auto& [step, entered, found, exit] : cases) {
        SCOPED_TRACE(step);
        const auto replayed = bench.play(shopVisit(std::string(R"([{"at": 0, "call": "start"}, )") + step + "]"));
        EXPECT_THAT(replayed.lines("delegate didEnterBeaconRegion"),
                    ElementsAre(entered + std::string(" delegate didEnterBeaconRegion B1")));
        EXPECT_THAT(replayed.lines("delegate didFindNewBeacon"),
                    ElementsAre(found + std::string(" delegate didFindNewBeacon 1-7")));
        EXPECT_THAT(replayed.lines("delegate didExitBeaconRegion"),
                    ElementsAre(exit + std::string(" delegate didExitBeaconRegion B1")));
    }
}

TEST_F(ReplayTest, APacketTakesThePlaceOfItsStepAmongThoseOfEqualTime) {
    const Table<const char*, std::size_t> cases = {
        {R"([{"at": 0, "call": "start"}, {"at": 9, "packets": {"csv": "p.csv"}}, {"at": 10, "call": "stop"}])", 1},
        {R"([{"at": 0, "call": "start"}, {"at": 10, "call": "stop"}, {"at": 9, "packets": {"csv": "p.csv"}}])", 0},
    };
    bench.write("p.csv", kPackets);
    for (const auto& [timeline, entries] : cases) {
        const auto replayed = bench.play(shopVisit(timeline));
        EXPECT_EQ(replayed.lines("delegate didEnterBeaconRegion").size(), entries) << timeline;
    }
}

TEST_F(ReplayTest, EndsAsTheVisitSaysOrAMinuteAfterTheLastStep) {
    const Table<const char*, const char*, const char*, double> cases = {
        {"last step", R"([{"at": 0, "call": "start"}, {"at": 20, "app": "active"}])", nullptr, 80},
        {"last in time", R"([{"at": 20, "app": "active"}, {"at": 0, "call": "start"}])", nullptr, 80},
        {"repetition", R"([{"at": 0, "call": "start"}, {"at": 1, "every": 4, "until": 12, "app": "active"}])", nullptr,
         69},
        {"last packet", R"([{"at": 0, "call": "start"}, {"at": 9, "packets": {"csv": "p.csv"}}])", nullptr, 73},
        {"faster", R"([{"at": 0, "call": "start"}, {"at": 9, "packets": {"csv": "p.csv", "speed": 8}}])", nullptr,
         69.5},
        {"said", R"([{"at": 0, "call": "start"}, {"at": 90, "call": "stop"}])", "30.5", 30.5},
    };
    bench.write("p.csv", kPackets);
    for (const auto& [name, timeline, end, lastMoment] : cases) {
        SCOPED_TRACE(name);
        for (const bool isInTime : {true, false}) {
            auto visit = shopVisit(timeline);
            visit["app"].as_object()["settings"] = asJson(R"({"requestTimeout": 1000})");
            auto& answer = answersOf(visit)["GET /u_applications/query.json"].as_object();
            answer["delay"] = isInTime ? lastMoment : lastMoment + 0.001;
            if (end != nullptr) visit["end"] = asJson(end);
            const auto replayed = bench.play(visit);
            EXPECT_EQ(replayed.status, 0);
            EXPECT_EQ(replayed.lines("response").size(), isInTime ? 1U : 0U);
        }
    }
    EXPECT_THAT(bench.play(shopVisit("[]")).lines(), IsEmpty());
}

TEST_F(ReplayTest, WhatComesDueWhileTheAppIsSuspendedComesInOrderOnResuming) {
    auto visit = shopVisit(R"([
        {"at": 0, "call": "start"},
        {"at": 2, "call": "updateUserInformation"},
        {"at": 3, "app": "suspend"},
        )" + near(4, 7) + R"(,
        {"at": 6, "call": "getDebugFileContent"},
        {"at": 8, "enterBeaconRegion": "B1"},
        {"at": 20, "app": "resume"}])");
    answersOf(visit)["POST /u_app_users/find_or_create_by_udid.json"] =
        asJson(R"([{"json": {}}, {"json": {}, "delay": 3}])");
    const auto replayed = bench.play(visit);
    std::vector<std::string> lines;
    for (const auto& line : replayed.lines()) {
        const bool isLate = line.starts_with("20 ") && line.find("didLogEvent") == std::string::npos;
        if (isLate) lines.push_back(line);
        EXPECT_FALSE(line.starts_with("3 ") || line.starts_with("4 ") || line.starts_with("6 ")) << line;
    }
    const std::vector<std::string> expected = {
        "20 delegate didFindNewBeacon 1-7",
        "20 delegate didReceivePingFromBeacon 1-7",
        "20 response 200 /u_app_users/find_or_create_by_udid.json",
        "20 callback updateUserInformation success",
        "20 call getDebugFileContent ",
        "20 range Quomi beacon",
        "20 delegate didEnterBeaconRegion B1",
    };
    ASSERT_GE(lines.size(), expected.size());
    lines.resize(expected.size());
    EXPECT_THAT(lines, ElementsAreArray(expected));
}

TEST_F(ReplayTest, WithoutANetworkRequestsWaitUntilThereIsOne) {
    const auto replayed = bench.play(shopVisit(R"([{"at": 0, "network": "unreachable"}, {"at": 0, "call": "start"},
                                                   {"at": 30, "network": "reachable"}])"));
    EXPECT_EQ(replayed.lines().front(), "0 call start true");
    EXPECT_EQ(replayed.lines("request").at(0), "30 request GET /u_applications/query.json");
}

TEST_F(ReplayTest, ClockAndZoneMoveWithoutTimers) {
    auto visit = shopVisit(R"([
        {"at": 0, "call": "start"},
        {"at": 1, "call": "logEvent", "with": {}},
        {"at": 2, "clock": -3600.5},
        {"at": 3, "call": "logEvent", "with": {}},
        {"at": 4, "timeZone": "Asia/Tokyo"}])");
    visit["timeZone"] = "Europe/Vienna";
    const auto replayed = bench.play(visit);
    std::vector<std::string> times;
    for (const auto& record : replayed.records) {
        if (record.contains("time") && record.at("event").as_object().empty())
            times.emplace_back(record.at("time").as_string());
    }
    EXPECT_THAT(times, ElementsAre("2026-11-21T08:30:01.000Z", "2026-11-21T07:30:02.500Z"));
    // The batch of events is due 40 s after the first one, and its dates are the device's.
    ASSERT_THAT(replayed.lines("request POST /u_applications"),
                ElementsAre("40 request POST /u_applications/shop/log_multi.json"));
    for (const auto& record : replayed.records) {
        if (brief(record) != "40 request POST /u_applications/shop/log_multi.json") continue;
        EXPECT_EQ(record.at("body").at("logs").as_array().at(0).at("date"), "2026-11-21 17:30:00 +0900");
    }
}

}  // namespace
}  // namespace quomi::test
