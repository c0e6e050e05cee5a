#include "quomi/sdk/event_upload.h"

#include "quomi/api/uploader.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/clock.h"

#include <algorithm>
#include <string>
#include <system_error>
#include <utility>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

constexpr Duration kUploadInterval = std::chrono::seconds(40);
constexpr Duration kLongestUploadPause = std::chrono::seconds(300);
constexpr int kFailuresWithoutPause = 3;
constexpr int kMostDoublings = 4;  // 640 s

/// The server will not take this batch, however often it comes.
bool isRefusal(const Error& error) {
    return error.domain == kHTTPErrorDomain && (error.code == 413 || error.code == 400 || error.code == 422);
}

}  // namespace

EventUploadLoop::EventUploadLoop(const Platform& platform, DebugLog& debugLog)
    : platform_(platform),
      debugLog_(debugLog),
      errors_(platform.localization),
      logger_(platform.files, platform.clock, platform.console) {}

EventUploadLoop::~EventUploadLoop() = default;

void EventUploadLoop::setUploader(Uploader* uploader) {
    if (uploader_ == uploader) return;
    uploader_ = uploader;
    uploads_.renew();
    currentBatchWithLogs_.reset();
    batchSize_ = QuomiDLogger::kBatchSize;
    failures_ = 0;
}

bool EventUploadLoop::fail(std::optional<Error>* error, const std::string& reason) const {
    assign(error, errors_.errorWithCode(ErrorCode::data, "The event was not logged: " + reason));
    return false;
}

bool EventUploadLoop::logEvent(const boost::json::object& event, WallTime date, std::optional<Error>* error) {
    const auto record = QuomiDLog::ofEvent(event, date);
    if (record.logData->size() > kLargestEvent) {
        return fail(error,
                    fmt::format("it has {} bytes of JSON, {} are allowed", record.logData->size(), kLargestEvent));
    }
    std::error_code failure;
    if (!logger_.addQuomiDLogToFile(record.stringFromQuomiDLog(platform_.clock.timeZone()), failure)) {
        return fail(error, failure == std::errc::timed_out ? "another process holds the event log" : failure.message());
    }
    if (uploadLogLoopTimer_ == nullptr) {
        uploadLogLoopTimer_ = platform_.runLoop.scheduleRepeating(kUploadInterval, [this] { timerFired(); });
    }
    if (lastUploadedLogsAt_ && platform_.clock.now() - *lastUploadedLogsAt_ > std::max(kLongestUploadPause, pause())) {
        uploadLogsInBatches();
    }
    return true;
}

/// How long after the beginning of an upload that failed the next one begins at the earliest, where that is longer than
/// the beat of the timer.
Duration EventUploadLoop::pause() const {
    if (failures_ <= kFailuresWithoutPause) return Duration(0);
    return kUploadInterval * (1 << std::min(failures_ - kFailuresWithoutPause, kMostDoublings));
}

void EventUploadLoop::timerFired() {
    writeBack();
    // A firing may be a little early or late.
    if (platform_.clock.monotonicNow() - lastUploadBegan_ < pause() - kUploadInterval / 2) return;
    uploadLogsInBatches();
}

void EventUploadLoop::uploadLogsInBatches() {
    lastUploadedLogsAt_ = platform_.clock.now();
    lastUploadBegan_ = platform_.clock.monotonicNow();
    uploadLogsInBatchesFromTmpFile();
}

void EventUploadLoop::uploadLogsInBatchesFromTmpFile() {
    if (uploader_ == nullptr) return;
    auto batch = logger_.nextBatch(batchSize_);
    if (!batch || batch->empty() || isInFlight(*batch)) return;
    currentBatchWithLogs_ = std::move(batch);
    uploader_->sendBatchOfLogEvents(*currentBatchWithLogs_, uploads_.guard([this] { batchArrived(); }),
                                    uploads_.guard([this](const Error& error) { batchFailed(error); }));
}

void EventUploadLoop::flushLoggedEventsQueue() {
    if (uploader_ == nullptr) return;
    const auto records = logger_.takeQuomiDLogsFromFile();
    if (!records) return;
    for (const auto& record : *records) sendEvent(record);
}

void EventUploadLoop::sendEvent(const QuomiDLog& record) {
    uploader_->sendDLogEvent(record, nullptr, lifetime_.guard([this, record](const Error&) {
        notArrived_.push_back(record);
        writeBack();
    }));
}

/// As far as the log can be written.
void EventUploadLoop::writeBack() {
    const std::string zone = platform_.clock.timeZone();
    while (!notArrived_.empty() && logger_.addQuomiDLogToFile(notArrived_.front().stringFromQuomiDLog(zone))) {
        notArrived_.pop_front();
    }
}

/// Another count stops the upload too: some batch is on its way.
bool EventUploadLoop::isInFlight(const Batch& batch) const {
    return currentBatchWithLogs_ && (currentBatchWithLogs_->size() != batch.size() || *currentBatchWithLogs_ == batch);
}

void EventUploadLoop::batchArrived() {
    const auto batch = std::exchange(currentBatchWithLogs_, std::nullopt);
    failures_ = 0;
    batchSize_ = std::min(2 * batchSize_, QuomiDLogger::kBatchSize);
    // A batch file that cannot be changed waits for the next firing: going on would send it over and over.
    if (logger_.dropFromBatch(*batch)) uploadLogsInBatchesFromTmpFile();
}

void EventUploadLoop::batchFailed(const Error& error) {
    const auto batch = std::exchange(currentBatchWithLogs_, std::nullopt);
    debugLog_.log("A batch of {} events was not accepted: {}", batch->size(), describe(error));
    if (isRefusal(error) && batch->size() > 1) {
        batchSize_ = batch->size() / 2;
        uploadLogsInBatchesFromTmpFile();
        return;
    }
    ++failures_;
    if (isRefusal(error) && logger_.refuse(batch->front())) uploadLogsInBatchesFromTmpFile();
}

}  // namespace quomi
