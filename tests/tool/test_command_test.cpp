#include "tools/quomi/testing/test_command.h"

#include "tests/tool/replay_support.h"

#include <cstdlib>

// Visits that say what they expect, and the command that holds them to it.
namespace quomi::test {
namespace {

namespace json = boost::json;

struct Tested {
    int status = -1;
    std::string out;
    std::string err;
    std::vector<json::object> lines;  ///< with --json
};

/// A beacon "b" of the shop with the rule "hi", which runs once, and "c" with "page", which is never reached. Events of
/// the beacon come at 2 and 12; the visit begins at 09:30 and ends at 72.
json::object twoRules() {
    auto visit = shopVisit(fmt::format(
        R"([{{"at": 0, "call": "start"}}, {{"at": 1, "enterBeaconRegion": "B1"}}, {}, {},
            {{"at": 12.5, "call": "logEvent", "with": {{"type": "tap", "n": 3}}}}])",
        near(2), near(12)));
    visit["timeZone"] = "Europe/Vienna";
    answersOf(visit)["GET /u_beacons/query.json"].as_object()["json"].as_object()["u_beacons"] = asJson(fmt::format(
        R"([{{"id": "b", "name": "Door", "proximity_uid": "{0}", "major": 1, "minor": 1, "start": "2026-01-01",
              "end": "2036-01-01", "rules_actions": [
                {{"id": "hi", "rule": {{"trigger": "on_entry", "proximity": 1, "proximity_end": 2, "max_events": 1}},
                  "action": {{"notify_user": "Hi, all", "open_url": "https://shop.test/page?a=1"}}}}]}},
            {{"id": "c", "name": "Gate", "proximity_uid": "{0}", "major": 1, "minor": 9, "start": "2026-01-01",
              "end": "2036-01-01", "rules_actions": [
                {{"id": "page", "rule": {{"trigger": "on_entry", "proximity": 1}}, "action": {{"notify_user": "Bye"}}}}
              ]}}])",
        kShopUUID));
    return visit;
}

class TestCommandTest : public testing::Test {
protected:
    std::string put(const std::string& name, const json::object& visit) const {
        return bench_.write(name, json::serialize(visit)).string();
    }

    static Tested run(std::vector<std::string> args) {
        Tested tested;
        std::ostringstream out;
        std::ostringstream err;
        tested.status = tool::TestCommand(false).run(args, out, err);
        tested.out = out.str();
        tested.err = err.str();
        std::istringstream lines(tested.out);
        const bool isJson = std::ranges::find(args, "--json") != args.end();
        for (std::string line; isJson && std::getline(lines, line);) {
            tested.lines.push_back(json::parse(line).as_object());
        }
        return tested;
    }

    /// One run of a visit with these expectations.
    [[nodiscard]] Tested expecting(const json::array& expectations) const {
        auto visit = twoRules();
        visit["expect"] = expectations;
        return run({put("visit.json", visit), "--json"});
    }

    [[nodiscard]] std::string folder() const { return bench_.folder().string(); }

    ReplayBench bench_;
};

TEST_F(TestCommandTest, ExpectationsThatHold) {
    const auto tested = expecting(asJson(R"([
        {"rule": "hi"}, {"rule": "hi", "times": 1, "from": "09:30", "until": "09:30:02"}, {"rule": "h*", "of": "b"},
        {"rule": "hi", "decision": "ruleMax", "from": 12, "until": 12}, {"rule": "page", "never": true},
        {"rule": "*", "decision": "*", "times": {"min": 2, "max": 3}}, {"rule": "hi", "times": {"max": 1}},
        {"notification": "Hi, *"}, {"notification": "*", "until": 2}, {"notification": "*", "never": true, "from": 3},
        {"notification": "Bye", "times": 0}, {"webPage": "https://*/page*"}, {"openURL": "*", "never": true},
        {"rule": "hi", "before": {"rule": "hi", "decision": "ruleMax", "of": "b"}},
        {"event": {"type": "tap", "n": 3.0}}, {"event": {"rule_id": "hi"}, "times": {"min": 1}},
        {"request": "GET /u_beacons/query.json"}, {"request": "POST /u_app*/find_*", "times": 1},
        {"delegate": "didFindNewBeacon", "times": 2}, {"error": 603, "never": true},
        {"record": {"call": "start", "result": true, "error": null}}, {"record": {"t": 0.05, "response": 200}},
        {"record": {"rule": "hi", "detail": {"actions": ["notify_user", "open_url"]}}}
    ])")
                                      .as_array());
    EXPECT_EQ(tested.status, 0) << tested.out << tested.err;
    EXPECT_EQ(tested.lines.at(0).at("outcome"), "passed");
}

