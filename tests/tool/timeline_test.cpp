#include "tools/quomi/timeline/timeline.h"

#include "tests/support/prelude.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"
#include "tools/quomi/timeline/visit_summary.h"

namespace quomi::tool {
namespace {

namespace json = boost::json;

const std::string kUuid = "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90";

json::object parsed(const std::string& text) {
    return json::parse(text).as_object();
}

json::object beacon(double t, const std::string& what, int minor, int proximity, double accuracy = 1.25) {
    const auto name = kUuid + "/1-" + std::to_string(minor);
    return {{"t", t},
            {"delegate", what},
            {"beacon", name},
            {"userInfo",
             {{"name", name}, {"proximity", proximity}, {"accuracy", accuracy}, {"rssi", -61}, {"isSecure", false}}}};
}

/// 2024-05-04 23:59:50 in Berlin.
Timeline::Options options() {
    return {"A visit",
            WallTime(std::chrono::seconds(1714859990)),
            "Europe/Berlin",
            {{kUuid + "/1-1", "Käse"}},
            Depth::phone};
}

std::string played(const std::vector<json::object>& records, const Terminal& terminal = {},
                   Timeline::Options with = options()) {
    std::ostringstream out;
    Timeline timeline(out, terminal, std::move(with));
    for (const auto& record : records) timeline.record(record);
    timeline.finish();
    return out.str();
}

std::vector<json::object> smallTrace() {
    const std::string batch = R"("url":"https://b.test/u_applications/shop/log_multi.json")";
    return {
        parsed(R"({"t":0,"request":"GET","url":"https://b.test/u_beacons/query.json?major=1","headers":{}})"),
        parsed(R"({"t":0,"call":"start","result":true,"error":null})"),
        parsed(R"({"t":0.05,"response":200,"url":"https://b.test/u_beacons/query.json?major=1"})"),
        parsed(R"({"t":2.3,"delegate":"didEnterBeaconRegion","uuid":")" + kUuid + R"(","userInfo":{}})"),
        beacon(3, "didFindNewBeacon", 1, 4, 5),
        parsed(R"({"t":3,"delegate":"didLogEvent","event":{"type":"view"},"time":"2024-05-04T21:59:53.000Z"})"),
        beacon(3, "didReceivePingFromBeacon", 1, 4, 5),
        beacon(4, "didUpdateBeacon", 1, 4, 4.5),
        beacon(5, "didUpdateBeacon", 1, 2),
        parsed(R"({"t":5,"request":"POST",)" + batch + R"(,"body":{"udid":"u","logs":[{},{},{}]}})"),
        parsed(R"({"t":5.05,"response":500,)" + batch + "}"),
        parsed(R"({"t":6,"request":"POST",)" + batch + R"(,"body":{"udid":"u","logs":[{},{}]}})"),
        parsed(R"({"t":6.05,"response":201,)" + batch + "}"),
        beacon(8, "didFindNewBeacon", 2, 1, 0.3),
        parsed(R"({"t":9,"delegate":"didReceiveErrorNotification",
                   "error":{"domain":"QuomiHTTPErrorDomain","code":500,"description":null}})"),
        beacon(11.96, "didLoseBeaconSignal", 1, 2),
        parsed(R"({"t":75.25,"call":"stop","result":null,"error":null})"),
    };
}

TEST(Timeline, ShowsASmallVisit) {
    EXPECT_EQ(played(smallTrace()),
              R"(A visit
Saturday 2024-05-04, 23:59:50 (Europe/Berlin)

23:59:50.0       0.0 s  → request     GET  https://b.test/u_beacons/query.json?major=1
23:59:50.0       0.0 s  ▸ call        start → true
23:59:50.0       0.0 s  ← response    200  /u_beacons/query.json?major=1  after 0.05 s
23:59:52.3       2.3 s  ◉ region      entered beacon region 5D1B2C7E…4B90
23:59:53.0       3.0 s  ● found       Käse  5D1B2C7E…4B90/1-1     medium        5.0 m   -61 dBm
23:59:55.0       5.0 s  ▲ updated     Käse  5D1B2C7E…4B90/1-1     near          1.2 m   -61 dBm  was medium
23:59:55.0       5.0 s  → request     POST /u_applications/shop/log_multi.json  3 events
23:59:55.0       5.0 s  ✗ response    500  /u_applications/shop/log_multi.json  after 0.05 s
23:59:56.0       6.0 s  → request     POST /u_applications/shop/log_multi.json  2 events
23:59:56.0       6.0 s  ← response    201  /u_applications/shop/log_multi.json  after 0.05 s
23:59:58.0       8.0 s  ● found             5D1B2C7E…4B90/1-2     immediate     0.3 m   -61 dBm
23:59:59.0       9.0 s  ✗ error       HTTP status 500
── Sunday 2024-05-05 ──
00:00:01.9      11.9 s  ○ lost        Käse  5D1B2C7E…4B90/1-1     last near, after 9.0 s
00:01:05.2      75.2 s  ▸ call        stop

Summary  1 min 15 s
  beacons   2 seen
                                first     last      found   lost       in view          near     immediate
    Käse  5D1B2C7E…4B90/1-1     23:59:53  23:59:55      1      1         9.0 s         7.0 s             -
          5D1B2C7E…4B90/1-2     23:59:58  23:59:58      1      0     1 min 7 s             -     1 min 7 s
  events    1 logged, 2 uploaded
  requests  3: 1 × 200, 1 × 500, 1 × 201
  errors    1
    HTTP status 500
)");
}

TEST(Timeline, SaysThatTheSdkNeverRan) {
    const auto text = played({parsed(R"({"t":0,"call":"start","result":true,"error":null})"),
                              parsed(R"({"t":0,"delegate":"didLogEvent","event":{"type":"bluetooth_state"}})"),
                              parsed(R"({"t":1,"console":"Quomi SDK Error: Failed to parse"})")});
    EXPECT_THAT(text, testing::HasSubstr("\n  the SDK never ran\n"));
    EXPECT_THAT(text, testing::Not(testing::HasSubstr("errors    0")));
}

TEST(Timeline, ColoursOnlyWhenAskedAndThenOnlyAddsThem) {
    const auto plain = played(smallTrace());
    auto coloured = played(smallTrace(), {.hasColours = true});
    EXPECT_EQ(plain.find('\x1b'), std::string::npos);
    EXPECT_NE(coloured.find("\x1b[32m● found     \x1b[0m  Käse"), std::string::npos) << coloured;
    EXPECT_NE(coloured.find("\x1b[1;31m✗ error       HTTP status 500\x1b[0m\n"), std::string::npos) << coloured;
    for (auto at = coloured.find('\x1b'); at != std::string::npos; at = coloured.find('\x1b')) {
        coloured.erase(at, coloured.find('m', at) - at + 1);
    }
    EXPECT_EQ(coloured, plain);
}

TEST(Timeline, TellsTheStoryAndMoreOnlyWhenAsked) {
    const auto number = [](const char* word, Depth depth) {
        auto with = options();
        with.depth = depth;
        auto records = smallTrace();
        records.push_back(parsed(R"({"t":76,"backgroundTask":"end","id":3})"));
        const auto text = played(records, {}, with);
        std::size_t lines = 0;
        for (auto at = text.find(word); at != std::string::npos; at = text.find(word, at + 1)) ++lines;
        return lines;
    };
    for (const char* word : {"● found", "▲ updated", "○ lost", "◉ region", "✗ response", "✗ error"}) {
        EXPECT_GE(number(word, Depth::story), 1U) << word;
    }
    for (const char* word : {"→ request", "← response", "▸ call"}) {
        EXPECT_EQ(number(word, Depth::story), 0U) << word;
        EXPECT_GE(number(word, Depth::traffic), 1U) << word;
    }
    EXPECT_EQ(number("· phone", Depth::traffic), 0U);
    EXPECT_EQ(number("· phone", Depth::phone), 1U);
}

/// The lines of a timeline behind their times, without the summary.
std::string linesOf(const std::string& text) {
    std::string lines;
    std::istringstream in(text.substr(0, text.find("\nSummary")));
    for (std::string line; std::getline(in, line);) {
        if (line.size() > 24 && line[2] == ':') lines += line.substr(24) + '\n';
        if (line.starts_with(" ")) lines += line.substr(line.find_first_not_of(' ')) + '\n';
    }
    return lines;
}

TEST(Timeline, FoldsWhatRepeatsAloneOrInGroups) {
    const auto console = [](double t, const char* text) { return json::object{{"t", t}, {"console", text}}; };
    std::vector<json::object> records;
    for (int i = 0; i < 60; ++i) records.push_back(console(i / 10.0, "same"));
    records.push_back(console(6, "other"));
    for (int i = 0; i < 30; ++i) {
        records.push_back(beacon(10 + i, "didFindNewBeacon", 1, 2, i));
        records.push_back(beacon(10 + i, "didLoseBeaconSignal", 1, 2));
    }
    records.push_back(beacon(50, "didFindNewBeacon", 1, 2, 40));
    records.push_back(console(51, "once"));
    records.push_back(console(52, "once"));
    const auto text = linesOf(played(records));
    EXPECT_EQ(text,
              "· console     same\n"
              "… 59 more of the same until 23:59:55\n"
              "· console     other\n"
              "● found       Käse  5D1B2C7E…4B90/1-1     near          0.0 m   -61 dBm\n"
              "○ lost        Käse  5D1B2C7E…4B90/1-1     last near, after 0.0 s\n"
              "… 29 more of the same two until 00:00:29\n"
              "● found       Käse  5D1B2C7E…4B90/1-1     near         40.0 m   -61 dBm\n"
              "· console     once\n"
              "· console     once\n");
}

TEST(Timeline, BreaksLongLinesBetweenWordsAndLeavesTheSecondsOutWhereItIsNarrow) {
    const auto text = played({parsed(R"({"t":1,"console":"a line that is longer than a terminal of forty columns"})")},
                             {.columns = 50});
    EXPECT_NE(text.find("23:59:51.0  · console     a line that is longer\n"
                        "                          than a terminal of forty\n"
                        "                          columns\n"),
              std::string::npos)
        << text;
    EXPECT_THAT(
        played({beacon(1, "didFindNewBeacon", 1, 2), beacon(1, "didFindNewBeacon", 2, 2)}, {.columns = 80}),
        AllOf(HasSubstr("found       Käse  near "), HasSubstr("found             5D1B2C7E…4B90/1-2     near ")));
}

TEST(Timeline, ReadsNoRecordThatItCanDoWithout) {
    auto read = smallTrace();
    const auto whole = played(read);
    EXPECT_GT(std::erase_if(read,
                            [](const json::object& record) {
                                const auto* operation = record.if_contains("delegate");
                                return operation != nullptr && !Timeline::reads(operation->get_string());
                            }),
              0U);
    EXPECT_EQ(played(read), whole);
}

TEST(Timeline, EveryKindHasItsLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {R"("call":"performServerSync","result":null,"error":{"domain":"D","code":7,"description":"No"})",
         "✗ call        performServerSync failed: No (D 7)"},
        {R"("callback":"performServerSync","outcome":0,"error":null)", "◂ callback    performServerSync → 0"},
        {R"("monitor":"g","region":{"identifier":"g","lat":52.1,"lng":13,"radius":100})",
         "· phone       watches g  at 52.10000, 13.00000, radius 100 m"},
        {R"("unmonitor":"b","region":{"identifier":"b","uuid":"5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90"})",
         "· phone       no longer watches b  5D1B2C7E…4B90"},
        {R"("range":"b","region":{"identifier":"b"})", "· phone       ranges b"},
        {R"("unrange":"b","region":{"identifier":"b"})", "· phone       no longer ranges b"},
        {R"("updates":"significant","on":true)", "· phone       significant location updates on"},
        {R"("authorizationRequest":"always")", "? permission  asks for location, always"},
        {R"("notificationRightsRequest":true)", "? permission  asks for notifications"},
        {R"("backgroundTask":"end","id":3)", "· phone       background task 3 ends"},
        {R"("console":"hello")", "· console     hello"},
        {R"("defaults":"k","value":{"a":1})", R"(· defaults    k = {"a":1})"},
        {R"("notification":"n","title":"T","body":"B","category":"c")", "★ notifies    “T” “B”  category c"},
        {R"("category":"c","actions":[{"identifier":"i","title":"Buy","options":0}])", "· category    c with Buy"},
        {R"("webPage":"https://x.test/")", "★ web page    https://x.test/"},
        {R"("openURL":"tel:1")", "★ opens       tel:1"},
        {R"("alert":"A","message":"M")", "★ alert       “A” “M”"},
        {R"("delegate":"shouldExecuteNotificationRequest","notification":{"body":"B"},"triggeredBy":2,"answer":false)",
         "◂ asked       shouldExecuteNotificationRequest  “B” for a beacon, answers no"},
        {R"("delegate":"executeOpenWebPageRequest","url":"https://x.test/","triggeredBy":1)",
         "◂ performs    executeOpenWebPageRequest  https://x.test/ for a geofence"},
        {R"("delegate":"didReceiveExitRegionNotification","region":{"identifier":"g","lat":1,"lng":2,"radius":3})",
         "◎ geofence    left geofence g  at 1.00000, 2.00000, radius 3 m"},
        {R"("delegate":"didReceiveLocationChange","location":{"lat":52.1,"lng":13})",
         "⌖ location    52.10000, 13.00000"},
        {R"("delegate":"didLogEvent","event":{"type":"action","action":"open_url"})",
         "· event       type action, action open_url"},
        {R"("delegate":"somethingNew","value":1)", "◂ app         somethingNew  value 1"},
        {R"("response":"timeout","url":"https://x.test/")", "✗ response    timeout https://x.test/"},
        {R"("rule":"5","owner":"9","trigger":"on_exit","decision":"ruleMax","detail":{"count":3,"limit":3,"until":null})",
         "§ rule        5 of 9 (exit): stopped by its limit: 3 of 3, for good"},
        {R"("rule":"5","owner":"9","trigger":"on_exit","decision":"ruleMax","detail":{"count":3,"limit":3,"until":"2024-05-04T21:59:59.000Z"})",
         "§ rule        5 of 9 (exit): stopped by its limit: 3 of 3, until 23:59:59"},
        {R"("rule":"5","owner":"9","trigger":"on_exit","decision":"ruleMax","detail":{"count":3,"limit":3,"until":"2024-05-04T22:00:01.000Z"})",
         "§ rule        5 of 9 (exit): stopped by its limit: 3 of 3, until 00:00:01 on Sunday 2024-05-05"},
        {R"("console":"Quomi SDK Error: no")", "✗ console     Quomi SDK Error: no"},
        {R"("console":"Quomi SDK Warning: no")", "✗ console     Quomi SDK Warning: no"},
        {R"("console":"Quomi SDK error: no")", "✗ console     Quomi SDK error: no"},
        {R"("rule":"5","owner":"9","trigger":"on_entry","decision":"executed","detail":{"actions":["a","b"]})",
         "§ rule        5 of 9 (entry): executed: a, b"},
        {R"("unheardOf":"x","y":[{"z":1}])", R"(· other       unheardOf x  y [{"z":1}])"},
    };
    for (const auto& [fields, expected] : cases) {
        const auto text = played({parsed(R"({"t":1,)" + fields + "}")});
        EXPECT_NE(text.find("  " + expected + "\n"), std::string::npos) << expected << "\n" << text;
    }
}

TEST(Timeline, AWalkIsShownInStepsOfAHundredMetresAndAddedUp) {
    std::vector<json::object> records;
    for (const double lat : {52.0, 52.0005, 52.001, 52.0015, 51.9995}) {
        records.push_back(
            {{"t", 1}, {"delegate", "didReceiveLocationChange"}, {"location", {{"lat", lat}, {"lng", 13}}}});
    }
    for (const char* name : {"didReceiveEnterRegionNotification", "didReceiveExitRegionNotification",
                             "didReceiveEnterRegionNotification"}) {
        records.push_back({{"t", 2}, {"delegate", name}, {"region", {{"identifier", "g"}}}});
    }
    auto named = options();
    named.labels["g"] = "The gate";
    const auto text = played(records, {}, named);
    std::string places;
    for (auto at = text.find("location    "); at != std::string::npos; at = text.find("location    ", at + 1)) {
        places += text.substr(at + 12, 8) + ' ';
    }
    EXPECT_EQ(places, "52.00000 52.00100 51.99950 ");
    EXPECT_NE(text.find("entered geofence The gate  at"), std::string::npos) << text;
    EXPECT_NE(text.find("  way       5 positions, 0.4 km; geofences told to the host: 2 entered, 1 left\n"),
              std::string::npos)
        << text;
}

TEST(Timeline, SurvivesRecordsOfTheWrongShape) {
    for (const auto* kind : {"delegate", "rule", "call", "callback", "request", "response", "monitor", "updates",
                             "notification", "category", "alert", "backgroundTask", "defaults", "t"}) {
        for (const auto* value : {"null", "{}", "[]", "-1e300", "\"didFindNewBeacon\"", "\"didUpdateBeacon\""}) {
            const auto record = std::string(R"({"t":1e300,")") + kind + "\":" + value +
                                R"(,"userInfo":{"proximity":1e300},"error":3,"body":[],"actions":[1]})";
            EXPECT_NE(played({parsed(record)}).find("Summary"), std::string::npos);
        }
    }
    auto nowhere = options();
    nowhere.timeZone = "Nowhere/At all";
    EXPECT_NE(played({}, {}, nowhere).find("21:59:50 (UTC)"), std::string::npos);
}

TEST(Timeline, HostileTextCannotReachTheTerminal) {
    const std::string evil = "\x1b]0;x\x07\r\n\u009b2J\u202e\x7f\xff" + std::string(1, '\0');
    auto with = options();
    with.visitName = with.timeZone = evil;
    with.labels = {{evil, evil}};
    std::vector<json::object> records;
    for (const auto* kind : {"console", "call", "webPage", "alert", "rule", "defaults", "response", "monitor"}) {
        records.push_back({{"t", 1},
                           {kind, evil},
                           {"error", {{"domain", evil}, {"code", 1}, {"description", evil}}},
                           {"owner", evil},
                           {"url", evil},
                           {"value", {{evil, evil}}}});
    }
    records.push_back({{"t", 1}, {"delegate", "didFindNewBeacon"}, {"beacon", evil}, {"userInfo", {{"rssi", evil}}}});
    records.push_back({{"t", 1}, {"delegate", evil}, {evil, evil}});
    const auto text = played(records, {}, with);
    for (const char c : text) EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << static_cast<int>(c);
    for (const auto* part : {"\u009b", "\u202e", "\x7f", "\xff"}) EXPECT_EQ(text.find(part), std::string::npos);
    EXPECT_NE(text.find("console     ␛]0;x␇␍␊\uFFFD2J\uFFFD␡\uFFFD␀\n"), std::string::npos) << text;
}

TEST(TerminalText, CountsColumnsAndCuts) {
    EXPECT_EQ(columnsOf("Käse"), 4U);
    EXPECT_EQ(columnsOf("面包"), 4U);
    EXPECT_EQ(columnsOf("e\u0301"), 1U);
    EXPECT_EQ(clipped("abcdef", 6), "abcdef");
    EXPECT_EQ(clipped("abcdefg", 6), "abcde…");
    EXPECT_EQ(clipped("面包店", 5), "面包…");
    EXPECT_EQ(spanText(9.94), "9.9 s");
    EXPECT_EQ(spanText(59.6), "1 min 0 s");
    EXPECT_EQ(spanText(7260), "2 h 1 min");
}

TEST(VisitSummary, StayEndsWhenLostStoppedOrFoundAgain) {
    VisitSummary summary;
    const auto add = [&](const json::object& record) { summary.record(record, numberOf(record, "t", 0)); };
    add(beacon(0, "didFindNewBeacon", 1, 5));
    add(beacon(10, "didUpdateBeacon", 1, 2));
    add(beacon(30, "didReceivePingFromBeacon", 1, 2));
    add(beacon(34, "didLoseBeaconSignal", 1, 2));
    add(beacon(50, "didFindNewBeacon", 1, 1));
    add(parsed(R"({"t":60,"call":"stop","result":null,"error":null})"));
    add(beacon(100, "didFindNewBeacon", 1, 2));
    add(parsed(R"({"t":105,"console":"last"})"));
    summary.finish();
    ASSERT_EQ(summary.beacons().size(), 1U);
    const auto& stay = summary.beacons()[0];
    EXPECT_EQ(stay.found, 3U);
    EXPECT_EQ(stay.lost, 1U);
    EXPECT_DOUBLE_EQ(stay.lastSeen, 100);
    EXPECT_DOUBLE_EQ(stay.inView, 34 + 10 + 5);
    EXPECT_DOUBLE_EQ(stay.near, 24 + 5);
    EXPECT_DOUBLE_EQ(stay.immediate, 10);
}

}  // namespace
}  // namespace quomi::tool
