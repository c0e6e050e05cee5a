#include "quomi/data/rule_owner.h"
#include "tests/rules/rule_support.h"

namespace quomi::test {
namespace {

const std::string kRan = R"(r executed {"actions":["notify_user"]})";

TEST_F(RuleTest, GeofenceIsCountedAtItsEntryAndFastDevicesAreLeftAlone) {
    const auto place =
        geofenceWith(rule<GeofenceRule>("r", {kNotify}, [](auto& r) { r.maxSpeedToNotifyUserThreshold = 5.0; }));
    for (const auto& [speed, outcome] :
         {std::pair{5.0, std::vector{std::string("trigger r"), std::string("notifies Hello"), kRan}},
          {5.01, {R"(r tooFast {"speed":5.01E0,"limit":5E0})"}}}) {
        speed_ = speed;
        EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(place));
        EXPECT_EQ(taken(), outcome);
    }
    EXPECT_EQ(boost::json::serialize(info_), R"({"area_type":"geofence","geofence_id":"g","rule_id":"r"})");
    EXPECT_EQ(place->entryCount, 2);
    EXPECT_EQ(place->lastEnteredAt, now());
    EXPECT_EQ(data_->getSDKStatusInfo()->lastEventDate, WallTime());
    EXPECT_TRUE(geofences_->executeGeofenceExitedActions(place));
    EXPECT_EQ(place->entryCount, 2);
    std::optional<Error> error;
    EXPECT_FALSE(geofences_->executeGeofenceEnteredActions(nullptr, &error));
    EXPECT_EQ(error->code, 201);
    place->startDate = now() + seconds(1);
    EXPECT_FALSE(geofences_->executeGeofenceExitedActions(place, &error));
    EXPECT_EQ(error->code, 202);
    EXPECT_THAT(taken(), IsEmpty());
}

TEST_F(RuleTest, GeofenceRulesWaitAfterTheyWereCounted) {
    const auto latched = [](auto& r) { r.latchTime = 60; };
    const auto judged = rule<GeofenceRule>("r", {kNotify}, latched);
    auto place = geofenceWith(judged);
    EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(place));
    EXPECT_THAT(taken(), ElementsAre("trigger r", R"(r latched {"seconds":6E1})"));
    EXPECT_EQ(judged->triggersCount, 1);
    phone_.advanceBy(seconds(60));
    EXPECT_THAT(taken(), ElementsAre("notifies Hello", kRan));
    EXPECT_EQ(judged->triggersCount, 1);
    EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(place));
    geofences_->clearAllTimersForGeofenceId("other");
    taken();
    geofences_->clearAllTimersForGeofenceId("g");
    EXPECT_THAT(taken(), ElementsAre("r latchCancelled {}"));
    EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(place));
    data_->removeAllGeofences();
    taken();
    phone_.advanceBy(seconds(60));
    EXPECT_THAT(taken(), ElementsAre("console Quomi SDK: Geofence (null) has been exited, rule won't be executed.",
                                     "r latchBroken {}"));
    place = geofenceWith(rule<GeofenceRule>("r", {kNotify}, [](auto& r) {
        r.latchTime = 600;
        r.trigger = kTriggerOnExit;
    }));
    EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(place));
    phone_.advanceBy(seconds(599));
    EXPECT_TRUE(geofences_->executeGeofenceExitedActions(place));
    EXPECT_THAT(taken(), ElementsAre("trigger r", R"(r visitTooShort {"seconds":5.99E2,"limit":6E2})"));
    EXPECT_EQ(data_->getGeofenceRuleById("r")->triggersCount, 1);
    phone_.advanceBy(seconds(1));
    EXPECT_TRUE(geofences_->executeGeofenceExitedActions(place));
    EXPECT_THAT(taken(), ElementsAre("trigger r", "notifies Hello", kRan));
}

TEST_F(RuleTest, LatchRunsTheRuleOfItsOwnGeofenceUnderTheTriggerOfItsEvent) {
    for (const char* id : {"bread", "wine"}) {
        geofence(id, std::vector{rule<GeofenceRule>("r", {{kActionNotifyUser, id}}, [](auto& r) { r.latchTime = 9; })});
    }
    std::vector<std::string> told;
    observer_->ruleDecided = [&](const RuleReport& report) {
        told.push_back(fmt::format("{} {} {}", report.owner, report.trigger, nameOf(report.decision)));
    };
    const auto wine = data_->getGeofenceById("wine");
    const auto rule = wine->ruleWithId("r");
    for (const std::string runs : {"wine", "bread"}) {
        EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(wine));
        rule->trigger = kTriggerOnExit;  // as a download may
        if (runs == "bread") rule->ruleId = "other";
        told.clear();
        phone_.advanceBy(seconds(10));
        EXPECT_THAT(taken(), Contains("notifies " + runs));
        EXPECT_THAT(told, ElementsAre("wine on_entry executed"));
        rule->trigger = kTriggerOnEntry;
    }
}

TEST_F(RuleTest, AllowedGeofenceActionsRunInALaterTurnOfTheirOwn) {
    const QuomiAction server{kActionNotifyServer, "https://shop.test/hook?p={lat},{lng}&n={namespace}&i={id}"};
    for (const bool isRemoved : {false, true}) {
        const auto place = geofenceWith(rule<GeofenceRule>("r", {server, kNotify}));
        serverAnswers(R"({"decision": "enable"})");
        bool isAllowed = false;
        inCallback_ = [&](const std::string& line) {
            if (line == "notify_server r") phone_.loop().post([&] { isAllowed = true; });
            if (line == "notify_server r" && isRemoved) data_->removeAllGeofences();
            EXPECT_TRUE(isAllowed || line != "notifies Hello") << "in a later turn";
        };
        EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(place));
        const std::string url = "https://shop.test/hook?p=52.500000,13.400000&n=shop&i=g&type=geofence";
        EXPECT_THAT(taken(), ElementsAre("trigger r", "request " + url, R"(r askServer {"url":")" + url + "\"}"));
        phone_.advanceBy(seconds(1));
        if (isRemoved) {
            EXPECT_THAT(taken(), ElementsAre("notify_server r", R"(r executed {"actions":[]})"));
        } else {
            EXPECT_THAT(taken(), ElementsAre("notify_server r", "notifies Hello", kRan));
        }
        inCallback_ = {};
        data_->removeAllGeofences();
    }
}

TEST_F(RuleTest, GeofenceCountsStayWhenTheHostRefuses) {
    const auto judged = rule<GeofenceRule>("r", {kNotify});
    const auto place = geofenceWith(judged);
    host_.shouldExecuteNotificationRequest = [](const auto&, int) { return false; };
    phone_.background();
    data_->startBackgroundObjectContext();
    const auto inChild = data_->getGeofenceById("g");
    EXPECT_NE(inChild, place);
    EXPECT_TRUE(geofences_->executeGeofenceEnteredActions(inChild));
    data_->finishBackgroundObjectContext();
    EXPECT_THAT(taken(), ElementsAre("trigger r", R"(r vetoed {"action":"notify_user"})"));
    EXPECT_EQ(place->entryCount, 1) << "the child context has handed it on";
    EXPECT_EQ(judged->triggersCount, 1);
    EXPECT_EQ(data_->getSDKStatusInfo()->globalTriggersCount, 1);
}

}  // namespace
}  // namespace quomi::test
