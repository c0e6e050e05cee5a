#include "quomi/platform/clock.h"
#include "quomi/util/uuid.h"
#include "tests/data/store_support.h"

#include <sqlite3.h>

namespace quomi::test {
namespace {

const Uuid kShop = *Uuid::parse("6b6e1b5a-0c0d-4a6e-9e62-0000000000b1");

class Places : public testing::Test {
protected:
    std::size_t insert(std::vector<std::shared_ptr<QuomiGeofence>> geofences) {
        return data->insertOrUpdateGeofences(sourceOf(std::move(geofences)), QuomiGeofenceRegion(), &error);
    }
    std::size_t insert(std::vector<std::shared_ptr<QuomiBeaconData>> beacons) {
        return data->insertOrUpdateBeacons(sourceOf(std::move(beacons)), &error);
    }
    std::string near(double latitude, double longitude, double tolerance) {
        return idsOf(data->findNearbyGeofences(latitude, longitude, tolerance, &error));
    }

    StoreHost host{{.start = at(1000)}};
    std::unique_ptr<QuomiData> data = host.open();
    std::optional<Error> error;
};

TEST_F(Places, NearbySearch) {
    std::vector<std::shared_ptr<QuomiGeofence>> places{
        geofenceAt("z", 50, 8),         geofenceAt("a", 50.5, 8.5),      geofenceAt("equator", 0.05, 0),
        geofenceAt("below", -0.05, 0),  geofenceAt("south", -33.35, 18), geofenceAt("pole", 90, 0),
        geofenceAt("east", 10, 179.95), geofenceAt("west", 10, -179.95), geofenceAt("nonsense", 500, 8)};
    places.push_back(geofenceAt("off", 50, 8));
    const auto off = places.back();
    ASSERT_EQ(insert(places), 10U);
    off->enabled = false;
    ASSERT_TRUE(data->saveContext());
    constexpr double kInfinity = std::numeric_limits<double>::infinity();
    for (const auto& [latitude, longitude, tolerance, found] : Table<double, double, double, const char*>{
             {50, 8, 0.5, "a z"},
             {50, 8, 0.4999, "z"},
             {50.5, 8.5, 0, "a"},
             {50.01, 8.01, 0, "z"},  // 0.01 without a tolerance
             {50.011, 8, -3, ""},
             {0, 0, 0.05, "below equator"},
             {0, 0, 0.049, ""},
             {-0.04, 0, 0.01, "below"},
             {-33.4, 18, 0.06, "south"},
             {-33.29, 18, 0.07, "south"},
             {90, 0, 1, "pole"},
             {89.9, 0, 5, "pole"},
             {10, 179.9, 0.1, "east"},  // a box of numbers: it does not go round
             {50, 8, 1e6, "a below east equator nonsense pole south west z"},
             {50, 8, kInfinity, "a below east equator nonsense pole south west z"},
             {std::numeric_limits<double>::quiet_NaN(), 8, 1, ""}}) {
        EXPECT_EQ(near(latitude, longitude, tolerance), found) << latitude << " " << longitude << " " << tolerance;
    }
    data->geofenceRegionsSearchToleranceDegrees = 0.5;
    EXPECT_EQ(idsOf(data->findNearbyGeofences(50, 8)), "a z");
    EXPECT_FALSE(error);
}

TEST_F(Places, NearbyAreas) {
    EXPECT_EQ(data->findClosestGeofenceRegion(50, 8), nullptr);
    EXPECT_FALSE(data->locationIsInExpiredRegion(50, 8));
    const auto add = [&](double latitude, double radius, std::optional<double> validUntil) {
        auto region = std::make_shared<QuomiGeofenceRegion>();
        region->latitude = latitude;
        region->longitude = 8;
        region->radius = radius;
        if (validUntil) region->validUntil = at(*validUntil);
        EXPECT_TRUE(data->insertOrUpdateGeofenceRegion(region));
        return region;
    };
    const auto small = add(50.001, 500, 999);
    EXPECT_TRUE(data->locationIsInExpiredRegion(50, 8));
    const auto twin = add(50.001, 400, 999);
    EXPECT_EQ(data->findClosestGeofenceRegion(50, 8), small) << "the first of a tie: the larger one";
    const auto large = add(50.1, 50'000, 1000);
    EXPECT_THAT(data->findNearbyGeofenceRegions(50, 8), ElementsAre(large, small, twin));
    EXPECT_FALSE(data->locationIsInExpiredRegion(50, 8)) << "the largest decides, and it ends just now";
    host.phone.advanceBy(std::chrono::microseconds(1));
    EXPECT_TRUE(data->locationIsInExpiredRegion(50, 8));
    large->validUntil.reset();
    EXPECT_FALSE(data->locationIsInExpiredRegion(50, 8)) << "never expires; not yet saved, and seen";
    EXPECT_FALSE(data->locationIsInExpiredRegion(51, 8)) << "inside none";
    EXPECT_THAT(data->findNearbyGeofenceRegions(51.2, 8), IsEmpty());
    large->radius.reset();
    EXPECT_FALSE(data->insertOrUpdateGeofenceRegion(large, &error));
    EXPECT_EQ(error->code, 600);
    EXPECT_TRUE(data->removeAllGeofenceRegions());
    EXPECT_THAT(data->getAllGeofenceRegions(), IsEmpty());
}

TEST_F(Places, BeaconsByNumbersIdsAndGroups) {
    const auto add = [](const char* id, std::optional<int> major, std::optional<int> minor) {
        auto made = beacon(id, {id});
        made->proximityUUID = kShop.string();
        made->major = major;
        made->minor = minor;
        made->group = major ? std::optional<std::string>("g") : std::nullopt;
        return made;
    };
    ASSERT_EQ(insert({add("d", 1, 2), add("b", 1, 3), add("a", 1, {}), add("c", {}, {}), add("e", 1, 2)}), 5U);
    ASSERT_TRUE(data->saveContext());
    EXPECT_EQ(idsOf(data->getBeaconsByProximityUUID(kShop, 1, 2)), "d e");
    EXPECT_EQ(idsOf(data->getBeaconsByProximityUUID(kShop, 1, std::nullopt)), "a");
    EXPECT_EQ(idsOf(data->getBeaconsByProximityUUID(kShop, std::nullopt, std::nullopt)), "c");
    EXPECT_EQ(idsOf(data->getBeaconsByProximityUUID(kShop, 1, 4)), "");
    EXPECT_EQ(idsOf(data->getBeaconsByProximityUUID(Uuid(), 1, 2)), "");
    std::string asked;
    const auto isNotB = [&asked](const QuomiBeaconData& beacon) {
        asked += beacon.beaconId;
        return beacon.beaconId != "b";
    };
    EXPECT_EQ(idsOf(data->getBeaconsByProximityUUID(kShop, 1, isNotB)), "a d e");
    EXPECT_EQ(asked, "abde");
    EXPECT_EQ(idsOf(data->getBeaconsInGroup("g")), "a b d e");
    EXPECT_EQ(idsOf(data->getAllBeacons()), "a b c d e");
    EXPECT_EQ(data->getBeaconById("x"), nullptr);
    const auto rule = data->getBeaconRuleById("e");
    EXPECT_EQ(rule->beacon(), data->getBeaconById("e"));
    EXPECT_EQ(data->getGeofenceRuleById("e"), nullptr);
    EXPECT_EQ(data->getBeaconById("'; DROP TABLE QuomiBeaconData --"), nullptr);
    EXPECT_FALSE(error);
}

TEST_F(Places, NewOnesTakeThePlaceOfTheOldWithTheirCounters) {
    ASSERT_EQ(insert({geofence("a", {"r1", "r2"}), geofence("b")}), 2U);
    ASSERT_TRUE(data->saveContext());
    const auto old = data->getGeofenceById("a");
    old->entryCount = 7;
    old->groupTriggersCount = 8;
    old->groupHistory = {at(100), at(995)};
    old->rules().front()->triggersCount = 3;
    old->enabled = false;
    const auto member = data->getGeofenceById("b");
    member->group = "a";
    const auto fresh = geofence("a", {"r3", "r1"});
    const auto again = geofence("b", {"r4"});
    again->group = "a";
    again->rules().front()->maxGroupEventsPeriod = 20;
    const auto twice = geofence("c", {"r5"});
    EXPECT_EQ(insert({fresh, again, twice, geofence("c", {"r6"})}), 4U);
    EXPECT_EQ(old->context(), nullptr);
    EXPECT_EQ(twice->context(), nullptr) << "an answer's last one of an identifier stays";
    EXPECT_EQ(data->getGeofenceById("a"), fresh);
    EXPECT_EQ(fresh->entryCount, 7);
    EXPECT_TRUE(fresh->enabled);
    EXPECT_THAT(fresh->groupHistory, ElementsAre(at(995))) << "trimmed by the rules of the members of group 'a'";
    EXPECT_EQ(fresh->rules().back()->triggersCount, 3);
    auto other = host.connect();
    const auto storedRules = [&other] {
        return other
            .execAndGet(
                "SELECT group_concat(ruleId, ' ') FROM (SELECT ruleId FROM QuomiGeofenceRuleWithActions "
                "ORDER BY _id)")
            .getString();
    };
    EXPECT_EQ(storedRules(), "r1 r2") << "nothing is saved yet";
    ASSERT_TRUE(data->saveContext());
    EXPECT_EQ(storedRules(), "r3 r1 r4 r6");
    EXPECT_EQ(other.execAndGet("SELECT groupHistory FROM QuomiGeofence WHERE geofenceId = 'a'").getString(),
              "[9.95E2]");

    // The group that `group` names is another one: without members named by its identifier, a history is emptied.
    fresh->group = "x";
    again->group = "x";
    ASSERT_EQ(insert({geofence("a", {"r1"})}), 1U);
    EXPECT_THAT(data->getGeofenceById("a")->groupHistory, IsEmpty());
    EXPECT_EQ(insert(std::vector<std::shared_ptr<QuomiGeofence>>()), 0U);
    EXPECT_FALSE(error);
}

TEST_F(Places, InsertionsAreNotBegunTwice) {
    bool isAsked = false;
    const auto reenter = [&]() -> std::shared_ptr<QuomiBeaconData> {
        if (std::exchange(isAsked, true)) return nullptr;
        const std::vector<std::string> ids{"b"};
        EXPECT_EQ(insert({beacon("b")}), 0U);
        EXPECT_EQ(std::exchange(error, std::nullopt)->code, 606);
        EXPECT_EQ(insert({geofence("g")}), 0U);
        EXPECT_EQ(std::exchange(error, std::nullopt)->code, 606);
        EXPECT_EQ(data->enableBeaconsWithNamespace("", false, &error), 0U);
        EXPECT_EQ(std::exchange(error, std::nullopt)->code, 606);
        EXPECT_FALSE(data->removeBeaconsWithIds(ids, &error));
        EXPECT_EQ(std::exchange(error, std::nullopt)->code, 606);
        EXPECT_EQ(data->enableGeofencesWithNamespace("", false, &error), 0U);
        EXPECT_FALSE(error) << "geofences do not ask";
        return beacon("a");
    };
    EXPECT_EQ(data->insertOrUpdateBeacons(reenter, &error), 1U);
    EXPECT_EQ(insert({beacon("b")}), 1U) << "the guard is down again";
    EXPECT_EQ(idsOf(data->getAllBeacons()), "a b");
}

TEST_F(Places, ABusyStoreTakesNoneInTwice) {
    ASSERT_EQ(insert({beacon("a")}), 1U);
    ASSERT_TRUE(data->saveContext());
    auto other = host.connect();
    other.exec("BEGIN IMMEDIATE");
    EXPECT_EQ(insert({beacon("a"), beacon("b")}), 0U);
    EXPECT_EQ(error->code, 600);
    EXPECT_FALSE(data->removeBeaconsWithIds(std::vector<std::string>{"a", "b"}, &error));
    other.exec("ROLLBACK");
    EXPECT_TRUE(data->saveContext());
    EXPECT_EQ(idsOf(data->getAllBeacons()), "a") << "what failed does not come later";
}

TEST_F(Places, EnablingRemovingAndResetting) {
    std::vector<std::shared_ptr<QuomiBeaconData>> beacons{beacon("a", {"r"}), beacon("b"), beacon("c")};
    beacons[0]->namespace_ = "shop";
    beacons[1]->namespace_ = "shop";
    ASSERT_EQ(insert(beacons), 3U);
    for (const auto& [appNamespace, count] : {std::pair("shop", 2U), {"", 3U}, {" ", 3U}, {"mall", 0U}}) {
        EXPECT_EQ(data->enableBeaconsWithNamespace(appNamespace, false), count) << appNamespace;
    }
    EXPECT_FALSE(beacons[2]->enabled);
    EXPECT_EQ(data->enableBeaconsWithNamespace("shop", true), 2U);
    EXPECT_EQ(data->enableBeaconsWithNamespace("shop", true), 2U) << "those that were enabled count too";
    EXPECT_TRUE(beacons[0]->enabled && beacons[1]->enabled && !beacons[2]->enabled);

    beacons[0]->rules().front()->lastTriggerDate = at(3);
    beacons[1]->groupHistory = {at(1)};
    EXPECT_TRUE(data->resetAllBeaconsCounters());
    EXPECT_EQ(beacons[0]->rules().front()->lastTriggerDate, WallTime());
    EXPECT_THAT(beacons[1]->groupHistory, IsEmpty());

    EXPECT_TRUE(data->removeBeaconsWithIds(std::vector<std::string>{"b", "unknown", "b"}));
    EXPECT_EQ(idsOf(data->getAllBeacons()), "a c");
    EXPECT_EQ(data->getBeaconRuleById("r")->beacon(), beacons[0]);
    EXPECT_TRUE(data->removeAllBeacons());
    EXPECT_EQ(beacons[0]->context(), nullptr);
    EXPECT_EQ(data->getBeaconRuleById("r"), nullptr);
    ASSERT_EQ(insert({geofence("g"), geofence("h")}), 2U);
    EXPECT_TRUE(data->removeGeofenceWithId("g"));
    EXPECT_TRUE(data->removeGeofencesWithIds({}));
    EXPECT_EQ(idsOf(data->getAllGeofences()), "h");
    EXPECT_TRUE(data->removeAllGeofences());
}

/// The child context, which is the current one only while the app is in the background.
TEST_F(Places, BackgroundContext) {
    ASSERT_EQ(insert({beacon("a")}), 1U);
    ASSERT_TRUE(data->saveContext());
    const auto original = data->getBeaconById("a");
    data->startBackgroundObjectContext();
    EXPECT_EQ(data->getBeaconById("a"), original);
    host.phone.background();
    const auto copy = data->getBeaconById("a");
    EXPECT_NE(copy, original);
    copy->seenCount = 5;
    data->startBackgroundObjectContext();  // a second user of the same one
    data->finishBackgroundObjectContext();
    EXPECT_EQ(data->getBeaconById("a"), copy);
    EXPECT_EQ(original->seenCount, 0);
    EXPECT_TRUE(data->setSdkIsStarted(true));
    EXPECT_EQ(original->seenCount, 5);
    copy->seenCount = 6;
    data->finishBackgroundObjectContext();
    data->finishBackgroundObjectContext();
    EXPECT_EQ(copy->context(), nullptr);
    EXPECT_EQ(data->getBeaconById("a"), original);
    EXPECT_EQ(original->seenCount, 5) << "what the child had not saved is lost";
    EXPECT_TRUE(data->sdkIsStarted());
}

TEST_F(Places, EventsThatEarlierVersionsKept) {
    auto other = host.connect();
    for (int i = 0; i < 5; ++i) {
        other.exec(fmt::format("INSERT INTO QuomiDebugLog (logTime, logData) VALUES ({}, '{}')", i % 3, i));
    }
    const auto page = [&](int number, int size) {
        std::string texts;
        for (const auto& event : data->getLoggedEvents(number, size)) texts += *event->logData;
        return texts;
    };
    EXPECT_EQ(page(0, 2), "21");
    EXPECT_EQ(page(1, 2), "40");
    EXPECT_EQ(page(2, 2), "3");
    EXPECT_EQ(page(3, 2), "");
    EXPECT_EQ(page(-1, 2), "21");
    EXPECT_EQ(page(std::numeric_limits<int>::max(), std::numeric_limits<int>::max()), "");
    EXPECT_EQ(data->getAllLoggedEvents().size(), 5U);
    EXPECT_EQ(data->getLoggedEventsCount(), 5U);
    EXPECT_TRUE(data->removeAllLoggedEvents());
    EXPECT_EQ(data->getLoggedEventsCount(), 0U);
}

// What a query costs: the steps of SQLite's machine, told by the connection itself. A row that is passed takes several.

int g_steps = 0;

int countSteps(unsigned /*event*/, void* /*context*/, void* statement, void* /*time*/) {
    g_steps += sqlite3_stmt_status(static_cast<sqlite3_stmt*>(statement), SQLITE_STMTSTATUS_VM_STEP, 1);
    return 0;
}

int watch(sqlite3* database, const char** /*message*/, const void* /*routines*/) {
    return sqlite3_trace_v2(database, SQLITE_TRACE_PROFILE, countSteps, nullptr);
}

TEST_F(Places, QueriesAskTheirIndices) {
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch));
    data = host.open();
    sqlite3_reset_auto_extension();
    constexpr int kMany = 2000;
    std::vector<std::shared_ptr<QuomiGeofence>> geofences;
    std::vector<std::shared_ptr<QuomiBeaconData>> beacons;
    for (int i = 0; i < kMany; ++i) {
        const auto id = std::to_string(i);
        geofences.push_back(geofenceAt(id, 50 + i % 10, i));
        beacons.push_back(beacon(id));
        addRules<QuomiGeofenceRuleWithActions>(*geofences.back(), {id.c_str()});
        addRules<QuomiBeaconRuleWithActions>(*beacons.back(), {id.c_str()});
        geofences.back()->group = beacons.back()->group = id;
        beacons.back()->proximityUUID = kShop.string();
        beacons.back()->major = beacons.back()->minor = i;
    }
    insert(geofences);
    insert(beacons);
    ASSERT_TRUE(data->saveContext());
    geofences.clear();
    beacons.clear();
    const auto any = [](const QuomiBeaconData&) { return true; };
    const std::vector<std::string> ids{"8", "9"};
    const std::vector<std::pair<const char*, std::function<bool()>>> queries{
        {"nearby", [&] { return data->findNearbyGeofences(52, 2, 1).size() == 3; }},
        {"geofence", [&] { return data->getGeofenceById("7")->rules().size() == 1; }},
        {"geofence's rule", [&] { return data->getGeofenceRuleById("7")->geofence() != nullptr; }},
        {"geofences of a group", [&] { return data->getGeofencesInGroup("7").size() == 1; }},
        {"beacon", [&] { return data->getBeaconById("7")->rules().size() == 1; }},
        {"beacon's rule", [&] { return data->getBeaconRuleById("7")->beacon() != nullptr; }},
        {"beacons of a group", [&] { return data->getBeaconsInGroup("7").size() == 1; }},
        {"numbers", [&] { return data->getBeaconsByProximityUUID(kShop, 7, 7).size() == 1; }},
        {"no minor", [&] { return data->getBeaconsByProximityUUID(kShop, 7, std::nullopt).empty(); }},
        {"secure", [&] { return data->getBeaconsByProximityUUID(kShop, 7, any).size() == 1; }},
        {"insertion", [&] { return insert({beacon("7", {"7"})}) == 1; }},
        {"removal", [&] { return data->removeBeaconsWithIds(ids) && data->removeGeofencesWithIds(ids); }},
    };
    for (const auto& [what, query] : queries) {
        g_steps = 0;
        EXPECT_TRUE(query()) << what;
        EXPECT_LT(g_steps, kMany) << what;
    }
    g_steps = 0;
    EXPECT_EQ(data->enableGeofencesWithNamespace("shop", true), 0U);
    EXPECT_GT(g_steps, kMany) << "this one has no index";
}

}  // namespace
}  // namespace quomi::test
