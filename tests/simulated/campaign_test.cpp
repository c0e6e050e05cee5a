#include "hosts/simulated/campaign/campaign.h"

#include "tests/support/prelude.h"

namespace quomi::simulated {
namespace {

constexpr const char* kUuid = "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90";

std::string faultOf(const std::string& text) {
    std::optional<Error> error;
    const auto campaign = Campaign::parse(text, "shop.json", &error);
    if (campaign) return "no fault";
    EXPECT_EQ(error->domain, kCampaignErrorDomain);
    return error->localizedDescription().value_or("");
}

std::string replaced(std::string text, std::string_view from, const std::string& to) {
    const std::size_t at = text.find(from);
    return at == std::string::npos ? text : text.replace(at, from.size(), to);
}

std::string inCampaign(const std::string& members) {
    return R"({"application": {"namespace_uid": "shop"}, )" + members + "}";
}

std::string withBeacon(const std::string& members) {
    return inCampaign(R"("beacons": [{"id": "b0", "proximity_uid": ")" + std::string(kUuid) +
                      R"("}, {"id": "b1", "proximity_uid": ")" + std::string(kUuid) + R"(", )" + members + "}]");
}

std::string withRule(const std::string& kind, const std::string& ruleAction) {
    const std::string place =
        kind == "beacons" ? R"("proximity_uid": ")" + std::string(kUuid) + "\"" : R"("radius": 50)";
    return inCampaign("\"" + kind + R"(": [{"id": "p", )" + place + R"(, "rules_actions": [)" + ruleAction + "]}]");
}

TEST(Campaign, OnlyTheApplicationsNamespaceIsRequired) {
    const auto campaign = Campaign::parse(R"({"application": {"namespace_uid": "a.b-c_d~1"}})", "x");
    ASSERT_TRUE(campaign);
    EXPECT_TRUE(campaign->limits().empty());
    EXPECT_TRUE(campaign->beacons().empty());
    EXPECT_TRUE(campaign->geofences().empty());
    EXPECT_TRUE(campaign->removeBeaconIds().empty());
    EXPECT_TRUE(campaign->removeGeofenceIds().empty());
    EXPECT_EQ(campaign->validFor(), std::chrono::hours(24));
}

TEST(Campaign, ReadsWhatDevicesForgetAndHowLongTheyKeepAnswers) {
    const auto campaign = Campaign::parse(
        inCampaign(R"("remove_beacon_ids": ["b"], "remove_geofence_ids": ["g", "h"], "valid_for": 6e2)"), "x");
    ASSERT_TRUE(campaign);
    EXPECT_EQ(campaign->removeBeaconIds(), boost::json::array({"b"}));
    EXPECT_EQ(campaign->removeGeofenceIds(), boost::json::array({"g", "h"}));
    EXPECT_EQ(campaign->validFor(), std::chrono::minutes(10));
}

