#include "quomi/api/http_session.h"

#include "quomi/api/url.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/run_loop.h"
#include "quomi/util/host_call.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <utility>
#include <variant>
#include <vector>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

/// So long a download holds up what else waits for its host.
constexpr Duration kDownloadsOwnTime = std::chrono::seconds(4);

HttpSessionFailure failureWith(std::int64_t code, std::string_view description, std::optional<int> status) {
    return {{kHTTPErrorDomain, code, {{kLocalizedDescriptionKey, description}}}, status};
}

struct Caller {
    HttpSession::Success success;
    HttpSession::Failure failure;
};

struct Answer {
    boost::json::value body;
    int status = 0;
};
using Outcome = std::variant<Answer, HttpSessionFailure>;

HttpSessionFailure tooMuch(std::string_view description, std::optional<int> status) {
    auto failure = failureWith(kHTTPErrorInvalidBody, description, status);
    failure.exceedsBound = true;
    return failure;
}

Outcome outcomeOf(const HttpResponse& response, std::uint64_t maxBytes) {
    if (response.status < 200 || response.status > 299) {
        return failureWith(response.status, fmt::format("The server answered with status {}", response.status),
                           response.status);
    }
    if (response.body.size() > maxBytes) {
        return tooMuch(fmt::format("The answer is longer than {} bytes", maxBytes), response.status);
    }
    std::optional<Error> error;
    auto body = parseJsonBody(response.body, &error);
    if (body) return Answer{std::move(*body), response.status};
    if (error->code == kJSONErrorTooLarge) {
        return tooMuch("The answer takes more than four times its length in memory", response.status);
    }
    return failureWith(kHTTPErrorInvalidBody, "The server's answer is no JSON", response.status);
}

Outcome outcomeOf(const HttpResult& result, std::uint64_t maxBytes) {
    if (const auto* response = std::get_if<HttpResponse>(&result)) return outcomeOf(*response, maxBytes);
    const auto& failure = std::get<HttpFailure>(result);
    auto outcome = failureWith(static_cast<std::int64_t>(failure.kind), failure.message, failure.status);
    outcome.exceedsBound = failure.kind == HttpFailureKind::unusable;
    return outcome;
}

void report(const Caller& caller, const Outcome& outcome) {
    if (const auto* answer = std::get_if<Answer>(&outcome)) {
        callHost(caller.success, answer->body, answer->status);
    } else {
        callHost(caller.failure, std::get<HttpSessionFailure>(outcome));
    }
}

/// Has the answer taken. Why the download failed, if it did.
std::optional<Error> failureOf(const HttpSession::Download& download, const Outcome& outcome) {
    const auto* answer = std::get_if<Answer>(&outcome);
    if (answer == nullptr) return std::get<HttpSessionFailure>(outcome).error;
    std::optional<Error> failure;
    callHost(download.take, answer->body, answer->status, &failure);
    return failure;
}

/// What the server wishes that does not answer as it should.
std::optional<Duration> wishedPause(const HttpResult& result, WallTime now) {
    const auto* response = std::get_if<HttpResponse>(&result);
    return response != nullptr ? retryAfter(response->headers, now) : std::nullopt;
}

}  // namespace

std::optional<boost::json::value> parseJsonBody(const std::string& body, std::optional<Error>* error) {
    if (QuomiUtils::isEmpty(body)) return boost::json::value(nullptr);
    return parseForeignJson(body, error);
}

struct HttpSession::Operation {
    HttpRequest request;
    std::string origin;
    std::vector<Caller> callers;
    std::optional<Download> download;
    std::string kind;                // of a download: its URL without the query
    std::unique_ptr<HttpTask> task;  // set while on the wire
    std::unique_ptr<Timer> ownTime;  // of a download on the wire; when it has passed, others need not wait
    bool letsOthersPass = false;

    /// Nobody is kept who does not listen.
    void add(Success success, Failure failure) {
        if (success || failure) callers.push_back({std::move(success), std::move(failure)});
    }
};

HttpSession::HttpSession(const Platform& platform, HttpSessionOptions options)
    : transport_(platform.http),
      runLoop_(platform.runLoop),
      clock_(platform.clock),
      options_(std::move(options)),
      pace_(platform.runLoop, [this] { startWhatMay(); }) {}

HttpSession::~HttpSession() = default;

void HttpSession::get(const std::string& url, Success success, Failure failure) {
    enqueue({"GET", url, {}, {}}, std::move(success), std::move(failure));
}

void HttpSession::post(const std::string& url, const boost::json::object& body, Success success, Failure failure) {
    enqueue({"POST", url, {}, boost::json::serialize(body)}, std::move(success), std::move(failure));
}

