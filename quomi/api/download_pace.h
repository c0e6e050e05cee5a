#pragma once

#include "quomi/api/http_transport.h"
#include "quomi/platform/run_loop.h"
#include "quomi/util/time.h"

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace quomi {

/// Keeps downloads that fail from being asked for again and again. Downloads of a kind (one endpoint, whatever the
/// query) share a pace: the first three failures in a row change nothing, then the kind is held for 1, 2, 4 … up to 60
/// seconds, or as long as the server wished if that is longer, a day at most. Host's thread only.
class DownloadPace {
public:
    /// `released` is called when a kind is held no longer because its time has passed. The loop outlives the pace.
    DownloadPace(RunLoop& runLoop, std::function<void()> released);

    [[nodiscard]] bool isHeld(std::string_view kind) const;
    /// True when it is the first of a run of failures.
    bool failed(const std::string& kind, std::optional<Duration> retryAfter);
    /// The kind was answered with something of use.
    void succeeded(const std::string& kind) { kinds_.erase(kind); }
    /// Every run of failures counts as over.
    void reset() { kinds_.clear(); }

private:
    struct Kind {
        int failures = 0;
        std::unique_ptr<Timer> hold;
    };

    RunLoop& runLoop_;
    std::function<void()> released_;
    std::map<std::string, Kind, std::less<>> kinds_;
};

/// What the answer's Retry-After asks for: seconds, or a date. Nothing without one that can be read.
[[nodiscard]] std::optional<Duration> retryAfter(const HttpHeaders& headers, WallTime now);

}  // namespace quomi
