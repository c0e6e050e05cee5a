#pragma once

#include "quomi/diagnostics/event_log.h"
#include "quomi/model/errors.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/run_loop.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"
#include "quomi/util/time.h"

#include <cstddef>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class DebugLog;
class Uploader;
struct Error;

/// The event log's way home: writes events to the log file and uploads them in batches, at the first event's time plus
/// 40 s and every 40 s from then on, and at once with an event when the last upload began more than 300 s before.
///
/// A batch stays in the batch file until the server has accepted it; this loop sends nothing twice at the same time.
/// What the server refuses for good (413, 400, 422) is sent again by halves at once, and what it refuses alone three
/// times goes to the file of refused events, so that the others flow. After any other failure the batch waits; from the
/// fourth failure in a row on for 80, 160, 320, then 640 s. Host's thread only.
class EventUploadLoop {
public:
    /// Bytes of the JSON text of an event.
    static constexpr std::size_t kLargestEvent = std::size_t{64} * 1024;

    /// Both outlive the loop. Why a batch failed goes to the debug log.
    EventUploadLoop(const Platform& platform, DebugLog& debugLog);
    ~EventUploadLoop();
    EventUploadLoop(const EventUploadLoop&) = delete;
    EventUploadLoop& operator=(const EventUploadLoop&) = delete;

    /// Who sends; null (nothing is sent) at first. Outlives the loop or is taken away before it ends.
    void setUploader(Uploader* uploader);
    /// Appends the event to the log file. False, with error 600 that says why, when it is larger than `kLargestEvent`,
    /// not UTF-8, or could not be written: the event is not accepted then. Waits up to a second for another process
    /// that uses the log.
    bool logEvent(const boost::json::object& event, WallTime date, std::optional<Error>* error = nullptr);
    /// Starts the upload of what is in the files, unless the same batch is on its way already.
    void uploadLogsInBatches();
    /// Takes all events out of the log file and sends them one by one; one that does not arrive goes back into it, if
    /// need be when the timer fires. Those on their way are in memory only.
    void flushLoggedEventsQueue();

private:
    using Batch = std::vector<QuomiDLog>;

    bool fail(std::optional<Error>* error, const std::string& reason) const;
    void timerFired();
    void uploadLogsInBatchesFromTmpFile();
    void sendEvent(const QuomiDLog& record);
    void writeBack();
    [[nodiscard]] bool isInFlight(const Batch& batch) const;
    void batchArrived();
    void batchFailed(const Error& error);
    [[nodiscard]] Duration pause() const;

    const Platform& platform_;
    DebugLog& debugLog_;
    const QuomiErrors errors_;
    QuomiDLogger logger_;
    Uploader* uploader_ = nullptr;
    std::optional<Batch> currentBatchWithLogs_;
    std::deque<QuomiDLog> notArrived_;  // of a flush; to be written back
    std::optional<WallTime> lastUploadedLogsAt_;
    MonotonicTime lastUploadBegan_{};
    std::unique_ptr<Timer> uploadLogLoopTimer_;
    std::size_t batchSize_ = QuomiDLogger::kBatchSize;  // less while the server refuses
    int failures_ = 0;                                  // in a row
    Lifetime uploads_;  // begins anew with the uploader: what an earlier one answers is too late
    const Lifetime lifetime_;
};

}  // namespace quomi
