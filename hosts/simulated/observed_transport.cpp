#include "hosts/simulated/observed_transport.h"

#include "quomi/util/json_readers.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

namespace {

/// What the task and the completion of one request share.
struct Exchange {
    std::string url;
    bool asksForJson = false;
    bool ended = false;
};

bool asksForJson(const HttpRequest& request) {
    const HttpHeaders::value_type json("Accept", "application/json");
    return std::ranges::find(request.headers, json) != request.headers.end();
}

ResponseOutcome outcomeOf(const HttpResult& result, bool asksForJson) {
    if (const auto* failure = std::get_if<HttpFailure>(&result)) {
        switch (failure->kind) {
            case HttpFailureKind::timeout:
                return "timeout";
            case HttpFailureKind::tls:
                return "tls";
            case HttpFailureKind::unusable:
                return "invalid";
            case HttpFailureKind::connection:
                break;
        }
        return "connection";
    }
    const auto& response = std::get<HttpResponse>(result);
    const bool isSuccess = response.status >= 200 && response.status < 300;
    if (asksForJson && isSuccess && !trimmed(response.body).empty() && !parseJson(response.body)) return "invalid";
    return response.status;
}

class ObservedTask final : public HttpTask {
public:
    ObservedTask(std::shared_ptr<Exchange> exchange, const PhoneObserver& observer)
        : exchange_(std::move(exchange)), observer_(observer) {}
    ~ObservedTask() override {
        task_.reset();
        if (!std::exchange(exchange_->ended, true)) tell(observer_.response, exchange_->url, "cancelled");
    }
    ObservedTask(const ObservedTask&) = delete;
    ObservedTask& operator=(const ObservedTask&) = delete;

    void carry(std::unique_ptr<HttpTask> task) { task_ = std::move(task); }

private:
    std::shared_ptr<Exchange> exchange_;
    const PhoneObserver& observer_;
    std::unique_ptr<HttpTask> task_;
};

}  // namespace

ObservedTransport::ObservedTransport(HttpTransport& transport, const PhoneObserver& observer)
    : transport_(transport), observer_(observer) {}

std::unique_ptr<HttpTask> ObservedTransport::send(HttpRequest request, Completion completion) {
    tell(observer_.request, request);
    auto exchange = std::make_shared<Exchange>(Exchange{request.url, asksForJson(request)});
    auto task = std::make_unique<ObservedTask>(exchange, observer_);
    task->carry(transport_.send(std::move(request), [this, exchange, completion = std::move(completion)](auto result) {
        exchange->ended = true;
        if (observer_.response) tell(observer_.response, exchange->url, outcomeOf(result, exchange->asksForJson));
        // Running the completion may drop the task, and with it this function.
        const auto running = completion;
        if (running) running(std::move(result));
    }));
    return task;
}

}  // namespace quomi::simulated
