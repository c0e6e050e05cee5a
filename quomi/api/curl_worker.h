#pragma once

#include "quomi/api/curl_multi.h"
#include "quomi/api/curl_transport.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

namespace quomi {

class CurlTransfer;

/// The transport's thread: carries requests from `start` to a result. Internal to the transport.
///
/// Constructed, called and destroyed on one thread; `deliver` is called on the worker's own, once for each started
/// request that was not cancelled before its result was known. A request cancelled later may still be delivered.
class CurlWorker {
public:
    using Deliver = std::function<void(std::uint64_t id, HttpResult result)>;

    CurlWorker(CurlTransportOptions options, Deliver deliver);

    /// Cancels what is in flight and joins the thread, which stops at the next piece of an answer at the latest.
    ~CurlWorker();
    CurlWorker(const CurlWorker&) = delete;
    CurlWorker& operator=(const CurlWorker&) = delete;

    void start(std::uint64_t id, HttpRequest request);
    void cancel(std::uint64_t id);

private:
    struct Order {
        std::uint64_t id = 0;
        HttpRequest request;
        CurlMulti::Moment sent;
    };

    void run();
    void step();
    void takeOrders();
    void begin(Order order);
    [[nodiscard]] CurlMulti::Moment nextDeadline() const;
    void collectEnded();
    void endLate();
    void launch(CurlTransfer& transfer);
    void finish(std::uint64_t id, HttpResult result);
    void remove(std::uint64_t id);
    void failAll(const char* reason);

    const CurlTransportOptions options_;
    const Deliver deliver_;
    std::unique_ptr<CurlMulti> multi_;  // null when the system has no room for one
    std::unordered_map<std::uint64_t, std::unique_ptr<CurlTransfer>> transfers_;  // worker's thread only
    std::atomic<bool> stopping_ = false;

    std::mutex mutex_;  // guards the two below
    std::vector<Order> started_;
    std::vector<std::uint64_t> cancelled_;

    std::thread thread_;
};

}  // namespace quomi
