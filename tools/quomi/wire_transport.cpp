#include "tools/quomi/wire_transport.h"

#include "quomi/api/http_session.h"
#include "quomi/api/url.h"

#include <algorithm>
#include <utility>

namespace quomi::tool {

namespace {

simulated::ResponseOutcome outcomeOf(const HttpResult& result) {
    if (const auto* response = std::get_if<HttpResponse>(&result)) {
        const bool success = response->status >= 200 && response->status <= 299;
        if (success && !parseJsonBody(response->body)) return "invalid";
        return response->status;
    }
    switch (std::get<HttpFailure>(result).kind) {
        case HttpFailureKind::timeout:
            return "timeout";
        case HttpFailureKind::tls:
            return "tls";
        case HttpFailureKind::connection:
            break;
    }
    return "connection";
}

}  // namespace

struct WireTransport::Exchange {
    std::string url;
    Completion completion;  // empty once cancelled
    std::optional<HttpResult> result;
    std::unique_ptr<HttpTask> onTheWire;
    std::unique_ptr<Timer> answer;
};

/// What the SDK holds: dropping it cancels the exchange.
class WireTransport::Task final : public HttpTask {
public:
    Task(std::shared_ptr<Exchange> exchange, const simulated::PhoneObserver& observer)
        : exchange_(std::move(exchange)), observer_(observer) {}
    ~Task() override {
        if (!exchange_->completion) return;
        exchange_->completion = nullptr;
        exchange_->answer.reset();
        exchange_->onTheWire.reset();
        exchange_->result.emplace(HttpFailure{});
        simulated::tell(observer_.response, exchange_->url, simulated::ResponseOutcome("cancelled"));
    }

private:
    std::shared_ptr<Exchange> exchange_;
    const simulated::PhoneObserver& observer_;
};

WireTransport::WireTransport(simulated::VirtualLoop& loop, std::string server, StandIns standIns,
                             simulated::PhoneObserver observer)
    : loop_(loop),
      server_(std::move(server)),
      standIns_(std::move(standIns)),
      observer_(std::move(observer)),
      curl_(loop) {}

WireTransport::~WireTransport() = default;

std::optional<std::string> WireTransport::realUrl(const std::string& url) const {
    const auto standIns = standIns_();
    for (const auto& base : standIns) {
        const std::string prefix = joinUrl(base, "/");
        if (url.starts_with(prefix)) return joinUrl(server_, "/" + url.substr(prefix.size()));
    }
    for (const auto& base : standIns) {
        const auto origin = originOf(base);
        if (originOf(url) == origin) return server_ + url.substr(origin.size());
    }
    return std::nullopt;
}

std::unique_ptr<HttpTask> WireTransport::send(HttpRequest request, Completion completion) {
    simulated::tell(observer_.request, request);
    auto exchange = std::make_shared<Exchange>();
    exchange->url = request.url;
    exchange->completion = std::move(completion);
    exchanges_.push_back(exchange);
    if (auto url = realUrl(request.url)) {
        request.url = std::move(*url);
        request.timeout = kLongestWait;
        exchange->onTheWire = curl_.send(std::move(request), [this, weak = std::weak_ptr(exchange)](HttpResult result) {
            if (const auto ended = weak.lock()) arrived(ended, std::move(result));
        });
    } else {
        exchange->result = HttpFailure{HttpFailureKind::connection, "Could not connect to the server."};
        loop_.post([this] { handOver(); });
    }
    return std::make_unique<Task>(exchange, observer_);
}

void WireTransport::arrived(const std::shared_ptr<Exchange>& exchange, HttpResult result) {
    exchange->result = std::move(result);
    handOver();
}

void WireTransport::handOver() {
    while (!exchanges_.empty() && exchanges_.front()->result) {
        const auto exchange = exchanges_.front();
        exchanges_.pop_front();
        if (!exchange->completion) continue;
        exchange->answer = loop_.scheduleAnswer(Duration::zero(), [this, exchange] {
            simulated::tell(observer_.response, exchange->url, outcomeOf(*exchange->result));
            // Taken out first: the task that the SDK drops in its completion is no cancellation any more.
            const auto completion = std::exchange(exchange->completion, nullptr);
            completion(std::move(*exchange->result));
        });
    }
}

void WireTransport::settle() {
    loop_.runTurns();
    while (!loop_.isSuspended()) {
        handOver();
        loop_.runTurns();
        if (exchanges_.empty()) return;
        loop_.waitForPost(std::chrono::milliseconds(100));
        loop_.runTurns();
    }
}

}  // namespace quomi::tool