TEST(Campaign, FaultsNameFilePathAndExpectation) {
    const Table<std::string, const char*, const char*> cases = {
        {"[]", "$: ", "an object"},
        {"{}", "$.application: ", "an object"},
        {inCampaign(R"("beacon": [])"), "$.beacon: ", "\"beacons\""},
        {R"({"application": {}})", "$.application.namespace_uid: ", "letters"},
        {R"({"application": {"namespace_uid": "a/b"}})", "$.application.namespace_uid: ", "found \"a/b\""},
        {R"({"application": {"namespace_uid": "a", "normal_proximity_uuid": "5D1B"}})",
         "$.application.normal_proximity_uuid: ", "a UUID"},
        {R"({"application": {"namespace_uid": "a", "anti_hacking_protocol": "None"}})",
         "$.application.anti_hacking_protocol: ", "\"none\", \"rotating_advertisement\""},
        {R"({"application": {"namespace_uid": "a", "max_distance_medium_far": "10"}})",
         "$.application.max_distance_medium_far: ", "a number from 0 to 32767"},
        {inCampaign(R"("limits": {"max_events": -1})"), "$.limits.max_events: ", "from 0 to 2147483647, found -1"},
        {inCampaign(R"("beacons": {})"), "$.beacons: ", "an array"},
        {inCampaign(R"("beacons": [{"proximity_uid": ")" + std::string(kUuid) + "\"}]"),
         "$.beacons[0].id: ", "a text that is not empty"},
        {inCampaign(R"("beacons": [{"id": "b"}])"), "$.beacons[0].proximity_uid: ", "a UUID, found nothing"},
        {replaced(withBeacon(R"("major": 1)"), "b1", "b0"), "$.beacons[1].id: ", "an id that no other one has"},
        {withBeacon(R"("proximity_uuid": "x")"), "$.beacons[1].proximity_uuid: ", "\"proximity_uid\""},
        {withBeacon(R"("major": 65536)"), "$.beacons[1].major: ", "from 0 to 65535"},
        {withBeacon(R"("lat": 90.5)"), "$.beacons[1].lat: ", "from -90 to 90"},
        {inCampaign(R"("answers": {"/u_x": {"decision": "enable"}})"), "$.answers[\"/u_x\"]: ", "none below /u_"},
        {inCampaign(R"("answers": {"visits": {"decision": "enable"}})"), "$.answers.visits: ", "a path such as"},
        {inCampaign(R"("answers": {"/a?b": {"decision": "enable"}})"), "$.answers[\"/a?b\"]: ", "without a query"},
        {inCampaign(R"("answers": {"/a": {"decision": "maybe"}})"), "$.answers[\"/a\"].decision: ", "\"disable\""},
        {inCampaign(R"("valid_for": 0)"), "$.valid_for: ", "from 1 to 2147483647"},
        {inCampaign(R"("remove_geofence_ids": ["g", ""])"), "$.remove_geofence_ids[1]: ", "not empty"},
        {inCampaign(R"("geofences": [{"id": "g", "radius": 0}])"), "$.geofences[0].radius: ", "from 0.001 to 1000"},
        {withBeacon(R"("radius": 5)"), "$.beacons[1].radius: ", "one of the keys"},
        {withBeacon(R"("end": "2031-02-30T00:00:00Z")"), "$.beacons[1].end: ", "a date"},
        {withBeacon(R"("opening_hours": {"week": {"monday": {"open": 0, "close": 1}}})"),
         "$.beacons[1].opening_hours.week.monday: ", "mon"},
        {withBeacon(R"("opening_hours": {"specific_days": {"2031-13-01": {"open": 0, "close": 1}}})"),
         "$.beacons[1].opening_hours.specific_days[\"2031-13-01\"]: ", "2031-12-25"},
        {withBeacon(R"("opening_hours": {"breaks": {"fri": {"open": 0}}})"),
         "$.beacons[1].opening_hours.breaks.fri.close: ", "0 to 86400"},
        {withBeacon(R"("timezone": {"dst": 1})"), "$.beacons[1].timezone.dst: ", "true or false"},
        {withRule("beacons", R"({"id": "r", "rule": {"trigger": "entry"}, "action": {}})"),
         "$.beacons[0].rules_actions[0].rule.trigger: ", "\"on_entry\", \"on_exit\""},
        {withRule("beacons", R"({"id": "r", "rule": {"trigger": "on_exit", "proximity": 6}, "action": {}})"),
         "$.beacons[0].rules_actions[0].rule.proximity: ", "from 0 to 5"},
        {withRule("geofences", R"({"id": "r", "rule": {"trigger": "on_exit", "proximity": 1}, "action": {}})"),
         "$.geofences[0].rules_actions[0].rule.proximity: ", "one of the keys"},
        {withRule("geofences", R"({"id": "r", "rule": {"trigger": "on_exit"}, "action": {"notify_user": {}}})"),
         "$.geofences[0].rules_actions[0].action.notify_user: ", "a text, found an object"},
    };
    for (const auto& [text, path, expected] : cases) {
        const std::string fault = faultOf(text);
        EXPECT_THAT(fault, StartsWith(std::string("shop.json: ") + path)) << text;
        EXPECT_THAT(fault, HasSubstr(expected)) << text;
        EXPECT_EQ(fault.find('\n'), std::string::npos) << text;
    }
}

TEST(Campaign, SaysWhereTheTextIsNoJson) {
    EXPECT_THAT(faultOf("{\n  \"application\": nil\n}"), HasSubstr("line 2"));
    EXPECT_THAT(faultOf(R"({"application": {"namespace_uid": "a"}, "limits": {}, "limits": {}})"), HasSubstr("limits"));
    EXPECT_THAT(faultOf(std::string(100'000, '[')), HasSubstr("64"));
    EXPECT_THAT(faultOf(""), StartsWith("shop.json: $"));
}

}  // namespace
}  // namespace quomi::simulated
