#include "quomi/diagnostics/event_log.h"

#include "tests/diagnostics/faulty_files.h"
#include "tests/diagnostics/log_support.h"

namespace quomi {
namespace {

using test::eventLine;
using test::eventLines;
using Days = std::chrono::sys_days;

class EventLogTest : public testing::Test {
protected:
    std::size_t lines(const std::string& text) { return static_cast<std::size_t>(std::ranges::count(text, '\n')); }

    test::SetClock clock_;
    test::KeptConsole console_;
};

TEST_F(EventLogTest, LinesAndTheRecordsTheyHold) {
    const std::string time = "2026-11-21 05:00:00 +0100";
    const Table<std::string, std::optional<std::string>, bool> cases = {
        {time + ";{\"a\":1}", "{\"a\":1}", false},
        {time + ";{}", "{}", false},
        {time + ";{no JSON, but in braces}", "{no JSON, but in braces}", false},
        {time + ";[1]", std::nullopt, false},
        {time + "; {}", std::nullopt, false},
        {time + ";{} ", std::nullopt, false},
        {time + ";", std::nullopt, false},
        {"21.11.2026 05:00;{}", std::nullopt, false},
        {";{}", std::nullopt, false},
        {time + ";{\"a\":\"x;y\"}", std::nullopt, true},
        {time + "{}", std::nullopt, true},
    };
    for (const auto& [line, data, isReported] : cases) {
        console_.messages.clear();
        const auto record = QuomiDLog::quomiDLogFromString(line, console_);
        EXPECT_EQ(record ? record->logData : std::nullopt, data) << line;
        EXPECT_EQ(record ? record->logTime : clock_.time, clock_.time) << line;
        if (isReported) {
            EXPECT_THAT(console_.messages, ElementsAre("Quomi SDK error while parsing log string: " + line));
        } else {
            EXPECT_THAT(console_.messages, IsEmpty()) << line;
        }
    }
    EXPECT_THAT(QuomiDLog::quomiDLogsFromString("\n" + eventLine(1) + "\n\nbad\n" + eventLine(2), console_), SizeIs(2));
}

TEST_F(EventLogTest, HandsOverFiftyRecordsAtATime) {
    test::LogDirectory log(eventLines(0, 120));
    QuomiDLogger logger(log.files, clock_, console_);
    const auto batch = logger.getBatchOfQuomiDLogsFromFile();
    ASSERT_THAT(batch.value(), SizeIs(50));
    EXPECT_EQ(batch->back().logData, "{\"id\":\"49\"}");
    EXPECT_EQ(log.batch() + "\n", eventLines(0, 50));
    EXPECT_EQ(log.text(), eventLines(50, 120));
    EXPECT_EQ(logger.getBatchOfQuomiDLogsFromTmpFile(), batch);
    ASSERT_THAT(logger.getBatchOfQuomiDLogsFromFile().value(), SizeIs(50));
    ASSERT_THAT(logger.getBatchOfQuomiDLogsFromFile().value(), SizeIs(20));
    EXPECT_EQ(log.text(), "(missing)");
    EXPECT_EQ(log.batch() + "\n", eventLines(100, 120));
    EXPECT_EQ(logger.getBatchOfQuomiDLogsFromFile(), std::nullopt);
    EXPECT_EQ(log.text(), "");
    logger.clearTmpLogFile();
    EXPECT_EQ(log.batch(), "(missing)");
    EXPECT_THAT(logger.getBatchOfQuomiDLogsFromTmpFile().value(), IsEmpty());
}

TEST_F(EventLogTest, BadLinesAreLostWithTheHandOver) {
    test::LogDirectory log("bad\n" + eventLine(1) + "\n" + eventLine(2) + ";\n\n" + eventLines(3, 4) + "2026;[]\n");
    QuomiDLogger logger(log.files, clock_, console_);
    EXPECT_THAT(logger.getBatchOfQuomiDLogsFromFile().value(), SizeIs(2));
    EXPECT_EQ(log.text(), "(missing)");
    EXPECT_THAT(console_.messages, SizeIs(2));
    log.write(kQuomiBOLogFileName, "bad\n");
    EXPECT_THAT(logger.getBatchOfQuomiDLogsFromFile().value(), IsEmpty());
    EXPECT_EQ(log.text(), "(missing)");
    EXPECT_EQ(log.batch(), "(missing)");
}

TEST_F(EventLogTest, TheFirstEventCreatesWhatIsMissingForTheOwnerAlone) {
    test::LogDirectory log;
    QuomiDLogger logger(log.files, clock_, console_);
    EXPECT_EQ(logger.getQuomiDLogFileContent(), "");
    EXPECT_EQ(log.text(), "");
    logger.clearLogFile();
    EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(1)));
    EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(2)));
    EXPECT_EQ(log.text(), eventLines(1, 3));
    EXPECT_THAT(logger.getBatchOfQuomiDLogsFromFile().value(), SizeIs(2));
    for (const auto& path : {logger.getLogFilePath(), logger.getTmpLogFilePath()}) {
        EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0600)) << path;
    }
    EXPECT_EQ(std::filesystem::status(log.files.documentsDirectory()).permissions(), std::filesystem::perms(0700));
}

