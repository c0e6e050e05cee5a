#include "quomi/sdk/event_upload.h"

#include "quomi/platform/clock.h"
#include "tests/data/store_support.h"
#include "tests/diagnostics/faulty_files.h"
#include "tests/sdk/scripted_uploader.h"

namespace quomi::test {
namespace {

class EventUpload : public testing::Test {
protected:
    EventUpload() { loop->setUploader(&uploader); }

    void log(int number) { ASSERT_TRUE(loop->logEvent({{"n", number}}, host.platform.clock.now())); }
    void log(int first, int last) {
        for (int number = first; number <= last; ++number) log(number);
    }
    /// The app ends and is launched anew.
    void relaunch() {
        loop.reset();
        loop = std::make_unique<EventUploadLoop>(host.platform, host.debugLog);
        loop->setUploader(&uploader);
    }
    [[nodiscard]] std::string file(const char* name) const {
        return contentOf(host.platform.files.documentsDirectory() / name);
    }
    [[nodiscard]] std::string batchFile() const { return file(kQuomiBOTmpLogFileName); }
    /// The server takes what waits to be answered, and what comes at once after it, unless the bad event is among it.
    void answerAllRefusing(int bad, int status) {
        while (!uploader.waiting.empty()) {
            std::ranges::find(uploader.batches.back(), bad) != uploader.batches.back().end() ? uploader.fail(status)
                                                                                             : uploader.succeed();
        }
    }

    StoreHost host{{.start = WallTime(1'700'000'000s)}};
    ScriptedUploader uploader;
    std::unique_ptr<EventUploadLoop> loop = std::make_unique<EventUploadLoop>(host.platform, host.debugLog);
};

TEST_F(EventUpload, EveryFortySecondsFromTheFirstEventOn) {
    host.phone.advanceBy(100s);
    log(1);
    host.phone.advanceBy(20s);
    log(2);  // sets no second timer
    host.phone.advanceBy(20s - 1us);
    EXPECT_THAT(uploader.batches, IsEmpty());
    host.phone.advanceBy(1us);
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1, 2)));
    uploader.succeed();
    log(3);
    host.phone.advanceBy(40s - 1us);
    EXPECT_EQ(uploader.batches.size(), 1U);
    host.phone.advanceBy(1us);
    EXPECT_THAT(uploader.batches.back(), ElementsAre(3));
    uploader.succeed();
    host.phone.advanceBy(10min);
    EXPECT_EQ(uploader.batches.size(), 2U) << "nothing to send";
    log(4);
    host.phone.advanceBy(40s);
    EXPECT_THAT(uploader.batches.back(), ElementsAre(4));
}

TEST_F(EventUpload, AtOnceWhenTheLastUploadBeganLongAgo) {
    log(1);
    host.phone.jumpClock(Seconds(1000));
    log(2);
    EXPECT_THAT(uploader.batches, IsEmpty()) << "none has begun yet";
    host.phone.advanceBy(40s);
    uploader.succeed();
    host.phone.jumpClock(Seconds(300));
    log(3);
    EXPECT_EQ(uploader.batches.size(), 1U);
    host.phone.jumpClock(Seconds(0.001));
    log(4);
    EXPECT_THAT(uploader.batches.back(), ElementsAre(3, 4));
    log(5);
    EXPECT_EQ(uploader.batches.size(), 2U) << "that one has only just begun";
}

TEST_F(EventUpload, BatchesOfFiftyDrainOneAfterAnother) {
    log(1, 120);
    loop->uploadLogsInBatches();
    for (const std::size_t size : {50U, 50U, 20U}) {
        ASSERT_EQ(uploader.waiting.size(), 1U);
        EXPECT_EQ(uploader.batches.back().size(), size);
        uploader.succeed();
    }
    EXPECT_THAT(uploader.waiting, IsEmpty());
    int expected = 0;
    for (const auto& batch : uploader.batches) {
        for (const int number : batch) EXPECT_EQ(number, ++expected);
    }
    EXPECT_EQ(batchFile(), "");
}

TEST_F(EventUpload, BatchInFlightIsNotSentTwice) {
    log(1);
    loop->uploadLogsInBatches();
    log(2);
    host.phone.advanceBy(2min);
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1)));
    uploader.succeed();
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1), ElementsAre(2)));
}

