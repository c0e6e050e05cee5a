// The process is killed in every change that it makes to the log files, and after every byte of an append. Whatever the
// moment, the next process finds each accepted event and nothing torn, and at most one batch twice.

#include "tests/diagnostics/faulty_files.h"
#include "tests/diagnostics/log_support.h"

#include <map>
#include <set>

#include <gmock/gmock.h>

namespace quomi {
namespace {

using test::MortalFiles;
using testing::HasSubstr;
using Records = std::optional<std::vector<QuomiDLog>>;

/// What is tried: the logger's own operations, or faulty ones in their place.
struct Handling {
    std::function<bool(QuomiDLogger&, Files&, std::string_view)> add = [](auto& logger, auto&, auto line) {
        return logger.addQuomiDLogToFile(line);
    };
    std::function<Records(QuomiDLogger&, Files&)> handOver = [](auto& logger, auto&) {
        return logger.getBatchOfQuomiDLogsFromFile();
    };
};

/// What the rest of the world saw of one event.
struct Fate {
    bool wasAccepted = false;
    int uploads = 0;
};

/// The life of a phone's events in one directory, through a kill.
class Story {
public:
    static std::string line(const std::string& name) { return "2026-11-21 05:00:00 +0100;" + data(name); }

    Story(const Handling& handling, bool addsBeforeReading)
        : handling_(handling), addsBeforeReading_(addsBeforeReading), directory_(seeds()) {
        for (int number = 0; number < kSeeds; ++number) fates_[data(std::to_string(number))].wasAccepted = true;
    }

    /// True when the process came to the end of its work before it was killed.
    bool runFirstProcess(MortalFiles& files) {
        QuomiDLogger logger(files, clock_, console_);
        add(logger, files, "A");
        upload(logger, files);
        add(logger, files, "B");
        upload(logger, files);
        add(logger, files, "C");
        return files.isAlive();
    }

    void runSecondProcess() {
        posix::PosixFiles fresh(directory_.directory.path());
        MortalFiles files(fresh, 1'000'000, 0);
        QuomiDLogger logger(files, clock_, console_);
        if (addsBeforeReading_) add(logger, files, "D");
        for (int round = 0; round < 5; ++round) upload(logger, files);
        if (!addsBeforeReading_) add(logger, files, "D");
        for (int round = 0; round < 5; ++round) upload(logger, files);
    }

    [[nodiscard]] std::string complaint() const {
        int repeats = 0;
        for (const auto& [text, fate] : fates_) {
            if (fate.wasAccepted && fate.uploads == 0) return "lost " + text;
            if (fate.uploads > 2) return "uploaded thrice " + text;
            repeats += std::max(0, fate.uploads - 1);
        }
        if (repeats > static_cast<int>(QuomiDLogger::kBatchSize)) return "more than one batch uploaded twice";
        const Fate& last = fates_.at(data("D"));
        if (!last.wasAccepted || last.uploads != 1) return "an event after the kill was affected";
        return strange_.empty() ? "" : "uploaded what nobody logged: " + strange_;
    }

    [[nodiscard]] MortalFiles filesKilledAt(std::size_t change, std::size_t bytes) {
        return MortalFiles(directory_.files, change, bytes);
    }

private:
    static constexpr int kSeeds = 51;

    static std::string data(const std::string& name) { return R"({"id":")" + name + R"(","in":{"é":{}},"x":1})"; }
    static std::string seeds() {
        std::string text;
        for (int number = 0; number < kSeeds; ++number) text += line(std::to_string(number)) + "\n";
        return text;
    }

    void add(QuomiDLogger& logger, MortalFiles& files, const std::string& name) {
        if (!files.isAlive()) return;
        Fate& fate = fates_[data(name)];
        const bool accepted = handling_.add(logger, files, line(name));
        fate.wasAccepted = accepted && files.isAlive();
    }

