#include "hosts/simulated/campaign/campaign_server.h"

#include "hosts/simulated/json/json_writer.h"
#include "hosts/simulated/json/neutral_text.h"

#include <optional>
#include <utility>
#include <vector>

#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi::simulated {
namespace json = boost::json;
namespace {

constexpr std::size_t kShownBytes = 200;

CampaignReply reply(int status, const json::object& answer) {
    return {status, jsonText(answer), {}};
}

/// "success" and then the object's own members.
CampaignReply success(const json::object& object) {
    json::object answer{{"success", true}};
    for (const auto& member : object) answer.insert(member);
    return reply(200, answer);
}

CampaignReply answerOf(const CampaignQueries::Answer& answer, const std::string& fault) {
    return answer ? reply(200, *answer) : refusal(400, fault);
}

constexpr std::string_view kNamespaceSlot = "{namespace}";

/// What stands in the pattern's slot (nothing when it has none), or empty when the path is not of the pattern.
std::optional<std::string_view> slotOf(std::string_view pattern, std::string_view path) {
    const std::size_t at = pattern.find(kNamespaceSlot);
    if (at == std::string_view::npos) return path == pattern ? std::optional(std::string_view()) : std::nullopt;
    const std::string_view before = pattern.substr(0, at);
    const std::string_view after = pattern.substr(at + kNamespaceSlot.size());
    if (path.size() <= before.size() + after.size()) return std::nullopt;
    if (!path.starts_with(before) || !path.ends_with(after)) return std::nullopt;
    return path.substr(at, path.size() - before.size() - after.size());
}

std::optional<CampaignReply> refuseNamespace(const Campaign& campaign, std::string_view name) {
    if (name == campaign.namespaceUid()) return std::nullopt;
    return refusal(404, fmt::format("namespace \"{}\" is unknown", neutralised(name.substr(0, kShownBytes))));
}

std::optional<CampaignReply> refuseNamespaceOf(const Campaign& campaign, const CampaignRequest& request) {
    const auto name = request.parameter("namespace");
    if (!name) return refusal(400, "the query parameter \"namespace\" is missing");
    return refuseNamespace(campaign, *name);
}

}  // namespace

CampaignReply refusal(int status, const std::string& error) {
    return reply(status, {{"success", false}, {"error", error}});
}

CampaignReply wrongMethod(std::string_view right) {
    auto refused = refusal(405, fmt::format("this endpoint answers {} only", right));
    refused.allow = right == "GET" ? "GET, HEAD" : right;
    return refused;
}

struct CampaignServer::Call {
    const CampaignRequest& request;
    std::string_view slot;
    WallTime now;
};

struct CampaignServer::Route {
    CampaignEndpoint endpoint;
    CampaignReply (CampaignServer::*answer)(const Call& call) const;
};

CampaignServer::CampaignServer(Campaign campaign, Keep keep)
    : campaign_(std::move(campaign)), queries_(campaign_), keep_(std::move(keep)) {}

std::span<const CampaignEndpoint> CampaignServer::endpoints() {
    static const auto all = [] {
        std::vector<CampaignEndpoint> list;
        for (const auto& route : routes()) list.push_back(route.endpoint);
        return list;
    }();
    return all;
}

