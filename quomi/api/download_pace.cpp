#include "quomi/api/download_pace.h"

#include "quomi/util/text.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>
#include <utility>

#include <curl/curl.h>

namespace quomi {

namespace {

constexpr int kFreeFailures = 3;
constexpr Duration kLongestPause = std::chrono::seconds(60);
constexpr Duration kLongestWish = std::chrono::hours(24);

Duration pauseAfter(int failures) {
    constexpr int kDoublings = 6;  // of a second, which is more than the longest pause
    const int doublings = std::min(failures - kFreeFailures - 1, kDoublings);
    return std::min<Duration>(std::chrono::seconds(1 << doublings), kLongestPause);
}

}  // namespace

DownloadPace::DownloadPace(RunLoop& runLoop, std::function<void()> released)
    : runLoop_(runLoop), released_(std::move(released)) {}

bool DownloadPace::isHeld(std::string_view kind) const {
    const auto found = kinds_.find(kind);
    return found != kinds_.end() && found->second.hold != nullptr;
}

bool DownloadPace::failed(const std::string& name, std::optional<Duration> retryAfter) {
    Kind& kind = kinds_[name];
    ++kind.failures;
    if (kind.failures > kFreeFailures) {
        const auto wish = std::min(retryAfter.value_or(Duration::zero()), kLongestWish);
        kind.hold = runLoop_.scheduleOnce(std::max(pauseAfter(kind.failures), wish), [this, &kind] {
            const auto fired = std::move(kind.hold);
            released_();
        });
    }
    return kind.failures == 1;
}

std::optional<Duration> retryAfter(const HttpHeaders& headers, WallTime now) {
    const auto header = std::ranges::find(headers, "retry-after", &HttpHeaders::value_type::first);
    if (header == headers.end()) return std::nullopt;
    const auto value = trimmed(header->second);
    std::int32_t seconds = 0;
    const auto [end, failure] = std::from_chars(value.data(), value.data() + value.size(), seconds);
    if (failure == std::errc() && end == value.data() + value.size()) return std::chrono::seconds(seconds);
    const std::time_t date = curl_getdate(std::string(value).c_str(), nullptr);
    if (date < 0) return std::nullopt;
    return std::chrono::duration_cast<Duration>(WallTime(std::chrono::seconds(date)) - now);
}

}  // namespace quomi
