#include "quomi/data/parser.h"

#include "quomi/platform/clock.h"
#include "quomi/util/json_readers.h"
#include "tests/data/store_support.h"

namespace quomi::test {
namespace {

constexpr const char* kUUID = "6b6e1b5a-0c0d-4a6e-9e62-0000000000b1";

class Parser : public testing::Test {
protected:
    bool parseApplication(const std::string& json) {
        return parser.parseAndSaveApiApplicationResponseData(boost::json::parse(json), &error);
    }
    bool parseLimits(const std::string& json) {
        return parser.parseAndSaveApiApplicationLimitsResponseData(boost::json::parse(json), &error);
    }

    bool parseGeofences(const std::string& json) {
        return parser.parseAndSaveApiGeofencesResponseData(boost::json::parse(json), &error);
    }
    bool parseBeacons(const std::string& json) {
        return parser.parseAndSaveApiBeaconsResponseData(boost::json::parse(json), &error);
    }
    StoreHost host{{.start = at(1000)}};
    std::unique_ptr<QuomiData> data = host.open();
    QuomiSettings settings{Deployment(), host.platform.location};
    QuomiDataApiResponseParser parser{*data, host.errors, host.platform, settings};
    std::optional<Error> error;
};

/// A record with the key's value replaced by the JSON text, or without the key.
std::string recordWith(const std::string& key, const std::string& json) {
    boost::json::object record{{"success", true},
                               {"namespace_uid", "shop"},
                               {"normal_proximity_uuid", kUUID},
                               {"secure_proximity_uuid", "6B6E1B5A-0C0D-4A6E-9E62-0000000000B2"},
                               {"service_proximity_uuid", "6B6E1B5A-0C0D-4A6E-9E62-0000000000B3"},
                               {"anti_hacking_protocol", "none"},
                               {"max_distance_medium_far", 12.5}};
    record.erase(key);
    if (!json.empty()) record[key] = boost::json::parse(json);
    return boost::json::serialize(record);
}

TEST_F(Parser, ApplicationRecordReplacesTheOneThereWas) {
    ASSERT_TRUE(data->insertOrUpdateApplication(record("old", 1)));
    EXPECT_TRUE(parseApplication(recordWith("more", "1")));
    const auto application = data->getApplication();
    ASSERT_TRUE(application);
    EXPECT_EQ(application->appNamespace, "shop");
    EXPECT_EQ(application->proximityUUIDNormal, kUUID) << "as the server wrote it";
    EXPECT_EQ(application->proximityUUIDSecure, "6B6E1B5A-0C0D-4A6E-9E62-0000000000B2");
    EXPECT_EQ(application->proximityUUIDService, "6B6E1B5A-0C0D-4A6E-9E62-0000000000B3");
    EXPECT_EQ(application->antiHackingProtocol, "none");
    EXPECT_EQ(application->proximityFarSplitThreshold, 12.5);
    for (const auto& [json, threshold] : std::vector<std::pair<std::string, double>>{
             {"", 10}, {"null", 10}, {"[]", 10}, {"\"\"", 10}, {"0", 0}, {"\"8.5\"", 8.5}, {"-1", -1}}) {
        EXPECT_TRUE(parseApplication(recordWith("max_distance_medium_far", json)));
        EXPECT_EQ(data->getApplication()->proximityFarSplitThreshold, threshold) << json;
    }
}

TEST_F(Parser, AnswersThatAreNoRecord) {
    ASSERT_TRUE(parseApplication(recordWith("namespace_uid", "\"kept\"")));
    for (const std::string& json :
         {std::string("null"), std::string("[]"), std::string("\"success\""), recordWith("success", "false"),
          recordWith("success", ""), recordWith("success", "\"true\""), recordWith("normal_proximity_uuid", "\"shop\""),
          recordWith("secure_proximity_uuid", "\"S\""), recordWith("service_proximity_uuid", "\"\"")}) {
        error.reset();
        EXPECT_FALSE(parseApplication(json)) << json;
        ASSERT_TRUE(error);
        EXPECT_EQ(error->domain, "QuomiErrorDomain");
        EXPECT_EQ(error->code, 402);
        EXPECT_EQ(data->getApplication()->appNamespace, "kept");
    }
    for (const char* missing : {"namespace_uid", "normal_proximity_uuid", "secure_proximity_uuid",
                                "service_proximity_uuid", "anti_hacking_protocol"}) {
        EXPECT_FALSE(parseApplication(recordWith(missing, ""))) << missing;
        EXPECT_EQ(error->code, 600) << "the store requires it";
        EXPECT_EQ(data->getApplication()->appNamespace, "kept");
    }
}

TEST_F(Parser, Limits) {
    auto status = data->getSDKStatusInfo();
    status->isStarted = true;
    status->globalTriggersCount = 9;
    status->globalMaxEvents = 1;
    status->lastEventDate = at(5);
    status->globalHistory = {at(10), at(900), at(990)};
    ASSERT_TRUE(data->saveContext());
    EXPECT_FALSE(parseLimits(R"({"max_events": 3})"));
    EXPECT_EQ(error->code, 402);
    EXPECT_EQ(data->getSDKStatusInfo()->globalMaxEvents, 1);

    EXPECT_TRUE(parseLimits(R"({"success": 1, "max_events": 3, "max_events_period": 100, "min_interval": "20"})"));
    status = data->getSDKStatusInfo();
    EXPECT_EQ(status->globalMaxEvents, 3);
    EXPECT_EQ(status->globalMaxEventsPeriod, 100);
    EXPECT_EQ(status->globalMinInterval, 20);
    EXPECT_THAT(status->globalHistory, ElementsAre(at(900), at(990))) << "from a hundred seconds ago on";
    EXPECT_EQ(status->globalTriggersCount, 9);
    EXPECT_EQ(status->lastEventDate, at(5));
    EXPECT_TRUE(status->isStarted);

    EXPECT_TRUE(parseLimits(R"({"success": true, "max_events": 1e300, "max_events_period": {}})"));
    status = data->getSDKStatusInfo();
    EXPECT_EQ(status->globalMaxEvents, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(status->globalMaxEventsPeriod, 0);
    EXPECT_EQ(status->globalMinInterval, 0);
    EXPECT_THAT(status->globalHistory, IsEmpty()) << "no period asks about it";
}

// Places

std::string geofencesAnswer(const std::string& geofences, const std::string& more = R"("remove_ids": [])",
                            const std::string& query = R"({"lat": 50, "lng": 8, "radius": 1000})") {
    return fmt::format(R"({{"u_geofences": [{}], "query_params": {}, "valid_until": "1970-01-02T00:00:00Z", {}}})",
                       geofences, query, more);
}

std::string beaconsAnswer(const std::string& beacons, const std::string& removed = "") {
    return fmt::format(
        R"({{"u_beacons": [{}], "query_params": {{}}, "valid_until": "1970-01-02T00:00:00Z", "remove_ids": [{}]}})",
        beacons, removed);
}

/// Attributes by their names, without those that the store alone fills.
boost::json::object attributesOf(const ManagedObject& object) {
    boost::json::object attributes;
    for (const auto& field : object.entityType().fields()) attributes[field.attribute.name] = field.json(object);
    for (const char* counter : {"groupTriggersCount", "groupHistory", "seenCount", "lastSeenAt", "entryCount",
                                "lastEnteredAt", "triggersCount", "lastTriggerDate", "history"}) {
        attributes.erase(counter);
    }
    return attributes;
}

/// The expected attributes as JSON, then what the answer's object becomes of it.
void expectAttributes(const ManagedObject& object, const char* expected) {
    EXPECT_EQ(boost::json::value(attributesOf(object)), boost::json::parse(expected))
        << boost::json::serialize(attributesOf(object));
}

constexpr const char* kEverythingOfAPlace = R"("id": "x", "name": "n", "lat": "1.5", "lng": -2, "address": "a",
    "group_id": "g", "start": "1970-01-01T00:00:01Z", "end": "1970-01-01T00:00:02Z",
    "updated_at": "1970-01-01T00:00:03Z", "opening_hours": {"week": {"mon": {"open": 1, "close": 2}}},
    "timezone": {"zone": "z", "title": "t", "offset": 3600, "utc_offset": 99999, "dst": true})";

constexpr const char* kEverythingOfARule = R"("trigger": "on_exit", "proximity": 2, "proximity_end": 4,
    "min_events": 1, "min_events_period": 2, "max_events": 3, "max_events_period": 4, "min_group_events": 5,
    "min_group_events_period": 6, "max_group_events": 7, "max_group_events_period": 8, "priority": 9,
    "max_distance_medium_far": 11.9, "latch_time": 12.5, "under_global_counter": 0, "use_rule_max_medium_far": 1)";

TEST_F(Parser, AWholeGeofence) {
    settings.namespace_ = "shop";
    ASSERT_TRUE(parseGeofences(geofencesAnswer(fmt::format(
        R"({{{}, "radius": 30, "rules_actions": [{{"id": "r", "rule": {{{}}}, "action": {{"open_url": "u",
            "notify_user": "m", "open_deep_link": " ", "notify_server": 5}}}}]}})",
        kEverythingOfAPlace, kEverythingOfARule))));
    const auto geofence = data->getGeofenceById("x");
    expectAttributes(*geofence, R"({"geofenceId": "x", "name": "n", "latitude": 1.5, "longitude": -2.0, "radius": 30.0,
        "address": "a", "group": "g", "namespace": "shop", "enabled": true, "startDate": "1970-01-01T00:00:01.000Z",
        "endDate": "1970-01-01T00:00:02.000Z", "schedule": "{\"week\":{\"mon\":{\"open\":1,\"close\":2}}}",
        "updatedAt": "1970-01-01T00:00:03.000Z", "timeZone_zone": "z", "timeZone_title": "t", "timeZone_offset": 3600,
        "timeZone_utcOffset": 32767, "timeZone_dst": true})");
    expectAttributes(*geofence->rules().front(), R"({"ruleId": "r", "trigger": "on_exit", "minEvents": 1,
        "minEventsPeriod": 2, "maxEvents": 3, "maxEventsPeriod": 4, "minGroupEvents": 5, "minGroupEventsPeriod": 6,
        "maxGroupEvents": 7, "maxGroupEventsPeriod": 8, "maxDistanceMediumFar": 10, "latchTime": 12.5,
        "maxSpeedToNotifyUserThreshold": null, "actions": "[{\"action_type\":\"notify_server\",\"action_param\":\"5\"},{\"action_type\":\"notify_user\",\"action_param\":\"m\"},{\"action_type\":\"open_url\",\"action_param\":\"u\"}]",
        "underGlobalCounter": true, "useRuleMaxMediumFar": false})");
    EXPECT_EQ(data->getSDKStatusInfo()->lastGeofencesDataUpdatedAt, at(1000));
}

