#include "tests/tool/replay_support.h"

#include <boost/json/serialize.hpp>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Whole visits to a beacon with rules: what an event leads to, from the packet to the phone's screen.
namespace quomi::test {
namespace {

namespace json = boost::json;
using testing::ElementsAreArray;
using Strings = std::vector<std::string>;

/// A report of the beacon. It is lost five to six seconds after its last one.
std::string near(double at, int minor = 1) {
    return fmt::format(R"({{"at": {}, "range": [{{"uuid": "{}", "major": 1, "minor": {}, "proximity": "near",
        "accuracy": 1.5, "rssi": -60}}]}})",
                       at, kShopUUID, minor);
}

std::string rule(const std::string& conditions, const std::string& action = R"("notify_user": "Hi")") {
    return fmt::format(R"({{"id": "r", "rule": {{"trigger": "on_entry", "proximity": 1, "proximity_end": 2{}}},
        "action": {{{}}}}})",
                       conditions, action);
}

/// The beacon of `near` has these rules. Its region is entered at 1, and they are there before 2.
json::object visitWith(const std::string& rules, const Strings& steps, const std::string& members = {}) {
    auto visit = shopVisit("[]");
    auto& timeline = visit["timeline"].as_array();
    timeline.push_back(asJson(R"({"at": 0, "call": "start"})"));
    timeline.push_back(asJson(fmt::format(R"({{"at": 1, "enterBeaconRegion": "{}"}})", kShopUUID)));
    for (const auto& step : steps) timeline.push_back(asJson(step));
    auto& answer = answersOf(visit)["GET /u_beacons/query.json"].as_object()["json"].as_object();
    answer["u_beacons"] = asJson(fmt::format(
        R"([{{"id": "b", "proximity_uid": "{}", "major": 1, "minor": 1, "start": "2026-01-01T00:00:00Z",
        "end": "2036-01-01T00:00:00Z", "group_id": "b", "rules_actions": [{}]{}}}])",
        kShopUUID, rules, members));
    answersOf(visit)["POST /u_applications/shop/log_multi.json"] = asJson(R"({"json": {"success": true}})");
    return visit;
}

void limit(json::object& visit, const char* limits) {
    auto answer = asJson(limits).as_object();
    answer["success"] = true;
    answersOf(visit)["GET /u_applications/limits.json"] = json::object{{"json", answer}};
}

/// What became of the rules, what was asked of the host and of the server, and what the user saw.
Strings storyOf(const Replayed& played) {
    Strings story;
    for (const auto& record : played.records) {
        const auto line = brief(record);
        const auto time = line.substr(0, line.find(' '));
        const auto told = [&](const auto& what) { story.push_back(time + ' ' + what); };
        if (const auto* id = record.if_contains("rule")) {
            told(fmt::format("{} {} {}", id->as_string().c_str(), record.at("decision").as_string().c_str(),
                             json::serialize(record.at("detail"))));
        } else if (record.contains("badge")) {
            told(fmt::format("notifies {}", record.at("body").as_string().c_str()));
        } else if (line.ends_with("https://shop.test/hook")) {
            told(record.contains("request") ? "request hook"
                                            : line.substr(time.size() + 1, line.rfind(' ') - time.size() - 1));
        } else if (record.contains("webPage") || record.contains("openURL") || line.find("xecute") != line.npos) {
            if (!record.contains("console")) story.push_back(line);
        }
    }
    return story;
}

class RulesReplayTest : public testing::Test {
protected:
    [[nodiscard]] Strings told(const json::object& visit) const { return storyOf(bench_.play(visit)); }
    ReplayBench bench_;
};

