#include "hosts/simulated/replay/wire_transport.h"

#include "quomi/api/url.h"

#include <algorithm>
#include <utility>

namespace quomi::simulated {

namespace {

/// In words of its own: those of the HTTP client name ports and milliseconds, and a trace is to be the same every time.
HttpFailure failureOf(const HttpFailure& failure) {
    const auto kind = failure.kind;
    switch (kind) {
        case HttpFailureKind::timeout:
            return {kind, "The request timed out."};
        case HttpFailureKind::tls:
            return {kind, "A secure connection could not be made."};
        case HttpFailureKind::unusable:
            return failure;
        case HttpFailureKind::connection:
            break;
    }
    return {HttpFailureKind::connection, "The connection to the server failed."};
}

}  // namespace

struct WireTransport::Exchange {
    Completion completion;  // empty once cancelled
    std::optional<HttpResult> result;
    std::unique_ptr<HttpTask> onTheWire;
    std::unique_ptr<Timer> answer;
};

/// What the SDK holds: dropping it cancels the exchange.
class WireTransport::Task final : public HttpTask {
public:
    explicit Task(std::shared_ptr<Exchange> exchange) : exchange_(std::move(exchange)) {}
    ~Task() override {
        if (!exchange_->completion) return;
        exchange_->completion = nullptr;
        exchange_->answer.reset();
        exchange_->onTheWire.reset();
        exchange_->result.emplace(HttpFailure{});
    }

private:
    std::shared_ptr<Exchange> exchange_;
};

WireTransport::WireTransport(VirtualLoop& loop, std::string server, StandIns standIns,
                             std::unique_ptr<HttpTransport> wire)
    : loop_(loop), server_(std::move(server)), standIns_(std::move(standIns)), wire_(std::move(wire)) {}

WireTransport::~WireTransport() = default;

std::optional<std::string> WireTransport::realUrl(const std::string& url) const {
    if (!normalizedHttpUrl(url)) return std::nullopt;
    const auto standIns = standIns_();
    for (const auto& base : standIns) {
        const std::string prefix = joinUrl(base, "/");
        if (url.starts_with(prefix)) return joinUrl(server_, "/" + url.substr(prefix.size()));
    }
    for (const auto& base : standIns) {
        const auto origin = originOf(base);
        if (originOf(url) == origin) return joinUrl(server_, url.substr(origin.size()));
    }
    return std::nullopt;
}

std::unique_ptr<HttpTask> WireTransport::send(HttpRequest request, Completion completion) {
    auto exchange = std::make_shared<Exchange>();
    exchange->completion = std::move(completion);
    exchanges_.push_back(exchange);
    if (auto url = realUrl(request.url)) {
        request.url = std::move(*url);
        request.timeout = kLongestWait;
        exchange->onTheWire =
            wire_->send(std::move(request), [this, weak = std::weak_ptr(exchange)](HttpResult result) {
                if (const auto ended = weak.lock()) arrived(ended, std::move(result));
            });
    } else {
        exchange->result = failureOf({});
        loop_.post([this] { handOver(); });
    }
    return std::make_unique<Task>(exchange);
}

void WireTransport::arrived(const std::shared_ptr<Exchange>& exchange, HttpResult result) {
    if (const auto* failure = std::get_if<HttpFailure>(&result)) result = failureOf(*failure);
    exchange->result = std::move(result);
    handOver();
}

void WireTransport::handOver() {
    while (!exchanges_.empty() && exchanges_.front()->result) {
        const auto exchange = exchanges_.front();
        exchanges_.pop_front();
        if (!exchange->completion) continue;
        exchange->answer = loop_.scheduleAnswer(Duration::zero(), [exchange] {
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

}  // namespace quomi::simulated
