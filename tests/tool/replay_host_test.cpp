#include "tests/tool/replay_support.h"

// What the phone does and what the host calls, and what that leaves in the trace.
namespace quomi::test {
namespace {

class ReplayHostTest : public testing::Test {
protected:
    /// Records from t = 1 on, without the events that are logged on the way.
    [[nodiscard]] std::vector<std::string> laterLines(const boost::json::object& visit) const {
        std::vector<std::string> later;
        for (const auto& line : bench.play(visit).lines()) {
            if (line[0] == '0' || line.find("didLogEvent") != std::string::npos) continue;
            const auto user = line.find("/u_app_users/find_or_create_by_udid.json");
            later.push_back(user == std::string::npos ? line : line.substr(0, user) + "USER");
        }
        return later;
    }

    using Rows = Table<const char*, std::string>;
    void expectLines(const Rows& rows) const {
        for (const auto& [steps, lines] : rows) {
            SCOPED_TRACE(steps);
            auto visit = shopVisit(std::string(R"([{"at": 0, "call": "start"},)") + steps + "]");
            visit["end"] = 10;
            EXPECT_EQ(laterLines(visit), parts(lines));
        }
    }

    ReplayBench bench;
};

TEST_F(ReplayHostTest, PhoneStepsReachAStartedSdk) {
    const char* const kDenied =
        "1 console Quomi SDK Error: could not start monitoring for beacon region, got error "
        "kCLErrorRegionMonitoringDenied.";
    expectLines(
        {{R"({"at": 1, "range": [
                 {"uuid": "B1", "major": 1, "minor": 9, "proximity": "far", "accuracy": 9, "rssi": -80},
                 {"uuid": "B2", "major": 1, "minor": 8, "proximity": "near", "accuracy": 1, "rssi": -60},
                 {"uuid": "B1", "major": 2, "minor": 7, "proximity": "near", "accuracy": 1, "rssi": -60}]})",
          "1 delegate didFindNewBeacon 1-9 | 1 delegate didReceivePingFromBeacon 1-9 | "
          "1 delegate didFindNewBeacon 2-7 | 1 delegate didReceivePingFromBeacon 2-7 | "
          "5.05 delegate didLoseBeaconSignal 1-9 | 5.05 delegate didLoseBeaconSignal 2-7"},
         {R"({"at": 1, "range": []})", ""},
         {R"({"at": 1, "enterBeaconRegion": "b1"})", "1 range Quomi beacon | 1 delegate didEnterBeaconRegion B1"},
         {R"({"at": 1, "enterBeaconRegion": "B2"})", ""},
         {R"({"at": 1, "exitBeaconRegion": "B1"})", "1 delegate didExitBeaconRegion B1"},
         {R"({"at": 1, "beaconRegionState": {"uuid": "B1", "state": "inside"}})",
          "1 range Quomi beacon | 1 delegate didEnterBeaconRegion B1"},
         {R"({"at": 1, "beaconRegionState": {"uuid": "B1", "state": "unknown"}})", ""},
         {R"({"at": 1, "monitoringFails": {"region": "Quomi beacon", "code": 4}})", kDenied},
         {R"({"at": 1, "monitoringFails": {"region": "B1", "code": 4}})", kDenied},
         {R"({"at": 1, "monitoringFails": {"region": "another", "code": 4}})", ""},
         {R"({"at": 1, "rangingFails": {"region": "Quomi beacon", "code": 16}})", ""},
         {R"({"at": 1, "locationFails": {"code": 0}})", ""},
         {R"({"at": 1, "authorization": "denied"}, {"at": 2, "enterBeaconRegion": "B1"},
                 {"at": 3, "authorization": "whenInUse"}, {"at": 4, "exitBeaconRegion": "B1"})",
          "1 console Quomi SDK Warning: Location services status changed and are not available anymore. Beacon "
          "support will restart when location services become available again. | "
          "3 range Quomi beacon | 4 delegate didExitBeaconRegion B1"},
         // An authorization callback with the status as it stands follows the switch.
         {R"({"at": 1, "locationServices": false}, {"at": 2, "enterBeaconRegion": "B1"},
                 {"at": 3, "locationServices": true})",
          "1 range Quomi beacon | 3 range Quomi beacon"},
         {R"({"at": 1, "app": "background"}, {"at": 2, "expireBackgroundTasks": true},
                 {"at": 3, "expireBackgroundTasks": true})",
          "1 backgroundTask begin 1 | 2 backgroundTask end 1"},
         {R"({"at": 1, "app": "foreground"}, {"at": 1, "app": "active"}, {"at": 1, "app": "inactive"},
                 {"at": 1, "app": "terminate"}, {"at": 1, "bluetooth": "off"}, {"at": 1, "backgroundRefresh": "denied"},
                 {"at": 1, "notificationRights": {"status": "denied"}})",
          ""}});
}

