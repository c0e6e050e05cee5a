#include "tests/data/store_support.h"

#include <string>
#include <vector>

#include <SQLiteCpp/Statement.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::test {
namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::UnorderedElementsAre;

struct Table {
    const char* name;
    std::vector<std::string> attributes;  // name, how it is kept, "!" when required, default
};

/// Written down once more, independently of what the library makes its tables of.
const std::vector<Table> kTables{
    {"QuomiStatusInfo",
     {"isStarted INTEGER! 0", "lastGeofencesDataUpdatedAt REAL! 0.0", "lastBeaconsDataUpdatedAt REAL! 0.0",
      "globalTriggersCount INTEGER! 0", "globalMaxEvents INTEGER! 0", "globalMaxEventsPeriod INTEGER! 0",
      "globalMinInterval INTEGER! 0", "lastEventDate REAL! 0.0", "globalHistory TEXT! '[]'"}},
    {"QuomiApplication",
     {"appNamespace TEXT!", "proximityUUIDNormal TEXT!", "proximityUUIDSecure TEXT!", "proximityUUIDService TEXT!",
      "antiHackingProtocol TEXT!", "proximityFarSplitThreshold REAL! 10.0"}},
    {"QuomiDebugLog", {"logTime REAL", "logData TEXT"}},
    {"QuomiBatteryAlert", {"date REAL!", "appNamespace TEXT!", "proximityUUID TEXT!", "serviceID TEXT!"}},
    {"QuomiGeofenceRegion", {"latitude REAL!", "longitude REAL!", "radius REAL!", "validUntil REAL"}},
    {"QuomiGeofence",
     {"geofenceId TEXT!",
      "name TEXT",
      "latitude REAL!",
      "longitude REAL!",
      "radius REAL!",
      "address TEXT",
      "group TEXT",
      "entryCount INTEGER! 0",
      "lastEnteredAt REAL! 0.0",
      "groupTriggersCount INTEGER! 0",
      "namespace TEXT",
      "enabled INTEGER! 1",
      "startDate REAL",
      "endDate REAL",
      "schedule TEXT",
      "updatedAt REAL",
      "timeZone_zone TEXT",
      "timeZone_title TEXT",
      "timeZone_offset INTEGER",
      "timeZone_utcOffset INTEGER",
      "timeZone_dst INTEGER",
      "groupHistory TEXT! '[]'"}},
    {"QuomiGeofenceRuleWithActions",
     {"ruleId TEXT!", "trigger TEXT!", "minEvents INTEGER! 0", "minEventsPeriod INTEGER! 0", "maxEvents INTEGER! 0",
      "maxEventsPeriod INTEGER! 0", "minGroupEvents INTEGER! 0", "minGroupEventsPeriod INTEGER! 0",
      "maxGroupEvents INTEGER! 0", "maxGroupEventsPeriod INTEGER! 0", "maxDistanceMediumFar INTEGER! 10",
      "latchTime INTEGER! 0", "maxSpeedToNotifyUserThreshold REAL", "triggersCount INTEGER! 0",
      "lastTriggerDate REAL! 0.0", "actions TEXT! ''", "history TEXT! '[]'", "underGlobalCounter NUMERIC! 1",
      "useRuleMaxMediumFar INTEGER! 0"}},
    {"QuomiBeaconData",
     {"beaconId TEXT!",
      "name TEXT!",
      "proximityUUID TEXT!",
      "major INTEGER",
      "minor INTEGER",
      "serialNumber TEXT",
      "sharedSecret TEXT",
      "latitude REAL",
      "longitude REAL",
      "address TEXT",
      "group TEXT",
      "namespace TEXT",
      "enabled INTEGER! 1",
      "seenCount INTEGER! 0",
      "lastSeenAt REAL! 0.0",
      "groupTriggersCount INTEGER! 0",
      "startDate REAL",
      "endDate REAL",
      "schedule TEXT",
      "updatedAt REAL",
      "timeZone_zone TEXT",
      "timeZone_title TEXT",
      "timeZone_offset INTEGER",
      "timeZone_utcOffset INTEGER",
      "timeZone_dst INTEGER",
      "groupHistory TEXT! '[]'"}},
    {"QuomiBeaconRuleWithActions",
     {"ruleId TEXT!",
      "trigger TEXT!",
      "proximity INTEGER!",
      "proximityEnd INTEGER",
      "minEvents INTEGER! 0",
      "minEventsPeriod INTEGER! 0",
      "maxEvents INTEGER! 0",
      "maxEventsPeriod INTEGER! 0",
      "minGroupEvents INTEGER! 0",
      "minGroupEventsPeriod INTEGER! 0",
      "maxGroupEvents INTEGER! 0",
      "maxGroupEventsPeriod INTEGER! 0",
      "priority INTEGER! 1",
      "maxDistanceMediumFar INTEGER! 10",
      "latchTime INTEGER! 0",
      "triggersCount INTEGER! 0",
      "lastTriggerDate REAL! 0.0",
      "actions TEXT! ''",
      "history TEXT! '[]'",
      "underGlobalCounter INTEGER! 1",
      "useRuleMaxMediumFar INTEGER! 0"}}};