TEST_F(Parser, AWholeBeacon) {
    ASSERT_TRUE(parseBeacons(beaconsAnswer(fmt::format(
        R"({{{}, "proximity_uid": "U", "major": 65536.7, "minor": "3", "serial_number": "s", "shared_secret": 5,
            "rules_actions": [{{"id": 7, "rule": {{{}}}, "action": {{"open_url": ""}}}}]}})",
        kEverythingOfAPlace, kEverythingOfARule))));
    const auto beacon = data->getBeaconById("x");
    expectAttributes(*beacon, R"({"beaconId": "x", "name": "n", "proximityUUID": "U", "major": 65536, "minor": 3,
        "serialNumber": "s", "sharedSecret": "5", "latitude": 1.5, "longitude": -2.0, "address": "a", "group": "g",
        "namespace": "", "enabled": true, "startDate": "1970-01-01T00:00:01.000Z",
        "endDate": "1970-01-01T00:00:02.000Z", "schedule": "{\"week\":{\"mon\":{\"open\":1,\"close\":2}}}",
        "updatedAt": "1970-01-01T00:00:03.000Z", "timeZone_zone": "z", "timeZone_title": "t", "timeZone_offset": 3600,
        "timeZone_utcOffset": 32767, "timeZone_dst": true})");
    expectAttributes(*beacon->rules().front(), R"({"ruleId": "7", "trigger": "on_exit", "proximity": 2,
        "proximityEnd": 4, "minEvents": 1, "minEventsPeriod": 2, "maxEvents": 3, "maxEventsPeriod": 4,
        "minGroupEvents": 5, "minGroupEventsPeriod": 6, "maxGroupEvents": 7, "maxGroupEventsPeriod": 8, "priority": 9,
        "maxDistanceMediumFar": 11, "latchTime": 12.5, "actions": "", "underGlobalCounter": false,
        "useRuleMaxMediumFar": true})");
}

