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
        loop = std::make_unique<EventUploadLoop>(host.platform);
        loop->setUploader(&uploader);
    }
    [[nodiscard]] std::string batchFile() const {
        return contentOf(host.platform.files.documentsDirectory() / kQuomiBOTmpLogFileName);
    }

    StoreHost host{{.start = WallTime(1'700'000'000s)}};
    ScriptedUploader uploader;
    std::unique_ptr<EventUploadLoop> loop = std::make_unique<EventUploadLoop>(host.platform);
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

/// Every event by itself; those that fail go back into the log.
TEST_F(EventUpload, FlushOfTheLog) {
    log(1, 3);
    loop->flushLoggedEventsQueue();
    EXPECT_THAT(uploader.batches, ElementsAre(ElementsAre(1), ElementsAre(2), ElementsAre(3)));
    loop->flushLoggedEventsQueue();
    EXPECT_EQ(uploader.batches.size(), 3U) << "the log is empty";
    uploader.fail();
    uploader.waiting[0].second(Error{kHTTPErrorDomain, 500, {}});
    host.phone.advanceBy(40s);
    EXPECT_THAT(uploader.batches.back(), ElementsAre(1, 2));
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
    const auto& p = host.platform;
    const Platform platform{p.clock,       p.runLoop,      p.location, p.bluetooth,   p.notifications,
                            p.application, p.screens,      p.device,   files,         p.defaults,
                            p.console,     p.localization, p.http,     p.reachability};
    loop = std::make_unique<EventUploadLoop>(platform);
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
