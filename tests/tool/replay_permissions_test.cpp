#include "tests/tool/replay_support.h"

namespace quomi::test {
namespace {

constexpr const char* kUserRequest = "request POST /u_app_users/find_or_create_by_udid.json";

class ReplayPermissionsTest : public testing::Test {
protected:
    /// What a visit leads to from its first second on.
    std::vector<std::string> laterLines(boost::json::object visit) const {
        visit["end"] = 30;
        auto lines = bench.play(visit).allLines();
        std::erase_if(lines, [](const std::string& line) {
            return line.starts_with("0") || line.find("/u_beacons/query.json") != line.npos;
        });
        return lines;
    }

    ReplayBench bench;
};

TEST_F(ReplayPermissionsTest, TheManagerIsMadeAtItsFirstUseAndItsDelegateTraced) {
    const auto lines = laterLines(shopVisit(R"([{"at": 0, "call": "start"},
        {"at": 1, "call": "isQuomiBeaconsServiceEnabled"}, {"at": 1, "call": "isQuomiGeofencesServiceEnabled"},
        {"at": 2, "call": "isLocationServiceEnabled"}, {"at": 2, "call": "isBluetoothEnabled"},
        {"at": 2, "call": "isBackgroundRefreshEnabled"},
        {"at": 3, "notificationRights": {"sound": false}}, {"at": 3, "call": "areAllNotificationRightsGranted"},
        {"at": 3, "call": "isBannerNotificationRightGranted"},
        {"at": 4, "bluetooth": "off"}, {"at": 4, "call": "setEventLogsEnabled", "with": false},
        {"at": 5, "locationServices": false}, {"at": 6, "backgroundRefresh": "denied"},
        {"at": 7, "call": "setBeaconsEnabled", "with": false}, {"at": 7, "call": "setBeaconsEnabled", "with": false},
        {"at": 8, "call": "stop"}])"));
    EXPECT_THAT(
        lines,
        ElementsAre("1 call isQuomiBeaconsServiceEnabled true", "1 delegate bluetoothStatusDidChange true",
                    "1 delegate locationServiceStatusDidChange true", "1 call isQuomiGeofencesServiceEnabled false",
                    "2 call isLocationServiceEnabled true", "2 call isBluetoothEnabled true",
                    "2 call isBackgroundRefreshEnabled true", "3 call areAllNotificationRightsGranted false",
                    "3 call isBannerNotificationRightGranted true",
                    "4 delegate didLogEvent {\"type\":\"bluetooth_state\",\"state\":\"off\"}",
                    "4 delegate bluetoothStatusDidChange false", "4 call setEventLogsEnabled",  //
                    "5 range Quomi beacon", "5 delegate locationServiceStatusDidChange false",
                    "6 delegate backgroundRefreshStatusDidChange false",  //
                    "7 unrange Quomi beacon", "7 unmonitor Quomi beacon",
                    "7 delegate quomiBeaconsServiceStatusDidChange false", "7 call setBeaconsEnabled",
                    "7 delegate quomiBeaconsServiceStatusDidChange false", "7 call setBeaconsEnabled",
                    "8 delegate quomiBeaconsServiceStatusDidChange false",
                    "8 delegate quomiGeofencesServiceStatusDidChange false", "8 call stop"));
}

TEST_F(ReplayPermissionsTest, PromptsLeadToTheSettingsOrToAnAlert) {
    for (const bool page : {true, false}) {
        auto visit = shopVisit(R"([{"at": 1, "call": "showEnableLocationServiceUI"},
            {"at": 2, "call": "showEnableBackgroundRefreshUI"}, {"at": 3, "call": "showEnableBluetoothAlert"}])");
        visit["device"] = boost::json::object{{"settingsURL", page}, {"bluetooth", "off"}};
        visit["app"].as_object()["localization"] = boost::json::object{{"Enable Background Refresh", "Im Hintergrund"}};
        const auto replayed = bench.play(visit);
        EXPECT_EQ(replayed.lines().back(), "3 call showEnableBluetoothAlert");
        EXPECT_EQ(replayed.lines("openURL app-settings:").size(), page ? 2U : 0U);
        if (page) continue;
        EXPECT_THAT(replayed.lines("alert"), ElementsAre("1 alert Enable Location Service", "2 alert Im Hintergrund"));
        std::vector<boost::json::value> messages;
        for (const auto& record : replayed.records) {
            if (const auto* message = record.if_contains("message")) messages.push_back(*message);
        }
        EXPECT_THAT(messages,
                    ElementsAre("Enabling the location service will allow you to get a better shopping "
                                "experience.\nGo to Settings > Privacy > Location Services > Switch On",
                                "Enabling the background refresh will allow you to get a better shopping "
                                "experience.\nGo to Settings > General > Background App Refresh > Switch On"));
    }
}

TEST_F(ReplayPermissionsTest, UsersAreSentWhenTheyChange) {
    const auto lines = laterLines(shopVisit(R"([{"at": 0, "call": "start"},
        {"at": 1, "call": "changeUser", "with": {"userID": "unobserved"}},
        {"at": 2, "call": "setUser", "with": {"userID": "me", "tags": ["a"]}},
        {"at": 3, "call": "setUser", "with": {"userID": "me", "tags": ["a"], "properties": null}},
        {"at": 4, "call": "changeUser", "with": {"tags": ["a"]}},
        {"at": 5, "call": "changeUser", "with": {"properties": {"k": 1}}},
        {"at": 6, "call": "setUser", "with": null}, {"at": 7, "call": "changeUser", "with": {"userID": "nobody"}}])"));
    const auto response = " response 200 /u_app_users/find_or_create_by_udid.json";
    EXPECT_THAT(
        lines,
        ElementsAre("1 call changeUser", std::string("2 ") + kUserRequest, "2 call setUser",
                    std::string("2.05") + response, "2.05 callback setUser success", "3 callback setUser success",
                    "3 call setUser", "4 call changeUser", std::string("5 ") + kUserRequest, "5 call changeUser",
                    std::string("5.05") + response, std::string("6 ") + kUserRequest, "6 call setUser",
                    std::string("6.05") + response, "6.05 callback setUser success", "7 call changeUser"));
}

TEST_F(ReplayPermissionsTest, TokensAndHeadersGoTheirWay) {
    auto visit = shopVisit(R"([
        {"at": 1, "call": "registerCloudMessagingPushNotificationsDeviceToken", "with": "<00 ff>"},
        {"at": 2, "call": "start"},
        {"at": 3, "call": "registerCloudMessagingPushNotificationsDeviceToken", "with": "<00 ff>"},
        {"at": 4, "call": "setServerNotificationRequestHeader", "with": {"name": "X-Shop", "value": null}}])");
    const auto replayed = bench.play(visit);
    EXPECT_THAT(replayed.lines("callback"),
                ElementsAre("1 callback registerCloudMessagingPushNotificationsDeviceToken failure error 7",
                            "3.05 callback registerCloudMessagingPushNotificationsDeviceToken failure error 404"));
    EXPECT_THAT(replayed.lines("request POST https://api.quomi.test"),
                ElementsAre("3 request POST https://api.quomi.test/u_app_users/register_push_token.json"));
    for (const auto& record : replayed.records) {
        if (brief(record).starts_with("3 request")) {
            EXPECT_EQ(record.at("body").at("push_token"), "00ff");
        }
    }
    EXPECT_THAT(replayed.lines("call"), Contains("4 call setServerNotificationRequestHeader"));
}

}  // namespace
}  // namespace quomi::test