TEST_F(ReplayHostTest, CallsLeaveTheirResultAndWhatTheyCause) {
    const std::string kStopped = "1 unrange Quomi beacon | 1 unmonitor Quomi beacon | 1 call stop";
    expectLines({{R"({"at": 1, "call": "start"})",
                  "1 delegate didReceiveErrorNotification error 3 | 1 call start false error 3"},
                 {R"({"at": 1, "call": "stop"}, {"at": 2, "call": "stop"})", kStopped + " | 2 call stop"},
                 {R"({"at": 1, "call": "setAppNamespace", "with": "other"})",
                  "1 delegate didReceiveErrorNotification error 3 | 1 call setAppNamespace"},
                 {R"({"at": 1, "call": "stop"}, {"at": 2, "call": "setAppNamespace", "with": null},
                 {"at": 3, "call": "start"})",
                  kStopped + " | 2 call setAppNamespace | 3 delegate didReceiveErrorNotification error 7 | "
                             "3 call start false error 7"},
                 {R"({"at": 1, "call": "stop"}, {"at": 2, "call": "setBaseURL", "with": "no url"})",
                  kStopped + " | 2 delegate didReceiveErrorNotification error 1 | 2 call setBaseURL"},
                 {R"({"at": 1, "call": "setBeaconsEnabled", "with": false})",
                  "1 unrange Quomi beacon | 1 unmonitor Quomi beacon | 1 call setBeaconsEnabled"},
                 {R"({"at": 1, "call": "setUseExtendedBackgroundRangingTime", "with": true},
                 {"at": 2, "call": "setUseExtendedBackgroundRangingTime", "with": false})",
                  "1 updates standard on | 1 call setUseExtendedBackgroundRangingTime | 2 updates standard off | "
                  "2 call setUseExtendedBackgroundRangingTime"},
                 {R"({"at": 1, "call": "setSetting", "with": {"name": "beaconProximityIdentifier", "value": "other"}},
                 {"at": 2, "call": "stop"}, {"at": 3, "call": "start"})",
                  "1 call setSetting | 2 unrange Quomi beacon | 2 unmonitor Quomi beacon | 2 call stop | 3 request GET "
                  "/u_applications/limits.json | 3 monitor other | 3 range other | "
                  "3 call start true | 3 range other | "
                  "3.05 response 200 /u_applications/limits.json | 3.05 request POST USER | "
                  "3.1 response 200 USER"},
                 {R"({"at": 1, "call": "updateUserInformation"}, {"at": 1, "call": "stop"})",
                  "1 request POST USER | 1 call updateUserInformation | 1 unrange Quomi beacon | "
                  "1 unmonitor Quomi beacon | 1 response cancelled USER | 1 call stop"},
                 {R"({"at": 1, "call": "updateUserInformation"})",
                  "1 request POST USER | 1 call updateUserInformation | 1.05 response 200 USER | "
                  "1.05 callback updateUserInformation success"},
                 {R"({"at": 1, "call": "setEventLogsEnabled", "with": false},
                 {"at": 2, "call": "logEvent", "with": {"a": 1}})",
                  "1 call setEventLogsEnabled | 2 call logEvent"}});
}

