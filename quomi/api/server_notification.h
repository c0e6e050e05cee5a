#pragma once

#include "quomi/util/error.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class DebugLog;
class HttpSession;
class QuomiErrors;
struct HttpSessionFailure;
struct Platform;
struct QuomiAction;
struct QuomiNotifyServerResponse;
struct QuomiSettings;

/// One question to a rule's server, and what becomes of the answer. Callbacks may be empty. They run in this order, in
/// later turns, on the host's thread; each may call the client.
struct ServerNotification {
    std::string url;  ///< absolute
    /// The answer is understood; or the request has failed, or 405 for another answer.
    std::function<void()> success{};
    std::function<void(const Error&)> failure{};
    /// The answer allows the rule's other actions.
    std::function<void()> enableBlock{};
    /// Performs an action that the answer orders in their place.
    std::function<void(const QuomiAction& ordered)> perform{};
    /// For those who only look on: with the server's answer, or null when none could be used.
    std::function<void(const QuomiNotifyServerResponse* answer)> ended{};
};

/// Seconds to wait after the failed try of that number, from 0 on: the slot doubled at each try, at most 30.
[[nodiscard]] double computeNextRetryIntervalForRetryNumber(std::uint64_t retryNumber, double slotDuration);

/// The factor, at most 1, that shrinks the waits so that together they take no longer than the period (seconds). 1 when
/// there are no waits.
[[nodiscard]] double computeRetryScaleForNumberOfRetry(std::uint64_t numberOfRetry, double maxRetryPeriod,
                                                       double slotDuration);

/// Tells servers of rules, tries again, and does what they answer. Host's thread only; callbacks run in later turns.
///
/// A status outside 200..299 and an answer that is no JSON are tried again, except for 400..599, which fails at once.
/// Without an HTTP answer nothing at all happens: deliberate, a phone without network tells no server and asks nothing.
class ServerNotifications {
public:
    /// What it is given outlives it; the session may be one that others use too.
    ServerNotifications(HttpSession& session, const QuomiSettings& settings, const Platform& platform,
                        DebugLog& debugLog, const QuomiErrors& errors);
    ~ServerNotifications();
    ServerNotifications(const ServerNotifications&) = delete;
    ServerNotifications& operator=(const ServerNotifications&) = delete;

    /// Sends it, with the retries that the settings allow at this moment.
    void send(ServerNotification notification);
    /// Drops them all, those between two tries included; nobody is called back.
    void cancelAll();

private:
    struct Attempt;
    using Handle = std::shared_ptr<Attempt>;

    void tryNow(const Handle& attempt);
    void treatFailure(const Handle& attempt, const HttpSessionFailure& failure);
    void retryLater(const Handle& attempt);
    void treatRequestServerResponse(const Handle& attempt, const boost::json::value& response);
    void actOn(const Handle& attempt, const QuomiNotifyServerResponse& response);
    void forget(const Handle& attempt);

    HttpSession& session_;
    const QuomiSettings& settings_;
    const Platform& platform_;
    DebugLog& debugLog_;
    const QuomiErrors& errors_;
    std::vector<Handle> attempts_;
};

}  // namespace quomi
