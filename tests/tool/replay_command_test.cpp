#include "tests/tool/replay_support.h"

#include <csignal>
#include <cstdlib>
#include <thread>
#include <unistd.h>

// The command from outside: arguments, exit status, what stands on which stream, what it leaves on the disk.
namespace quomi::test {
namespace {

const std::string kShopExample = QUOMI_SOURCE_DIR "/examples/shop/visit.json";

class ReplayCommandTest : public testing::Test {
protected:
    ReplayBench bench;
};

TEST_F(ReplayCommandTest, RefusesWrongArgumentsInOneLine) {
    const auto visit = bench.write("v.json", boost::json::serialize(shopVisit("[]"))).string();
    const Table<std::vector<std::string>, const char*> cases = {
        {Strings{}, "visit"},
        {{"--json"}, "visit"},
        {{visit, visit, "--geojson", "out"}, "--geojson: expected one visit"},
        {{visit, "--color", "sometimes"}, "--color"},
        {{visit, "--geojson", (bench.folder() / "no/where").string()}, "cannot be written"},
        {{visit, "--jsn"}, "--jsn"},
        {{visit, "--two\nlines"}, "two"},
        {{visit, "--geojson"}, "--geojson"},
        {{"--map=out.html", visit}, "--map is not supported by this version yet"},
        {{visit, "--state"}, "--state"},
        {{visit, "--state", ""}, "--state"},
        {{visit, "--backoffice", ""}, "--backoffice"},
        {{visit, "--backoffice", "127.0.0.1:8787"}, "--backoffice: expected an http or https URL"},
        {{visit, "--backoffice", "ftp://127.0.0.1"}, "--backoffice: expected an http or https URL"},
    };
    for (const auto& [args, told] : cases) {
        const auto run = bench.run(args);
        EXPECT_EQ(run.status, 2) << told;
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, StartsWith("quomi replay: "));
        EXPECT_THAT(run.err, HasSubstr(told));
        EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
    }
    const auto homeless = bench.run({visit, "--state", visit + "/app"});  // a file is in the way
    EXPECT_EQ(homeless.status, 2);
    EXPECT_EQ(homeless.out, "");
    EXPECT_THAT(homeless.err, HasSubstr(": $: the directory " + visit + "/app for the app cannot be made\n"));
    const auto help = bench.run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--state"));
}

TEST_F(ReplayCommandTest, RefusesABadVisitBeforeAnythingIsPlayed) {
    bench.write("empty.csv", "");
    bench.write("bad.csv",
                "t_ms,uuid,major,minor,measured_power,rssi\n0,6B6E1B5A-0C0D-4A6E-9E62-0000000000B1,x,1,1,1\n");
    const std::string packet = ",6B6E1B5A-0C0D-4A6E-9E62-0000000000B1,1,1,-59,-60\n";
    bench.write("two.csv", "t_ms,uuid,major,minor,measured_power,rssi\n0" + packet + "400000" + packet);
    bench.write("bad.json", "{}");
    const std::string start = R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [)";
    const Table<std::string, const char*> cases = {
        {"[]", ": $: expected an object"},
        {start + R"({"at": 0, "packets": {"csv": "no.csv"}}]})", ": $.timeline[0].packets.csv: expected a file"},
        {start + R"({"at": 0, "packets": {"csv": "empty.csv"}}]})", ": $.timeline[0].packets.csv: "},
        {start + R"({"at": 0, "app": "active"}, {"at": 0, "packets": {"csv": "bad.csv"}}]})",
         ": $.timeline[1].packets.csv: "},
        {start + R"({"at": 0, "every": 1, "until": 6e6, "packets": {"csv": "two.csv"}}]})",
         ": $.timeline[0].packets.csv: expected at most 10000000 packets"},
        {start + R"({"at": 0, "packets": {"csv": "two.csv"}}, {"at": 10000001, "call": "stop"}]})",
         ": $: expected at most 10000000 seconds where packets"},
        {start + R"({"at": 0, "packets": {"csv": "two.csv", "speed": 1e-6}}]})",
         ": $.timeline[0].packets.csv: expected a recording of at most 315576000 seconds"},
        {start + R"(], "backoffice": {"campaign": "no.json"}})", ": $.backoffice.campaign: expected a file"},
        {start + R"(], "backoffice": {"campaign": "bad.json"}})", ": $.backoffice.campaign: "},
    };
    for (const auto& [visit, place] : cases) {
        const auto file = bench.write("v.json", visit).string();
        for (const bool json : {true, false}) {
            auto args = bench.keepState();
            args.insert(args.begin(), file);
            if (json) args.emplace_back("--json");
            const auto run = bench.run(args);
            EXPECT_EQ(run.status, 2) << visit;
            EXPECT_EQ(run.out, "");
            EXPECT_THAT(run.err, StartsWith(file + place));
            EXPECT_EQ(std::ranges::count(run.err, '\n'), 1) << run.err;
            EXPECT_FALSE(std::filesystem::exists(bench.state()));
        }
    }
    const auto missing = (bench.folder() / "nowhere.json").string();
    EXPECT_EQ(bench.run({missing}).err, missing + ": no such file\n");
}

TEST_F(ReplayCommandTest, PlaysSeveralVisitsInTurnButNoneWhenOneIsNotValid) {
    const auto good =
        bench.write("v.json", boost::json::serialize(shopVisit(R"([{"at": 0, "call": "start"}])"))).string();
    const auto bad = bench.write("w.json", "[]").string();
    const auto once = bench.run({good, "--json"}).out;
    EXPECT_EQ(bench.run({good, good, "--json"}).out, once + once);
    EXPECT_EQ(bench.run({good, bad, "--json"}).out, "");
    EXPECT_EQ(bench.run({good, bad, "--json"}).status, 2);
    EXPECT_THAT(bench.run({good, "--color=always"}).out, HasSubstr("\x1b["));
    EXPECT_THAT(bench.run({good, "-v"}).out, HasSubstr("→ request"));
    EXPECT_THAT(bench.run({good}).out, Not(HasSubstr("→ request")));
}

TEST_F(ReplayCommandTest, AnOutputThatCannotBeWrittenIsAFailure) {
    const auto file = bench.write("v.json", boost::json::serialize(shopVisit(R"([{"at": 0, "call": "start"}])")));
    EXPECT_EQ(bench.runInto("/dev/full", {file.string(), "--json"}), 1);
}

TEST_F(ReplayCommandTest, AContainerOfItsOwnIsGoneAfterwardsAndAnOtherOneStays) {
    const auto temporary = bench.folder() / "tmp";
    std::filesystem::create_directory(temporary);
    const auto* before = std::getenv("TMPDIR");
    const std::string old = before != nullptr ? before : "";
    ::setenv("TMPDIR", temporary.c_str(), 1);
    const auto visit = shopVisit(R"([{"at": 0, "call": "start"}, {"at": 1, "call": "logEvent", "with": {}}])");
    EXPECT_EQ(bench.play(visit).lines("call start"), std::vector<std::string>{"0 call start true"});
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
    EXPECT_EQ(bench.play(visit, bench.keepState()).status, 0);
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
    EXPECT_TRUE(std::filesystem::exists(bench.state() / "Documents/QuomiBOTmpLog.txt"));

    const auto longOne = shopVisit(R"([{"at": 0, "call": "start"}, {"at": 1, "every": 0.001, "until": 9999,
        "app": "active"}])");
    const auto file = bench.write("long.json", boost::json::serialize(longOne)).string();
    std::thread interrupting([] {
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        ::kill(::getpid(), SIGINT);
    });
    EXPECT_EQ(bench.run({file}).status, 128 + SIGINT);
    interrupting.join();
    EXPECT_TRUE(std::filesystem::is_empty(temporary));
    before != nullptr ? ::setenv("TMPDIR", old.c_str(), 1) : ::unsetenv("TMPDIR");
}

TEST_F(ReplayCommandTest, ARelaunchFindsStoreAndRegionsAndHearsThePhoneOnlyAfterStartHasReturned) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"}])");
    visit["end"] = 30;
    ASSERT_EQ(bench.play(visit, bench.keepState()).status, 0);
    for (const char* name : {"Library/Application Support/QuomiData/QuomiData.sqlite", "phone.json"}) {
        EXPECT_TRUE(std::filesystem::is_regular_file(bench.state() / name)) << name;
    }
    EXPECT_THAT(
        bench.play(visit, bench.keepState()).lines(),
        ElementsAre("0 request GET /u_applications/limits.json", "0 range Quomi beacon", "0 call start true",
                    "0 category QuomiYesNo", "0 range Quomi beacon", "0.05 response 200 /u_applications/limits.json",
                    "0.05 request POST /u_app_users/find_or_create_by_udid.json",
                    "0.1 response 200 /u_app_users/find_or_create_by_udid.json"));
}

}  // namespace
}  // namespace quomi::test
