#pragma once

#include "quomi/diagnostics/event_log.h"
#include "quomi/util/error.h"

#include <functional>
#include <vector>

namespace quomi {

struct BatteryAlert;

/// What waits on the phone, on its way to the server. Of an operation's two callbacks one runs, in a later turn,
/// unless the uploader drops the request; an empty one is not called.
class Uploader {
public:
    virtual ~Uploader() = default;
    /// Sends the records as one batch.
    virtual void sendBatchOfLogEvents(const std::vector<QuomiDLog>& records, std::function<void()> success,
                                      std::function<void(const Error&)> failure) = 0;
    virtual void sendDLogEvent(const QuomiDLog& record, std::function<void()> success,
                               std::function<void(const Error&)> failure) = 0;
    virtual void sendBatteryAlert(const BatteryAlert& alert, std::function<void()> success,
                                  std::function<void(const Error&)> failure) = 0;
};

}  // namespace quomi
