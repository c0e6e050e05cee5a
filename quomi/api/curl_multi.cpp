#include "quomi/api/curl_multi.h"

#include <algorithm>
#include <fcntl.h>
#include <limits>
#include <poll.h>
#include <unistd.h>

#include <curl/curl.h>

namespace quomi {
namespace {

/// Once for the process, and never undone: other parts of the host may use libcurl too.
bool initialiseLibrary() {
    static const bool ready = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    return ready;
}

bool makeQuiet(int descriptor) {
    return ::fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0 && ::fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
}

short pollEvents(int what) {
    const int in = (what & CURL_POLL_IN) != 0 ? POLLIN : 0;
    const int out = (what & CURL_POLL_OUT) != 0 ? POLLOUT : 0;
    return static_cast<short>(in | out);
}

/// What libcurl is told; of a broken connection it finds out by using it.
int curlEvents(short events) {
    const int broken = events & (POLLERR | POLLHUP | POLLNVAL);
    const int in = (events & POLLIN) != 0 || broken != 0 ? CURL_CSELECT_IN : 0;
    const int out = (events & POLLOUT) != 0 || broken != 0 ? CURL_CSELECT_OUT : 0;
    return in | out;
}

int millisecondsUntil(CurlMulti::Moment moment) {
    const auto span = std::chrono::ceil<std::chrono::milliseconds>(moment - std::chrono::steady_clock::now()).count();
    return static_cast<int>(std::clamp<decltype(span)>(span, 0, std::numeric_limits<int>::max()));
}

}  // namespace

std::unique_ptr<CurlMulti> CurlMulti::create() {
    std::unique_ptr<CurlMulti> multi(new CurlMulti);
    if (!multi->open()) multi.reset();
    return multi;
}

bool CurlMulti::open() {
    if (!initialiseLibrary() || ::pipe(wakePipe_.data()) != 0) return false;
    if (!makeQuiet(wakePipe_[0]) || !makeQuiet(wakePipe_[1])) return false;
    multi_ = curl_multi_init();
    if (multi_ == nullptr) return false;
    const auto set = [this](CURLMoption option, auto value) {
        return curl_multi_setopt(multi_, option, value) == CURLM_OK;
    };
    const curl_socket_callback socketChanged = [](CURL* easy, curl_socket_t socket, int what, void* self, void* own) {
        return onSocket(easy, socket, what, self, own);
    };
    const curl_multi_timer_callback timerChanged = [](CURLM* multi, long milliseconds, void* self) {
        return onTimer(multi, milliseconds, self);
    };
    // No limits: a transfer that waited for a free connection would spend its timeout waiting.
    return set(CURLMOPT_MAX_HOST_CONNECTIONS, 0L) && set(CURLMOPT_MAX_TOTAL_CONNECTIONS, 0L) &&
           set(CURLMOPT_MAXCONNECTS, 8L) &&  // idle ones kept for reuse
           set(CURLMOPT_SOCKETFUNCTION, socketChanged) && set(CURLMOPT_SOCKETDATA, static_cast<void*>(this)) &&
           set(CURLMOPT_TIMERFUNCTION, timerChanged) && set(CURLMOPT_TIMERDATA, static_cast<void*>(this));
}

CurlMulti::~CurlMulti() {
    curl_multi_cleanup(multi_);
    for (const int end : wakePipe_) {
        if (end >= 0) ::close(end);
    }
}

bool CurlMulti::add(void* easy) {
    return curl_multi_add_handle(multi_, easy) == CURLM_OK;
}

void CurlMulti::remove(void* easy) {
    curl_multi_remove_handle(multi_, easy);
}

const char* CurlMulti::turn(Moment until, const std::function<void(void* easy)>& moved) {
    const auto ready = wait(timer_ ? std::min(until, *timer_) : until);
    for (const auto& [socket, events] : ready) {
        if (const auto* watch = watchOf(socket)) moved(watch->easy);
    }
    int code = CURLM_OK;
    for (const auto& [socket, events] : ready) {
        // What came before may have closed it.
        if (code == CURLM_OK && watchOf(socket) != nullptr) code = act(socket, events);
    }
    if (code == CURLM_OK && timer_ && *timer_ <= std::chrono::steady_clock::now()) {
        timer_.reset();
        code = act(CURL_SOCKET_TIMEOUT, 0);
    }
    return code == CURLM_OK ? nullptr : curl_multi_strerror(static_cast<CURLMcode>(code));
}

std::vector<CurlMulti::Ready> CurlMulti::wait(Moment until) const {
    std::vector<pollfd> waits{{wakePipe_[0], POLLIN, 0}};
    for (const auto& watch : watches_) waits.push_back({watch.socket, pollEvents(watch.events), 0});
    std::vector<Ready> ready;
    if (::poll(waits.data(), static_cast<nfds_t>(waits.size()), millisecondsUntil(until)) <= 0) return ready;
    if (waits.front().revents != 0) clearWakes();
    for (auto it = waits.begin() + 1; it != waits.end(); ++it) {
        if (it->revents != 0) ready.push_back({it->fd, curlEvents(it->revents)});
    }
    return ready;
}

int CurlMulti::act(int socket, int events) {
    int running = 0;
    return curl_multi_socket_action(multi_, socket, events, &running);
}

const CurlMulti::Watch* CurlMulti::watchOf(int socket) const {
    const auto found = std::ranges::find(watches_, socket, &Watch::socket);
    return found == watches_.end() ? nullptr : &*found;
}

std::optional<CurlMulti::Ended> CurlMulti::nextEnded() {
    int left = 0;
    while (const CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg == CURLMSG_DONE) return Ended{message->easy_handle, message->data.result};
    }
    return std::nullopt;
}

void CurlMulti::wake() const {
    // A full pipe wakes as well.
    [[maybe_unused]] const auto written = ::write(wakePipe_[1], "", 1);
}

void CurlMulti::clearWakes() const {
    std::array<char, 64> bytes;
    while (::read(wakePipe_[0], bytes.data(), bytes.size()) > 0) {
    }
}

int CurlMulti::onSocket(void* easy, int socket, int what, void* self, void* /*ignored*/) {
    auto& watches = static_cast<CurlMulti*>(self)->watches_;
    std::erase_if(watches, [socket](const Watch& watch) { return watch.socket == socket; });
    if (what != CURL_POLL_REMOVE) watches.push_back({socket, what, easy});
    return 0;
}

int CurlMulti::onTimer(void* /*multi*/, long milliseconds, void* self) {
    auto& timer = static_cast<CurlMulti*>(self)->timer_;
    timer.reset();
    if (milliseconds >= 0) timer = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    return 0;
}

}  // namespace quomi
