// Bytes of a server's answer through the real transport: whatever they are, the request ends in time, and what it hands
// over keeps to the bounds.
#include "fuzz/fuzz_input.h"
#include "hosts/posix/run_loop.h"
#include "quomi/api/curl_transport.h"

#include <array>
#include <chrono>
#include <cstdint>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <variant>

namespace quomi::fuzz {
namespace {

constexpr std::uint64_t kLongestBody = 100'000;

/// Sends the bytes to whoever asks, and closes.
class Server {
public:
    Server() : listener_(::socket(AF_INET, SOCK_STREAM, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* raw = reinterpret_cast<sockaddr*>(&address);
        require(::bind(listener_, raw, size) == 0 && ::listen(listener_, 64) == 0);
        require(::getsockname(listener_, raw, &size) == 0);
        port_ = ntohs(address.sin_port);
        std::thread([this] { serve(); }).detach();  // for as long as the process lives
    }
    void setAnswer(std::string answer) {
        const std::lock_guard lock(mutex_);
        answer_ = std::move(answer);
    }
    [[nodiscard]] std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/"; }

private:
    void serve() {
        for (;;) {
            const int client = ::accept(listener_, nullptr, nullptr);
            if (client < 0) continue;
            std::array<char, 4096> request{};
            if (::recv(client, request.data(), request.size(), 0) > 0) {
                const std::lock_guard lock(mutex_);
                [[maybe_unused]] const auto sent = ::send(client, answer_.data(), answer_.size(), MSG_NOSIGNAL);
            }
            ::shutdown(client, SHUT_WR);
            while (::recv(client, request.data(), request.size(), 0) > 0) {
            }
            ::close(client);
        }
    }

    int listener_;
    int port_ = 0;
    std::mutex mutex_;
    std::string answer_;
};

void exchange(std::string answer) {
    static Server server;
    static posix::RunLoop loop;
    // A proxy, so that no redirect leads anywhere else.
    static CurlTransport transport(loop, [] {
        CurlTransportOptions options;
        options.proxy = server.url();
        return options;
    }());
    server.setAnswer(std::move(answer));
    HttpRequest request{"POST", server.url(), {{"Accept", "application/json"}}, "{}", std::chrono::milliseconds(200)};
    request.maxResponseBytes = kLongestBody;
    std::optional<HttpResult> result;
    const auto begin = std::chrono::steady_clock::now();
    const auto task = transport.send(request, [&](HttpResult given) { result = std::move(given); });
    loop.runUntil([&] { return result.has_value(); }, std::chrono::seconds(9));
    require(result.has_value());
    require(std::chrono::steady_clock::now() - begin < std::chrono::seconds(5));
    if (const auto* response = std::get_if<HttpResponse>(&*result)) require(response->body.size() <= kLongestBody);
}

}  // namespace
}  // namespace quomi::fuzz

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    quomi::fuzz::exchange({reinterpret_cast<const char*>(data), size});
    return 0;
}
