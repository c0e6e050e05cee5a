#pragma once

#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/campaign/campaign_queries.h"
#include "hosts/simulated/campaign/device_report.h"
#include "quomi/util/time.h"

#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace quomi::simulated {

/// One request, taken apart: foreign bytes.
struct CampaignRequest {
    /// HEAD is answered as GET is.
    std::string_view method;
    /// Decoded, without the query.
    std::string path;
    QueryParameter parameter;
    std::string_view body;
    /// Bodies of no type are refused.
    bool hasContentType = true;
};

struct CampaignReply {
    int status = 200;
    /// JSON.
    std::string content;
    /// For a method that the endpoint does not take: the right ones.
    std::string allow;
};

/// {"success": false, "error"} with that status.
[[nodiscard]] CampaignReply refusal(int status, const std::string& error);
/// Status 405 of an endpoint that takes one method only.
[[nodiscard]] CampaignReply wrongMethod(std::string_view right);

/// An endpoint, for people: `path` has perhaps "{namespace}" in it. The example of its query and the body that it takes
/// are those of a real request once "{namespace}", "{uuid}", "{lat}" and "{lng}" are filled; empty where there is none.
struct CampaignEndpoint {
    std::string_view method;
    std::string_view path;
    std::string_view purpose;
    std::string_view query = {};
    std::string_view body = {};
};

/// What a back office answers for one campaign, whatever carries the requests. docs/campaign.md lists its endpoints.
/// Any thread may ask.
class CampaignServer {
public:
    /// Takes all that one request of a device brought; false when it could not be kept. Called by the thread that asks.
    using Keep = std::function<bool(const std::vector<Received>& entries)>;

    CampaignServer(Campaign campaign, Keep keep);
    CampaignServer(const CampaignServer&) = delete;
    CampaignServer& operator=(const CampaignServer&) = delete;

    [[nodiscard]] const Campaign& campaign() const { return campaign_; }
    [[nodiscard]] static std::span<const CampaignEndpoint> endpoints();

    /// `now` is when answers begin to be valid and when things count as received.
    [[nodiscard]] CampaignReply answer(const CampaignRequest& request, WallTime now) const;

private:
    struct Call;
    struct Route;
    static std::span<const Route> routes();

    [[nodiscard]] CampaignReply giveApplication(const Call& call) const;
    [[nodiscard]] CampaignReply giveLimits(const Call& call) const;
    [[nodiscard]] CampaignReply giveBeacons(const Call& call) const;
    [[nodiscard]] CampaignReply giveGeofences(const Call& call) const;
    template <ReadBody read>
    [[nodiscard]] CampaignReply take(const Call& call) const;

    const Campaign campaign_;
    const CampaignQueries queries_;
    const Keep keep_;
};

}  // namespace quomi::simulated
