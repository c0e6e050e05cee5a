#include "hosts/simulated/replay/trace_shapes.h"

#include <algorithm>

namespace quomi::simulated {

namespace {

constexpr RecordShape kShapes[] = {
    {"call", "", "result error"},
    {"callback", "", "outcome error"},
    {"request", "", "url headers body?"},
    {"response", "", "url"},
    {"monitor", "", "region"},
    {"unmonitor", "", "region"},
    {"range", "", "region"},
    {"unrange", "", "region"},
    {"updates", "", "on"},
    {"openURL", "", ""},
    {"webPage", "", ""},
    {"console", "", ""},
    {"authorizationRequest", "", ""},
    {"notificationRightsRequest", "", ""},
    {"alert", "", "message"},
    {"category", "", "actions"},
    {"notification", "", "title? subtitle? body? badge? sound? category? userInfo attachments"},
    {"rule", "", "owner trigger decision detail"},
    {"backgroundTask", "", "id"},
    {"defaults", "", "value"},
    {"delegate", "didReceiveErrorNotification", "error"},
    {"delegate", "didLogEvent", "event time"},
    {"delegate", "didEnterBeaconRegion", "uuid userInfo"},
    {"delegate", "didExitBeaconRegion", "uuid userInfo"},
    {"delegate", "didFindNewBeacon", "beacon userInfo"},
    {"delegate", "didLoseBeaconSignal", "beacon userInfo"},
    {"delegate", "didUpdateBeacon", "beacon userInfo"},
    {"delegate", "didReceivePingFromBeacon", "beacon userInfo"},
    {"delegate", "didReceiveLocationChange", "location"},
    {"delegate", "didReceiveEnterRegionNotification", "region"},
    {"delegate", "didReceiveExitRegionNotification", "region"},
    {"delegate", "bluetoothStatusDidChange", "value"},
    {"delegate", "locationServiceStatusDidChange", "value"},
    {"delegate", "backgroundRefreshStatusDidChange", "value"},
    {"delegate", "quomiBeaconsServiceStatusDidChange", "value"},
    {"delegate", "quomiGeofencesServiceStatusDidChange", "value"},
    {"delegate", "shouldExecuteNotificationRequest", "notification triggeredBy answer"},
    {"delegate", "executeNotificationRequest", "notification triggeredBy"},
    {"delegate", "shouldExecuteOpenWebPageRequest", "url triggeredBy answer"},
    {"delegate", "executeOpenWebPageRequest", "url triggeredBy"},
    {"delegate", "shouldExecuteOpenDeepLinkRequest", "url triggeredBy answer"},
    {"delegate", "executeOpenDeepLinkRequest", "url triggeredBy"},
    {"delegate", "shouldExecuteServerNotificationRequest", "url triggeredBy answer"},
    {"delegate", "executeServerNotificationRequest", "url triggeredBy"},
};

}  // namespace

std::vector<RecordField> fieldsOf(const RecordShape& shape) {
    std::vector<RecordField> fields;
    for (auto rest = shape.fields; !rest.empty();) {
        auto name = rest.substr(0, rest.find(' '));
        rest.remove_prefix(std::min(name.size() + 1, rest.size()));
        const bool mayBeMissing = name.ends_with('?');
        if (mayBeMissing) name.remove_suffix(1);
        fields.push_back({name, mayBeMissing});
    }
    return fields;
}

std::span<const RecordShape> recordShapes() {
    return kShapes;
}

}  // namespace quomi::simulated