/// What is missing, and what is of a wrong type, takes its default.
TEST_F(Parser, Defaults) {
    const auto withAll = [](const std::string& value, std::initializer_list<const char*> keys) {
        std::string text;
        for (const char* key : keys) text += fmt::format(R"(, "{}": {})", key, value);
        return text;
    };
    for (const std::string value : {"", "null", "[]", "{}"}) {
        const bool isMissing = value.empty();
        // An array or a dictionary is the text that it is written as.
        const std::string texts = isMissing || value[0] != 'n' ? "" : withAll(value, {"name", "address", "group_id"});
        const std::string place =
            isMissing ? ""
                      : withAll(value, {"lat", "lng", "radius", "major", "minor", "start", "end", "updated_at"}) +
                            texts + (value == "{}" ? "" : withAll(value, {"opening_hours", "timezone"}));
        const std::string rule =
            isMissing
                ? ""
                : withAll(value, {"proximity", "proximity_end", "min_events", "min_events_period", "max_events",
                                  "max_events_period", "min_group_events", "min_group_events_period",
                                  "max_group_events", "max_group_events_period", "priority", "max_distance_medium_far",
                                  "latch_time", "under_global_counter", "use_rule_max_medium_far"});
        const std::string rules = isMissing
                                      ? R"([{"id": "r"}])"
                                      : fmt::format(R"([{{"id": "r", "rule": {{"more": 1{}}}, "action": 1}}])", rule);
        ASSERT_TRUE(
            parseGeofences(geofencesAnswer(fmt::format(R"({{"id": "x"{}, "rules_actions": {}}})", place, rules))));
        ASSERT_TRUE(parseBeacons(beaconsAnswer(fmt::format(R"({{"id": "x"{}, "rules_actions": {}}})", place, rules))));
        const auto geofence = data->getGeofenceById("x");
        expectAttributes(*geofence, R"({"geofenceId": "x", "name": "", "latitude": 0.0, "longitude": 0.0, "radius": 0.0,
            "address": "", "group": null, "namespace": "", "enabled": true, "startDate": "1970-01-01T00:16:40.000Z",
            "endDate": "1970-02-01T00:16:40.000Z", "schedule": null, "updatedAt": "1970-01-01T00:16:40.000Z",
            "timeZone_zone": null, "timeZone_title": null, "timeZone_offset": null, "timeZone_utcOffset": null,
            "timeZone_dst": null})");
        const auto beacon = data->getBeaconById("x");
        expectAttributes(*beacon, R"({"beaconId": "x", "name": "", "proximityUUID": "", "major": null, "minor": null,
            "serialNumber": null, "sharedSecret": null, "latitude": null, "longitude": null, "address": "",
            "group": null, "namespace": "", "enabled": true, "startDate": "1970-01-01T00:16:40.000Z",
            "endDate": "1970-02-01T00:00:00.000Z", "schedule": null, "updatedAt": "1970-01-01T00:16:40.000Z",
            "timeZone_zone": null, "timeZone_title": null, "timeZone_offset": null, "timeZone_utcOffset": null,
            "timeZone_dst": null})");
        expectAttributes(*beacon->rules().front(), R"({"ruleId": "r", "trigger": "", "proximity": -1,
            "proximityEnd": -1, "minEvents": 0, "minEventsPeriod": 0, "maxEvents": 0, "maxEventsPeriod": 0,
            "minGroupEvents": 0, "minGroupEventsPeriod": 0, "maxGroupEvents": 0, "maxGroupEventsPeriod": 0,
            "priority": 1, "maxDistanceMediumFar": 10, "latchTime": 0.0, "actions": "", "underGlobalCounter": true,
            "useRuleMaxMediumFar": false})");
    }
    ASSERT_TRUE(parseBeacons(beaconsAnswer(R"({"timezone": {}, "start": "soon", "rules_actions": [{"id": "q",
        "rule": {"proximity": 3}}, 7, []]}, {"id": "", "rules_actions": {}})")));
    EXPECT_EQ(data->getBeaconRuleById("q"), nullptr) << "two without identifier are the same one";
    ASSERT_TRUE(parseBeacons(beaconsAnswer(R"({"timezone": {}, "start": "soon", "rules_actions": [{"id": "q",
        "rule": {"proximity": 3}}, 7, []]})")));
    const auto nameless = data->getBeaconById("");
    EXPECT_EQ(nameless->startDate, std::nullopt) << "a text that is no date";
    EXPECT_EQ(nameless->timeZone_zone, "");
    EXPECT_EQ(nameless->timeZone_dst, false);
    ASSERT_EQ(nameless->rules().size(), 1U);
    EXPECT_EQ(data->getBeaconRuleById("q")->proximityEnd, 3);
}

