#include "quomi/model/settings.h"
#include "tests/tool/replay_support.h"

namespace quomi::test {
namespace {

const char* const kBeacons = R"({"query_params": {}, "valid_until": "2099-01-01T00:00:00Z", "remove_ids": [],
    "u_beacons": [{"id": "door", "name": "Door", "proximity_uid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000A2", "major": 1,
        "minor": 1, "start": "2000-01-01T00:00:00Z", "end": "2099-01-01T00:00:00Z", "updated_at": "2020-01-01T00:00:00Z",
        "serial_number": "00000001", "shared_secret": "CANARYsecret", "rules_actions": []}]})";

/// A whole visit, with everything that the SDK must keep to itself, as `quomi replay` plays it.
boost::json::object canaryVisit() {
    auto visit = shopVisit(R"([
        {"at": 0, "call": "start"},
        {"at": 2, "call": "registerCloudMessagingPushNotificationsDeviceToken", "with": "CANARYtoken"},
        {"at": 3, "call": "updateUserInformation"},
        {"at": 4, "enterBeaconRegion": "6B6E1B5A-0C0D-4A6E-9E62-0000000000A2"},
        {"at": 5, "every": 1, "until": 9, "range": [{"uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000A2", "major": 170,
            "minor": 43521, "proximity": "near", "accuracy": 1.5, "rssi": -60}]},
        {"at": 30, "call": "registerCloudMessagingPushNotificationsDeviceToken", "with": "<CANARYtoken>"},
        {"at": 90, "call": "stop"}])");
    visit["device"] = {{"advertisingId", "CANARYid"}, {"advertisingTracking", true}};
    auto& properties = visit["app"].as_object()["properties"].as_object();
    properties["fileLogEnabled"] = properties["enableIDFACollection"] = properties["beaconsEnabled"] = true;
    auto& answers = answersOf(visit);
    answers["GET /u_applications/query.json"].as_object()["json"].as_object()["anti_hacking_protocol"] =
        "rotating_advertisement";
    answers["GET /u_beacons/query.json"] = {{"json", asJson(kBeacons)}};
    answers["POST /u_app_users/register_push_token.json"] =
        asJson(R"([{"status": 500, "json": {"error": "no"}}, {"json": {"success": true}}])");
    return visit;
}

TEST(Guarantees, NoLogHoldsASecret) {
    const ReplayBench bench;
    const auto replayed = bench.play(canaryVisit(), bench.keepState());
    ASSERT_EQ(replayed.status, 0) << replayed.err;
    std::string sent;
    for (auto record : replayed.records) {
        if (record.contains("request") && record.contains("body")) {
            sent += boost::json::serialize(record["body"]);  // what the server is told is no log
            record.erase("body");
        }
        EXPECT_THAT(boost::json::serialize(record), Not(HasSubstr("CANARY")));
    }
    EXPECT_THAT(sent, HasSubstr("CANARYtoken"));
    EXPECT_THAT(sent, HasSubstr("CANARYid"));
    std::string stored;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(bench.state())) {
        if (!entry.is_regular_file()) continue;
        const auto bytes = contentOf(entry.path());
        const bool isStore = entry.path().filename().string().starts_with(kQuomiSQLiteStoreFile);
        if (isStore) stored += bytes;
        EXPECT_THAT(bytes, Not(HasSubstr("CANARYtoken"))) << entry.path();
        EXPECT_THAT(bytes, Not(HasSubstr("CANARYid"))) << entry.path();
        if (!isStore) {
            EXPECT_THAT(bytes, Not(HasSubstr("CANARY"))) << entry.path();
        }
    }
    EXPECT_THAT(stored, HasSubstr("CANARYsecret")) << "the only place where it is kept";
}

}  // namespace
}  // namespace quomi::test
