#include "quomi/data/schema_versions.h"

#include "tests/data/migration_support.h"

namespace quomi::test {
namespace {

// What the versions were, told forwards and independently of the library's own list. A column is written "name TYPE",
// with "!" behind it when it is required and "=DEFAULT" when it has one.

using Columns = std::set<std::string>;
using Tables = std::map<std::string, Columns>;

std::string nameOf(const std::string& column) {
    return column.substr(0, column.find(' '));
}

Columns both(Columns some, const Columns& others) {
    some.insert(others.begin(), others.end());
    return some;
}

const Columns kTimeZone{"timeZone_zone TEXT", "timeZone_title TEXT", "timeZone_offset INTEGER",
                        "timeZone_utcOffset INTEGER", "timeZone_dst INTEGER"};
const Columns kAvailability{"namespace TEXT", "enabled INTEGER!=1", "startDate REAL",
                            "endDate REAL",   "schedule TEXT",      "updatedAt REAL"};
const Columns kPerAction{"lastLocalNotificationSentAt REAL!=0.0",   "localNotificationAllowIntervalSeconds INTEGER!=0",
                         "localNotificationShownCount INTEGER!=0",  "localNotificationShownMax INTEGER!=0",
                         "lastWebPageOpenedAt REAL!=0.0",           "webPageOpenedAllowIntervalSeconds INTEGER!=0",
                         "webPageOpenedCount INTEGER!=0",           "webPageOpenedMax INTEGER!=0",
                         "lastServerNotificationSentAt REAL!=0.0",  "serverNotificationAllowIntervalSeconds INTEGER!=0",
                         "serverNotificationsSentCount INTEGER!=0", "serverNotificationsSentMax INTEGER!=0"};

Tables oldest() {
    return {
        {"QuomiStatusInfo", {"isStarted INTEGER!=0", "lastAdDownloadedAt REAL!=0.0"}},
        {"QuomiGeofenceRegion", {"latitude REAL!", "longitude REAL!", "radius REAL!", "validUntil REAL"}},
        {"QuomiDebugLog", {"logTime REAL", "logData TEXT"}},
        {"QuomiGeofence", both(both(kTimeZone, kAvailability),
                               {"geofenceId TEXT!", "name TEXT", "latitude REAL!", "longitude REAL!", "radius REAL!",
                                "address TEXT", "entryCount REAL!=0.0", "lastEnteredAt REAL!=0.0"})},
        {"QuomiBeaconData",
         both(both(kTimeZone, kAvailability),
              {"beaconId TEXT!", "name TEXT!", "proximityUUID TEXT!", "major INTEGER!=0", "minor INTEGER!=0",
               "entryCount INTEGER!=0", "lastConnectedAt REAL", "lastSeenAt REAL"})},
        {"QuomiGeofenceRuleWithActions",
         both(kPerAction, {"minEvents INTEGER!", "trigger TEXT!", "actions TEXT!=''", "latchTime INTEGER",
                           "maxSpeedToNotifyUserThreshold REAL", "geofence INTEGER"})},
        {"QuomiBeaconRuleWithActions", both(kPerAction, {"minEvents INTEGER!", "trigger TEXT!", "actions TEXT!=''",
                                                         "proximity INTEGER!", "beacon INTEGER"})},
    };
}

struct Step {
    int version;
    std::vector<std::string> tables;
    Columns gone;        ///< names
    Columns newOrOther;  ///< columns that are new, or as they are from now on
};

const std::vector<std::string> kRules{"QuomiGeofenceRuleWithActions", "QuomiBeaconRuleWithActions"};

Columns namesOf(const Columns& columns) {
    Columns names;
    for (const auto& column : columns) names.insert(nameOf(column));
    return names;
}

std::vector<Step> steps() {
    return {
        {5,
         kRules,
         namesOf(kPerAction),
         {"ruleId TEXT!", "maxEvents INTEGER!=0", "minGroupEvents INTEGER!=0", "maxGroupEvents INTEGER!=0",
          "triggersCount INTEGER!=0", "lastTriggerDate REAL!=0.0", "latchTime INTEGER!=0", "minEvents INTEGER!=0"}},
        {5, {"QuomiGeofence"}, {}, {"group TEXT", "groupTriggersCount INTEGER!=0", "entryCount INTEGER!=0"}},
        {5,
         {"QuomiBeaconData"},
         {"entryCount", "lastConnectedAt"},
         {"latitude REAL", "longitude REAL", "address TEXT", "group TEXT", "seenCount INTEGER!=0",
          "groupTriggersCount INTEGER!=0", "lastSeenAt REAL!=0.0", "major INTEGER!", "minor INTEGER!"}},
        {5, {"QuomiStatusInfo"}, {}, {"lastGeofencesDataUpdatedAt REAL!=0.0", "lastBeaconsDataUpdatedAt REAL!=0.0"}},
        {6,
         {"QuomiApplication"},
         {},
         {"appNamespace TEXT!", "proximityUUIDNormal TEXT!", "proximityUUIDSecure TEXT!", "proximityUUIDService TEXT!",
          "antiHackingProtocol TEXT!"}},
        {6, {"QuomiBatteryAlert"}, {}, {"date REAL!", "appNamespace TEXT!", "proximityUUID TEXT!", "serviceID TEXT!"}},
        {6, {"QuomiBeaconData"}, {}, {"serialNumber TEXT", "sharedSecret TEXT"}},
        {7, {"QuomiBeaconRuleWithActions"}, {}, {"proximityEnd INTEGER"}},
        {8, {"QuomiBeaconData"}, {}, {"major INTEGER", "minor INTEGER", "groupHistory TEXT!='[]'"}},
        {8, {"QuomiGeofence"}, {}, {"groupHistory TEXT!='[]'"}},
        {8,
         kRules,
         {},
         {"minEventsPeriod INTEGER!=0", "maxEventsPeriod INTEGER!=0", "minGroupEventsPeriod INTEGER!=0",
          "maxGroupEventsPeriod INTEGER!=0", "history TEXT!='[]'"}},
        {9,
         {"QuomiStatusInfo"},
         {},
         {"globalTriggersCount INTEGER!=0", "globalMaxEvents INTEGER!=0", "globalMaxEventsPeriod INTEGER!=0",
          "globalHistory TEXT!='[]'"}},
        {10, {"QuomiStatusInfo"}, {"lastAdDownloadedAt"}, {}},
        {10, {"QuomiApplication"}, {}, {"proximityFarSplitThreshold REAL!=0.0"}},
        {11, {"QuomiApplication"}, {}, {"proximityFarSplitThreshold REAL!=10.0"}},
        {11, kRules, {}, {"maxDistanceMediumFar INTEGER!=10", "useRuleMaxMediumFar INTEGER!=0"}},
        {11, {"QuomiGeofenceRuleWithActions"}, {}, {"underGlobalCounter NUMERIC!=1"}},
        {11, {"QuomiBeaconRuleWithActions"}, {}, {"underGlobalCounter INTEGER!=1"}},
        {12, {"QuomiStatusInfo"}, {}, {"globalMinInterval INTEGER!=0", "lastEventDate REAL!=0.0"}},
        {12, {"QuomiBeaconRuleWithActions"}, {}, {"priority INTEGER!=1"}},
    };
}

Tables tablesOfVersion(int version) {
    auto tables = oldest();
    for (const auto& step : steps()) {
        if (step.version > version) continue;
        for (const auto& name : step.tables) {
            auto& table = tables[name];
            const auto replaced = namesOf(step.newOrOther);
            std::erase_if(table, [&](const std::string& column) {
                return step.gone.contains(nameOf(column)) || replaced.contains(nameOf(column));
            });
            table.insert(step.newOrOther.begin(), step.newOrOther.end());
        }
    }
    return tables;
}

Tables tablesOf(const SQLite::Database& database) {
    Tables tables;
    for (const auto& table : texts(database, "SELECT name FROM sqlite_master WHERE type = 'table'")) {
        const auto columns = texts(database, fmt::format("SELECT name || ' ' || type || iif(\"notnull\", '!', '') ||"
                                                         " iif(dflt_value IS NULL, '', '=' || dflt_value)"
                                                         " FROM pragma_table_info('{}') WHERE pk = 0",
                                                         table));
        tables[table] = Columns(columns.begin(), columns.end());
    }
    return tables;
}

class SchemaVersions : public MigrationTest {};

TEST_F(SchemaVersions, HaveTheTablesOfTheirHistory) {
    ASSERT_EQ(allVersions().size(), 10U);
    for (int version = 4; version <= 13; ++version) {
        SCOPED_TRACE(version);
        SQLite::Database database(":memory:", SQLite::OPEN_READWRITE);
        const auto& schema = allVersions()[static_cast<std::size_t>(version - 4)];
        EXPECT_EQ(schema.name, fmt::format("QuomiObjectModel_v{:03}", version));
        makeTables(database, schema.entities, version);
        EXPECT_EQ(tablesOf(database), tablesOfVersion(version));
    }
}

TEST_F(SchemaVersions, EndWithTheCurrentSchema) {
    SQLite::Database current(":memory:", SQLite::OPEN_READWRITE);
    for (const auto& entity : currentSchema()) {
        for (const auto& statement : createStatements(entity)) current.exec(statement);
    }
    SQLite::Database newest(":memory:", SQLite::OPEN_READWRITE);
    makeTables(newest, currentVersion().entities, kCurrentVersionNumber);
    const auto* statements = "SELECT sql FROM sqlite_master ORDER BY rowid";
    EXPECT_EQ(texts(newest, statements), texts(current, statements));
    EXPECT_EQ(currentVersion().number, kCurrentVersionNumber);
}

struct Recognition {
    const char* name;
    int made;
    const char* sql;
    int found;  ///< 0 for no version
};

TEST_F(SchemaVersions, AreRecognisedByTheirTablesAndTheMarkWhereThoseDoNotDiffer) {
    const Recognition cases[] = {
        {"marked 12", 12, "", 12},
        {"without a mark", 12, "PRAGMA user_version = 0", 13},
        {"marked otherwise", 9, "PRAGMA user_version = 13", 9},
        {"marked by a later system", 13, "PRAGMA user_version = 14", 0},
        {"an earlier one, marked by a later system", 9, "PRAGMA user_version = 14", 0},
        {"indices of its own", 8, "CREATE INDEX i ON QuomiDebugLog (logTime)", 8},
        {"statistics", 13, "ANALYZE", 13},
        {"columns in another order", 7,
         "DROP TABLE QuomiDebugLog; CREATE TABLE QuomiDebugLog (logData TEXT, _id INTEGER PRIMARY KEY, logTime REAL)",
         7},
        {"a table more", 13, "CREATE TABLE more (x)", 0},
        {"a table less", 13, "DROP TABLE QuomiDebugLog", 0},
        {"a column more", 13, "ALTER TABLE QuomiDebugLog ADD COLUMN more TEXT", 0},
        {"a type", 13,
         "DROP TABLE QuomiDebugLog; CREATE TABLE QuomiDebugLog (_id INTEGER PRIMARY KEY, logTime TEXT,"
         " logData TEXT)",
         0},
        {"a default", 13,
         "DROP TABLE QuomiDebugLog; CREATE TABLE QuomiDebugLog (_id INTEGER PRIMARY KEY,"
         " logTime REAL DEFAULT 0.0, logData TEXT)",
         0},
        {"no key", 13, "DROP TABLE QuomiDebugLog; CREATE TABLE QuomiDebugLog (_id INTEGER, logTime REAL, logData TEXT)",
         0},
        {"a view", 13, "CREATE VIEW v AS SELECT 1", 0},
        {"a trigger", 13, "CREATE TRIGGER t AFTER INSERT ON QuomiDebugLog BEGIN DELETE FROM QuomiBeaconData; END", 0},
        {"a trigger called an index", 13,
         "CREATE TRIGGER t AFTER INSERT ON QuomiDebugLog BEGIN DELETE FROM QuomiBeaconData; END;"
         "PRAGMA writable_schema = ON; UPDATE sqlite_master SET type = 'index' WHERE name = 't'",
         0},
        {"a view under SQLite's name", 13,
         "CREATE VIEW v AS SELECT 1; PRAGMA writable_schema = ON;"
         "UPDATE sqlite_master SET name = 'sqlite_v', tbl_name = 'sqlite_v', sql = 'CREATE VIEW sqlite_v AS SELECT 1'"
         " WHERE name = 'v'",
         0},
        {"a table under SQLite's name", 13,
         "CREATE TABLE t (x); PRAGMA writable_schema = ON; UPDATE sqlite_master SET name = 'sqlite_stat1',"
         " tbl_name = 'sqlite_stat1', sql = 'CREATE TABLE sqlite_stat1(x AS (1))' WHERE name = 't'",
         0},
        {"a virtual table", 13,
         "DROP TABLE QuomiDebugLog; CREATE VIRTUAL TABLE QuomiDebugLog USING fts5(logTime, logData)", 0},
        {"a generated column", 13, "ALTER TABLE QuomiDebugLog ADD COLUMN more AS (1)", 0},
        {"rows without keys", 13,
         "DROP TABLE QuomiDebugLog; CREATE TABLE QuomiDebugLog (_id INTEGER PRIMARY KEY, logTime REAL, logData TEXT)"
         " WITHOUT ROWID",
         0},
    };
    for (const auto& recognition : cases) {
        SCOPED_TRACE(recognition.name);
        SQLite::Database database(":memory:", SQLite::OPEN_READWRITE);
        makeTables(database, allVersions()[static_cast<std::size_t>(recognition.made - 4)].entities, recognition.made);
        database.exec(recognition.sql);
        const auto* found = findVersion(database);
        EXPECT_EQ(found == nullptr ? 0 : found->number, recognition.found);
    }
}

}  // namespace
}  // namespace quomi::test
