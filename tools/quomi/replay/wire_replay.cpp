#include "tools/quomi/replay/wire_replay.h"

#include "hosts/simulated/gpx/gpx_file.h"
#include "quomi/api/curl_transport.h"
#include "tools/quomi/backoffice/backoffice.h"

#include <memory>
#include <utility>
#include <variant>

namespace quomi::tool {

namespace {

using simulated::CampaignBackoffice;
using simulated::Servers;
using simulated::Visit;
using simulated::VisitError;

/// The wire to a back office in this process.
class OwnServer final : public HttpTransport {
public:
    OwnServer(std::shared_ptr<Backoffice> backoffice, simulated::VirtualLoop& loop)
        : backoffice_(std::move(backoffice)), curl_(loop) {
        backoffice_->setNow([&loop] { return loop.now(); });
    }
    ~OwnServer() override { backoffice_->stop(); }  // it asks the phone for the time
    OwnServer(const OwnServer&) = delete;
    OwnServer& operator=(const OwnServer&) = delete;

    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override {
        return curl_.send(std::move(request), std::move(completion));
    }

private:
    const std::shared_ptr<Backoffice> backoffice_;
    CurlTransport curl_;
};

std::optional<Servers> openCampaign(const Visit& visit, VisitError& error) {
    std::optional<Error> failure;
    auto campaign =
        simulated::Campaign::load(std::get<CampaignBackoffice>(visit.backoffice).campaign.string(), &failure);
    if (!campaign) {
        error = visit.errorAt("$.backoffice.campaign", failure->localizedDescription().value_or(""));
        return std::nullopt;
    }
    const auto backoffice = std::make_shared<Backoffice>(std::move(*campaign));
    if (!backoffice->start()) {
        error = visit.errorAt("$.backoffice.campaign", "no loopback port can be had");
        return std::nullopt;
    }
    return Servers{backoffice->baseUrl(), [backoffice](simulated::VirtualLoop& loop) {
                       return std::make_unique<OwnServer>(backoffice, loop);
                   }};
}

}  // namespace

simulated::ReplayOptions wireReplay(const Visit& visit, std::filesystem::path state,
                                    const std::optional<std::string>& server) {
    simulated::ReplayOptions options;
    options.state = std::move(state);
    options.readTrack = simulated::readGpxFile;
    if (server) {
        options.openServers = [server](const Visit&, VisitError&) {
            return Servers{*server, [](simulated::VirtualLoop& loop) { return std::make_unique<CurlTransport>(loop); }};
        };
    } else if (std::holds_alternative<CampaignBackoffice>(visit.backoffice)) {
        options.openServers = openCampaign;
    }
    return options;
}

}  // namespace quomi::tool
