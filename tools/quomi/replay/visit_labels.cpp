#include "tools/quomi/replay/visit_labels.h"

#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/visit/visit.h"
#include "quomi/util/uuid.h"

#include <optional>
#include <variant>

#include <boost/json/array.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace {

std::string textOf(const boost::json::object& object, const char* key) {
    const auto* value = object.if_contains(key);
    return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

}  // namespace

Labels labelsOf(const simulated::Visit& visit) {
    Labels labels;
    const auto* backoffice = std::get_if<simulated::CampaignBackoffice>(&visit.backoffice);
    const auto campaign =
        backoffice == nullptr ? std::nullopt : simulated::Campaign::load(backoffice->campaign.string());
    if (!campaign) return labels;
    for (const auto& entry : campaign->beacons()) {
        const auto& beacon = entry.get_object();
        const auto name = textOf(beacon, "name");
        const auto uuid = Uuid::parse(textOf(beacon, "proximity_uid"));
        const auto* major = beacon.if_contains("major");
        const auto* minor = beacon.if_contains("minor");
        labels[textOf(beacon, "id")] = name;
        if (!uuid || major == nullptr || minor == nullptr || !major->is_int64() || !minor->is_int64()) continue;
        labels[fmt::format("{}/{}-{}", uuid->string(), major->get_int64(), minor->get_int64())] = name;
    }
    for (const auto& geofence : campaign->geofences()) {
        const auto name = textOf(geofence.get_object(), "name");
        if (!name.empty()) labels.emplace(textOf(geofence.get_object(), "id"), name);
    }
    return labels;
}

}  // namespace quomi::tool
