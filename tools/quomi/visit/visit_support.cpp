#include "tools/quomi/visit/visit_support.h"

#include <algorithm>

namespace quomi::tool {
namespace {

struct NotYet {
    VisitWord word;
    std::string_view name;
    bool operator==(const NotYet&) const = default;
};

/// What the format has and this version does not play. A line goes when its player is there; readers know them all.
constexpr NotYet kNotYet[] = {
    {VisitWord::step, "enterRegion"},
    {VisitWord::step, "exitRegion"},
    {VisitWord::step, "location"},
    {VisitWord::step, "walk"},
    {VisitWord::call, "areAllNotificationRightsGranted"},
    {VisitWord::call, "changeUser"},
    {VisitWord::call, "isBackgroundRefreshEnabled"},
    {VisitWord::call, "isBannerNotificationRightGranted"},
    {VisitWord::call, "isBluetoothEnabled"},
    {VisitWord::call, "isLocationServiceEnabled"},
    {VisitWord::call, "isQuomiBeaconsServiceEnabled"},
    {VisitWord::call, "isQuomiGeofencesServiceEnabled"},
    {VisitWord::call, "performServerSync"},
    {VisitWord::call, "registerCloudMessagingPushNotificationsDeviceToken"},
    {VisitWord::call, "removeAllData"},
    {VisitWord::call, "resetCounters"},
    {VisitWord::call, "setServerNotificationRequestHeader"},
    {VisitWord::call, "setUser"},
    {VisitWord::call, "showEnableBackgroundRefreshUI"},
    {VisitWord::call, "showEnableBluetoothAlert"},
    {VisitWord::call, "showEnableLocationServiceUI"},
    {VisitWord::call, "triggerLocationUpdate"},
    {VisitWord::call, "updateAllRulesData"},
    {VisitWord::call, "updateLocation"},
};

}  // namespace

bool isSupported(VisitWord word, std::string_view name) {
    return std::ranges::find(kNotYet, NotYet{word, name}) == std::ranges::end(kNotYet);
}

}  // namespace quomi::tool