TEST_F(TestCommandTest, ExpectationsThatDoNotHoldSayWhatCame) {
    const Table<const char*, const char*, const char*> cases = {
        {R"({"rule": "hi", "times": 2})", "rule hi executed, twice", "once: 09:30:02 (2 s)"},
        {R"({"rule": "hi", "from": "09:30:03", "until": 40})", "from 09:30:03 (3 s), until 09:30:40 (40 s)",
         "never; outside of that time: 09:30:02 (2 s)"},
        {R"({"rule": "page"})", "at least once", "no event reached rule page. Rules that events reached: hi."},
        {R"({"rule": "hi", "times": 2, "until": 5})", "", "executed: notify_user, open_url."},
        {R"({"rule": "hi", "never": true})", "never", "At 09:30:12 (12 s), entry of b: stopped by its limit: 1 of 1"},
        {R"({"notification": "Hi all"})", "notification \"Hi all\"", "09:30:02 (2 s)  notifies “Hi, all”"},
        {R"({"webPage": "https://shop.test/pages*"})", "", "web page https://shop.test/page?a=1"},
        {R"({"event": {"type": "tap", "n": 4}})", "", R"({"type":"tap","n":3})"},
        {R"({"event": {"type": "tap", "more": null}})", "", "never"},
        {R"({"request": "GET /u_beacons/query"})", "", "/u_beacons/query.json"},
        {R"({"request": "*", "times": {"max": 1}})", "", "times: 09:30:00 (0 s), "},
        {R"({"record": {"delegate": "didFindNewBeacon", "beacon": "*/1-2"}})", "record {", "found"},
        {R"({"notification": "*", "before": {"rule": "page"}})", "before rule page executed",
         "but rule page executed "
         "never"},
        {R"({"event": {"type": "tap"}, "before": {"webPage": "*"}})", "", "after web page \"*\" at 09:30:02 (2 s)"},
        {R"({"rule": "hi", "before": {"notification": "Hi*"}})", "", "first at 09:30:02 (2 s), after"},
    };
    json::array all;
    for (const auto& [expectation, words, came] : cases) all.push_back(asJson(expectation));
    all.push_back(asJson(R"({"rule": "hi"})"));
    const auto tested = expecting(all);
    EXPECT_EQ(tested.status, 1);
    const auto& failures = tested.lines.at(0).at("failures").as_array();
    ASSERT_EQ(failures.size(), cases.size());
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& [expectation, words, came] = cases[i];
        EXPECT_EQ(std::string(failures[i].at("path").as_string()), fmt::format("$.expect[{}]", i));
        EXPECT_THAT(std::string(failures[i].at("expected").as_string()), HasSubstr(words)) << expectation;
        EXPECT_THAT(json::serialize(failures[i]),
                    HasSubstr(json::serialize(json::string(came)).substr(1, std::string(came).size())))
            << expectation;
    }
}