TEST_F(RulesReplayTest, EveryGateSaysWhyAndUntilWhen) {
    struct Case {
        const char* conditions;
        const char* limits;
        const char* members;
        double later;
        Strings story;
    };
    for (const auto& [conditions, limits, members, later, story] : std::vector<Case>{
             {R"(, "max_events": 1, "max_events_period": 60)",
              "{}",
              "",
              62.001,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})",
               R"(12 r ruleMax {"count":1,"limit":1,"period":60,"until":"2026-11-21T08:31:02.001Z"})",
               "62.001 notifies Hi", R"(62.001 r executed {"actions":["notify_user"]})"}},
             {R"(, "max_events": 1)",
              "{}",
              "",
              99,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})",
               R"(12 r ruleMax {"count":1,"limit":1,"period":null,"until":null})",
               R"(99 r ruleMax {"count":1,"limit":1,"period":null,"until":null})"}},
             {"",
              R"({"max_events": 1, "max_events_period": 60})",
              "",
              62.001,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})",
               R"(12 r globalMax {"count":1,"limit":1,"period":60,"until":"2026-11-21T08:31:02.001Z"})",
               "62.001 notifies Hi", R"(62.001 r executed {"actions":["notify_user"]})"}},
             {R"(, "under_global_counter": 0)",
              R"({"max_events": 1})",
              "",
              99,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})", "12 notifies Hi",
               R"(12 r executed {"actions":["notify_user"]})", "99 notifies Hi",
               R"(99 r executed {"actions":["notify_user"]})"}},
             {"",
              R"({"min_interval": 30})",
              "",
              32.001,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})",
               R"(12 r minInterval {"seconds":10,"limit":30,"period":null,"until":"2026-11-21T08:30:32.001Z"})",
               "32.001 notifies Hi", R"(32.001 r executed {"actions":["notify_user"]})"}},
             {R"(, "max_group_events": 1, "max_group_events_period": 60)",
              "{}",
              "",
              62.001,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})",
               R"(12 r groupMax {"count":1,"limit":1,"period":60,"until":"2026-11-21T08:31:02.001Z"})",
               "62.001 notifies Hi", R"(62.001 r executed {"actions":["notify_user"]})"}},
             {R"(, "min_events": 2, "min_events_period": 60)",
              "{}",
              "",
              99,
              {R"(2 r ruleMin {"count":1,"limit":2,"period":60})", "12 notifies Hi",
               R"(12 r executed {"actions":["notify_user"]})", R"(99 r ruleMin {"count":1,"limit":2,"period":60})"}},
             {R"(, "min_group_events": 3)",
              "{}",
              "",
              99,
              {R"(2 r groupMin {"count":1,"limit":3,"period":null})",
               R"(12 r groupMin {"count":2,"limit":3,"period":null})", "99 notifies Hi",
               R"(99 r executed {"actions":["notify_user"]})"}},
             {"",
              "{}",
              R"(, "opening_hours": {"week": {"sat": {"open": 32460, "close": 86400}}})",
              99,
              {R"(2 r inactive {"code":204})", R"(12 r inactive {"code":204})", R"(99 r inactive {"code":204})"}},
             {"",
              "{}",
              R"(, "end": "2026-11-21T08:30:05Z")",
              99,
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})", R"(12 r inactive {"code":203})",
               R"(99 r inactive {"code":203})"}},
             {R"(, "latch_time": 3)",
              "{}",
              "",
              99,
              {R"(2 r latched {"seconds":3})", "5 notifies Hi", R"(5 r executed {"actions":["notify_user"]})",
               R"(12 r latched {"seconds":3})", "15 notifies Hi", R"(15 r executed {"actions":["notify_user"]})",
               R"(99 r latched {"seconds":3})", "101 r latchCancelled {}"}},
             {R"(, "latch_time": 9)",
              "{}",
              "",
              99,
              {R"(2 r latched {"seconds":9})", "11 r latchBroken {}", R"(12 r latched {"seconds":9})",
               "21 r latchBroken {}", R"(99 r latched {"seconds":9})", "101 r latchCancelled {}"}},
             {R"(, "proximity_end": 1)",
              "{}",
              "",
              99,
              {R"(2 r outOfRange {"range":[1,1],"previous":7,"new":2})",
               R"(12 r outOfRange {"range":[1,1],"previous":7,"new":2})",
               R"(99 r outOfRange {"range":[1,1],"previous":7,"new":2})"}}}) {
        SCOPED_TRACE(fmt::format("{} {} {}", conditions, limits, members));
        auto visit =
            visitWith(rule(conditions), {near(2), near(12), near(later), R"({"at": 101, "call": "stop"})"}, members);
        limit(visit, limits);
        EXPECT_THAT(told(visit), ElementsAreArray(story));
    }
}