std::span<const CampaignServer::Route> CampaignServer::routes() {
    static constexpr std::string_view exampleUser =
        R"({"u_app_user": {"udid": "00000000-0000-0000-0000-000000000001", "properties": {"ext_id": "ann"}, )"
        R"("u_application_uid": "{namespace}", "advertising_tracking_mode_enabled": false, "system_name": "iOS", )"
        R"("system_version": "17.1", "sdk_name": "curl", "sdk_version": "1.0", "model": "iPhone", "language": "en"}})";
    static constexpr std::string_view exampleEvent =
        R"({"udid": "00000000-0000-0000-0000-000000000001", "date": "2031-05-04 09:30:00 +0000", )"
        R"("data": {"type": "view", "trigger": "on_entry"}})";
    static constexpr std::string_view exampleEvents =
        R"({"udid": "00000000-0000-0000-0000-000000000001", "logs": [)"
        R"({"date": "2031-05-04 09:30:00 +0000", "data": {"type": "view", "trigger": "on_entry"}}, )"
        R"({"date": "2031-05-04 09:31:00 +0000", "data": {"type": "view", "trigger": "on_exit"}}]})";
    static constexpr std::string_view exampleToken =
        R"({"namespace": "{namespace}", "udid": "00000000-0000-0000-0000-000000000001", )"
        R"("push_token": "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"})";
    static constexpr std::string_view exampleAlert =
        R"({"namespace": "{namespace}", "uuid": "{uuid}", "battery_service_id": "70001"})";
    using Self = CampaignServer;
    static constexpr Route table[] = {
        {{"GET", "/u_applications/query.json", "The application record.", "namespace={namespace}"},
         &Self::giveApplication},
        {{"GET", "/u_applications/limits.json", "The limits of all rules together.", "namespace={namespace}"},
         &Self::giveLimits},
        {{"GET", "/u_beacons/query.json",
          "The beacons of a UUID with their rules. Also major, minor; updated_at for those that changed after it.",
          "namespace={namespace}&proximity_uid={uuid}"},
         &Self::giveBeacons},
        {{"GET", "/u_geofences/query.json",
          "The geofences around a position with their rules; the radius is in kilometres. Also updated_at.",
          "namespace={namespace}&lat={lat}&lng={lng}&radius=100"},
         &Self::giveGeofences},
        {{"POST", "/u_app_users/find_or_create_by_udid.json", "Takes the record of a device's user.", "", exampleUser},
         &Self::take<readUserBody>},
        {{"POST", "/u_applications/{namespace}/log.json", "Takes one event.", "", exampleEvent},
         &Self::take<readEventBody>},
        {{"POST", "/u_applications/{namespace}/log_multi.json", "Takes a batch of events.", "", exampleEvents},
         &Self::take<readEventsBody>},
        {{"POST", "/u_app_users/register_push_token.json", "Takes a device's push token.", "", exampleToken},
         &Self::take<readPushTokenBody>},
        {{"POST", "/u_beacon_devices/battery_alert.json", "Takes a beacon's battery alert.", "", exampleAlert},
         &Self::take<readBatteryAlertBody>},
    };
    return table;
}

CampaignReply CampaignServer::answer(const CampaignRequest& request, WallTime now) const {
    const std::string_view method = request.method == "HEAD" ? "GET" : request.method;
    std::string_view allowed;
    for (const auto& [endpoint, answer] : routes()) {
        const auto slot = slotOf(endpoint.path, request.path);
        if (!slot) continue;
        if (endpoint.method == method) return (this->*answer)({request, *slot, now});
        allowed = endpoint.method;
    }
    if (const auto* own = allowed.empty() ? campaign_.answers().if_contains(request.path) : nullptr) {
        if (method == "GET") return reply(200, own->get_object());
        allowed = "GET";
    }
    return allowed.empty() ? refusal(404, "there is no such endpoint; GET / lists them") : wrongMethod(allowed);
}

CampaignReply CampaignServer::giveApplication(const Call& call) const {
    const auto refused = refuseNamespaceOf(campaign_, call.request);
    return refused ? *refused : success(campaign_.application());
}

CampaignReply CampaignServer::giveLimits(const Call& call) const {
    const auto refused = refuseNamespaceOf(campaign_, call.request);
    return refused ? *refused : success(campaign_.limits());
}

CampaignReply CampaignServer::giveBeacons(const Call& call) const {
    if (const auto refused = refuseNamespaceOf(campaign_, call.request)) return *refused;
    std::string fault;
    return answerOf(queries_.beacons(call.request.parameter, call.now, fault), fault);
}

CampaignReply CampaignServer::giveGeofences(const Call& call) const {
    if (const auto refused = refuseNamespaceOf(campaign_, call.request)) return *refused;
    std::string fault;
    return answerOf(queries_.geofences(call.request.parameter, call.now, fault), fault);
}

template <ReadBody read>
CampaignReply CampaignServer::take(const Call& call) const {
    if (!call.request.hasContentType) return refusal(415, "the body has to be of type application/json");
    std::string fault;
    auto body = read(call.request.body, call.now, fault);
    if (!body) return refusal(400, fault);
    const std::string name = body->namespaceUid.value_or(std::string(call.slot));
    if (auto refused = refuseNamespace(campaign_, name)) return *refused;
    if (!keep_(body->entries)) return refusal(500, "it could not be kept");
    return success({});
}

}  // namespace quomi::simulated