TEST_F(TestCommandTest, WhatCannotBeMeantIsAnInvalidVisit) {
    for (const auto& [expectation, path, words] : Table<const char*, const char*, const char*>{
             {R"({"rule": "hy"})", ".rule",
              "expected a rule that the campaign or the visit knows, found \"hy\"; did you "
              "mean \"hi\"?"},
             {R"({"rule": "p*x"})", ".rule", "found \"p*x\"; known: \"hi\", \"page\""},
             {R"({"rule": "hi", "of": "c"})", ".of", "did you mean \"b\"?"},
             {R"({"rule": "hi", "decision": "rulMax"})", ".decision", "did you mean \"ruleMax\"?"},
             {R"({"rule": "hi", "nevr": true})", ".nevr", "found true; did you mean \"never\"?"},
             {R"({"rule": "hi", "never": false})", ".never", "expected true, found false"},
             {R"({"rule": "hi", "never": true, "times": 2})", ".times", "expected either \"never\" or \"times\""},
             {R"({"rule": "hi", "times": {"min": 3, "max": 2}})", ".times.max", "an integer from 3 to"},
             {R"({"rule": "hi", "times": {}})", ".times", "\"min\", \"max\" or both"},
             {R"({"rule": "hi", "times": -1})", ".times", "found -1"},
             {R"({"rule": "hi", "webPage": "*"})", ".webPage", "expected one subject"},
             {R"({"times": 1})", "", "expected one of the subjects \"rule\", \"notification\""},
             {R"({"delegate": "hi", "of": "b"})", ".of", "only beside \"rule\""},
             {R"({"rule": "hi", "until": 73})", ".until", "a time of the visit, which ends at 72.5 s, found 73 s"},
             {R"({"rule": "hi", "from": "09:29"})", ".from", "found 86340 s"},
             {R"({"rule": "hi", "from": "9:30"})", ".from", "such as \"11:30\""},
             {R"({"rule": "hi", "from": 9, "until": 8})", ".until", "not before \"from\""},
             {R"({"event": {"beacon_id": "d"}})", ".event.beacon_id", "expected a beacon that the campaign"},
             {R"({"request": "/u_beacons"})", ".request", "a method, a blank and a path"},
             {R"({"delegate": "didFindBeacon"})", ".delegate", "did you mean \"didFindNewBeacon\"?"},
             {R"({"record": {"delegat": "didLogEvent"}})", ".record.delegat", "did you mean \"delegate\"?"},
             {R"({"record": {"rule": "hi", "beacon": "*"}})", ".record", "that one record of a trace can have"},
             {R"({"record": {}})", ".record", "not empty"},
             {R"({"rule": "hi", "before": {"rule": "pag"}})", ".before.rule", "did you mean \"page\"?"},
             {R"({"rule": "hi", "before": {"rule": "hi", "times": 1}})", ".before.times", "one of the keys"}}) {
        const auto tested = expecting({asJson(expectation)});
        EXPECT_EQ(tested.status, 2) << expectation;
        EXPECT_THAT(tested.err, HasSubstr(fmt::format("visit.json: $.expect[0]{}: ", path)));
        EXPECT_THAT(tested.err, HasSubstr(words));
        EXPECT_EQ(std::ranges::count(tested.err, '\n'), 1);
    }
    auto visit = twoRules();
    visit["expect"] = json::array{asJson(R"({"rule": "hy"})")};
    EXPECT_EQ(bench_.run({put("visit.json", visit)}).status, 2) << "nor is it played otherwise";
}

