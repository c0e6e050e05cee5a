// The process is killed in every system call that changes files, or in every one at all. The next launch finds the old
// state or the new one, and every event that was accepted.

#include "hosts/simulated/simulated_phone.h"
#include "tests/durability/scenarios.h"
#include "tests/support/temporary_directory.h"

#include <fcntl.h>
#include <unistd.h>

namespace quomi::test {
namespace {

// With the shadow memory of the address sanitizer a fork takes ten times as long.
#if defined(__SANITIZE_ADDRESS__)
constexpr int kShare = 3;
#else
constexpr int kShare = 1;
#endif

class Durability : public testing::Test {
protected:
    void SetUp() override {
        if (const auto reason = whyNoTracing(); !reason.empty()) GTEST_SKIP() << reason;
    }

    void expectNothingLost(Scenario scenario, int fewestKills) {
        scenario.stride *= kShare;
        scenario.everyByte = scenario.everyByte && kShare == 1;
        const Walk result = walk(scenario, extentOfThisRun());
        EXPECT_THAT(result.complaints, IsEmpty());
        EXPECT_GE(result.kills, kShare == 1 ? fewestKills : 3) << scenario.name;
        kills_ += result.kills;
        RecordProperty("kills", kills_);
    }

private:
    int kills_ = 0;
};

/// A tool that kills too late proves nothing.
TEST_F(Durability, AKilledCallIsNotMadeAndACutWriteIsCut) {
    for (const auto& [decision, expected] : std::vector<std::pair<Decision, std::string>>{
             {{}, "12345678"}, {{Decision::kill}, "1234"}, {{Decision::writeAndKill, 3}, "1234567"}}) {
        const TemporaryDirectory directory;
        const auto path = directory.path() / "file";
        const auto writeTwice = [&path] {
            const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
            for (const char* text : {"1234", "5678"}) {
                if (::write(file, text, 4) != 4) throw std::exception();
            }
        };
        int writes = 0;
        const Ending ending =
            trace(writeTwice, Extent::changes, [&writes, decision = decision](const SystemCall& call) {
                return call.bytes() > 0 && ++writes == 2 ? decision : Decision{};
            });
        EXPECT_EQ(ending, decision.kind == Decision::goOn ? Ending::finished : Ending::killed);
        EXPECT_EQ(contentOf(path), expected);
    }
}

TEST_F(Durability, Opening) {
    for (const auto& scenario : openingScenarios()) expectNothingLost(scenario, 3);
}

TEST_F(Durability, Migration) {
    for (const auto& scenario : migrationScenarios()) expectNothingLost(scenario, 20);
}

/// For the loss of power: a journal that came back would be played onto the new file.
TEST_F(Durability, AStepForcesTheEndOfTheJournalAndTheNewFileBeforeItMoves) {
    const TemporaryDirectory directory;
    simulated::SimulatedPhone phone({.container = directory.path()});
    const Platform platform = phone.platform();
    const Scenario step = migrationStep(9);
    step.prepare(platform);
    const auto journal = storePath(platform).string() + "-journal";
    bool hadJournal = false;
    int forced = 0;  // since the journal is gone
    int forcedBeforeMove = 0;
    Witness nobody;
    const auto watch = [&](const SystemCall& call) -> Decision {
        const auto name = call.description();
        const bool hasJournal = std::filesystem::exists(journal);
        hadJournal = hadJournal || hasJournal;
        forced = !hasJournal && hadJournal && (name == "fsync" || name == "fdatasync") ? forced + 1 : forced;
        if (name == "rename") forcedBeforeMove = forced;
        return {};
    };
    EXPECT_EQ(trace([&] { step.act(platform, nobody); }, Extent::changes, watch), Ending::finished);
    EXPECT_TRUE(hadJournal);
    EXPECT_EQ(forcedBeforeMove, 3) << "the directory, the file, and the file once more by the move";
}

TEST_F(Durability, Saving) {
    for (const auto& scenario : savingScenarios()) expectNothingLost(scenario, 10);
}

TEST_F(Durability, Events) {
    for (const auto logsFirst : {LogsFirst::yes, LogsFirst::no}) {
        expectNothingLost(loggingAndUploading(logsFirst), 3 * 60);  // three events, each byte of their lines
        expectNothingLost(loggingAndUploading(logsFirst, LogLength::isLong), 20);
    }
    expectNothingLost(beingRefused(), 10);
}

}  // namespace
}  // namespace quomi::test