TEST_F(Parser, AnswersThatAreNoPlaces) {
    ASSERT_TRUE(parseGeofences(geofencesAnswer(R"({"id": "kept"})")));
    ASSERT_TRUE(parseBeacons(beaconsAnswer(R"({"id": "kept"})")));
    const auto isRefused = [&](const char* key, const std::string& value) {
        for (auto answer : {geofencesAnswer(R"({"id": "kept"}, {"id": "new"})", R"("remove_ids": ["kept"])"),
                            beaconsAnswer(R"({"id": "new"})", R"("kept")")}) {
            auto dictionary = boost::json::parse(answer).as_object();
            if (dictionary.erase(key) == 0) continue;
            if (!value.empty()) dictionary[key] = boost::json::parse(value);
            answer = boost::json::serialize(dictionary);
            error.reset();
            EXPECT_FALSE(dictionary.contains("u_beacons") ? parseBeacons(answer) : parseGeofences(answer)) << answer;
            EXPECT_EQ(error->code, 402) << answer;
        }
    };
    for (const char* array : {"u_geofences", "u_beacons", "remove_ids"}) {
        for (const char* value : {"", "null", "{}", "7", "\"\""}) isRefused(array, value);
    }
    for (const char* value : {"", "null", "[]", "7"}) isRefused("query_params", value);
    for (const char* value : {"", "null", "7", "\"tomorrow\""}) isRefused("valid_until", value);
    for (const char* whole : {"[]", "null", "7", "{}"}) {
        EXPECT_FALSE(parseGeofences(whole));
        EXPECT_FALSE(parseBeacons(whole));
    }
    EXPECT_EQ(idsOf(data->getAllGeofences()) + idsOf(data->getAllBeacons()), "keptkept");
    EXPECT_EQ(data->getAllGeofenceRegions().size(), 1U);
}

