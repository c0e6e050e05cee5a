#include "tests/tool/replay_support.h"

// Whole visits to a beacon with rules: what an event leads to, from the packet to the phone's screen.
namespace quomi::test {
namespace {

namespace json = boost::json;

std::string rule(const std::string& conditions, const std::string& action = R"("notify_user": "Hi")") {
    return fmt::format(R"({{"id": "r", "rule": {{"trigger": "on_entry", "proximity": 1, "proximity_end": 2{}{}}},
                           "action": {{{}}}}})",
                       conditions.empty() ? "" : ", ", conditions, action);
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
              "end": "2036-01-01T00:00:00Z", "group_id": "b", "rules_actions": [{}]{}{}}}])",
        kShopUUID, rules, members.empty() ? "" : ", ", members));
    answersOf(visit)["POST /u_applications/shop/log_multi.json"] = asJson(R"({"json": {"success": true}})");
    return visit;
}

/// What became of the rules, what was asked of the host and of the server, and what the user saw; JSON without quotes.
Strings storyOf(const Replayed& played) {
    Strings story;
    for (const auto& record : played.records) {
        auto line = brief(record);
        const auto time = line.substr(0, line.find(' '));
        const auto told = [&](const auto& what) { story.push_back(time + ' ' + what); };
        if (const auto* id = record.if_contains("rule")) {
            auto detail = json::serialize(record.at("detail"));
            std::erase(detail, '"');
            told(fmt::format("{} {} {}", id->as_string().c_str(), record.at("decision").as_string().c_str(), detail));
        } else if (record.contains("badge")) {
            told(fmt::format("notifies {}", record.at("body").as_string().c_str()));
        } else if (line.ends_with("https://shop.test/hook") && !record.contains("delegate")) {
            told(record.contains("request") ? "request hook"
                                            : line.substr(time.size() + 1, line.rfind(' ') - time.size() - 1));
        } else if (record.contains("webPage") || record.contains("openURL") || line.find("xecute") != line.npos) {
            if (!record.contains("console")) story.push_back(line);
        }
    }
    return story;
}

/// The parts of a story as it is told here: "2 ran" is the notification and the rule's report, "2 asks" the request and
/// the rule's report, "2 asked Notification" the host's decision about one.
Strings told(const std::string& text) {
    Strings story;
    for (const auto& part : parts(text)) {
        const auto time = part.substr(0, part.find(' '));
        if (part == time + " ran") {
            story.push_back(time + " notifies Hi");
            story.push_back(time + " r executed {actions:[notify_user]}");
        } else if (part == time + " asks") {
            story.push_back(time + " request hook");
            story.push_back(time + " r askServer {url:https://shop.test/hook?of=b&type=beacon}");
        } else if (part == time + " asked Notification") {
            story.push_back(time + " delegate shouldExecuteNotificationRequest");
        } else {
            story.push_back(part);
        }
    }
    return story;
}

class RulesReplayTest : public testing::Test {
protected:
    void expectStory(const json::object& visit, const std::string& story) const {
        EXPECT_EQ(storyOf(bench_.play(visit)), told(story));
    }

    ReplayBench bench_;
};

TEST_F(RulesReplayTest, EveryGateSaysWhyAndUntilWhen) {
    for (const auto& [conditions, limits, members, later, story] :
         Table<const char*, const char*, const char*, double, const char*>{
             {R"("max_events": 1, "max_events_period": 60)", "{}", "", 62.001,
              "2 ran | 12 r ruleMax {count:1,limit:1,period:60,until:2026-11-21T08:31:02.001Z} | 62.001 ran"},
             {R"("max_events": 1)", "{}", "", 99,
              "2 ran | 12 r ruleMax {count:1,limit:1,period:null,until:null} | "
              "99 r ruleMax {count:1,limit:1,period:null,until:null}"},
             {"", R"({"max_events": 1, "max_events_period": 60})", "", 62.001,
              "2 ran | 12 r globalMax {count:1,limit:1,period:60,until:2026-11-21T08:31:02.001Z} | 62.001 ran"},
             {R"("under_global_counter": 0)", R"({"max_events": 1})", "", 99, "2 ran | 12 ran | 99 ran"},
             {"", R"({"min_interval": 30})", "", 32.001,
              "2 ran | 12 r minInterval {seconds:10,limit:30,period:null,until:2026-11-21T08:30:32.001Z} | 32.001 ran"},
             {R"("max_group_events": 1, "max_group_events_period": 60)", "{}", "", 62.001,
              "2 ran | 12 r groupMax {count:1,limit:1,period:60,until:2026-11-21T08:31:02.001Z} | 62.001 ran"},
             {R"("min_events": 2, "min_events_period": 60)", "{}", "", 99,
              "2 r ruleMin {count:1,limit:2,period:60} | 12 ran | 99 r ruleMin {count:1,limit:2,period:60}"},
             {R"("min_group_events": 3)", "{}", "", 99,
              "2 r groupMin {count:1,limit:3,period:null} | 12 r groupMin {count:2,limit:3,period:null} | 99 ran"},
             {"", "{}", R"("opening_hours": {"week": {"sat": {"open": 32460, "close": 86400}}})", 99,
              "2 r inactive {code:204} | 12 r inactive {code:204} | 99 r inactive {code:204}"},
             {"", "{}", R"("end": "2026-11-21T08:30:05Z")", 99,
              "2 ran | 12 r inactive {code:203} | 99 r inactive {code:203}"},
             {R"("latch_time": 3)", "{}", "", 99,
              "2 r latched {seconds:3} | 5 ran | 12 r latched {seconds:3} | 15 ran | 99 r latched {seconds:3} | "
              "101 r latchCancelled {}"},
             {R"("latch_time": 9)", "{}", "", 99,
              "2 r latched {seconds:9} | 11 r latchBroken {} | 12 r latched {seconds:9} | 21 r latchBroken {} | "
              "99 r latched {seconds:9} | 101 r latchCancelled {}"},
             {R"("proximity_end": 1)", "{}", "", 99,
              "2 r outOfRange {range:[1,1],previous:7,new:2} | 12 r outOfRange {range:[1,1],previous:7,new:2} | "
              "99 r outOfRange {range:[1,1],previous:7,new:2}"}}) {
        SCOPED_TRACE(fmt::format("{} {} {}", conditions, limits, members));
        auto visit =
            visitWith(rule(conditions), {near(2), near(12), near(later), R"({"at": 101, "call": "stop"})"}, members);
        auto answer = asJson(limits).as_object();
        answer["success"] = true;
        answersOf(visit)["GET /u_applications/limits.json"] = json::object{{"json", answer}};
        expectStory(visit, story);
    }
}