std::vector<std::string> rows(SQLite::Database& database, const std::string& sql) {
    std::vector<std::string> texts;
    SQLite::Statement query(database, sql);
    while (query.executeStep()) texts.push_back(query.getColumn(0).getString());
    return texts;
}

/// Columns that are neither the key nor an owner's.
std::vector<std::string> attributesOf(SQLite::Database& database, const std::string& table) {
    return rows(
        database,
        fmt::format("SELECT name || ' ' || type || iif(\"notnull\", '!', '') || coalesce(' ' || dflt_value, '') "
                    "FROM pragma_table_info('{0}') WHERE pk = 0 AND name NOT IN (SELECT \"from\" FROM "
                    "pragma_foreign_key_list('{0}')) ORDER BY cid",
                    table));
}

TEST(StoreSchema, TablesAndColumnsOfTheCurrentVersion) {
    StoreHost host;
    ASSERT_NE(host.open(), nullptr);
    auto database = host.connect();
    std::vector<std::string> names;
    for (const auto& table : kTables) {
        EXPECT_THAT(attributesOf(database, table.name), ElementsAreArray(table.attributes)) << table.name;
        names.emplace_back(table.name);
    }
    EXPECT_THAT(rows(database, "SELECT name FROM sqlite_master WHERE type = 'table'"),
                testing::UnorderedElementsAreArray(names));
    EXPECT_THAT(rows(database,
                     "SELECT m.name || '.' || f.\"from\" || ' -> ' || f.\"table\" || ' ' || f.on_delete FROM "
                     "sqlite_master m, pragma_foreign_key_list(m.name) f WHERE m.type = 'table'"),
                UnorderedElementsAre("QuomiGeofenceRuleWithActions.geofence -> QuomiGeofence CASCADE",
                                     "QuomiBeaconRuleWithActions.beacon -> QuomiBeaconData CASCADE"));
}

TEST(StoreSchema, RulesGoWithTheirOwnerAndNotTheOtherWayRound) {
    StoreHost host;
    ASSERT_NE(host.open(), nullptr);
    auto database = host.connect();
    database.exec(R"(
        PRAGMA foreign_keys = ON;
        INSERT INTO QuomiBeaconData (_id, beaconId, name, proximityUUID) VALUES (1, 'a', '', ''), (2, 'b', '', '');
        INSERT INTO QuomiBeaconRuleWithActions (ruleId, trigger, proximity, beacon)
            VALUES ('a1', '', 0, 1), ('a2', '', 0, 1), ('b1', '', 0, 2), ('b2', '', 0, 2), ('alone', '', 0, NULL);
        DELETE FROM QuomiBeaconData WHERE beaconId = 'a';
        DELETE FROM QuomiBeaconRuleWithActions WHERE ruleId = 'b1';)");
    EXPECT_THAT(rows(database, "SELECT ruleId FROM QuomiBeaconRuleWithActions ORDER BY _id"),
                ElementsAre("b2", "alone"));
    EXPECT_THAT(rows(database, "SELECT beaconId FROM QuomiBeaconData"), ElementsAre("b"));
}

}  // namespace
}  // namespace quomi::test