TEST_F(Parser, WhatARefusedAnswerLeaves) {
    ASSERT_TRUE(parseGeofences(geofencesAnswer(R"({"id": "kept"})")));
    ASSERT_TRUE(parseBeacons(beaconsAnswer(R"({"id": "kept"})")));
    host.phone.advanceBy(std::chrono::hours(1));
    const char* ruleWithoutId =
        R"({"id": "a"}, {"id": "b", "rules_actions": [{"rule": {}}]}, {"id": "kept", "name": "c"})";
    EXPECT_FALSE(parseGeofences(
        geofencesAnswer(ruleWithoutId, R"("remove_ids": ["kept"])", R"({"lat": 50.1, "lng": 8, "radius": 7})")));
    EXPECT_EQ(error->code, 600);
    EXPECT_FALSE(parseBeacons(beaconsAnswer(ruleWithoutId, R"("kept")")));
    EXPECT_EQ(error->code, 600);
    EXPECT_EQ(idsOf(data->getAllGeofences()) + " " + idsOf(data->getAllBeacons()), "kept kept");
    EXPECT_EQ(data->getBeaconById("kept")->name, "");
    EXPECT_EQ(data->getSDKStatusInfo()->lastGeofencesDataUpdatedAt, at(1000));
    EXPECT_EQ(data->getSDKStatusInfo()->lastBeaconsDataUpdatedAt, at(1000));
    ASSERT_EQ(data->getAllGeofenceRegions().size(), 1U);
    EXPECT_EQ(data->getAllGeofenceRegions().front()->radius, 7) << "the area was saved before";
    EXPECT_FALSE(parseGeofences(geofencesAnswer("", R"("remove_ids": [])", R"({"lat": 50, "lng": 8})")));
    EXPECT_EQ(error->code, 600) << "an area without a radius";
    EXPECT_EQ(data->getAllGeofenceRegions().front()->radius, 7);
}

