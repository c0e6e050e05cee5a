// A process that logs and hands over as fast as it can is killed at random moments, again and again on the same files.

#include "tests/diagnostics/log_support.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <map>
#include <poll.h>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace quomi {
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr bool kMayFork = false;
#else
constexpr bool kMayFork = true;
#endif

constexpr int kRounds = 30;
constexpr int kEventsOfRound = 1'000'000;  // more than a round can log

int numberOf(const QuomiDLog& record) {
    return std::atoi(record.logData.value().c_str() + 7);
}

/// What a process tells before it goes on. Shorter than a pipe's atomic size.
struct Report {
    enum Kind : int { accepted, uploaded } kind;
    int number;
};

[[noreturn]] void logUntilKilled(const std::filesystem::path& directory, int round, int pipe) {
    posix::PosixFiles files(directory);
    test::SetClock clock;
    test::KeptConsole console;
    QuomiDLogger logger(files, clock, console);
    const auto tell = [pipe](Report::Kind kind, int number) {
        const Report report{kind, number};
        if (::write(pipe, &report, sizeof report) != sizeof report) ::_exit(1);
    };
    for (int number = round * kEventsOfRound;; ++number) {
        if (logger.addQuomiDLogToFile(test::eventLine(number))) tell(Report::accepted, number);
        if (number % 7 != 0) continue;
        auto batch = logger.getBatchOfQuomiDLogsFromTmpFile();
        if (!batch || batch->empty()) batch = logger.getBatchOfQuomiDLogsFromFile();
        if (!batch) continue;
        for (const QuomiDLog& record : *batch) tell(Report::uploaded, numberOf(record));
        logger.clearTmpLogFile();
    }
}

class KilledProcesses {
public:
    void runRound(int round, std::chrono::microseconds life) {
        int ends[2];
        ASSERT_EQ(::pipe(ends), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ends[0]);
            logUntilKilled(directory_.path(), round, ends[1]);
        }
        ::close(ends[1]);
        const auto end = std::chrono::steady_clock::now() + life;
        while (std::chrono::steady_clock::now() < end) {
            pollfd waited{ends[0], POLLIN, 0};
            if (::poll(&waited, 1, 1) > 0 && !readReport(ends[0])) break;
        }
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        while (readReport(ends[0])) continue;
        ::close(ends[0]);
    }

    void uploadTheRest() {
        posix::PosixFiles files(directory_.path());
        test::SetClock clock;
        test::KeptConsole console;
        QuomiDLogger logger(files, clock, console);
        auto batch = logger.getBatchOfQuomiDLogsFromTmpFile();
        if (!batch || batch->empty()) batch = logger.getBatchOfQuomiDLogsFromFile();
        for (; batch && !batch->empty(); batch = logger.getBatchOfQuomiDLogsFromFile()) {
            for (const QuomiDLog& record : *batch) ++uploads_[numberOf(record)];
            logger.clearTmpLogFile();
        }
        EXPECT_TRUE(console.messages.empty()) << console.messages.front();
    }

    void check() const {
        int repeats = 0;
        for (const int number : accepted_) {
            const auto found = uploads_.find(number);
            ASSERT_NE(found, uploads_.end()) << "lost event " << number;
            repeats += found->second - 1;
        }
        EXPECT_GT(accepted_.size(), 1000U);
        EXPECT_LE(repeats, kRounds * 50);
        for (const auto& [number, count] : uploads_) EXPECT_LE(number / kEventsOfRound, kRounds) << count;
    }

private:
    bool readReport(int pipe) {
        Report report{};
        if (::read(pipe, &report, sizeof report) != sizeof report) return false;
        if (report.kind == Report::accepted) accepted_.push_back(report.number);
        if (report.kind == Report::uploaded) ++uploads_[report.number];
        return true;
    }

    test::TemporaryDirectory directory_;
    std::vector<int> accepted_;
    std::map<int, int> uploads_;
};

TEST(EventLogProcess, EveryAcknowledgedEventOutlivesTheKillOfItsProcess) {
    if (!kMayFork) GTEST_SKIP() << "a forked process cannot be watched for races";
    std::mt19937 random(20261121);  // NOLINT(bugprone-*): the same lives in every run
    KilledProcesses processes;
    for (int round = 0; round < kRounds; ++round) {
        processes.runRound(round, std::chrono::microseconds(1000 + static_cast<int>(random() % 60'000)));
    }
    processes.uploadTheRest();
    processes.check();
}

}  // namespace
}  // namespace quomi