TEST_F(RulesReplayTest, ActionsInFrontAndBehind) {
    struct Case {
        const char* action;
        const char* state;
        const char* delegate;
        Strings story;
    };
    const char* both = R"("notify_user": "Hi", "open_url": "https://shop.test/page")";
    const char* link = R"("open_deep_link": "{\"iosURL\": \"https://shop.test/link\"}")";
    for (const auto& [action, state, delegate, story] : std::vector<Case>{
             {both,
              "active",
              "{}",
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user","open_url"]})",
               "2 webPage https://shop.test/page", "7 webPage https://shop.test/page"}},
             {both,
              "background",
              "{}",
              {"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})", "7 webPage https://shop.test/page"}},
             {link,
              "active",
              "{}",
              {R"(2 r executed {"actions":["open_deep_link"]})", "2 openURL https://shop.test/link"}},
             {link,
              "background",
              "{}",
              {R"(2 r executed {"actions":["open_deep_link"]})", "2 openURL https://shop.test/link"}},
             {both,
              "active",
              R"({"shouldExecuteNotificationRequest": false, "shouldExecuteOpenWebPageRequest": false})",
              {"2 delegate shouldExecuteNotificationRequest",
               "2 delegate shouldExecuteOpenWebPageRequest https://shop.test/page",
               R"(2 r vetoed {"action":"notify_user"})"}},
             {both,
              "background",
              R"({"shouldExecuteNotificationRequest": false})",
              {"2 delegate shouldExecuteNotificationRequest", R"(2 r vetoed {"action":"notify_user"})"}},
             {both,
              "background",
              R"({"shouldExecuteNotificationRequest": {"async": false, "after": 3}})",
              {"2 delegate shouldExecuteNotificationRequest", R"(2 r executed {"actions":["notify_user"]})",
               R"(5 r vetoed {"action":"notify_user"})"}},
             {both,
              "background",
              R"({"shouldExecuteNotificationRequest": {"async": true, "after": 3}})",
              {"2 delegate shouldExecuteNotificationRequest", R"(2 r executed {"actions":["notify_user"]})",
               "5 notifies Hi", "7 webPage https://shop.test/page"}},
             {both,
              "active",
              R"({"executeNotificationRequest": true, "executeOpenWebPageRequest": true})",
              {"2 delegate executeNotificationRequest", "2 delegate executeOpenWebPageRequest https://shop.test/page",
               R"(2 r executed {"actions":["notify_user","open_url"]})"}},
             {link,
              "active",
              R"({"shouldExecuteOpenDeepLinkRequest": false})",
              {"2 delegate shouldExecuteOpenDeepLinkRequest https://shop.test/link",
               R"(2 r vetoed {"action":"open_deep_link"})"}},
             {link,
              "active",
              R"({"executeOpenDeepLinkRequest": true})",
              {"2 delegate executeOpenDeepLinkRequest https://shop.test/link",
               R"(2 r executed {"actions":["open_deep_link"]})"}}}) {
        SCOPED_TRACE(fmt::format("{} {} {}", action, state, delegate));
        auto visit = visitWith(rule("", action), {fmt::format(R"({{"at": 1.5, "app": "{}"}})", state), near(2),
                                                  R"({"at": 7, "call": "openNotification"})"});
        visit["app"].as_object()["delegate"] = asJson(delegate);
        EXPECT_THAT(told(visit), ElementsAreArray(story));
    }
}

