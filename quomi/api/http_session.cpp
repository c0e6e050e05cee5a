#include "quomi/api/http_session.h"

#include "quomi/api/callback.h"
#include "quomi/api/url.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <list>
#include <utility>
#include <variant>
#include <vector>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi {

namespace {

HttpSessionFailure failureWith(std::int64_t code, std::string_view description, std::optional<int> status) {
    return {{kHTTPErrorDomain, code, {{kLocalizedDescriptionKey, description}}}, status};
}

struct Caller {
    HttpSession::Success success;
    HttpSession::Failure failure;
};

struct Operation {
    HttpRequest request;
    std::string origin;
    bool isShared = false;
    std::vector<Caller> callers;
    std::unique_ptr<HttpTask> task;  // set while on the wire
};

struct Answer {
    boost::json::value body;
    int status = 0;
};
using Outcome = std::variant<Answer, HttpSessionFailure>;

Outcome outcomeOf(const HttpResponse& response) {
    if (response.status < 200 || response.status > 299) {
        return failureWith(response.status, fmt::format("The server answered with status {}", response.status),
                           response.status);
    }
    auto body = parseJsonBody(response.body);
    if (!body) return failureWith(kHTTPErrorInvalidBody, "The server's answer is no JSON", response.status);
    return Answer{std::move(*body), response.status};
}

Outcome outcomeOf(const HttpResult& result) {
    if (const auto* response = std::get_if<HttpResponse>(&result)) return outcomeOf(*response);
    const auto& failure = std::get<HttpFailure>(result);
    return failureWith(static_cast<std::int64_t>(failure.kind), failure.message, std::nullopt);
}

void report(const Caller& caller, const Outcome& outcome) {
    if (const auto* answer = std::get_if<Answer>(&outcome)) {
        callBack(caller.success, answer->body, answer->status);
    } else {
        callBack(caller.failure, std::get<HttpSessionFailure>(outcome));
    }
}

}  // namespace

std::optional<boost::json::value> parseJsonBody(const std::string& body) {
    if (QuomiUtils::trim(body).empty()) return boost::json::value(nullptr);
    return parseJson(body);
}

struct HttpSession::Queue : std::enable_shared_from_this<Queue> {
    explicit Queue(HttpTransport& httpTransport) : transport(httpTransport) {}

    void startWhatMay() {
        if (suspended) return;
        for (auto it = operations.begin(); it != operations.end(); ++it) {
            if (it->task == nullptr && !isBusy(it->origin)) send(it);
        }
    }

    [[nodiscard]] bool isBusy(const std::string& origin) const {
        return std::any_of(operations.begin(), operations.end(), [&origin](const Operation& operation) {
            return operation.task != nullptr && operation.origin == origin;
        });
    }

    void send(std::list<Operation>::iterator operation) {
        operation->task =
            transport.send(operation->request, [weak = weak_from_this(), operation](const HttpResult& result) {
                // The queue's end drops the task and so this callback's position with it.
                if (const auto queue = weak.lock()) queue->finish(operation, result);
            });
    }

    void finish(std::list<Operation>::iterator finished, const HttpResult& result) {
        std::list<Operation> ended;
        ended.splice(ended.begin(), operations, finished);
        const auto outcome = outcomeOf(result);
        const auto before = cancellations;
        for (const auto& caller : ended.front().callers) {
            if (cancellations == before) report(caller, outcome);
        }
        startWhatMay();
    }

    /// The equal request that still waits and that others may join; null when there is none.
    [[nodiscard]] Operation* sharedEqualTo(const HttpRequest& request) {
        const auto found = std::find_if(operations.begin(), operations.end(), [&request](const Operation& operation) {
            return operation.isShared && operation.task == nullptr && operation.request.url == request.url;
        });
        return found == operations.end() ? nullptr : &*found;
    }

    HttpTransport& transport;
    bool suspended = false;
    std::size_t cancellations = 0;
    std::list<Operation> operations;
};

HttpSession::HttpSession(HttpTransport& transport, HttpHeaders headers, Duration timeout)
    : headers_(std::move(headers)), timeout_(timeout), queue_(std::make_shared<Queue>(transport)) {}

HttpSession::~HttpSession() {
    cancelAll();
}

void HttpSession::get(const std::string& url, Success success, Failure failure) {
    enqueue({"GET", url, headers_, {}, timeout_}, false, std::move(success), std::move(failure));
}

void HttpSession::getShared(const std::string& url, Success success, Failure failure) {
    enqueue({"GET", url, headers_, {}, timeout_}, true, std::move(success), std::move(failure));
}

void HttpSession::post(const std::string& url, const boost::json::object& body, Success success, Failure failure) {
    enqueue({"POST", url, headers_, boost::json::serialize(body), timeout_}, false, std::move(success),
            std::move(failure));
}

void HttpSession::enqueue(HttpRequest request, bool isShared, Success success, Failure failure) {
    // An URL that cannot be one goes to the transport as it is, whose refusal comes back in a later turn.
    if (auto url = normalizedHttpUrl(request.url)) request.url = std::move(*url);
    Caller caller{std::move(success), std::move(failure)};
    if (Operation* equal = isShared ? queue_->sharedEqualTo(request) : nullptr) {
        equal->callers.push_back(std::move(caller));
        return;
    }
    auto origin = originOf(request.url);
    queue_->operations.push_back({std::move(request), std::move(origin), isShared, {std::move(caller)}, nullptr});
    queue_->startWhatMay();
}

std::size_t HttpSession::requestCount() const {
    return queue_->operations.size();
}

void HttpSession::cancelAll() {
    ++queue_->cancellations;
    std::list<Operation> dropped;
    dropped.swap(queue_->operations);
}

void HttpSession::setSuspended(bool suspended) {
    queue_->suspended = suspended;
    queue_->startWhatMay();
}

}  // namespace quomi
