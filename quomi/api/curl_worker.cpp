#include "quomi/api/curl_worker.h"

#include "quomi/api/curl_transfer.h"

#include <csignal>
#include <limits>
#include <system_error>
#include <utility>

#include <curl/curl.h>

namespace quomi {
namespace {

constexpr const char* kNoResources = "The system has no resources for HTTP requests";

/// Once for the process, and never undone: other parts of the host may use libcurl too.
bool initialiseLibrary() {
    static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return ready;
}

CURLM* makeMulti() {
    if (!initialiseLibrary()) return nullptr;
    CURLM* multi = curl_multi_init();
    if (multi == nullptr) return nullptr;
    // No limits: a transfer that waited for a free connection would spend its timeout waiting.
    curl_multi_setopt(multi, CURLMOPT_MAX_HOST_CONNECTIONS, 0L);
    curl_multi_setopt(multi, CURLMOPT_MAX_TOTAL_CONNECTIONS, 0L);
    curl_multi_setopt(multi, CURLMOPT_MAXCONNECTS, 8L);  // idle ones kept for reuse
    if (curl_multi_wakeup(multi) == CURLM_OK) return multi;
    curl_multi_cleanup(multi);  // a thread that cannot be woken is of no use
    return nullptr;
}

/// The host's signal handlers have no business on this thread, and a broken connection raises SIGPIPE.
void blockSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

}  // namespace

void CurlWorker::CloseMulti::operator()(void* multi) const {
    curl_multi_cleanup(multi);
}

CurlWorker::CurlWorker(CurlTransportOptions options, Deliver deliver)
    : options_(std::move(options)), deliver_(std::move(deliver)), multi_(makeMulti()) {
    if (multi_ == nullptr) return;
    try {
        thread_ = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        multi_.reset();
    }
}

CurlWorker::~CurlWorker() {
    if (!thread_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
        curl_multi_wakeup(multi_.get());
    }
    thread_.join();
}

void CurlWorker::start(std::uint64_t id, HttpRequest request, Deadline deadline) {
    if (!thread_.joinable()) {
        deliver_(id, HttpFailure{HttpFailureKind::connection, kNoResources});
        return;
    }
    const std::lock_guard lock(mutex_);
    started_.push_back({id, std::move(request), deadline});
    curl_multi_wakeup(multi_.get());
}

void CurlWorker::cancel(std::uint64_t id) {
    if (!thread_.joinable()) return;
    const std::lock_guard lock(mutex_);
    cancelled_.push_back(id);
    curl_multi_wakeup(multi_.get());
}

void CurlWorker::run() {
    blockSignals();
    while (!isStopping()) {
        try {
            step();
        } catch (...) {
            failAll(kNoResources);
        }
    }
    while (!transfers_.empty()) remove(transfers_.begin()->first);
    multi_.reset();  // here, where a broken connection raises no signal
}

bool CurlWorker::isStopping() {
    const std::lock_guard lock(mutex_);
    return stopping_;
}

void CurlWorker::step() {
    takeOrders();
    perform();
    collectFinished();
    const CURLMcode code = curl_multi_poll(multi_.get(), nullptr, 0, std::numeric_limits<int>::max(), nullptr);
    if (code == CURLM_OK) return;
    failAll(curl_multi_strerror(code));
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
    auto transfer = std::make_unique<CurlTransfer>(id, std::move(order.request), order.deadline, options_);
    launch(*transfers_.emplace(id, std::move(transfer)).first->second);
}

/// Sends the transfer's next request; a transfer that cannot be sent ends here.
void CurlWorker::launch(CurlTransfer& transfer) {
    if (auto failure = transfer.prepare()) {
        finish(transfer.id(), std::move(*failure));
    } else if (curl_multi_add_handle(multi_.get(), transfer.handle()) != CURLM_OK) {
        finish(transfer.id(), HttpFailure{HttpFailureKind::connection, kNoResources});
    }
}

void CurlWorker::perform() {
    int running = 0;
    const CURLMcode code = curl_multi_perform(multi_.get(), &running);
    if (code != CURLM_OK) failAll(curl_multi_strerror(code));
}

void CurlWorker::collectFinished() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_.get(), &left)) {
        if (message->msg != CURLMSG_DONE) continue;
        const CURLcode code = message->data.result;
        CURL* handle = message->easy_handle;
        void* owner = nullptr;
        curl_easy_getinfo(handle, CURLINFO_PRIVATE, &owner);
        curl_multi_remove_handle(multi_.get(), handle);  // the message dies here
        auto& transfer = *static_cast<CurlTransfer*>(owner);
        if (auto result = transfer.finish(code)) {
            finish(transfer.id(), std::move(*result));
        } else {
            launch(transfer);
        }
    }
}

void CurlWorker::finish(std::uint64_t id, HttpResult result) {
    remove(id);
    deliver_(id, std::move(result));
}

void CurlWorker::remove(std::uint64_t id) {
    const auto found = transfers_.find(id);
    if (found == transfers_.end()) return;
    curl_multi_remove_handle(multi_.get(), found->second->handle());
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
