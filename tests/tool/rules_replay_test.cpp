#include "tests/tool/replay_support.h"

// Visits to a beacon with a rule that tests/visits cannot tell: they go on after the app has ended, or are very large.
namespace quomi::test {
namespace {

namespace json = boost::json;

/// The beacon of `near` has a rule with these conditions. Its region is entered at 1, and the rule is there before 2.
json::object visitWith(const std::string& conditions, const Strings& steps) {
    auto visit = shopVisit("[]");
    auto& timeline = visit["timeline"].as_array();
    timeline.push_back(asJson(R"({"at": 0, "call": "start"})"));
    timeline.push_back(asJson(fmt::format(R"({{"at": 1, "enterBeaconRegion": "{}"}})", kShopUUID)));
    for (const auto& step : steps) timeline.push_back(asJson(step));
    auto& answer = answersOf(visit)["GET /u_beacons/query.json"].as_object()["json"].as_object();
    answer["u_beacons"] = asJson(fmt::format(
        R"([{{"id": "b", "proximity_uid": "{}", "major": 1, "minor": 1, "start": "2026-01-01T00:00:00Z",
              "end": "2036-01-01T00:00:00Z", "rules_actions": [{{"id": "r", "action": {{"notify_user": "Hi"}},
              "rule": {{"trigger": "on_entry", "proximity": 1, "proximity_end": 2{}}}}}]}}])",
        kShopUUID, conditions));
    return visit;
}

/// What became of the rule.
Strings storyOf(const Replayed& played) {
    Strings story;
    for (const auto& record : played.records) {
        if (!record.contains("rule")) continue;
        story.push_back(
            fmt::format("{} {}", json::serialize(record.at("t")), record.at("decision").as_string().c_str()));
    }
    return story;
}

class RulesReplayTest : public testing::Test {
protected:
    ReplayBench bench_;
};

TEST_F(RulesReplayTest, CountersOutliveTheAppAndAClockThatJumps) {
    const char* limited = R"(, "max_events": 2, "max_events_period": 3600)";
    const auto first =
        bench_.play(visitWith(limited, {near(2), R"({"at": 9, "app": "terminate"})"}), bench_.keepState());
    auto again = visitWith(limited, {near(2), near(12), R"({"at": 20, "clock": -7200})", near(30),
                                     R"({"at": 40, "call": "resetCounters"})", near(50)});
    again["start"] = "2026-11-21T10:00:00+01:00";
    EXPECT_THAT(storyOf(first), ElementsAre("2 executed"));
    EXPECT_THAT(storyOf(bench_.play(again, bench_.keepState())),
                ElementsAre("2 executed", "12 ruleMax", "30 ruleMax", "50 executed"));
}

TEST_F(RulesReplayTest, TwoThousandBeaconsAtOnce) {
    json::array beacons;
    for (int minor = 0; minor < 2000; ++minor) {
        beacons.push_back(asJson(fmt::format(
            R"({{"uuid": "{}", "major": 1, "minor": {}, "proximity": "near", "accuracy": 1.5, "rssi": -60}})",
            kShopUUID, minor)));
    }
    auto visit = visitWith("", {});
    visit["timeline"].as_array().push_back({{"at", 2}, {"range", beacons}});
    const auto played = bench_.play(visit);
    EXPECT_EQ(played.lines("delegate didFindNewBeacon").size(), 2000U);
    EXPECT_EQ(played.lines("delegate didLoseBeaconSignal").size(), 2000U);
    EXPECT_THAT(storyOf(played), ElementsAre("2 executed"));
}

}  // namespace
}  // namespace quomi::test