HttpSession::Operation HttpSession::makeOperation(HttpRequest request) const {
    request.headers = options_.headers;
    request.timeout = options_.timeout;
    request.maxResponseBytes = options_.maxResponseBytes;
    // An URL that cannot be one goes to the transport as it is, whose refusal comes back in a later turn.
    if (auto url = normalizedHttpUrl(request.url)) request.url = std::move(*url);
    Operation operation;
    operation.origin = originOf(request.url);
    operation.request = std::move(request);
    return operation;
}

void HttpSession::enqueue(HttpRequest request, Success success, Failure failure) {
    auto operation = makeOperation(std::move(request));
    operation.add(std::move(success), std::move(failure));
    operations_.push_back(std::move(operation));
    startWhatMay();
}

void HttpSession::download(Download download, Success success, Failure failure) {
    auto operation = makeOperation({"GET", download.url, {}, {}});
    operation.kind = operation.request.url.substr(0, operation.request.url.find('?'));
    if (auto* waiting = waitingLike(operation, download.replacesWaiting)) {
        waiting->request = std::move(operation.request);
        return waiting->add(std::move(success), std::move(failure));
    }
    operation.download = std::move(download);
    operation.add(std::move(success), std::move(failure));
    operations_.push_back(std::move(operation));
    startWhatMay();
}

HttpSession::Operation* HttpSession::waitingLike(const Operation& download, bool anyOfItsKind) {
    const auto found = std::ranges::find_if(operations_, [&](const Operation& other) {
        if (!other.download || other.task != nullptr || other.kind != download.kind) return false;
        return anyOfItsKind || other.request.url == download.request.url;
    });
    return found == operations_.end() ? nullptr : &*found;
}

void HttpSession::startWhatMay() {
    if (isSuspended_) return;
    for (auto it = operations_.begin(); it != operations_.end(); ++it) {
        if (it->task == nullptr && !isHeld(*it) && !isBlocked(*it)) send(it);
    }
}

bool HttpSession::isHeld(const Operation& operation) const {
    return operation.download && operation.task == nullptr && pace_.isHeld(operation.kind);
}

bool HttpSession::isBlocked(const Operation& operation) const {
    return std::ranges::any_of(operations_, [&operation](const Operation& other) {
        const bool letsPass = other.letsOthersPass && !operation.download;
        return other.task != nullptr && !letsPass && other.origin == operation.origin;
    });
}

void HttpSession::send(Operations::iterator operation) {
    // The session's end drops the task, and so the position with it.
    operation->task =
        transport_.send(operation->request, [this, operation](const HttpResult& result) { finish(operation, result); });
    if (!operation->download) return;
    operation->ownTime = runLoop_.scheduleOnce(kDownloadsOwnTime, [this, operation] {
        operation->letsOthersPass = true;
        startWhatMay();
    });
}

void HttpSession::finish(Operations::iterator finished, const HttpResult& result) {
    Operations ended;
    ended.splice(ended.begin(), operations_, finished);
    const Operation& operation = ended.front();
    const auto outcome = outcomeOf(result, options_.maxResponseBytes);
    // Whoever is called may cancel everything, or end the session: what is left to do then comes to nothing.
    const auto pace = lifetime_.guard([&](const std::optional<Error>& failure) {
        if (!failure) return pace_.succeeded(operation.kind);
        if (pace_.failed(operation.kind, wishedPause(result, clock_.now()))) {
            callHost(operation.download->failed, *failure);
        }
    });
    const auto tell = lifetime_.guard([&](const Caller& caller) { report(caller, outcome); });
    const auto goOn = lifetime_.guard([this] { startWhatMay(); });
    if (operation.download) {
        callHost(operation.download->ended);
        pace(failureOf(*operation.download, outcome));
    }
    for (const auto& caller : operation.callers) tell(caller);
    goOn();
}

std::size_t HttpSession::requestCount() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(operations_, [this](const Operation& operation) { return !isHeld(operation); }));
}

std::size_t HttpSession::sentCount() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(operations_, [](const Operation& operation) { return operation.task != nullptr; }));
}

void HttpSession::cancelAll() {
    lifetime_.renew();
    Operations dropped;
    dropped.swap(operations_);
}

void HttpSession::setSuspended(bool suspended) {
    const bool isBack = isSuspended_ && !suspended;
    isSuspended_ = suspended;
    if (isBack) pace_.reset();
    startWhatMay();
}

void HttpSession::forgetFailures() {
    pace_.reset();
    startWhatMay();
}

}  // namespace quomi
