#include "hosts/simulated/replay/replay.h"
#include "hosts/simulated/visit/visit.h"
#include "tests/tool/replay_support.h"

#include <cstdlib>

// The visits of the examples give the traces that lie beside them, byte for byte. With QUOMI_RENEW_TRACES in the
// environment those are written anew (docs/traces.md).
namespace quomi::test {
namespace {

namespace fs = std::filesystem;

std::vector<fs::path> visitsOfTheExamples() {
    std::vector<fs::path> visits;
    for (const auto& file : fs::recursive_directory_iterator(QUOMI_SOURCE_DIR "/examples")) {
        if (file.path().extension() != ".json") continue;
        if (contentOf(file.path()).find("\"timeline\"") != std::string::npos) visits.push_back(file.path());
    }
    std::ranges::sort(visits);
    return visits;
}

/// Nothing when both are the same: a trace in full would bury what is different.
std::string firstDifference(const std::string& played, const std::string& expected) {
    std::istringstream left(played);
    std::istringstream right(expected);
    std::string is;
    std::string was;
    for (int line = 1; played != expected; ++line) {
        const bool isEnd = !std::getline(left, is);
        const bool wasEnd = !std::getline(right, was);
        if (isEnd || wasEnd || is != was) {
            return "line " + std::to_string(line) + "\nplayed   " + (isEnd ? "nothing" : is) + "\nexpected " +
                   (wasEnd ? "nothing" : was);
        }
    }
    return {};
}

class ExampleVisit : public testing::TestWithParam<fs::path> {};

TEST_P(ExampleVisit, GivesTheTraceThatLiesBesideIt) {
    const auto& visit = GetParam();
    const auto played = ReplayBench().run({visit.string(), "--json"});
    ASSERT_EQ(played.status, 0) << played.err;
    const auto expected = visit.parent_path() / "expected" / (visit.stem().string() + ".jsonl");
    if (std::getenv("QUOMI_RENEW_TRACES") != nullptr) {
        fs::create_directories(expected.parent_path());
        std::ofstream(expected, std::ios::binary) << played.out;
    }
    EXPECT_EQ(firstDifference(played.out, contentOf(expected)), "") << expected;
    EXPECT_EQ(firstDifference(ReplayBench().run({visit.string(), "--json"}).out, played.out), "") << "played again";
}

INSTANTIATE_TEST_SUITE_P(Examples, ExampleVisit, testing::ValuesIn(visitsOfTheExamples()), [](const auto& visit) {
    return visit.param.parent_path().filename().string() + "_" + visit.param.stem().string();
});

TEST(VisitsOfTheTests, GiveRecordsOfTheTracesForm) {
    for (const char* name : {"phone.json", "calls.json", "permissions.json", "answers.json", "time.json"}) {
        const auto visit = simulated::Visit::load(fs::path(QUOMI_SOURCE_DIR) / "tests/visits" / name, nullptr);
        ASSERT_TRUE(visit) << name;
        for (const auto& each : visit->cases) {
            const auto check = [](const boost::json::object& record) { EXPECT_EQ(formFault(record), ""); };
            const auto replay = simulated::Replay::prepare(each, {}, check, nullptr);
            ASSERT_TRUE(replay && replay->play()) << each.name;
        }
    }
}

}  // namespace
}  // namespace quomi::test