TEST_F(RulesReplayTest, ActionsInFrontAndBehind) {
    const char* both = R"("notify_user": "Hi", "open_url": "https://shop.test/page")";
    const char* link = R"("open_deep_link": "{\"iosURL\": \"https://shop.test/link\"}")";
    for (const auto& [action, state, delegate, story] : Table<const char*, const char*, const char*, const char*>{
             {both, "active", "",
              "2 notifies Hi | 2 r executed {actions:[notify_user,open_url]} | 2 webPage https://shop.test/page | "
              "7 webPage https://shop.test/page"},
             {both, "background", "", "2 ran | 7 webPage https://shop.test/page"},
             {link, "active", "", "2 r executed {actions:[open_deep_link]} | 2 openURL https://shop.test/link"},
             {link, "background", "", "2 r executed {actions:[open_deep_link]} | 2 openURL https://shop.test/link"},
             {R"("notify_user": "Hi", "open_deep_link": "{\"iosURL\": \"https://shop.test/link\"}")", "background", "",
              "2 ran | 7 openURL https://shop.test/link"},
             {both, "active", R"("shouldExecuteNotificationRequest": false, "shouldExecuteOpenWebPageRequest": false)",
              "2 asked Notification | 2 delegate shouldExecuteOpenWebPageRequest https://shop.test/page | "
              "2 r vetoed {action:notify_user}"},
             {both, "background", R"("shouldExecuteNotificationRequest": false)",
              "2 asked Notification | 2 r vetoed {action:notify_user}"},
             {both, "background", R"("shouldExecuteNotificationRequest": {"async": false, "after": 3})",
              "2 asked Notification | 2 r executed {actions:[notify_user]} | 5 r vetoed {action:notify_user}"},
             {both, "background", R"("shouldExecuteNotificationRequest": {"async": true, "after": 3})",
              "2 asked Notification | 2 r executed {actions:[notify_user]} | 5 notifies Hi | "
              "7 webPage https://shop.test/page"},
             {both, "active", R"("executeNotificationRequest": true, "executeOpenWebPageRequest": true)",
              "2 delegate executeNotificationRequest | 2 delegate executeOpenWebPageRequest https://shop.test/page | "
              "2 r executed {actions:[notify_user,open_url]}"},
             {link, "active", R"("shouldExecuteOpenDeepLinkRequest": false)",
              "2 delegate shouldExecuteOpenDeepLinkRequest https://shop.test/link | 2 r vetoed "
              "{action:open_deep_link}"},
             {link, "active", R"("executeOpenDeepLinkRequest": true)",
              "2 delegate executeOpenDeepLinkRequest https://shop.test/link | 2 r executed "
              "{actions:[open_deep_link]}"}}) {
        SCOPED_TRACE(fmt::format("{} {} {}", action, state, delegate));
        auto visit = visitWith(rule("", action), {fmt::format(R"({{"at": 1.5, "app": "{}"}})", state), near(2),
                                                  R"({"at": 7, "call": "openNotification"})"});
        visit["app"].as_object()["delegate"] = asJson(fmt::format("{{{}}}", delegate));
        expectStory(visit, story);
    }
}