    void upload(QuomiDLogger& logger, MortalFiles& files) {
        if (!files.isAlive()) return;
        Records batch = logger.getBatchOfQuomiDLogsFromTmpFile();
        if (!batch || batch->empty()) batch = handling_.handOver(logger, files);
        if (!batch || batch->empty() || !files.isAlive()) return;
        for (const QuomiDLog& record : *batch) {
            const auto fate = fates_.find(record.logData.value());
            if (fate == fates_.end()) {
                strange_ = record.logData.value();
            } else {
                ++fate->second.uploads;
            }
        }
        logger.clearTmpLogFile();
    }

    const Handling& handling_;
    bool addsBeforeReading_;
    test::SetClock clock_;
    test::KeptConsole console_;
    test::LogDirectory directory_;
    std::map<std::string, Fate> fates_;
    std::string strange_;
};

struct Outcome {
    std::size_t kills = 0;
    std::set<std::string> complaints;
};

/// Tells one story; returns the length of the append in which its process was killed, nothing when it was not killed.
std::optional<std::size_t> tell(const Handling& handling, bool addsBeforeReading, std::size_t change, std::size_t bytes,
                                Outcome& outcome) {
    Story story(handling, addsBeforeReading);
    MortalFiles files = story.filesKilledAt(change, bytes);
    const bool survived = story.runFirstProcess(files);
    story.runSecondProcess();
    if (const auto complaint = story.complaint(); !complaint.empty()) outcome.complaints.insert(complaint);
    if (survived) return std::nullopt;
    ++outcome.kills;
    return files.fatalAppend();
}

Outcome killEverywhere(const Handling& handling) {
    Outcome outcome;
    for (const bool addsBeforeReading : {true, false}) {
        for (std::size_t change = 0; change < 100; ++change) {
            const auto length = tell(handling, addsBeforeReading, change, 0, outcome);
            if (!length) break;
            for (std::size_t bytes = 1; bytes <= *length; ++bytes) {
                tell(handling, addsBeforeReading, change, bytes, outcome);
            }
        }
    }
    return outcome;
}

TEST(EventLogKill, NoMomentLosesAnAcceptedEventOrLeavesATornOne) {
    const Outcome outcome = killEverywhere({});
    EXPECT_GT(outcome.kills, 2 * 3 * Story::line("A").size()) << "not every byte of the three events was tried";
    EXPECT_EQ(outcome.complaints, std::set<std::string>());
}

/// Writes the shortened log before the batch.
Records handOverLogFirst(QuomiDLogger& logger, Files& files) {
    const auto records = logger.getQuomiDLogsFromFile().value_or(std::vector<QuomiDLog>());
    const auto middle = records.begin() + static_cast<std::ptrdiff_t>(std::min<std::size_t>(records.size(), 50));
    std::string rest;
    for (auto record = middle; record != records.end(); ++record) rest += record->description("UTC") + "\n";
    std::error_code error;
    files.replace(logger.getLogFilePath(), rest, error);
    const std::vector<QuomiDLog> batch(records.begin(), middle);
    return logger.saveBatchToTmpFile(batch) ? Records(batch) : std::nullopt;
}

bool addWithoutLooking(QuomiDLogger& logger, Files& files, std::string_view line) {
    std::error_code error;
    return files.append(logger.getLogFilePath(), std::string(line) + "\n", error);
}

bool addTrustingBraces(QuomiDLogger& logger, Files& files, std::string_view line) {
    std::error_code error;
    const auto path = logger.getLogFilePath();
    const bool completes = files.readTail(path, 1, error) == "}";
    return (!completes || files.append(path, "\n", error)) && logger.addQuomiDLogToFile(line);
}

TEST(EventLogKill, FaultyHandlingIsNoticed) {
    const auto complaints = [](const Handling& handling) {
        return fmt::format("{}", fmt::join(killEverywhere(handling).complaints, "\n"));
    };
    EXPECT_THAT(complaints({.handOver = handOverLogFirst}), HasSubstr("lost"));
    EXPECT_THAT(complaints({.add = addWithoutLooking}), HasSubstr(R"(lost {"id":"D")"));
    EXPECT_THAT(complaints({.add = addTrustingBraces}), HasSubstr("uploaded what nobody logged"));
}

}  // namespace
}  // namespace quomi