TEST_F(ReplayHostTest, PagesAndLinksOfTheHostOpenWithoutAsking) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"},
        {"at": 1, "call": "openWebPageForUrl", "with": "file://help.html"}, {"at": 2, "presentScreen": true},
        {"at": 3, "call": "openWebPageForUrl", "with": "https://shop.test"}, {"at": 4, "presentScreen": false},
        {"at": 5, "closeWebPage": true}, {"at": 6, "call": "openWebPageForUrl", "with": "https://shop.test/x"},
        {"at": 6, "dismissWebPage": true}, {"at": 6.5, "call": "openWebPageForUrl", "with": "https://shop.test/z"},
        {"at": 7, "call": "openDeepLinkForURL", "with": "https://shop.test/y"},
        {"at": 8, "call": "openDeepLinkForURL", "with": "shop://y"}, {"at": 9, "call": "openNotification"},
        {"at": 10, "call": "stop"}, {"at": 11, "call": "openDeepLinkForURL", "with": "https://shop.test/y"}])");
    visit["app"].as_object()["delegate"] =
        asJson(R"({"shouldExecuteOpenWebPageRequest": false, "shouldExecuteOpenDeepLinkRequest": false})");
    visit["app"].as_object()["resources"] = asJson(R"({"help.html": "<p>"})");
    EXPECT_EQ(
        laterLines(visit),
        parts("1 call openWebPageForUrl true | 1 webPage file://help.html | 3 console Quomi SDK Warning: can't "
              "present view controller for web page action, a UIVIewController is already presented by "
              "UIVIewController <UIViewController> | 3 call openWebPageForUrl false | "
              "6 call openWebPageForUrl true | 6 webPage https://shop.test/x | "
              "6.5 call openWebPageForUrl true | 6.5 webPage https://shop.test/z | 7 call openDeepLinkForURL true | "
              "7 openURL https://shop.test/y | 8 call openDeepLinkForURL false | 9 call openNotification | "
              "10 unrange Quomi beacon | 10 unmonitor Quomi beacon | 10 call stop | "
              "11 call openDeepLinkForURL false"));
}

TEST_F(ReplayHostTest, TheDebugLogIsTheResultOfItsCallUntilItIsCleared) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"}, {"at": 1, "app": "active"},
        {"at": 2, "call": "getDebugFileContent"}, {"at": 2, "call": "setFileLogEnabled", "with": false},
        {"at": 3, "call": "clearDebugFile"}, {"at": 4, "call": "getDebugFileContent"}])");
    visit["app"].as_object()["properties"].as_object()["fileLogEnabled"] = true;
    const auto replayed = bench.play(visit, bench.keepState());
    const auto calls = replayed.lines("call getDebugFileContent");
    ASSERT_EQ(calls.size(), 2U);
    EXPECT_THAT(calls[0],
                testing::StartsWith("2 call getDebugFileContent 2026-11-21 08:30:00 +0000 - Quomi SDK successfully "
                                    "started\n"));
    EXPECT_THAT(calls[0], testing::EndsWith("\n2026-11-21 08:30:01 +0000 - applicationDidBecomeActive\n"));
    EXPECT_EQ(calls[1], "4 call getDebugFileContent ");
    EXPECT_TRUE(std::filesystem::exists(bench.state() / "Documents/QuomiLog.txt"));
}

TEST_F(ReplayHostTest, DeviceAndAppAreWhatTheVisitSays) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"}])");
    visit["device"] = asJson(R"({"udid": "abcdefab-0000-0000-0000-00000000000a", "systemName": "iPadOS",
        "systemVersion": "9.3", "model": "iPad", "languages": ["de-AT", "en"], "supportsBeacons": false})");
    auto& app = visit["app"].as_object();
    app["namespace"] = "ignored";
    app["properties"] = asJson(R"({"geofencesEnabled": false, "beaconsEnabled": true, "enableIDFACollection": true})");
    app["settings"] = asJson(R"({"namespace": "shop"})");
    const auto replayed = bench.play(visit);
    EXPECT_THAT(replayed.lines("monitor"), ElementsAre());
    for (const auto& record : replayed.records) {
        if (!record.contains("body") || !record.at("body").as_object().contains("u_app_user")) continue;
        EXPECT_EQ(record.at("body"), asJson(R"({"u_app_user": {"udid": "abcdefab-0000-0000-0000-00000000000a",
            "properties": {}, "u_application_uid": "shop", "advertising_tracking_mode_enabled": true,
            "system_name": "iPadOS", "system_version": "9.3", "sdk_name": "Vellora SDK", "sdk_version": "1.25.1",
            "model": "iPad", "language": "de-AT", "advertising_id": ""}})"));
    }
    EXPECT_EQ(replayed.lines("request POST /u_app_users").size(), 1U);
    // The host sets the base URL and the properties before anybody hears of an error.
    EXPECT_THAT(replayed.lines("console"),
                ElementsAre("0 console Quomi SDK Error: can't turn beaconsEnabled property to YES because device does "
                            "not support beacons"));
}

}  // namespace
}  // namespace quomi::test
