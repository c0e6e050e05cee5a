#include "quomi/api/server_notification.h"

#include "quomi/api/http_session.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/model/notify_server_response.h"
#include "quomi/model/settings.h"
#include "quomi/platform/console.h"
#include "quomi/platform/platform.h"
#include "quomi/platform/run_loop.h"
#include "quomi/util/host_call.h"
#include "quomi/util/lifetime.h"
#include "quomi/util/number.h"
#include "quomi/util/time.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <fmt/format.h>

namespace quomi {

namespace {

constexpr double kLongestRetryInterval = 30.0;  // seconds
constexpr double kShortestRetryWait = 1.0;      // seconds
// From this try on every interval is the same: doubled so often, the smallest double above zero is beyond 30.
constexpr std::uint64_t kDifferentIntervals = 1100;

}  // namespace

double computeNextRetryIntervalForRetryNumber(std::uint64_t retryNumber, double slotDuration) {
    return std::min(std::ldexp(slotDuration, saturate<int>(retryNumber)), kLongestRetryInterval);
}

double computeRetryScaleForNumberOfRetry(std::uint64_t numberOfRetry, double maxRetryPeriod, double slotDuration) {
    const std::uint64_t different = std::min(numberOfRetry, kDifferentIntervals);
    double sum = 0;
    for (std::uint64_t retry = 0; retry < different; ++retry) {
        sum += computeNextRetryIntervalForRetryNumber(retry, slotDuration);
    }
    if (numberOfRetry > different) {
        sum += static_cast<double>(numberOfRetry - different) *
               computeNextRetryIntervalForRetryNumber(different, slotDuration);
    }
    return sum == 0 ? 1.0 : std::min(maxRetryPeriod / sum, 1.0);
}

/// A notification on its way, from its first try to its end.
struct ServerNotifications::Attempt {
    ServerNotification notification;
    std::uint64_t tryNb = 0;
    std::uint64_t nbOfRetryLeft = 0;
    double slotDuration = 0;
    double scale = 1;
    std::unique_ptr<Timer> retryTimer;
    Lifetime lifetime{};  // ends when the notification is dropped
};

ServerNotifications::ServerNotifications(HttpSession& session, const QuomiSettings& settings, const Platform& platform,
                                         DebugLog& debugLog, const QuomiErrors& errors)
    : session_(session), settings_(settings), platform_(platform), debugLog_(debugLog), errors_(errors) {}

ServerNotifications::~ServerNotifications() {
    cancelAll();
}

void ServerNotifications::send(ServerNotification notification) {
    auto attempt = std::make_shared<Attempt>();
    attempt->notification = std::move(notification);
    attempt->nbOfRetryLeft = settings_.serverNotificationNumberOfRetry;
    attempt->slotDuration = settings_.serverNotificationRetrySlotDuration;
    attempt->scale = computeRetryScaleForNumberOfRetry(
        attempt->nbOfRetryLeft, settings_.serverNotificationMaxRetryPeriod, attempt->slotDuration);
    attempts_.push_back(attempt);
    tryNow(attempt);
}

void ServerNotifications::cancelAll() {
    const auto dropped = std::exchange(attempts_, {});
    for (const auto& attempt : dropped) attempt->lifetime.end();
}

// The request goes through the client's session, so that session's headers and timeout apply. Deliberate: no request
// ever carries the custom headers or the notification timeout of the settings, so there is no session for them here.
void ServerNotifications::tryNow(const Handle& attempt) {
    debugLog_.log("sendServerNotificationToURL {} tryNb = {} nbOfRetryLeft = {}", attempt->notification.url,
                  attempt->tryNb, attempt->nbOfRetryLeft);
    session_.get(attempt->notification.url,
                 attempt->lifetime.guard([this, attempt](const boost::json::value& body, int) {
                     debugLog_.log("Server notification success");
                     treatRequestServerResponse(attempt, body);
                 }),
                 attempt->lifetime.guard(
                     [this, attempt](const HttpSessionFailure& failure) { treatFailure(attempt, failure); }));
}

void ServerNotifications::treatFailure(const Handle& attempt, const HttpSessionFailure& failure) {
    if (!failure.status) {
        forget(attempt);
        return callHost(attempt->notification.ended, nullptr);
    }
    debugLog_.log("Server notification failure, status code = {}", *failure.status);
    if (failure.exceedsBound) {
        platform_.console.log(fmt::format("Quomi SDK Error: {}", describe(failure.error)));
    }
    const bool isFinal = *failure.status >= 400 && *failure.status <= 599;
    if (!isFinal && attempt->nbOfRetryLeft > 0) return retryLater(attempt);
    debugLog_.log("Number of retry exceeded, notifying of server notification failure...");
    callHost(attempt->notification.failure, failure.error);
    if (attempt->lifetime.hasEnded()) return;
    forget(attempt);
    callHost(attempt->notification.ended, nullptr);
}

void ServerNotifications::retryLater(const Handle& attempt) {
    const double interval =
        computeNextRetryIntervalForRetryNumber(attempt->tryNb, attempt->slotDuration) * attempt->scale;
    const double wait = std::max(kShortestRetryWait, interval);
    debugLog_.log("Will retry server notification in {:.2f} seconds", wait);
    ++attempt->tryNb;
    --attempt->nbOfRetryLeft;
    attempt->retryTimer =
        platform_.runLoop.scheduleOnce(toDuration(Seconds(wait)), [this, weak = std::weak_ptr(attempt)] {
            if (const auto waiting = weak.lock()) tryNow(waiting);
        });
}

void ServerNotifications::treatRequestServerResponse(const Handle& attempt, const boost::json::value& response) {
    const auto* dictionary = response.if_object();
    std::optional<Error> error;
    const auto parsed = QuomiNotifyServerResponse::createFromDictionnary(
        dictionary != nullptr ? *dictionary : boost::json::object(), errors_, &error);
    if (parsed) {
        callHost(attempt->notification.success);
        actOn(attempt, *parsed);
    } else {
        callHost(attempt->notification.failure, *error);
    }
    // Whoever was called back may have dropped everything, this object included.
    if (attempt->lifetime.hasEnded()) return;
    forget(attempt);
    callHost(attempt->notification.ended, parsed ? &*parsed : nullptr);
}

void ServerNotifications::actOn(const Handle& attempt, const QuomiNotifyServerResponse& response) {
    if (attempt->lifetime.hasEnded()) return;
    const auto& notification = attempt->notification;
    if (response.decision == kNotifyServerDecisionEnable) callHost(notification.enableBlock);
    if (response.decision == kNotifyServerDecisionDisable) debugLog_.log("Action disabled");
    if (response.decision != kNotifyServerDecisionNotify) return;
    // An action may make the host stop the SDK: each looks whether it is still wanted.
    for (const auto& action : response.orderedActions()) {
        if (!attempt->lifetime.hasEnded()) callHost(notification.perform, action);
    }
}

void ServerNotifications::forget(const Handle& attempt) {
    std::erase(attempts_, attempt);
}

}  // namespace quomi