TEST_F(TestCommandTest, CasesReplacePartsOfTheVisit) {
    auto visit = twoRules();
    visit["name"] = "Door";
    visit["expect"] = asJson(R"([{"delegate": "didFindNewBeacon", "times": 2}])");
    visit["cases"] = asJson(R"([
        {"name": "as it is", "expect": [{"rule": "hi", "times": 1}]},
        {"name": "again, in a fresh container", "expect": [{"rule": "hi", "times": 1}]},
        {"name": "over", "start": "2037-01-01T00:00:00Z", "expect": [{"rule": "*", "never": true}]},
        {"name": "quiet", "set": {"/app/settings/localNotificationActionsEnabled": false,
                                  "/timeline/-": {"at": 20, "openURL~1x": 1}}},
        {"name": "odd"}])");
    auto& steps = visit["cases"].as_array()[3].as_object()["set"].as_object();
    steps["/timeline/-"] = asJson(R"({"at": 20, "call": "logEvent", "with": {"type": "late"}})");
    visit["cases"].as_array()[3].as_object()["expect"] =
        asJson(R"([{"notification": "*", "never": true}, {"event": {"type": "late"}, "from": 20}])");
    const auto tested = run({put("visit.json", visit)});
    EXPECT_EQ(tested.status, 0) << tested.out << tested.err;
    EXPECT_THAT(tested.out, HasSubstr("visit.json  Door: over\n"));
    EXPECT_THAT(tested.out, HasSubstr("\n5 cases: 5 passed in "));

    for (const auto& [part, path, words] : Table<const char*, const char*, const char*>{
             {R"({"name": "x", "set": {"/app/properties/eventLogsEnabled": 3}})",
              R"($.cases[0].set["/app/properties/eventLogsEnabled"])", "expected true or false, found 3"},
             {R"({"name": "x", "set": {"/app/propertys/fileLogEnabled": true}})", "$.app.propertys",
              R"(did you mean "properties"? (in case "x"))"},
             {R"({"name": "x", "set": {"/timeline/99/at": 3}})", R"($.cases[0].set["/timeline/99/at"])",
              "JSON pointer"},
             {R"({"name": "x", "set": {"/expect/0": 3}})", R"($.cases[0].set["/expect/0"])", "JSON pointer"},
             {R"({"name": "x", "start": "noon"})", "$.cases[0].start", "ISO 8601"},
             {R"({"name": "x", "expect": [{"rule": "hj"}]})", "$.cases[0].expect[0].rule", "did you mean"},
             {R"({"name": "x", "expect": [{"rule": "hi", "until": 99}]})", "$.cases[0].expect[0].until", "72.5 s"},
             {R"({"nme": "x"})", "$.cases[0].nme", "did you mean \"name\"?"}}) {
        visit["cases"] = json::array{asJson(part)};
        const auto refused = run({put("visit.json", visit)});
        EXPECT_EQ(refused.status, 2) << part;
        EXPECT_THAT(refused.err, HasSubstr(std::string("visit.json: ") + path + ": "));
        EXPECT_THAT(refused.err, HasSubstr(words));
    }
    visit["cases"] = asJson(R"([{"name": "x"}, {"name": "x"}])");
    EXPECT_THAT(run({put("visit.json", visit)}).err, HasSubstr("$.cases[1].name: expected a name that no other"));
    visit.erase("expect");
    EXPECT_THAT(run({put("visit.json", visit)}).err, HasSubstr("$.cases[0]: expected \"expect\" here or in the visit"));
}

