#pragma once

#include <atomic>
#include <mutex>
#include <set>
#include <thread>

#include <httplib.h>

namespace quomi::tool {

/// An HTTP server on 127.0.0.1 that stops at once: connections that a client keeps open, idle or in the middle of a
/// request, do not hold it up. Requests run on up to 32 threads of its own, one per open connection. While further
/// connections wait for a thread, one whose client has kept its thread waiting for 0.05 seconds is closed, and every
/// answer is the last of its connection. An idle connection is closed after 5 seconds in any case.
///
/// A request that runs while `close` is called still gets its answer.
class LoopbackServer final : public httplib::Server {
public:
    LoopbackServer();
    ~LoopbackServer() override;

    /// `answer` gets all requests that are well formed and not too large, without a Content-Type that is not JSON's,
    /// and sets status and content; others get their status and a JSON error from here. `report` gets every request
    /// with its answer, right before the answer is sent. Neither throws. Before `run`.
    void answerWith(Handler answer, Handler report);

    /// Takes the port, 0 for any free one; clients that connect from now on wait. False when it cannot be had. Once.
    bool bind(int port);
    /// Begins to answer. Once, after `bind`.
    void run();
    /// Stops listening, ends every connection and returns when no thread is left. Not from inside a handler.
    void close();
    /// The port that it listens on; 0 before `bind`.
    [[nodiscard]] int port() const { return port_; }

private:
    bool process_and_close_socket(socket_t socket) override;
    bool admit(socket_t socket);
    void dismiss(socket_t socket);

    int port_ = 0;
    std::thread listener_;
    std::mutex mutex_;
    std::set<socket_t> connections_;
    std::atomic<std::size_t> open_{0};
    std::atomic<bool> closing_{false};
    std::atomic<bool> ended_{false};
};

}  // namespace quomi::tool