TEST_F(Parser, AreasAndRemovals) {
    ASSERT_TRUE(parseGeofences(geofencesAnswer(R"({"id": "a"}, {"id": 5}, {"name": "no id"}, 7, {"id": "c"}, {"id": "c",
        "name": "last"})")));
    EXPECT_EQ(idsOf(data->getAllGeofences()), "5 a c");
    EXPECT_EQ(data->getGeofenceById("c")->name, "last");
    ASSERT_TRUE(parseGeofences(geofencesAnswer("", R"("remove_ids": ["a", "unknown", 5, null])",
                                               R"({"lat": "50.9", "lng": 8.5, "radius": 2})")));
    EXPECT_EQ(idsOf(data->getAllGeofences()), "c");
    ASSERT_EQ(data->getAllGeofenceRegions().size(), 1U) << "one near by is taken over";
    EXPECT_EQ(data->getAllGeofenceRegions().front()->latitude, 50.9);
    EXPECT_EQ(data->getAllGeofenceRegions().front()->validUntil, at(86400));
    ASSERT_TRUE(parseGeofences(geofencesAnswer("", R"("remove_ids": [])", R"({"lat": 52, "lng": 8, "radius": 2})")));
    EXPECT_EQ(data->getAllGeofenceRegions().size(), 2U);

    ASSERT_TRUE(parseBeacons(beaconsAnswer(R"({"id": "a"}, {"id": "b"})")));
    host.phone.advanceBy(std::chrono::seconds(7));
    ASSERT_TRUE(parseBeacons(beaconsAnswer("", R"("a")")));
    EXPECT_EQ(idsOf(data->getAllBeacons()), "b");
    EXPECT_EQ(data->getSDKStatusInfo()->lastBeaconsDataUpdatedAt, at(1007));
    EXPECT_TRUE(parseBeacons(beaconsAnswer("7, null, []")));
    EXPECT_FALSE(error);
}

TEST_F(Parser, RecordsWithAnOverlongTextAreLeftOut) {
    const auto places = [](std::size_t length) {
        const std::string text(length, 'x');
        return fmt::format(R"({{"id":"a","name":"{0}"}},{{"id":"b","rules_actions":[{{"id":"r",
                               "action":{{"notify_user":"{0}"}}}}]}},{{"id":"c"}})",
                           text);
    };
    EXPECT_TRUE(parseBeacons(beaconsAnswer(places(65537))));
    EXPECT_TRUE(parseGeofences(geofencesAnswer(places(65537))));
    EXPECT_EQ(idsOf(data->getAllBeacons()), "c");
    EXPECT_EQ(idsOf(data->getAllGeofences()), "c");
    EXPECT_TRUE(parseBeacons(beaconsAnswer(places(65536))));
    EXPECT_EQ(data->getAllBeacons().size(), 3U);
    EXPECT_FALSE(parseApplication(recordWith("more", '"' + std::string(65537, 'x') + '"')));
}

/// Numbers of any size, texts with anything in them, and thousands of elements that are nothing.
TEST_F(Parser, AnswersOfAnyContent) {
    const char* zero = "a\\u0000b";
    ASSERT_TRUE(parseBeacons(beaconsAnswer(fmt::format(R"({{"id": "{0}", "name": "{0}\"'\u00e4", "lat": 1e308,
        "major": 1e300, "minor": -18446744073709551615, "rules_actions": [{{"id": "r", "rule": {{"proximity": 70000,
        "latch_time": 18446744073709551615, "min_events": -5}}}}]}})",
                                                       zero))));
    const auto beacon = data->getBeaconById(std::string("a\0b", 3));
    ASSERT_NE(beacon, nullptr);
    EXPECT_EQ(beacon->name, std::string("a\0b\"'\u00e4", 7));
    EXPECT_EQ(beacon->major, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(beacon->minor, std::numeric_limits<std::int32_t>::min());
    const auto rule = beacon->getActionsAndRulesSuitableForTrigger("").front();
    EXPECT_EQ(rule->proximity, 32767);
    EXPECT_EQ(rule->proximityEnd, 32767);
    EXPECT_EQ(rule->latchTime, std::numeric_limits<std::int32_t>::max());
    EXPECT_EQ(rule->minEvents, -5);

    std::string garbage = R"({"id": [[]], "name": {}, "rules_actions": [[], 1, {"id": {}}]})";
    for (int i = 0; i < 10'000; ++i) garbage += i % 2 == 0 ? ", null" : R"(, {"u_beacons": "x", "id": "g"})";
    EXPECT_TRUE(parseBeacons(beaconsAnswer(garbage)));
    EXPECT_TRUE(parseGeofences(geofencesAnswer(garbage)));
    EXPECT_EQ(data->getAllBeacons().size(), 3U);
    EXPECT_EQ(data->getGeofenceById("[[]]")->name, "{}") << "as it is written";

    // What is too deep or no UTF-8 is no answer at all.
    const auto deep = std::string(100, '[') + std::string(100, ']');
    EXPECT_FALSE(parseJson(beaconsAnswer(deep)));
    EXPECT_FALSE(parseJson(beaconsAnswer("{\"id\": \"\xC3\x28\"}")));
    EXPECT_FALSE(parseJson(beaconsAnswer(R"({"lat": 1e999})")));
}

}  // namespace
}  // namespace quomi::test