/// The year of the week is written: each reading and writing of such a line may move its date by a year.
TEST_F(EventUpload, BatchInFlightAtTheTurnOfTheYear) {
    using namespace std::chrono;
    ASSERT_TRUE(loop->logEvent({{"n", 1}}, sys_days{2024y / December / 30} + 12h));
    loop->uploadLogsInBatches();
    loop->uploadLogsInBatches();
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1)));
}

TEST_F(EventUpload, FailedBatchIsTheNextOneAgain) {
    log(1, 60);
    loop->uploadLogsInBatches();
    const auto file = batchFile();
    EXPECT_NE(file, "");
    uploader.fail();
    EXPECT_THAT(host.debugLog.file().getFileLogContent().value(), testing::HasSubstr(" events was not accepted: "));
    EXPECT_EQ(uploader.batches.size(), 1U);
    EXPECT_EQ(batchFile(), file);
    log(61);
    host.phone.advanceBy(40s);
    ASSERT_EQ(uploader.batches.size(), 2U);
    EXPECT_EQ(uploader.batches[1], uploader.batches[0]);
    uploader.succeed();
    EXPECT_EQ(uploader.batches.back().size(), 11U);
}

TEST_F(EventUpload, RelaunchSendsTheBatchFileFirst) {
    log(1, 55);
    loop->uploadLogsInBatches();
    relaunch();
    uploader.succeed();  // of the process that is gone
    EXPECT_NE(batchFile(), "");
    log(56);
    host.phone.advanceBy(40s);
    ASSERT_EQ(uploader.batches.size(), 2U);
    EXPECT_EQ(uploader.batches[1], uploader.batches[0]);
    uploader.succeed();
    EXPECT_THAT(uploader.batches.back(), ElementsAre(51, 52, 53, 54, 55, 56));
}

TEST_F(EventUpload, UploaderReplacedWhileABatchIsInFlight) {
    log(1);
    loop->uploadLogsInBatches();
    const auto file = batchFile();
    loop->setUploader(nullptr);
    log(2);
    host.phone.advanceBy(80s);
    ScriptedUploader next;
    loop->setUploader(&next);
    uploader.succeed();
    EXPECT_EQ(batchFile(), file) << "an answer to a request that was given up";
    host.phone.advanceBy(40s);
    ASSERT_THAT(next.batches, ElementsAre(ElementsAre(1)));
    next.succeed();
    EXPECT_THAT(next.batches, ElementsAre(ElementsAre(1), ElementsAre(2)));
    EXPECT_EQ(uploader.batches.size(), 1U);
    loop->setUploader(&next);
    EXPECT_EQ(next.batches.size(), 2U) << "the same one";
    next.succeed();
    EXPECT_EQ(batchFile(), "");
}

/// Every event by itself; those that fail go back into the log, as soon as it can be written.
TEST_F(EventUpload, FlushOfTheLog) {
    log(1, 3);
    loop->flushLoggedEventsQueue();
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1), ElementsAre(2), ElementsAre(3)));
    loop->flushLoggedEventsQueue();
    EXPECT_EQ(uploader.batches.size(), 3U) << "the log is empty";
    const auto documents = host.platform.files.documentsDirectory();
    std::filesystem::remove_all(documents);
    write(documents, "a file");
    uploader.fail();
    uploader.fail(500);
    std::filesystem::remove(documents);
    host.phone.advanceBy(40s);
    EXPECT_THAT(uploader.batches.back(), ElementsAre(1, 2));
}

/// One event that the server does not take holds the others up for two beats of the timer, relaunched or not.
TEST_F(EventUpload, WhatIsRefusedForGoodIsFoundByHalvesAndSetAside) {
    using Batches = std::vector<std::vector<int>>;
    for (const int status : {413, 400, 422}) {
        const int bad = status;
        log(bad - 2, bad + 2);
        host.phone.advanceBy(40s);
        answerAllRefusing(bad, status);
        EXPECT_EQ(
            std::exchange(uploader.batches, {}),
            (Batches{{bad - 2, bad - 1, bad, bad + 1, bad + 2}, {bad - 2, bad - 1}, {bad, bad + 1, bad + 2}, {bad}}));
        relaunch();
        log(bad + 3);
        host.phone.advanceBy(40s);
        answerAllRefusing(bad, status);
        EXPECT_EQ(std::exchange(uploader.batches, {}).back(), std::vector{bad});
        EXPECT_THAT(file(kQuomiBORefusedLogFileName), Not(HasSubstr(fmt::format("{{\"n\":{}}}", bad))));
        host.phone.advanceBy(40s);
        answerAllRefusing(bad, status);
        EXPECT_EQ(std::exchange(uploader.batches, {}), (Batches{{bad}, {bad + 1}, {bad + 2}, {bad + 3}}));
        EXPECT_THAT(file(kQuomiBORefusedLogFileName), testing::EndsWith(fmt::format(";{{\"n\":{}}}\n", bad)));
        EXPECT_EQ(batchFile(), "");
    }
}