TEST_F(TestCommandTest, FindsFiltersAndListsCasesInAStableOrder) {
    auto visit = twoRules();
    std::filesystem::create_directories(bench_.folder() / "c");
    put("c/plain.json", visit);
    visit["expect"] = asJson(R"([{"rule": "hi"}])");
    for (const char* name : {"b", "a", "d"}) {
        std::filesystem::create_directories(bench_.folder() / name);
        visit["name"] = fmt::format("visit {}", name);
        put(fmt::format("{}/v.json", name), visit);
    }
    std::filesystem::create_directories(bench_.folder() / ".hidden");
    put(".hidden/v.json", visit);
    bench_.write("package.json", R"({"expect": {"visit": 1}, "key": "visit"})");
    const auto listed = run({folder(), folder() + "/d/v.json", "--list"});
    EXPECT_EQ(listed.out,
              fmt::format("{0}/a/v.json  visit a\n{0}/b/v.json  visit b\n{0}/d/v.json  visit d\n", folder()));
    EXPECT_EQ(listed.status, 0);
    const auto alone = run({folder(), "--jobs", "1"});
    EXPECT_EQ(alone.status, 0);
    EXPECT_EQ(run({folder(), "--jobs", "3"}).out.substr(0, alone.out.rfind("in ")),
              alone.out.substr(0, alone.out.rfind("in ")));
    EXPECT_THAT(run({folder(), "--filter", "visit b"}).out, HasSubstr("\n1 case: 1 passed"));

    for (const auto& [args, status, words] : Table<Strings, int, const char*>{
             {{folder() + "/c"}, 2, "no case with expectations found"},
             {{folder(), "--filter", "nothing"}, 2, "no case with expectations found"},
             {{folder() + "/nowhere"}, 2, "expected a file or a folder"},
             {{folder(), "--jobs", "0"}, 2, "--jobs"},
             {{}, 2, "path is required"},
             {{folder(), "--junit", folder() + "/no/folder/x.xml"}, 2, "cannot be written"}}) {
        const auto refused = run(args);
        EXPECT_EQ(refused.status, status) << refused.out;
        EXPECT_THAT(refused.err, HasSubstr(words));
    }
    bench_.write("broken.json", R"({"visit": 1, "expect": [},)");
    const auto broken = run({folder()});
    EXPECT_EQ(broken.status, 2) << "a visit with a fault in it is not passed over";
    EXPECT_THAT(broken.out, HasSubstr("4 cases: 3 passed, 1 invalid"));
}

TEST_F(TestCommandTest, TheJUnitReportIsWhatReadersExpect) {
    auto visit = twoRules();
    visit["name"] = "Odd \x01 <name> & \"quotes\"";
    visit["expect"] = asJson(R"([{"rule": "page"}, {"notification": "<b>&\u0007"}])");
    put("a.json", visit);
    visit["expect"] = asJson(R"([{"rule": "hi"}])");
    put("b.json", visit);
    visit["expect"] = asJson(R"([{"rule": "hi", "nevr": true}])");
    put("c.json", visit);
    const auto report = bench_.folder() / "report.xml";
    EXPECT_EQ(run({folder(), "--junit", report.string()}).status, 2);
    const auto valid =
        fmt::format("xmllint --noout --schema {}/tests/tool/junit.xsd {} 2>&1", QUOMI_SOURCE_DIR, report.string());
    EXPECT_EQ(std::system(valid.c_str()), 0);
    const auto text = contentOf(report);
    EXPECT_THAT(text, HasSubstr(R"(<testsuites name="quomi test" tests="3" failures="1" errors="1")"));
    EXPECT_THAT(text, HasSubstr("Odd ␁ &lt;name> &amp; &quot;quotes&quot;"));
    EXPECT_THAT(text, HasSubstr("no event reached rule page"));
    EXPECT_THAT(text, HasSubstr("did you mean &quot;never&quot;?"));
}

TEST_F(TestCommandTest, CoverageTellsRulesAndGatesThatNoCaseReached) {
    auto visit = twoRules();
    visit["expect"] = asJson(R"([{"rule": "hi"}])");
    const auto file = put("visit.json", visit);
    const auto told = run({file, "--coverage"});
    EXPECT_EQ(told.status, 0);
    EXPECT_THAT(told.out, HasSubstr(" 50 %  1 of 2\n"));
    EXPECT_THAT(told.out, HasSubstr("  ● hi    Door           2      1  inactive (dates), outOfRange\n"));
    EXPECT_THAT(told.out, HasSubstr("  ○ page  Gate           0      0  never reached\n"));
    EXPECT_EQ(run({file, "--min-coverage", "50"}).status, 0);
    const auto below = run({file, "--min-coverage", "51", "--json"});
    EXPECT_EQ(below.status, 1);
    EXPECT_THAT(below.err, HasSubstr("50 % of the rules acted, expected 51 %"));
    const auto& rule = below.lines.at(1).at("coverage").at(0).at("rules").at(0);
    EXPECT_EQ(rule.at("stoppedBy"), asJson(R"({"ruleMax": 1})"));
}

}  // namespace
}  // namespace quomi::test
