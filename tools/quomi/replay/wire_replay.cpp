#include "tools/quomi/replay/wire_replay.h"

#include "hosts/simulated/gpx/gpx_file.h"
#include "tools/quomi/backoffice/backoffice.h"
#include "tools/quomi/replay/wire_transport.h"

#include <memory>
#include <utility>
#include <variant>

namespace quomi::tool {

namespace {

using simulated::CampaignBackoffice;
using simulated::ConnectServers;
using simulated::ServerLink;
using simulated::Visit;
using simulated::VisitError;

/// A back office in this process, and the wire to it.
class OwnServer final : public ServerLink {
public:
    OwnServer(std::shared_ptr<Backoffice> backoffice, simulated::VirtualLoop& loop, WireTransport::StandIns baseURLs)
        : backoffice_(std::move(backoffice)), wire_(loop, backoffice_->baseUrl(), std::move(baseURLs)) {
        backoffice_->setNow([&loop] { return loop.now(); });
    }
    ~OwnServer() override { backoffice_->stop(); }  // it asks the phone for the time
    OwnServer(const OwnServer&) = delete;
    OwnServer& operator=(const OwnServer&) = delete;

    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override {
        return wire_.send(std::move(request), std::move(completion));
    }
    void settle() override { wire_.settle(); }

private:
    const std::shared_ptr<Backoffice> backoffice_;
    WireTransport wire_;
};

ConnectServers connectTo(const std::string& server) {
    return [server](simulated::VirtualLoop& loop, WireTransport::StandIns baseURLs) {
        return std::make_unique<WireTransport>(loop, server, std::move(baseURLs));
    };
}

ConnectServers openCampaign(const Visit& visit, VisitError& error) {
    std::optional<Error> failure;
    auto campaign =
        simulated::Campaign::load(std::get<CampaignBackoffice>(visit.backoffice).campaign.string(), &failure);
    if (!campaign) {
        error = visit.errorAt("$.backoffice.campaign", failure->localizedDescription().value_or(""));
        return nullptr;
    }
    const auto backoffice = std::make_shared<Backoffice>(std::move(*campaign));
    if (!backoffice->start()) {
        error = visit.errorAt("$.backoffice.campaign", "no loopback port can be had");
        return nullptr;
    }
    return [backoffice](simulated::VirtualLoop& loop, WireTransport::StandIns baseURLs) {
        return std::make_unique<OwnServer>(backoffice, loop, std::move(baseURLs));
    };
}

}  // namespace

simulated::ReplayOptions wireReplay(const Visit& visit, std::filesystem::path state,
                                    const std::optional<std::string>& server) {
    simulated::ReplayOptions options;
    options.state = std::move(state);
    options.readTrack = simulated::readGpxFile;
    if (server) {
        options.openServers = [server](const Visit&, VisitError&) { return connectTo(*server); };
    } else if (std::holds_alternative<CampaignBackoffice>(visit.backoffice)) {
        options.openServers = openCampaign;
    }
    return options;
}

}  // namespace quomi::tool