TEST_F(EventLogTest, AnEventIsRefusedWhenItCannotBeWritten) {
    test::LogDirectory log(eventLines(0, 1));
    test::FullDisk disk(log.files);
    QuomiDLogger logger(disk, clock_, console_);
    EXPECT_FALSE(logger.addQuomiDLogToFile("\xc3"));
    EXPECT_FALSE(logger.addQuomiDLogToFile("\xed\xa0\x80"));
    for (disk.room = 0; disk.room <= eventLine(1).size(); ++disk.room) {
        EXPECT_FALSE(logger.addQuomiDLogToFile(eventLine(1)));
        EXPECT_EQ(log.text(), eventLines(0, 1));
    }
    disk.room = 1000;
    EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(1)));
    EXPECT_EQ(log.text(), eventLines(0, 2));
    posix::PosixFiles nowhere(log.path(kQuomiBOLogFileName));
    EXPECT_FALSE(QuomiDLogger(nowhere, clock_, console_).addQuomiDLogToFile(eventLine(2)));
}

TEST_F(EventLogTest, LastLinesWithoutLineBreak) {
    const std::string time = "2026-11-21 05:00:00 +0100;";
    const Table<std::string, bool> cases = {
        {time + R"({"a":{"b":1}})", true},
        {time + R"({"a":{"b":1})", false},
        {time + "{\"a\":\"\xc3", false},
        {time + "{", false},
        {time, false},
        {"2026-11", false},
        {std::string(3, '\0'), false},
        {std::string(100'000, 'x'), false},
    };
    for (const auto& [tail, isWhole] : cases) {
        for (const std::string& before : {std::string(), eventLines(0, 2)}) {
            test::LogDirectory log(before + tail);
            QuomiDLogger logger(log.files, clock_, console_);
            EXPECT_THAT(logger.getQuomiDLogsFromFile().value(), SizeIs(lines(before) + (isWhole ? 1 : 0)));
            EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(7)));
            EXPECT_EQ(log.text(), before + (isWhole ? tail + "\n" : "") + eventLine(7) + "\n");
        }
    }
    EXPECT_THAT(console_.messages, IsEmpty());
}

TEST_F(EventLogTest, AHandOverThatFailsTakesNothingFromTheLog) {
    for (const char* full : {kQuomiBOTmpLogFileName, kQuomiBOLogFileName}) {
        test::LogDirectory log(eventLines(0, 70));
        test::FullDisk disk(log.files);
        disk.isFull = [full](const std::string& name) { return name == full; };
        QuomiDLogger logger(disk, clock_, console_);
        EXPECT_EQ(logger.getBatchOfQuomiDLogsFromFile(), std::nullopt);
        EXPECT_EQ(log.text(), eventLines(0, 70));
        EXPECT_EQ(log.batch(), "(missing)") << "the same batch would be uploaded again and again";
    }
}

TEST_F(EventLogTest, ALogThatWasRewrittenInSpiteOfAnErrorKeepsItsBatch) {
    test::LogDirectory log(eventLines(0, 70));
    test::FullDisk disk(log.files);
    disk.writesThenFails = true;
    disk.isFull = [](const std::string& name) { return name == kQuomiBOLogFileName; };
    EXPECT_THAT(QuomiDLogger(disk, clock_, console_).getBatchOfQuomiDLogsFromFile().value(), SizeIs(50));
    EXPECT_EQ(log.batch() + "\n" + log.text(), eventLines(0, 70));
}

TEST_F(EventLogTest, OfALogThatIsNotUtf8OnlyThoseLinesAreLost) {
    test::LogDirectory log(eventLine(1) + "\n\xff\n" + eventLine(2) + "\xc3\n" + eventLine(3) + "\n");
    QuomiDLogger logger(log.files, clock_, console_);
    EXPECT_THAT(logger.nextBatch(50).value(), SizeIs(2));
    EXPECT_THAT(console_.messages, ElementsAre("Quomi SDK Error: 2 lines of the event log are no UTF-8"));
    EXPECT_EQ(log.text(), "(missing)");
    EXPECT_EQ(log.batch(), eventLine(1) + "\n" + eventLine(3));
}

