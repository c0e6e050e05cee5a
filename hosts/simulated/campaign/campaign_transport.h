#pragma once

#include "quomi/api/http_transport.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/run_loop.h"

#include <memory>
#include <utility>

namespace quomi::simulated {

class CampaignServer;

/// Asks a campaign's server in this process, without a socket: whatever host a URL names, its path and query are
/// answered. An answer comes in a later turn of the same instant. Host's thread.
class CampaignTransport final : public HttpTransport {
public:
    /// Clock and loop outlive it.
    CampaignTransport(std::shared_ptr<const CampaignServer> server, const Clock& clock, RunLoop& loop)
        : server_(std::move(server)), clock_(clock), loop_(loop) {}

    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override;

private:
    const std::shared_ptr<const CampaignServer> server_;
    const Clock& clock_;
    RunLoop& loop_;
};

}  // namespace quomi::simulated
