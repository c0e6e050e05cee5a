#include "tools/quomi/backoffice/loopback_server.h"

#include <algorithm>
#include <arpa/inet.h>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace quomi::tool {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::size_t kThreads = 32;
constexpr int kWaitingConnections = 128;
constexpr std::chrono::seconds kPatience{5};
constexpr std::chrono::milliseconds kPatienceWhileOthersWait{50};
constexpr std::chrono::milliseconds kSlice{20};

bool isReady(socket_t socket, short events, std::chrono::milliseconds patience) {
    pollfd wanted{socket, events, 0};
    int result = 0;
    do {
        result = ::poll(&wanted, 1, static_cast<int>(patience.count()));
    } while (result < 0 && errno == EINTR);
    return result > 0;
}

/// One connection for its whole life: what arrived beyond a request's end is the beginning of the next.
class Connection final : public httplib::Stream {
public:
    /// Once `closing`, nobody waits for the client any more. `open` counts all connections: beyond `kThreads`, others
    /// wait for this one's thread.
    Connection(socket_t socket, const std::atomic<bool>& closing, const std::atomic<std::size_t>& open)
        : socket_(socket), closing_(closing), open_(open) {}

    bool is_readable() const override { return begin_ < end_ || awaitBytes(); }
    bool is_writable() const override { return waitFor(POLLOUT); }
    /// From here on the time is counted that the next request takes to arrive and its answer to be taken.
    void nextRequest() { waited_ = {}; }

    ssize_t read(char* into, size_t size) override {
        if (begin_ == end_ && !fill()) return failed_ ? -1 : 0;
        const std::size_t number = std::min(size, end_ - begin_);
        std::memcpy(into, buffer_.data() + begin_, number);
        begin_ += number;
        return static_cast<ssize_t>(number);
    }

    ssize_t write(const char* from, size_t size) override {
        return is_writable() ? ::send(socket_, from, size, MSG_NOSIGNAL | MSG_DONTWAIT) : -1;
    }

    void get_remote_ip_and_port(std::string& ip, int& port) const override { describe(::getpeername, ip, port); }
    void get_local_ip_and_port(std::string& ip, int& port) const override { describe(::getsockname, ip, port); }
    socket_t socket() const override { return socket_; }

private:
    /// The time waited is that of the whole request, so that a client gains nothing by sending it byte by byte.
    bool givesWay() const { return open_ > kThreads && waited_ >= kPatienceWhileOthersWait; }

    bool awaitBytes() const { return waitFor(POLLIN) && !givesWay(); }

    bool waitFor(short events) const {
        const auto limit = waited_ + kPatience;
        while (waited_ < limit && !givesWay()) {
            const auto began = SteadyClock::now();
            const bool ready = isReady(socket_, events, kSlice);
            waited_ += SteadyClock::now() - began;
            if (ready) return true;
            if (closing_) return false;
        }
        return false;
    }

    bool fill() {
        failed_ = !awaitBytes();
        if (failed_) return false;
        const ssize_t number = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
        failed_ = number < 0;
        begin_ = 0;
        end_ = number > 0 ? static_cast<std::size_t>(number) : 0;
        return number > 0;
    }

    template <typename NameOf>
    void describe(NameOf nameOf, std::string& ip, int& port) const {
        sockaddr_in address{};
        socklen_t size = sizeof(address);
        std::array<char, INET_ADDRSTRLEN> text{};
        if (nameOf(socket_, reinterpret_cast<sockaddr*>(&address), &size) != 0) return;
        if (::inet_ntop(AF_INET, &address.sin_addr, text.data(), text.size()) == nullptr) return;
        ip = text.data();
        port = ntohs(address.sin_port);
    }

    socket_t socket_;
    const std::atomic<bool>& closing_;
    const std::atomic<std::size_t>& open_;
    mutable SteadyClock::duration waited_{};
    std::array<char, 16384> buffer_{};
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool failed_ = false;
};

void onlyReuseAddress(socket_t socket) {
    const int yes = 1;
    ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
}

/// Counts the connections that are open, those that wait for a thread included.
class CountingPool final : public httplib::ThreadPool {
public:
    explicit CountingPool(std::atomic<std::size_t>& open) : ThreadPool(kThreads), open_(open) {}
    void enqueue(std::function<void()> serve) override {
        ++open_;
        ThreadPool::enqueue([this, serve = std::move(serve)] {
            serve();
            --open_;
        });
    }

private:
    std::atomic<std::size_t>& open_;
};

