#include "quomi/sdk/event_upload.h"

#include "quomi/api/uploader.h"
#include "quomi/platform/clock.h"

#include <algorithm>
#include <utility>

#include <boost/json/serialize.hpp>

namespace quomi {

namespace {

constexpr Duration kUploadInterval = std::chrono::seconds(40);
constexpr Duration kLongestUploadPause = std::chrono::seconds(300);

}  // namespace

EventUploadLoop::EventUploadLoop(const Platform& platform)
    : platform_(platform), logger_(platform.files, platform.clock, platform.console) {}

EventUploadLoop::~EventUploadLoop() = default;

void EventUploadLoop::setUploader(Uploader* uploader) {
    if (uploader_ == uploader) return;
    uploader_ = uploader;
    batches_.renew();
    currentBatchWithLogs_.reset();
}

bool EventUploadLoop::logEvent(const boost::json::object& event, WallTime date) {
    const QuomiDLog record{date, boost::json::serialize(event)};
    if (!logger_.addQuomiDLogToFile(record.stringFromQuomiDLog(platform_.clock.timeZone()))) return false;
    if (uploadLogLoopTimer_ == nullptr) {
        uploadLogLoopTimer_ = platform_.runLoop.scheduleRepeating(kUploadInterval, [this] { uploadLogsInBatches(); });
    }
    if (lastUploadedLogsAt_ && platform_.clock.now() - *lastUploadedLogsAt_ > kLongestUploadPause) {
        uploadLogsInBatches();
    }
    return true;
}

void EventUploadLoop::uploadLogsInBatches() {
    lastUploadedLogsAt_ = platform_.clock.now();
    uploadLogsInBatchesFromTmpFile();
}

void EventUploadLoop::uploadLogsInBatchesFromTmpFile() {
    if (uploader_ == nullptr) return;
    auto batch = nextBatch();
    if (!batch || isInFlight(*batch)) return;
    currentBatchWithLogs_ = std::move(batch);
    uploader_->sendBatchOfLogEvents(*currentBatchWithLogs_, batches_.guard([this] { batchArrived(); }),
                                    batches_.guard([this](const Error&) { currentBatchWithLogs_.reset(); }));
}

void EventUploadLoop::flushLoggedEventsQueue() {
    if (uploader_ == nullptr) return;
    const auto records = logger_.getQuomiDLogsFromFile();
    if (!records) return;
    logger_.clearLogFile();
    for (const auto& record : *records) sendEvent(record);
}

void EventUploadLoop::sendEvent(const QuomiDLog& record) {
    uploader_->sendDLogEvent(record, nullptr, lifetime_.guard([this, record](const Error&) {
        logger_.addQuomiDLogToFile(record.stringFromQuomiDLog(platform_.clock.timeZone()));
    }));
}

std::optional<std::vector<QuomiDLog>> EventUploadLoop::nextBatch() {
    auto batch = logger_.getBatchOfQuomiDLogsFromTmpFile();
    if (!batch || batch->empty()) batch = logger_.getBatchOfQuomiDLogsFromFile();
    if (batch && batch->empty()) batch.reset();
    return batch;
}

bool EventUploadLoop::isInFlight(const std::vector<QuomiDLog>& batch) const {
    if (!currentBatchWithLogs_) return false;
    // Another count stops the upload too: some batch is on its way. Lines are compared, not dates: around New Year a
    // date does not come back from the batch file as it was.
    const auto lineOf = [zone = platform_.clock.timeZone()](const QuomiDLog& record) {
        return record.description(zone);
    };
    return currentBatchWithLogs_->size() != batch.size() ||
           std::ranges::equal(batch, *currentBatchWithLogs_, {}, lineOf, lineOf);
}

void EventUploadLoop::batchArrived() {
    currentBatchWithLogs_.reset();
    logger_.clearTmpLogFile();
    // A batch file that cannot be removed waits for the next firing: going on would send it over and over.
    if (const auto left = logger_.getBatchOfQuomiDLogsFromTmpFile(); left && !left->empty()) return;
    uploadLogsInBatchesFromTmpFile();
}

}  // namespace quomi