TEST_F(RulesReplayTest, ServersAnswersAndTheirTimes) {
    const char* no = "";
    const char* byHost = "2 delegate executeServerNotificationRequest https://shop.test/hook | 2 r hostAsked {}";
    for (const auto& [answer, delegate, story] : Table<const char*, const char*, const char*>{
             {R"({"json": {"decision": "enable"}})", no, "2 asks | 2.05 response 200 | 2.05 ran"},
             {R"({"json": {"decision": "disable"}})", no, "2 asks | 2.05 response 200 | 2.05 r serverDeclined {}"},
             {R"({"json": {"decision": "notify", "notify_user": "Other", "open_url": "https://shop.test/page"}})", no,
              "2 asks | 2.05 response 200 | 2.05 notifies Other | "
              "2.05 r serverOrdered {actions:[notify_user,open_url]} | 2.05 webPage https://shop.test/page"},
             {R"({"json": {"decision": "notify"}})", no, "2 asks | 2.05 response 200 | 2.05 r serverFailed {}"},
             {R"({"status": 500})", no, "2 asks | 2.05 response 500 | 2.05 r serverFailed {}"},
             {R"([{"text": "<html>"}, {"text": "<html>"}, {"json": {"decision": "enable"}}])", no,
              "2 asks | 2.05 response invalid | 4.05 request hook | 4.1 response invalid | 8.1 request hook | "
              "8.15 response 200 | 8.15 ran"},
             {R"({"text": "<html>"})", no,
              "2 asks | 2.05 response invalid | 4.05 request hook | 4.1 response invalid | 8.1 request hook | "
              "8.15 response invalid | 16.15 request hook | 16.2 response invalid | 32.2 request hook | "
              "32.25 response invalid | 32.25 r serverFailed {}"},
             {R"({"fail": "connection"})", no, "2 asks | 2.05 response connection | 2.05 r serverFailed {}"},
             {R"({"json": {"decision": "enable"}, "delay": 24})", no, "2 asks | 26 response 200 | 26 ran"},
             {"{}", R"("shouldExecuteServerNotificationRequest": false)",
              "2 delegate shouldExecuteServerNotificationRequest https://shop.test/hook | 2 r vetoed "
              "{action:notify_server}"},
             {"{}", R"("executeServerNotificationRequest": true)", byHost},
             {"{}", R"("executeServerNotificationRequest": "succeed")", byHost},
             {"{}", R"("executeServerNotificationRequest": "fail")", byHost}}) {
        SCOPED_TRACE(fmt::format("{} {}", answer, delegate));
        auto visit =
            visitWith(rule("", R"("notify_server": "https://shop.test/hook?of={id}", "notify_user": "Hi")"), {near(2)});
        visit["app"].as_object()["delegate"] = asJson(fmt::format("{{{}}}", delegate));
        answersOf(visit)["GET https://shop.test/hook"] = asJson(answer);
        expectStory(visit, story);
        if (delegate == no) continue;
        const bool isLogged =
            bench_.play(visit).out.find(R"("type":"action","action":"notify_server")") != std::string::npos;
        EXPECT_EQ(isLogged, std::string_view(delegate).ends_with(R"("succeed")")) << "only what has succeeded";
    }
}

TEST_F(RulesReplayTest, CountersOutliveTheAppAndAClockThatJumps) {
    const auto limited = rule(R"("max_events": 2, "max_events_period": 3600)");
    const auto first =
        bench_.play(visitWith(limited, {near(2), R"({"at": 9, "app": "terminate"})"}), bench_.keepState());
    auto again = visitWith(limited, {near(2), near(12), R"({"at": 20, "clock": -7200})", near(30),
                                     R"({"at": 40, "call": "resetCounters"})", near(50)});
    again["start"] = "2026-11-21T10:00:00+01:00";
    EXPECT_EQ(storyOf(first), told("2 ran"));
    EXPECT_EQ(storyOf(bench_.play(again, bench_.keepState())),
              told("2 ran | 12 r ruleMax {count:2,limit:2,period:3600,until:2026-11-21T09:30:02.001Z} | "
                   "30 r ruleMax {count:2,limit:2,period:3600,until:2026-11-21T09:30:02.001Z} | 50 ran"));
}

TEST_F(RulesReplayTest, TwoThousandBeaconsAtOnce) {
    json::array beacons;
    for (int minor = 0; minor < 2000; ++minor) {
        beacons.push_back(asJson(fmt::format(
            R"({{"uuid": "{}", "major": 1, "minor": {}, "proximity": "near", "accuracy": 1.5, "rssi": -60}})",
            kShopUUID, minor)));
    }
    auto visit = visitWith(rule(""), {});
    visit["timeline"].as_array().push_back({{"at", 2}, {"range", beacons}});
    const auto played = bench_.play(visit);
    EXPECT_EQ(played.lines("delegate didFindNewBeacon").size(), 2000U);
    EXPECT_EQ(played.lines("delegate didLoseBeaconSignal").size(), 2000U);
    EXPECT_EQ(storyOf(played), told("2 ran"));
}

}  // namespace
}  // namespace quomi::test
