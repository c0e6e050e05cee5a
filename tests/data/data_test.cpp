#include "quomi/data/parser.h"
#include "quomi/platform/clock.h"
#include "tests/data/store_support.h"

#include <limits>
#include <vector>

#include <SQLiteCpp/Statement.h>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* kUUID = "6b6e1b5a-0c0d-4a6e-9e62-0000000000b1";

WallTime at(double seconds) {
    return WallTime(toDuration(Seconds(seconds)));
}

std::string valueOf(SQLite::Database& database, const std::string& expression, const std::string& table) {
    return database.execAndGet("SELECT " + expression + " FROM " + table).getString();
}

TEST(QuomiData, StatusRow) {
    StoreHost host;
    auto data = host.open();
    auto database = host.connect();
    EXPECT_EQ(valueOf(database, "COUNT(*) || ' ' || MAX(isStarted)", "QuomiStatusInfo"), "1 0") << "there at once";
    const auto held = data->getSDKStatusInfo();
    auto& status = *held;
    status.isStarted = true;
    status.lastGeofencesDataUpdatedAt = at(1.5);
    status.lastBeaconsDataUpdatedAt = at(-2);
    status.globalTriggersCount = 3;
    status.globalMaxEvents = 4;
    status.globalMaxEventsPeriod = 5;
    status.globalMinInterval = 6;
    status.lastEventDate = at(1700000000.123457);
    status.globalHistory = {at(7), at(1700000000.000001)};
    EXPECT_TRUE(data->saveContext());
    EXPECT_EQ(valueOf(database, "COUNT(*)", "QuomiStatusInfo"), "1");
    EXPECT_EQ(valueOf(database, "typeof(lastEventDate) || ' ' || printf('%.6f', lastEventDate)", "QuomiStatusInfo"),
              "real 1700000000.123457");
    EXPECT_EQ(valueOf(database, "typeof(isStarted) || typeof(globalHistory) || json_array_length(globalHistory)",
                      "QuomiStatusInfo"),
              "integertext2");
    EXPECT_EQ(
        valueOf(database, "group_concat(printf('%.6f', value), ' ')", "QuomiStatusInfo, json_each(globalHistory)"),
        "7.000000 1700000000.000001");
    data = host.open();
    const auto again = data->getSDKStatusInfo();
    ASSERT_TRUE(again);
    EXPECT_EQ(std::tie(again->isStarted, again->lastGeofencesDataUpdatedAt, again->lastBeaconsDataUpdatedAt,
                       again->globalTriggersCount, again->globalMaxEvents, again->globalMaxEventsPeriod,
                       again->globalMinInterval, again->lastEventDate, again->globalHistory),
              std::tie(status.isStarted, status.lastGeofencesDataUpdatedAt, status.lastBeaconsDataUpdatedAt,
                       status.globalTriggersCount, status.globalMaxEvents, status.globalMaxEventsPeriod,
                       status.globalMinInterval, status.lastEventDate, status.globalHistory));
    data->setSdkIsStarted(false);
    EXPECT_FALSE(data->sdkIsStarted());
    EXPECT_EQ(data->getSDKStatusInfo()->globalTriggersCount, 3) << "only the flag changed";
}

TEST(QuomiData, HistoriesThatOthersWrote) {
    StoreHost host;
    const auto data = host.open();
    auto database = host.connect();
    const auto historyOf = [&](const std::string& text) {
        database.exec("UPDATE QuomiStatusInfo SET globalHistory = '" + text + "'");
        return data->getSDKStatusInfo()->globalHistory;
    };
    EXPECT_THAT(historyOf("[1, 2.5, 3e0]"), ElementsAre(at(1), at(2.5), at(3)));
    EXPECT_THAT(historyOf("[\"x\", null, 4]"), ElementsAre(at(4)));
    for (const char* none : {"", "[1, 2", "{}", "7"}) EXPECT_THAT(historyOf(none), IsEmpty()) << none;
}

TEST(QuomiData, ChangesAreWholeOrNotThere) {
    StoreHost host;
    const auto data = host.open();
    EXPECT_TRUE(data->insertOrUpdateApplication(record("first")));
    const auto application = record("second");
    application->antiHackingProtocol.reset();
    std::optional<Error> error;
    EXPECT_FALSE(data->insertOrUpdateApplication(application, &error));
    EXPECT_EQ(error->code, 600);
    EXPECT_EQ(data->getApplication()->appNamespace, "first");

    auto other = host.connect();
    other.exec("BEGIN IMMEDIATE");
    EXPECT_FALSE(data->removeApplication(&error));
    EXPECT_EQ(error->code, 600);
    EXPECT_TRUE(data->getApplication()) << "reading goes on while another process writes";
    other.exec("ROLLBACK");
    EXPECT_TRUE(data->removeApplication(&error));
    EXPECT_FALSE(data->getApplication());
}

class Parser : public testing::Test {
protected:
    bool parseApplication(const std::string& json) {
        return parser.parseAndSaveApiApplicationResponseData(boost::json::parse(json), &error);
    }
    bool parseLimits(const std::string& json) {
        return parser.parseAndSaveApiApplicationLimitsResponseData(boost::json::parse(json), &error);
    }

    StoreHost host;
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
    host.phone.jumpClock(Seconds(1000));
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

}  // namespace
}  // namespace quomi::test
