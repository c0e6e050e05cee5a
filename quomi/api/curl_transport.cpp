#include "quomi/api/curl_transport.h"

#include "quomi/api/curl_worker.h"
#include "quomi/platform/run_loop.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

namespace quomi {
namespace {

/// Longer than any server is silent, and short enough that no sum of moments overflows.
constexpr Duration kLongestTimeout = std::chrono::hours(24);

}  // namespace

/// The host's side: the completions that still wait, and the worker that serves them. Host's thread only.
class CurlTransport::InFlight {
public:
    static std::shared_ptr<InFlight> create(RunLoop& runLoop, CurlTransportOptions options) {
        auto self = std::make_shared<InFlight>();
        self->worker_ = std::make_unique<CurlWorker>(std::move(options), [weak = std::weak_ptr(self), &runLoop](
                                                                             std::uint64_t id, HttpResult result) {
            runLoop.post([weak, id, result = std::move(result)]() mutable { complete(weak, id, std::move(result)); });
        });
        return self;
    }

    std::uint64_t start(HttpRequest request, Completion completion) {
        request.timeout = std::clamp(request.timeout, Duration::zero(), kLongestTimeout);
        const std::uint64_t id = nextId_++;
        waiting_.emplace(id, std::move(completion));
        worker_->start(id, std::move(request));
        return id;
    }

    void cancel(std::uint64_t id) {
        const auto forgotten = waiting_.extract(id);  // dies last: what it holds may drop the transport
        if (!forgotten.empty()) worker_->cancel(id);
    }

private:
    static void complete(const std::weak_ptr<InFlight>& weak, std::uint64_t id, HttpResult result) {
        auto self = weak.lock();
        if (self == nullptr) return;
        const auto waiting = self->waiting_.extract(id);
        self.reset();  // the completion may drop the transport
        if (!waiting.empty() && waiting.mapped()) waiting.mapped()(std::move(result));
    }

    std::unordered_map<std::uint64_t, Completion> waiting_;
    std::uint64_t nextId_ = 1;
    std::unique_ptr<CurlWorker> worker_;  // last, so that it ends first
};

class CurlTransport::OwnedTask final : public HttpTask {
public:
    OwnedTask(std::weak_ptr<InFlight> inFlight, std::uint64_t id) : inFlight_(std::move(inFlight)), id_(id) {}
    ~OwnedTask() override {
        if (const auto inFlight = inFlight_.lock()) inFlight->cancel(id_);
    }
    OwnedTask(const OwnedTask&) = delete;
    OwnedTask& operator=(const OwnedTask&) = delete;

private:
    std::weak_ptr<InFlight> inFlight_;
    std::uint64_t id_;
};

CurlTransport::CurlTransport(RunLoop& runLoop, CurlTransportOptions options)
    : inFlight_(InFlight::create(runLoop, std::move(options))) {}

CurlTransport::~CurlTransport() = default;

std::unique_ptr<HttpTask> CurlTransport::send(HttpRequest request, Completion completion) {
    return std::make_unique<OwnedTask>(inFlight_, inFlight_->start(std::move(request), std::move(completion)));
}

}  // namespace quomi