bool isJson(const std::string& contentType) {
    const auto mediaType = contentType.substr(0, contentType.find_first_of("; \t"));
    return ::strcasecmp(mediaType.c_str(), "application/json") == 0;
}

/// Leaves no request to features that nobody asked for: a compressed body would be unpacked without bound (as it is, it
/// is refused as not being JSON), one that calls itself a form would be taken apart and bounded by 8 KiB, no answer is
/// given in parts, and a request that announces no body has none (the library would wait for one).
void makePlain(httplib::Request& request) {
    request.headers.erase("Content-Encoding");
    if (!isJson(request.get_header_value("Content-Type"))) request.headers.erase("Content-Type");
    request.ranges.clear();
    const bool hasBody = request.has_header("Content-Length") || request.has_header("Transfer-Encoding");
    if (!hasBody) request.set_header("Content-Length", "0");
    // The library would take the body that it does not read for the next request.
    constexpr std::array methodsWithBody{"POST", "PUT", "PATCH"};
    if (!hasBody || std::ranges::find(methodsWithBody, request.method) != methodsWithBody.end()) return;
    request.headers.erase("Connection");
    request.set_header("Connection", "close");
}

const char* whyRefused(int status) {
    constexpr int kBodyTooLarge = 413;
    constexpr int kUrlTooLong = 414;
    if (status == kBodyTooLarge) return R"({"success":false,"error":"the body is too large"})";
    if (status == kUrlTooLong) return R"({"success":false,"error":"the URL is too long"})";
    return R"({"success":false,"error":"the request was not understood"})";
}

}  // namespace

LoopbackServer::LoopbackServer() {
    set_tcp_nodelay(true);
    set_keep_alive_max_count(std::numeric_limits<std::int32_t>::max());
    set_keep_alive_timeout(kPatience.count());
    // The library's own default lets two servers share a port.
    set_socket_options(onlyReuseAddress);
    new_task_queue = [this] { return new CountingPool(open_); };
}

void LoopbackServer::answerWith(Handler answer, Handler report) {
    // Not as a route: the library matches paths by recursion, as deep as the path is long. A request for which it has
    // no route reaches the error handler whole, its body read.
    set_error_handler([answer = std::move(answer), report = std::move(report)](const httplib::Request& request,
                                                                               httplib::Response& response) {
        constexpr int kWithoutRoute = 404;
        if (response.status == kWithoutRoute) {
            answer(request, response);
        } else {
            response.set_content(whyRefused(response.status), "application/json");
        }
        report(request, response);
    });
}

LoopbackServer::~LoopbackServer() {
    close();
}

bool LoopbackServer::bind(int port) {
    const int bound = port == 0 ? bind_to_any_port("127.0.0.1") : (bind_to_port("127.0.0.1", port) ? port : -1);
    if (bound <= 0) return false;
    // The library lets 5 connections wait; each further one would be tried again after a second.
    ::listen(svr_sock_, kWaitingConnections);
    port_ = bound;
    return true;
}

void LoopbackServer::run() {
    listener_ = std::thread([this] {
        listen_after_bind();
        ended_ = true;
    });
    // Until it runs, the library's stop would do nothing.
    while (!is_running() && !ended_) std::this_thread::sleep_for(std::chrono::microseconds(50));
}

void LoopbackServer::close() {
    if (!listener_.joinable()) return;
    {
        const std::lock_guard lock(mutex_);
        closing_ = true;
        for (const socket_t socket : connections_) ::shutdown(socket, SHUT_RD);
    }
    stop();
    listener_.join();
}

bool LoopbackServer::admit(socket_t socket) {
    const std::lock_guard lock(mutex_);
    if (closing_) return false;
    connections_.insert(socket);
    return true;
}

void LoopbackServer::dismiss(socket_t socket) {
    const std::lock_guard lock(mutex_);
    connections_.erase(socket);
    ::shutdown(socket, SHUT_RDWR);
    ::close(socket);
}

bool LoopbackServer::process_and_close_socket(socket_t socket) {
    bool goesOn = admit(socket);
    Connection connection(socket, closing_, open_);
    while (goesOn && !closing_ && connection.is_readable()) {
        bool wantsClose = false;
        bool isLast = open_ > kThreads;
        const auto prepare = [&isLast](httplib::Request& request) {
            makePlain(request);
            if (request.get_header_value("Connection") == "close") isLast = true;
        };
        goesOn = process_request(connection, isLast, wantsClose, prepare) && !wantsClose && !isLast;
        connection.nextRequest();
    }
    dismiss(socket);
    return goesOn;
}

}  // namespace quomi::tool
