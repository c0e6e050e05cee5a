#pragma once

#include "quomi/diagnostics/event_log.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/run_loop.h"
#include "quomi/util/lifetime.h"
#include "quomi/util/time.h"

#include <memory>
#include <optional>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class Uploader;

/// The event log's way home: writes events to the log file and uploads them in batches, at the first event's time plus
/// 40 s and every 40 s from then on, and at once with an event when the last upload began more than 300 s before.
///
/// A batch stays in the batch file until the server has accepted it; nothing is sent twice at the same time.
/// Host's thread only.
class EventUploadLoop {
public:
    /// The platform outlives the loop.
    explicit EventUploadLoop(const Platform& platform);
    ~EventUploadLoop();
    EventUploadLoop(const EventUploadLoop&) = delete;
    EventUploadLoop& operator=(const EventUploadLoop&) = delete;

    /// Who sends; null (nothing is sent) at first. Outlives the loop or is taken away before it ends.
    void setUploader(Uploader* uploader);
    /// Appends the event to the log file. False when it could not be written: the event is not accepted then.
    bool logEvent(const boost::json::object& event, WallTime date);
    /// Starts the upload of what is in the files, unless the same batch is on its way already.
    void uploadLogsInBatches();
    /// Takes all events out of the log file and sends them one by one; one that does not arrive goes back into it.
    /// Those on their way are in memory only.
    void flushLoggedEventsQueue();

private:
    void uploadLogsInBatchesFromTmpFile();
    void sendEvent(const QuomiDLog& record);
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> nextBatch();
    [[nodiscard]] bool isInFlight(const std::vector<QuomiDLog>& batch) const;
    void batchArrived();

    const Platform& platform_;
    QuomiDLogger logger_;
    Uploader* uploader_ = nullptr;
    std::optional<std::vector<QuomiDLog>> currentBatchWithLogs_;
    std::optional<WallTime> lastUploadedLogsAt_;
    std::unique_ptr<Timer> uploadLogLoopTimer_;
    Lifetime batches_;  // begins anew with the uploader: what an earlier one answers is too late
    const Lifetime lifetime_;
};

}  // namespace quomi
