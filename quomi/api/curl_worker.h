#pragma once

#include "quomi/api/curl_transport.h"

#include <chrono>
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
    using Deadline = std::chrono::steady_clock::time_point;

    CurlWorker(CurlTransportOptions options, Deliver deliver);

    /// Cancels what is in flight and joins the thread.
    ~CurlWorker();
    CurlWorker(const CurlWorker&) = delete;
    CurlWorker& operator=(const CurlWorker&) = delete;

    void start(std::uint64_t id, HttpRequest request, Deadline deadline);
    void cancel(std::uint64_t id);

private:
    struct Order {
        std::uint64_t id = 0;
        HttpRequest request;
        Deadline deadline;
    };
    struct CloseMulti {
        void operator()(void* multi) const;
    };

    void run();
    [[nodiscard]] bool isStopping();
    void step();
    void takeOrders();
    void begin(Order order);
    void perform();
    void collectFinished();
    void launch(CurlTransfer& transfer);
    void finish(std::uint64_t id, HttpResult result);
    void remove(std::uint64_t id);
    void failAll(const char* reason);

    const CurlTransportOptions options_;
    const Deliver deliver_;
    std::unique_ptr<void, CloseMulti> multi_;  // a CURLM; null when the system has no room for one
    std::unordered_map<std::uint64_t, std::unique_ptr<CurlTransfer>> transfers_;  // worker's thread only

    std::mutex mutex_;  // guards the three below
    std::vector<Order> started_;
    std::vector<std::uint64_t> cancelled_;
    bool stopping_ = false;

    std::thread thread_;
};

}  // namespace quomi