TEST_F(RulesReplayTest, ServersAnswersAndTheirTimes) {
    struct Case {
        const char* answer;
        Strings story;
    };
    for (const auto& [answer, story] : std::vector<Case>{
             {R"({"json": {"decision": "enable"}})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response 200", "2.05 notifies Hi", R"(2.05 r executed {"actions":["notify_user"]})"}},
             {R"({"json": {"decision": "disable"}})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response 200", "2.05 r serverDeclined {}"}},
             {R"({"json": {"decision": "notify", "notify_user": "Other", "open_url": "https://shop.test/page"}})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response 200", "2.05 notifies Other",
               R"(2.05 r serverOrdered {"actions":["notify_user","open_url"]})",
               "2.05 webPage https://shop.test/page"}},
             {R"({"json": {"decision": "notify"}})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response 200", "2.05 r serverFailed {}"}},
             {R"({"status": 500})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response 500", "2.05 r serverFailed {}"}},
             {R"([{"text": "<html>"}, {"text": "<html>"}, {"json": {"decision": "enable"}}])",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response invalid", "4.05 request hook", "4.1 response invalid", "8.1 request hook",
               "8.15 response 200", "8.15 notifies Hi", R"(8.15 r executed {"actions":["notify_user"]})"}},
             {R"({"text": "<html>"})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response invalid", "4.05 request hook", "4.1 response invalid", "8.1 request hook",
               "8.15 response invalid", "16.15 request hook", "16.2 response invalid", "32.2 request hook",
               "32.25 response invalid", "32.25 r serverFailed {}"}},
             {R"({"fail": "connection"})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "2.05 response connection", "2.05 r serverFailed {}"}},
             {R"({"json": {"decision": "enable"}, "delay": 24})",
              {"2 request hook", R"(2 r askServer {"url":"https://shop.test/hook?of=b&type=beacon"})",
               "26 response 200", "26 notifies Hi", R"(26 r executed {"actions":["notify_user"]})"}}}) {
        SCOPED_TRACE(answer);
        auto visit =
            visitWith(rule("", R"("notify_server": "https://shop.test/hook?of={id}", "notify_user": "Hi")"), {near(2)});
        answersOf(visit)["GET https://shop.test/hook"] = asJson(answer);
        EXPECT_THAT(told(visit), ElementsAreArray(story));
    }
}

TEST_F(RulesReplayTest, CountersOutliveTheAppAndAClockThatJumps) {
    const auto limited = rule(R"(, "max_events": 2, "max_events_period": 3600)");
    const auto first =
        bench_.play(visitWith(limited, {near(2), R"({"at": 9, "app": "terminate"})"}), bench_.keepState());
    auto again = visitWith(limited, {near(2), near(12), R"({"at": 20, "clock": -7200})", near(30),
                                     R"({"at": 40, "call": "resetCounters"})", near(50)});
    again["start"] = "2026-11-21T10:00:00+01:00";
    EXPECT_THAT(storyOf(first),
                ElementsAreArray(Strings{"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})"}));
    EXPECT_THAT(storyOf(bench_.play(again, bench_.keepState())),
                ElementsAreArray(
                    Strings{"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})",
                            R"(12 r ruleMax {"count":2,"limit":2,"period":3600,"until":"2026-11-21T09:30:02.001Z"})",
                            R"(30 r ruleMax {"count":2,"limit":2,"period":3600,"until":"2026-11-21T09:30:02.001Z"})",
                            "50 notifies Hi", R"(50 r executed {"actions":["notify_user"]})"}));
}

TEST_F(RulesReplayTest, TwoThousandBeaconsAtOnce) {
    json::array beacons;
    for (int minor = 0; minor < 2000; ++minor) {
        beacons.push_back({{"uuid", kShopUUID},
                           {"major", 1},
                           {"minor", minor},
                           {"proximity", "near"},
                           {"accuracy", 1.5},
                           {"rssi", -60}});
    }
    auto visit = visitWith(rule(""), {});
    visit["timeline"].as_array().push_back({{"at", 2}, {"range", beacons}});
    const auto played = bench_.play(visit);
    EXPECT_EQ(played.lines("delegate didFindNewBeacon").size(), 2000U);
    EXPECT_EQ(played.lines("delegate didLoseBeaconSignal").size(), 2000U);
    EXPECT_THAT(storyOf(played),
                ElementsAreArray(Strings{"2 notifies Hi", R"(2 r executed {"actions":["notify_user"]})"}));
}

}  // namespace
}  // namespace quomi::test
