#include "quomi/api/curl_worker.h"

#include "quomi/api/curl_transfer.h"

#include <algorithm>
#include <csignal>
#include <system_error>
#include <utility>

namespace quomi {
namespace {

constexpr const char* kNoResources = "The system has no resources for HTTP requests";

/// The host's signal handlers have no business on this thread, and a broken connection raises SIGPIPE.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

}  // namespace

CurlWorker::CurlWorker(CurlTransportOptions options, Deliver deliver)
    : options_(std::move(options)), deliver_(std::move(deliver)), multi_(CurlMulti::create()) {
    if (multi_ == nullptr) return;
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        multi_.reset();
    }
}

CurlWorker::~CurlWorker() {
    if (!thread_.joinable()) return;
    stopping_ = true;
    multi_->wake();
    thread_.join();
}

void CurlWorker::start(std::uint64_t id, HttpRequest request) {
    if (!thread_.joinable()) {
        deliver_(id, HttpFailure{HttpFailureKind::connection, kNoResources});
        return;
    }
    const std::lock_guard lock(mutex_);
    started_.push_back({id, std::move(request), std::chrono::steady_clock::now()});
    multi_->wake();
}

void CurlWorker::cancel(std::uint64_t id) {
    if (!thread_.joinable()) return;
    const std::lock_guard lock(mutex_);
    cancelled_.push_back(id);
    multi_->wake();
}

void CurlWorker::run() {
    blockSignals();
    while (!stopping_) {
        try {
            step();
        } catch (...) {
            failAll(kNoResources);
        }
    }
    while (!transfers_.empty()) remove(transfers_.begin()->first);
}

void CurlWorker::step() {
    takeOrders();
    const auto moved = [](void* easy) { CurlTransfer::of(easy).noteMovement(); };
    const char* failure = multi_->turn(nextDeadline(), moved);
    collectEnded();
    endLate();
    if (failure == nullptr) return;
    failAll(failure);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // a lasting fault must not spin
}

void CurlWorker::takeOrders() {
    std::vector<Order> started;
    std::vector<std::uint64_t> cancelled;
    {
        const std::lock_guard lock(mutex_);
        started.swap(started_);
        cancelled.swap(cancelled_);
    }
    for (Order& order : started) begin(std::move(order));
    for (const std::uint64_t id : cancelled) remove(id);
}

void CurlWorker::begin(Order order) {
    const std::uint64_t id = order.id;
    auto transfer = std::make_unique<CurlTransfer>(id, std::move(order.request), order.sent, options_, stopping_);
    launch(*transfers_.emplace(id, std::move(transfer)).first->second);
}

/// Sends the transfer's next request; a transfer that cannot be sent ends here.
void CurlWorker::launch(CurlTransfer& transfer) {
    if (auto failure = transfer.prepare()) {
        finish(transfer.id(), std::move(*failure));
    } else if (!multi_->add(transfer.handle())) {
        finish(transfer.id(), HttpFailure{HttpFailureKind::connection, kNoResources});
    }
}

CurlMulti::Moment CurlWorker::nextDeadline() const {
    auto next = CurlMulti::Moment::max();
    for (const auto& [id, transfer] : transfers_) next = std::min(next, transfer->deadline());
    return next;
}

void CurlWorker::collectEnded() {
    while (const auto ended = multi_->nextEnded()) {
        multi_->remove(ended->easy);
        auto& transfer = CurlTransfer::of(ended->easy);
        if (auto result = transfer.finish(ended->code)) {
            finish(transfer.id(), std::move(*result));
        } else {
            launch(transfer);
        }
    }
}

void CurlWorker::endLate() {
    std::vector<std::uint64_t> late;
    const auto now = std::chrono::steady_clock::now();
    for (const auto& [id, transfer] : transfers_) {
        if (transfer->deadline() <= now) late.push_back(id);
    }
    for (const std::uint64_t id : late) finish(id, transfers_.at(id)->timeoutFailure());
}

void CurlWorker::finish(std::uint64_t id, HttpResult result) {
    remove(id);
    deliver_(id, std::move(result));
}

void CurlWorker::remove(std::uint64_t id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) return;
    multi_->remove(found->second->handle());
    transfers_.erase(found);
}

void CurlWorker::failAll(const char* reason) {
    while (!transfers_.empty()) {
        try {
            finish(transfers_.begin()->first, HttpFailure{HttpFailureKind::connection, reason});
        } catch (...) {  // NOLINT(bugprone-empty-catch): a run loop that takes nothing leaves nobody to tell
        }
    }
}

}  // namespace quomi
