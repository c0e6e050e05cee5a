#include "tests/tool/replay_support.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>

#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

// The command from outside: arguments, exit status, what stands on which stream, what it leaves on the disk.
namespace quomi::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::StartsWith;

const std::string kShopExample = QUOMI_SOURCE_DIR "/examples/shop/visit.json";

class ReplayCommandTest : public testing::Test {
protected:
    ReplayBench bench;
};

TEST_F(ReplayCommandTest, RefusesWrongArgumentsInOneLine) {
    const auto visit = bench.write("v.json", boost::json::serialize(shopVisit("[]"))).string();
    struct Case {
        std::vector<std::string> args;
        const char* told;
    };
    const std::vector<Case> cases = {
        {{}, "visit"},
        {{"--json"}, "visit"},
        {{visit, visit}, "not expected"},
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
    for (const auto& some : cases) {
        const auto run = bench.run(some.args);
        EXPECT_EQ(run.status, 1) << some.told;
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, StartsWith("quomi replay: "));
        EXPECT_THAT(run.err, HasSubstr(some.told));
        EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
    }
    const auto help = bench.run({"--help"});
    EXPECT_EQ(help.status, 0);
    EXPECT_THAT(help.out, HasSubstr("--state"));
}

TEST_F(ReplayCommandTest, RefusesABadVisitBeforeAnythingIsPlayed) {
    bench.write("empty.csv", "");
    bench.write("bad.csv",
                "t_ms,uuid,major,minor,measured_power,rssi\n0,6B6E1B5A-0C0D-4A6E-9E62-0000000000B1,x,1,1,1\n");
    bench.write("bad.json", "{}");
    struct Case {
        const char* visit;
        const char* place;
    };
    const std::vector<Case> cases = {
        {"", ": $: "},
        {"[]", ": $: expected an object"},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00", "timeline": []})", ": $.start: expected"},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [{"at": 0, "call": "dance"}]})",
         ": $.timeline[0].call: expected"},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [{"at": 0, "packets": {"csv": "no.csv"}}]})",
         ": $.timeline[0].packets.csv: expected a file"},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [{"at": 0, "packets": {"csv": "empty.csv"}}]})",
         ": $.timeline[0].packets.csv: "},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [{"at": 0, "app": "active"},
             {"at": 0, "packets": {"csv": "bad.csv"}}]})",
         ": $.timeline[1].packets.csv: "},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [], "backoffice": {"campaign": "no.json"}})",
         ": $.backoffice.campaign: expected a file"},
        {R"({"visit": 1, "start": "2026-11-21T09:30:00Z", "timeline": [], "backoffice": {"campaign": "bad.json"}})",
         ": $.backoffice.campaign: "},
    };
    for (const auto& some : cases) {
        const auto file = bench.write("v.json", some.visit).string();
        for (const bool json : {true, false}) {
            auto args = bench.keepState();
            args.insert(args.begin(), file);
            if (json) args.emplace_back("--json");
            const auto run = bench.run(args);
            EXPECT_EQ(run.status, 2) << some.visit;
            EXPECT_EQ(run.out, "");
            EXPECT_THAT(run.err, StartsWith(file + some.place));
            EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
            EXPECT_FALSE(std::filesystem::exists(bench.state()));
        }
    }
    const auto missing = (bench.folder() / "nowhere.json").string();
    EXPECT_EQ(bench.run({missing}).err, missing + ": $: expected a file, found nothing\n");
}

TEST_F(ReplayCommandTest, AnOutputThatCannotBeWrittenIsAFailure) {
    const auto file = bench.write("v.json", boost::json::serialize(shopVisit(R"([{"at": 0, "call": "start"}])")));
    EXPECT_EQ(bench.runInto("/dev/full", {file.string(), "--json"}), 1);
}

TEST_F(ReplayCommandTest, TheSameVisitGivesTheSameBytes) {
    for (const char* form : {"--json", "--state"}) {
        std::vector<std::string> args{kShopExample, form};
        std::vector<std::string> outs;
        for (const char* state : {"one", "two"}) {
            if (form == std::string("--state")) args.resize(2), args.push_back((bench.folder() / state).string());
            const auto run = bench.run(args);
            EXPECT_EQ(run.status, 0);
            EXPECT_EQ(run.err, "");
            outs.push_back(run.out);
        }
        EXPECT_GT(outs[0].size(), 1000U);
        EXPECT_EQ(outs[0], outs[1]);
    }
    const auto visit = shopVisit(R"([{"at": 0, "call": "start"}, {"at": 1, "app": "background"},
        {"at": 2, "every": 1, "until": 9, "range": [{"uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1", "major": 1,
            "minor": 7, "proximity": "near", "accuracy": 1.5, "rssi": -64}]}])");
    EXPECT_EQ(bench.play(visit).out, bench.play(visit).out);
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
    before != nullptr ? ::setenv("TMPDIR", old.c_str(), 1) : ::unsetenv("TMPDIR");
}

TEST_F(ReplayCommandTest, AStoreThatCannotBeOpenedIsAnErrorOfTheVisitAndNotOfTheCommand) {
    struct Case {
        const char* name;
        const char* file;
        const char* directory;
        const char* error;
    };
    const std::vector<Case> cases = {
        {"the container is a file", ".", nullptr, "603"},
        {"a parent is a file", "Library", nullptr, "603"},
        {"the store's directory is a file", "Library/Application Support/QuomiData", nullptr, "604"},
        {"the store is a directory", nullptr, "Library/Application Support/QuomiData/QuomiData.sqlite", "603"},
    };
    const auto visit = shopVisit(R"([{"at": 0, "call": "start"}, {"at": 1, "call": "stop"}])");
    for (const auto& some : cases) {
        SCOPED_TRACE(some.name);
        const auto state = bench.folder() / some.name;
        if (some.file != nullptr) {
            const auto file = (state / some.file).lexically_normal();
            const auto path = some.file == std::string(".") ? state : file;
            std::filesystem::create_directories(path.parent_path());
            std::ofstream(path) << "in the way";
        }
        if (some.directory != nullptr) std::filesystem::create_directories(state / some.directory);
        const auto replayed = bench.play(visit, {"--state", state.string()});
        EXPECT_EQ(replayed.status, 0);
        EXPECT_THAT(replayed.lines(),
                    ElementsAre(std::string("0 delegate didReceiveErrorNotification error ") + some.error,
                                std::string("0 call start false error ") + some.error, "1 call stop"));
        EXPECT_EQ(replayed.records.at(1).at("error"), replayed.records.at(0).at("error"));
        EXPECT_EQ(replayed.records.at(1).at("error").at("domain"), "QuomiErrorDomain");
    }
}

}  // namespace
}  // namespace quomi::test