/// The wait doubles from the fourth failure in a row on; nothing is given up, and a success ends it.
TEST_F(EventUpload, PausesGrowWhileTheServerFails) {
    log(1);
    std::vector<Duration> waits;
    const auto begin = host.platform.clock.monotonicNow();
    for (int seconds = 0; seconds < 2100; seconds += 20) {
        host.phone.advanceBy(20s);
        if (uploader.waiting.empty()) continue;
        waits.push_back(host.platform.clock.monotonicNow() - begin);
        const int status = std::vector{401, 403, 404, 500, 503}.at(waits.size() % 5);
        uploader.fail(status);
        log(2);  // the last upload may be long ago
    }
    EXPECT_THAT(waits, ElementsAre(40s, 80s, 120s, 160s, 240s, 400s, 720s, 1360s, 2000s));
    host.phone.advanceBy(640s);
    uploader.succeed();
    uploader.succeed();
    uploader.batches.clear();
    log(3);
    host.phone.advanceBy(40s);
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(3)));
    EXPECT_EQ(file(kQuomiBORefusedLogFileName), "");
}

TEST_F(EventUpload, LargeEventsAreRefusedAndBatchesBoundedByBytes) {
    const auto logOf = [&](int number, std::size_t size, std::optional<Error>* error) {
        const auto overhead = fmt::format(R"({{"n":{},"x":""}})", number).size();
        return loop->logEvent({{"n", number}, {"x", std::string(size - overhead, 'x')}}, host.platform.clock.now(),
                              error);
    };
    std::optional<Error> error;
    EXPECT_FALSE(logOf(0, EventUploadLoop::kLargestEvent + 1, &error));
    EXPECT_EQ(error.value().code, 600);
    EXPECT_THAT(error->localizedDescription().value(), HasSubstr("it has 65537 bytes of JSON, 65536 are allowed"));
    for (int number = 1; number <= 5; ++number) EXPECT_TRUE(logOf(number, EventUploadLoop::kLargestEvent, &error));
    loop->uploadLogsInBatches();
    uploader.succeed();
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1, 2, 3), ElementsAre(4, 5)));
}

TEST_F(EventUpload, EventThatCannotBeWrittenIsNotAccepted) {
    std::filesystem::remove_all(host.platform.files.documentsDirectory());
    write(host.platform.files.documentsDirectory(), "a file");
    EXPECT_FALSE(loop->logEvent({{"n", 1}}, host.platform.clock.now()));
    std::filesystem::remove(host.platform.files.documentsDirectory());
    log(2);
    host.phone.advanceBy(40s);
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(2)));
}

/// Files of which one cannot be removed.
class StubbornFiles final : public FilesWrapper {
public:
    using FilesWrapper::FilesWrapper;
    bool remove(const Path& path, Code& error) override {
        return path.filename() == stays ? refuse(error) : files_.remove(path, error);
    }
    std::string stays;
};

TEST_F(EventUpload, BatchFileThatCannotBeRemovedIsNotSentWithoutAPause) {
    StubbornFiles files(host.platform.files);
    const Platform platform = host.platform.with(files);
    loop = std::make_unique<EventUploadLoop>(platform, host.debugLog);
    loop->setUploader(&uploader);
    files.stays = kQuomiBOTmpLogFileName;
    log(1);
    loop->uploadLogsInBatches();
    uploader.succeed();
    EXPECT_EQ(uploader.batches.size(), 1U);
    files.stays.clear();
    log(2);
    host.phone.advanceBy(40s);
    uploader.succeed();
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1), ElementsAre(1), ElementsAre(2)));
    loop.reset();
}

}  // namespace
}  // namespace quomi::test
