#pragma once

#include "hosts/simulated/phone_observer.h"
#include "quomi/platform/clock.h"
#include "quomi/rules/rule_observer.h"
#include "quomi/util/error.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace quomi::simulated {

/// Where a trace goes, record by record.
using TraceSink = std::function<void(const boost::json::object&)>;

/// Whether the trace has records of a delegate operation that tells: "didUpdateBeacon". Empty for all of them.
using TracedOperations = std::function<bool(std::string_view operation)>;

/// Writes the trace of a visit: what the SDK did that the outside could see, one record at a time. docs/traces.md
/// describes every record. One thread.
class Trace {
public:
    /// `clock` stamps the records, counted from its monotonic zero; it outlives the trace.
    Trace(const Clock& clock, TraceSink sink) : clock_(clock), sink_(std::move(sink)) {}

    /// Writes a record: its name and value first, then the fields.
    void write(std::string_view record, boost::json::value value, boost::json::object fields = {}) const;

    /// An observer that writes what an app does to its phone into the trace that `trace` gives at that time: a phone
    /// is made with its observer, and a trace with the phone's clock.
    [[nodiscard]] static PhoneObserver observer(const std::function<const Trace&()>& trace);

private:
    const Clock& clock_;
    TraceSink sink_;
};

/// Fields as the trace writes them.
[[nodiscard]] boost::json::value traceError(const std::optional<Error>& error);
[[nodiscard]] boost::json::object traceRegion(const Region& region);
[[nodiscard]] boost::json::object traceNotification(const NotificationRequest& notification);
/// Owner, trigger, decision and detail.
[[nodiscard]] boost::json::object traceRule(const RuleReport& report);
/// ISO 8601 in UTC with milliseconds.
[[nodiscard]] std::string traceDate(WallTime date);

}  // namespace quomi::simulated
