#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace quomi {

/// A multi handle of libcurl and the sockets for which it waits. libcurl's own wait does not tell on which sockets
/// something moved, and the silence of a server is measured by that. Internal to the transport; one thread, except
/// `wake`.
class CurlMulti {
public:
    using Moment = std::chrono::steady_clock::time_point;
    /// A request that ended: its CURL, and the CURLcode.
    struct Ended {
        void* easy = nullptr;
        int code = 0;
    };

    /// Null when the system has no room for one.
    [[nodiscard]] static std::unique_ptr<CurlMulti> create();
    ~CurlMulti();
    CurlMulti(const CurlMulti&) = delete;
    CurlMulti& operator=(const CurlMulti&) = delete;

    /// False when libcurl does not take it.
    [[nodiscard]] bool add(void* easy);
    void remove(void* easy);

    /// Waits until something moves, `wake` is called or the moment has come. Tells for which requests bytes moved, then
    /// lets libcurl work. The reason when libcurl cannot go on.
    [[nodiscard]] const char* turn(Moment until, const std::function<void(void* easy)>& moved);
    [[nodiscard]] std::optional<Ended> nextEnded();

    /// Ends the wait of this turn or of the next one. Any thread.
    void wake() const;

private:
    struct Watch {
        int socket = -1;
        int events = 0;  // as libcurl counts them
        void* easy = nullptr;
    };
    struct Ready {
        int socket = -1;
        int events = 0;
    };

    CurlMulti() = default;
    [[nodiscard]] bool open();
    [[nodiscard]] std::vector<Ready> wait(Moment until) const;
    [[nodiscard]] int act(int socket, int events);
    [[nodiscard]] const Watch* watchOf(int socket) const;
    void clearWakes() const;

    static int onSocket(void* easy, int socket, int what, void* self, void* ignored);
    static int onTimer(void* multi, long milliseconds, void* self);

    void* multi_ = nullptr;  // a CURLM
    std::array<int, 2> wakePipe_{-1, -1};
    std::vector<Watch> watches_;
    std::optional<Moment> timer_;  // when libcurl wants to work without a socket
};

}  // namespace quomi
