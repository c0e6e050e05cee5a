#include "tests/data/store_support.h"

#include <SQLiteCpp/Statement.h>

namespace quomi::test {
namespace {

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
    EXPECT_TRUE(data->resetGlobalCounters());
    EXPECT_EQ(valueOf(database, "globalTriggersCount || globalHistory || globalMaxEvents", "QuomiStatusInfo"), "0[]4");
    EXPECT_TRUE(data->removeSDKStatusInfo());
    EXPECT_FALSE(data->getSDKStatusInfoWithoutCreateByDefault());
    EXPECT_EQ(again->context(), nullptr);
    EXPECT_TRUE(data->setLastBeaconsDataUpdateDate(at(3)));
    EXPECT_EQ(valueOf(database, "globalMaxEvents || ' ' || lastBeaconsDataUpdatedAt", "QuomiStatusInfo"), "0 3.0");
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

std::vector<std::string> texts(SQLite::Database& database, const std::string& sql) {
    std::vector<std::string> found;
    SQLite::Statement query(database, sql);
    while (query.executeStep()) found.push_back(query.getColumn(0).getString());
    return found;
}

TEST(QuomiData, RulesGoWithTheirOwnerAndNotTheOtherWayRound) {
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
    EXPECT_THAT(texts(database, "SELECT ruleId FROM QuomiBeaconRuleWithActions ORDER BY _id"),
                ElementsAre("b2", "alone"));
    EXPECT_THAT(texts(database, "SELECT beaconId FROM QuomiBeaconData"), ElementsAre("b"));
}

TEST(QuomiData, WhatIsSavedSoonIsCommittedOnceATurnAndBeforeTheEnd) {
    StoreHost host;
    auto data = host.open();
    auto other = host.connect();
    const auto saveSoon = [&](const char* appNamespace) {
        data->mainObjectContext().insert(record(appNamespace));
        EXPECT_TRUE(data->saveContextSoon());
    };
    const auto stored = [&] { return texts(other, "SELECT appNamespace FROM QuomiApplication ORDER BY _id"); };
    saveSoon("a");
    saveSoon("b");
    EXPECT_EQ(data->getApplication()->appNamespace, "a") << "fetches see it";
    EXPECT_THAT(stored(), testing::IsEmpty());
    host.phone.runTurns();
    EXPECT_THAT(stored(), ElementsAre("a", "b"));
    saveSoon("c");
    EXPECT_TRUE(data->setSdkIsStarted(true));
    EXPECT_THAT(stored(), ElementsAre("a", "b", "c")) << "with the next save";
    host.phone.runTurns();
    saveSoon("d");
    data.reset();
    EXPECT_THAT(stored(), ElementsAre("a", "b", "c", "d"));
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

/// What has changed waits in memory; what is saved can be read, in the foreground and in the background.
TEST(QuomiData, AStoreThatAnotherProcessHolds) {
    for (const bool isInBackground : {false, true}) {
        StoreHost host;
        const auto data = host.open();
        ASSERT_EQ(data->insertOrUpdateGeofences(sourceOf<QuomiGeofence>({geofence("a", {"r"}), geofence("b")}),
                                                QuomiGeofenceRegion()),
                  2U);
        ASSERT_TRUE(data->saveContext());
        data->startBackgroundObjectContext();
        if (isInBackground) host.phone.background();
        auto other = host.connect();
        other.exec("BEGIN IMMEDIATE");
        const auto begin = std::chrono::steady_clock::now();
        const auto held = data->getGeofenceById("a");
        held->entryCount = 5;
        for (int i = 0; i < 10; ++i) {
            EXPECT_FALSE(data->saveContext());
            EXPECT_EQ(data->getGeofenceById("a"), held);
            EXPECT_EQ(data->getGeofenceRuleById("r")->geofence(), held);
            EXPECT_EQ(idsOf(data->getAllGeofences()), "a b");
            EXPECT_FALSE(data->removeEverything());
        }
        EXPECT_LT(std::chrono::steady_clock::now() - begin, 2s) << "waits in vain once";
        const auto region = std::make_shared<QuomiGeofenceRegion>();
        EXPECT_FALSE(data->insertOrUpdateGeofenceRegion(region));
        EXPECT_EQ(region->context(), nullptr);
        other.exec("ROLLBACK");
        EXPECT_TRUE(data->saveContext());
        EXPECT_EQ(valueOf(other, "group_concat(entryCount)", "QuomiGeofence"), "5,0");

        // Patience is back: who holds the store for a moment costs nothing.
        other.exec("BEGIN IMMEDIATE");
        const auto again = std::chrono::steady_clock::now();
        held->entryCount = 6;
        EXPECT_FALSE(data->saveContext());
        EXPECT_GE(std::chrono::steady_clock::now() - again, 200ms);
    }
}

}  // namespace
}  // namespace quomi::test
