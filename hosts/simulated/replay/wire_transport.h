#pragma once

#include "hosts/simulated/virtual_loop.h"
#include "quomi/api/http_transport.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quomi::simulated {

/// Real HTTP for a simulated phone: requests to the app's servers go to one real server, and virtual time stands still
/// while one is on the wire.
///
/// Answers are handed over in the order of sending, whatever the order in which they arrive, so that a replay is the
/// same on every run. A request without an answer after ten real seconds ends as a timeout; one to any other host fails
/// as a connection that cannot be made, unsent. The messages of failures are the same every time, too. Host's thread.
class WireTransport final : public HttpTransport {
public:
    /// Base URLs in force that stand for the real server.
    using StandIns = std::function<std::vector<std::string>()>;

    static constexpr Duration kLongestWait = std::chrono::seconds(10);

    /// `server` is the real server's base URL, `wire` what reaches it. The loop outlives the transport.
    WireTransport(VirtualLoop& loop, std::string server, StandIns standIns, std::unique_ptr<HttpTransport> wire);
    ~WireTransport() override;

    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override;

    /// Requests that are on the wire.
    [[nodiscard]] bool isWaiting() const { return !exchanges_.empty(); }
    /// Runs what the phone has to do at this instant and waits, in real time, until no request is on the wire.
    void settle();

private:
    struct Exchange;
    class Task;

    [[nodiscard]] std::optional<std::string> realUrl(const std::string& url) const;
    void arrived(const std::shared_ptr<Exchange>& exchange, HttpResult result);
    void handOver();

    VirtualLoop& loop_;
    const std::string server_;
    const StandIns standIns_;
    std::deque<std::shared_ptr<Exchange>> exchanges_;  // in the order of sending
    const std::unique_ptr<HttpTransport> wire_;        // last: its callbacks end first
};

}  // namespace quomi::simulated
