#include "tools/quomi/replay/playing.h"

#include <array>
#include <atomic>
#include <ostream>

#include <fmt/format.h>

namespace quomi::tool {

namespace {

constexpr std::array kSignals{SIGINT, SIGTERM, SIGHUP};
constexpr unsigned kCallsBetweenLooks = 64;
constexpr std::chrono::milliseconds kFirstShown{1000};
constexpr std::chrono::milliseconds kShownAgain{200};

std::atomic<int> caught{0};

void catchSignal(int signal) {
    int none = 0;
    caught.compare_exchange_strong(none, signal);
}

}  // namespace

Playing::Playing(std::ostream& err, bool showsProgress)
    : err_(err), showsProgress_(showsProgress), next_(Clock::now() + kFirstShown) {
    caught = 0;
    struct sigaction action = {};
    action.sa_handler = catchSignal;
    action.sa_flags = SA_RESTART;
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &action, &before_[i]);
}

Playing::~Playing() {
    hideProgress();
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &before_[i], nullptr);
}

bool Playing::goesOn(Duration at, Duration end) {
    if (signal() != 0) return false;
    if (!showsProgress_ || ++calls_ % kCallsBetweenLooks != 0 || Clock::now() < next_) return true;
    next_ = Clock::now() + kShownAgain;
    const double share = end > Duration::zero() ? toSeconds(at) / toSeconds(end) : 1;
    err_ << fmt::format("\r{:3.0f} %", 100 * share) << std::flush;
    isShown_ = true;
    return true;
}

void Playing::hideProgress() {
    if (!isShown_) return;
    isShown_ = false;
    err_ << "\r\x1b[K" << std::flush;
}

int Playing::signal() {
    return caught;
}

}  // namespace quomi::tool