/// Counts the bytes that are written.
class CountingFiles final : public test::FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool replace(const Path& path, std::string_view bytes, Code& error) override {
        written += bytes.size();
        return files_.replace(path, bytes, error);
    }
    bool append(const Path& path, std::string_view bytes, Code& error) override {
        written += bytes.size();
        return files_.append(path, bytes, error);
    }
    std::size_t written = 0;
};

TEST_F(EventLogTest, TwentyThousandEventsDrainInOrderForFourBytesAByte) {
    test::LogDirectory log(eventLines(0, 20'000));
    CountingFiles files(log.files);
    QuomiDLogger logger(files, clock_, console_);
    EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(20'000)));
    const std::size_t logged = log.text().size();
    for (int number = 0; number <= 20'000;) {
        const auto batch = logger.nextBatch(QuomiDLogger::kBatchSize).value();
        for (const auto& record : batch) ASSERT_EQ(record.logData, fmt::format("{{\"id\":\"{}\"}}", number++));
        ASSERT_TRUE(logger.dropFromBatch(batch));
        // What is logged meanwhile comes after all of these.
        if (number == 10'000) {
            EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(20'001)));
        }
    }
    EXPECT_THAT(logger.getQuomiDLogsFromFile().value(), SizeIs(1));
    EXPECT_THAT(logger.nextBatch(1).value(), SizeIs(1));
    EXPECT_LE(logged + files.written, 4 * logged);
    EXPECT_EQ(log.text(kQuomiBODrainLogFileName), "(missing)");
}

/// A torn line at the end of a log that is drained does not join the first line of the new log.
TEST_F(EventLogTest, ALongLogIsReadWithWhatCameAfterIt) {
    const int lines = static_cast<int>(QuomiDLogger::kShortLog / eventLine(0).size()) + 1;
    for (const std::string& tail : {std::string(), eventLine(lines), eventLine(lines) + "x"}) {
        test::LogDirectory log(eventLines(0, lines) + tail);
        QuomiDLogger logger(log.files, clock_, console_);
        const auto batch = logger.nextBatch(10).value();
        EXPECT_THAT(batch, SizeIs(10));
        EXPECT_TRUE(logger.addQuomiDLogToFile(eventLine(7)));
        const bool isWhole = tail == eventLine(lines);
        const auto waiting = static_cast<std::size_t>(lines) - QuomiDLogger::kBatchSize + (isWhole ? 2 : 1);
        EXPECT_THAT(logger.getQuomiDLogsFromFile().value(), SizeIs(waiting));
        EXPECT_THAT(logger.takeQuomiDLogsFromFile().value(), SizeIs(waiting));
        EXPECT_THAT(logger.getQuomiDLogsFromFile().value(), IsEmpty());
        EXPECT_TRUE(logger.dropFromBatch(batch));
        EXPECT_THAT(logger.nextBatch(50).value(), SizeIs(40)) << "the rest of the batch file";
    }
}

TEST_F(EventLogTest, OfRefusedEventsTheLatestAreKept) {
    test::LogDirectory log;
    QuomiDLogger logger(log.files, clock_, console_);
    const auto record = [&](int number, std::size_t size) {
        return QuomiDLog{clock_.time, fmt::format("{{\"n\":{},\"x\":\"{}\"}}", number, std::string(size, 'x'))};
    };
    const auto refuse = [&](const QuomiDLog& refused) {
        EXPECT_TRUE(logger.saveBatchToTmpFile({refused}));
        EXPECT_FALSE(logger.refuse(record(-1, 0))) << "another one";
        return std::vector{logger.refuse(refused), logger.refuse(refused), logger.refuse(refused)};
    };
    for (const int number : {1, 2, 3}) {
        EXPECT_EQ(refuse(record(number, QuomiDLogger::kRefusedBytes / 2 - 100)), (std::vector{false, false, true}));
    }
    const auto kept = log.text(kQuomiBORefusedLogFileName);
    EXPECT_LE(kept.size(), QuomiDLogger::kRefusedBytes);
    EXPECT_THAT(QuomiDLog::quomiDLogsFromString(kept, console_), SizeIs(2));
    EXPECT_EQ(refuse(record(4, 9'000'000)).back(), true);
    EXPECT_THAT(QuomiDLog::quomiDLogsFromString(log.text(kQuomiBORefusedLogFileName), console_), SizeIs(1));
    EXPECT_THAT(console_.messages, SizeIs(4));
}

TEST_F(EventLogTest, AnEventWithSemicolonsComesBack) {
    const boost::json::object event{{"a;b", R"(;\;"";)"}, {"c", ";"}};
    const auto line = QuomiDLog::ofEvent(event, clock_.time).description(clock_.zone);
    EXPECT_EQ(boost::json::parse(QuomiDLog::quomiDLogFromString(line, console_).value().logData.value()), event);
}

}  // namespace
}  // namespace quomi
