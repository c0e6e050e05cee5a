#include "quomi/data/rule_owner.h"
#include "quomi/platform/notification_center.h"
#include "quomi/rules/rule_gates.h"
#include "tests/rules/rule_support.h"

namespace quomi::test {
namespace {

constexpr auto kImmediate = QuomiProximityImmediate, kNear = QuomiProximityNear, kFar = QuomiProximityFar,
               kMediumFar = QuomiProximityMediumFar, kDistantFar = QuomiProximityDistantFar,
               kUnknown = QuomiProximityUnknown;
using Rules = std::vector<std::shared_ptr<QuomiBeaconRuleWithActions>>;

TEST_F(RuleTest, FoundBeaconRunsItsRulesInOrderOfPriorityAndStoreOrder) {
    const auto priority = [](int number) { return [number](auto& r) { r.priority = number; }; };
    const auto seen =
        beacon("b", Rules{rule("late", {kNotify}, priority(5)), rule("first", {kNotify, kPage}, priority(1)),
                          rule("second", {kPage, kNotify}, priority(1)),
                          rule("exit", {kNotify}, [](auto& r) { r.trigger = kTriggerOnExit; }),
                          rule("immediate", {kNotify}, [](auto& r) { r.proximityEnd = 1; }),
                          rule("broken", {}, [](auto& r) { r.actions = "[", r.priority = 9; })});
    find(seen);
    EXPECT_THAT(taken(), ElementsAre(R"(immediate outOfRange {"range":[1,1],"previous":7,"new":2})", "trigger first",
                                     "notifies Hello", "open_url first",
                                     R"(first executed {"actions":["notify_user","open_url"]})", "trigger second",
                                     StartsWith("console Quomi SDK Warning: can't present view controller"),
                                     "notifies Hello", R"(second executed {"actions":["open_url","notify_user"]})",
                                     "trigger late", "notifies Hello", R"(late executed {"actions":["notify_user"]})",
                                     "trigger broken", R"(broken executed {"actions":[]})"));
    EXPECT_EQ(seen->seenCount, 1);
    EXPECT_EQ(seen->lastSeenAt, now());
    EXPECT_TRUE(beacons_->executeBeaconLostActions(seen, kNear));
    EXPECT_THAT(taken(), ElementsAre("trigger exit", "notifies Hello", R"(exit executed {"actions":["notify_user"]})"));
    EXPECT_TRUE(beacons_->executeRegionEnteredActions(seen));
    EXPECT_THAT(taken(), Contains(R"(immediate executed {"actions":["notify_user"]})")) << "no range counts";
    EXPECT_EQ(seen->seenCount, 2);
    seen->endDate = now() - seconds(1);
    std::optional<Error> error;
    EXPECT_FALSE(beacons_->executeBeaconLostActions(seen, kNear, &error));
    EXPECT_EQ(error->code, 203);
    EXPECT_THAT(taken(), ElementsAre(R"(exit inactive {"code":203})"));
}

TEST_F(RuleTest, ChangedProximityIsJudgedByEachRulesOwnDistance) {
    const auto farther = [](auto& r) {
        r.useRuleMaxMediumFar = true;
        r.maxDistanceMediumFar = 6;
        r.proximityEnd = 4;
    };
    const auto seen = beacon("b", Rules{rule("in", {}, farther), rule("out", {}, [&](auto& r) {
                                            farther(r);
                                            r.trigger = kTriggerOnExit;
                                        })});
    const std::string inside = R"(outOfRange {"range":[1,4],"previous":4,"new":2})";
    const std::string outIn = R"(outOfRange {"range":[1,4],"previous":5,"new":4})";
    const std::string inOut = R"(outOfRange {"range":[1,4],"previous":4,"new":5})";
    const std::string ran = R"(executed {"actions":[]})";
    for (const auto& [from, to, fromMetres, toMetres, outcome] :
         Table<QuomiProximity, QuomiProximity, double, double, Strings>{
             {kDistantFar, kMediumFar, 8, 5, {"out " + outIn, "trigger in", "in " + ran}},
             {kMediumFar, kMediumFar, 5, 8, {"trigger out", "out " + ran, "in " + inOut}},
             {kMediumFar, kMediumFar, 7, 8, {}},
             {kUnknown, kNear, -1, 1, {"out " + inside, "in " + inside}},
             {kDistantFar, kMediumFar, 8, 0, {"out " + outIn, "trigger in", "in " + ran}},
             {kMediumFar, kMediumFar, 5, 0, {}}}) {
        EXPECT_TRUE(beacons_->executeBeaconProximityChangedActions(seen, from, fromMetres, to, toMetres));
        EXPECT_EQ(taken(), outcome) << fromMetres << " to " << toMetres;
    }
    EXPECT_EQ(seen->seenCount, 0);
}

TEST_F(RuleTest, LatchTimeEndsWithAnotherLookAtTheBeacon) {
    const std::string beacon = "console Quomi SDK: Proximity of beacon (UUID: " + Uuid().string();
    const auto gone = beacon +
                      " - Major: 1 - Minor: 2 ,ID = b) has changed (expected to be between 1 and 2 to execute "
                      "rule) or beacon is not visible anymore, actions won't be executed.";
    const auto back = beacon +
                      " - Major: 1 - Minor: 2 , ID = b) has changed (expected to be not between 1 and 2 to "
                      "execute rule), actions won't be executed";
    for (const auto& [trigger, proximity, outcome, message] :
         Table<const char*, std::optional<QuomiProximity>, std::string, std::string>{
             {kTriggerOnEntry, kNear, "r executed {\"actions\":[]}", "trigger r"},
             {kTriggerOnEntry, kFar, "r latchBroken {}", gone},
             {kTriggerOnEntry, std::nullopt, "r latchBroken {}", gone},
             {kTriggerOnExit, kFar, "r executed {\"actions\":[]}", "trigger r"},
             {kTriggerOnExit, std::nullopt, "r executed {\"actions\":[]}", "trigger r"},
             {kTriggerOnExit, kImmediate, "r latchBroken {}", back}}) {
        const auto seen = beaconWith(rule("r", {}, [&, on = trigger](auto& r) {
            r.trigger = on;
            r.proximityEnd = 2;
            r.latchTime = 0.5;
        }));
        hear(proximity);
        const bool isEntry = std::string_view(trigger) == kTriggerOnEntry;
        EXPECT_TRUE(isEntry ? beacons_->executeRegionEnteredActions(seen) : beacons_->executeRegionExitedActions(seen));
        EXPECT_THAT(taken(), ElementsAre(R"(r latched {"seconds":5E-1})"));
        phone_.advanceBy(std::chrono::milliseconds(500) - Duration(1));
        EXPECT_THAT(taken(), IsEmpty());
        phone_.advanceBy(Duration(1));
        EXPECT_THAT(taken(), ElementsAre(message, outcome));
        EXPECT_EQ(beacons_->pendingTimersCount(), 0U);
        data_->removeAllBeacons();
    }
}

TEST_F(RuleTest, LatchOfADeletedRuleAndCancelledLatchesRunNothing) {
    const auto latched = [](auto& r) { r.latchTime = 9; };
    auto seen = beacon("b", Rules{rule("r", {kNotify}, latched)});
    find(seen);
    find(seen);
    EXPECT_EQ(beacons_->pendingTimersCount(), 2U) << "an event, a timer";
    data_->removeAllBeacons();
    taken();
    phone_.advanceBy(seconds(10));
    EXPECT_THAT(taken(), Contains("console Quomi SDK Error: Cannot execute beacon rule with latch time: couldn't "
                                  "retrieve rule data.")
                             .Times(2));
    find(beacon("b", Rules{rule("r", {kNotify}, latched)}));
    taken();
    beacons_->clearAllPendingTimersForBeaconId("b");
    phone_.advanceBy(seconds(10));
    EXPECT_THAT(taken(), ElementsAre("r latchCancelled {}"));
}

TEST_F(RuleTest, LatchRunsTheRuleOfItsOwnBeaconUnderTheTriggerOfItsEvent) {
    const auto shelf = [&](const std::string& id, const std::string& text) {
        return beacon(id, Rules{rule("r", {{kActionNotifyUser, text}}, [](auto& r) { r.latchTime = 9; })});
    };
    const auto bread = shelf("bread", "Bread");
    const auto wine = shelf("wine", "Wine");
    std::vector<std::string> told;
    observer_->ruleDecided = [&](const RuleReport& report) {
        told.push_back(fmt::format("{} {} {}", report.owner, report.trigger, nameOf(report.decision)));
    };
    for (const std::string text : {"Wine", "Bread"}) {
        find(wine);
        wine->rules().front()->trigger = kTriggerOnExit;  // as a download may
        if (text == "Bread") wine->rules().front()->ruleId = "other";
        told.clear();
        phone_.advanceBy(seconds(10));
        EXPECT_THAT(taken(), Contains("notifies " + text));
        EXPECT_THAT(told, ElementsAre("wine on_entry executed"));
        wine->rules().front()->trigger = kTriggerOnEntry;
    }
}

TEST_F(RuleTest, RefusedNotificationTakesItsCountBackAtOnceAndLater) {
    std::function<void(bool)> answer;
    const auto judged = rule("r", {kNotify});
    const auto seen = beaconWith(judged);
    data_->getSDKStatusInfo()->globalMinInterval = 600;
    host_.shouldExecuteNotificationRequest = [](const auto&, int) { return false; };
    find(seen);
    EXPECT_THAT(taken(), ElementsAre("trigger r", R"(r vetoed {"action":"notify_user"})"));
    EXPECT_EQ(judged->triggersCount, 0);
    host_.shouldExecuteNotificationRequestCompletionBlock = [&](const auto&, int, auto block) { answer = block; };
    find(seen);
    EXPECT_THAT(taken(), ElementsAre("trigger r", R"(r executed {"actions":["notify_user"]})")) << "no interval holds";
    EXPECT_EQ(judged->triggersCount, 1);
    find(seen);
    EXPECT_THAT(taken(), ElementsAre("trigger r", HasSubstr("r minInterval {\"seconds\":0E0,\"limit\":600,\"period\":"
                                                            "null,\"until\":\"")));
    answer(false);
    EXPECT_THAT(taken(), ElementsAre(R"(r vetoed {"action":"notify_user"})"));
    EXPECT_EQ(data_->getBeaconRuleById("r")->triggersCount, 0);
    EXPECT_EQ(data_->getSDKStatusInfo()->lastEventDate, WallTime());
}

TEST_F(RuleTest, VetoOfARuleOutsideTheDeviceWideCounterSavesThatNoIntervalHolds) {
    host_.shouldExecuteNotificationRequest = [](const auto&, int) { return false; };
    find(beaconWith(rule("r", {kNotify}, [](auto& r) { r.underGlobalCounter = false; })));
    data_->currentObjectContext().rollback();
    EXPECT_EQ(data_->getSDKStatusInfo()->lastEventDate, WallTime());
    EXPECT_EQ(data_->getBeaconRuleById("r")->triggersCount, 1);
}

/// Two beacons have a rule "r" each; the host refuses that of the second when a download or a reset has come between.
TEST_F(RuleTest, LateVetoTakesBackWhatItsOwnBeaconCounted) {
    std::function<void(bool)> answer;
    host_.shouldExecuteNotificationRequestCompletionBlock = [&](const auto&, int, auto block) { answer = block; };
    const auto shelf = [this](const std::string& id) {
        auto beacon = std::make_shared<QuomiBeaconData>();
        beacon->beaconId = id;
        beacon->group = id;
        beacon->proximityUUID = Uuid().string();
        beacon->addActionObject(
            rule("r", {kNotify}, [](auto& r) { r.maxEventsPeriod = r.maxGroupEventsPeriod = 100; }));
        return beacon;
    };
    const auto download = [&](std::vector<std::string> ids) {
        data_->insertOrUpdateBeacons(
            [&, at = std::size_t{0}]() mutable { return at < ids.size() ? shelf(ids[at++]) : nullptr; });
        EXPECT_TRUE(data_->saveContext());
    };
    const auto reset = [this] {
        data_->resetAllBeaconsCounters();
        data_->removeSDKStatusInfo();
    };
    const Table<const char*, std::function<void()>, int, int> cases = {
        {"in time", [] {}, 1, 0},
        {"replaced",
         [&] {
             download({"bread", "wine"});
         },
         1, 0},
        {"rule removed", [&] { data_->currentObjectContext().remove(*data_->getBeaconById("wine")->rules().front()); },
         1, 0},
        {"removed", [&] { data_->removeBeaconsWithIds(std::vector<std::string>{"wine"}); }, 1, -1},
        {"reset", reset, 0, 0}};
    for (const auto& [what, meanwhile, left, ofItsOwn] : cases) {
        download({"bread", "wine"});
        data_->getSDKStatusInfo()->globalMaxEventsPeriod = 100;
        for (const char* id : {"bread", "wine"}) find(data_->getBeaconById(id));
        meanwhile();
        answer(false);
        data_->currentObjectContext().rollback();
        const auto counts = [&](const char* id) {
            const auto beacon = data_->getBeaconById(id);
            if (beacon == nullptr) return -1;
            const auto rule = beacon->ruleWithId("r");
            EXPECT_TRUE(rule == nullptr || rule->triggersCount == beacon->groupTriggersCount) << what;
            EXPECT_TRUE(rule == nullptr || rule->history == beacon->groupHistory) << what;
            EXPECT_EQ(beacon->groupHistory.size(), static_cast<std::size_t>(beacon->groupTriggersCount)) << what;
            return beacon->groupTriggersCount;
        };
        EXPECT_EQ(data_->getSDKStatusInfo()->globalTriggersCount, left) << what;
        EXPECT_THAT(data_->getSDKStatusInfo()->globalHistory, SizeIs(left)) << what;
        EXPECT_EQ(counts("bread"), left) << what;
        EXPECT_EQ(counts("wine"), ofItsOwn) << what;
        reset();
        data_->removeAllBeacons();
    }
}

TEST_F(RuleTest, InTheBackgroundOneNotificationCarriesTheOpenAction) {
    const auto seen = beaconWith(rule("r", {kPage, kNotify}));
    phone_.inactive();
    find(seen);
    EXPECT_THAT(taken(), ElementsAre("trigger r", "notifies Hello", R"(r executed {"actions":["notify_user"]})"));
    EXPECT_EQ(boost::json::serialize(info_),
              R"({"area_type":"beacon","beacon_id":"b","rule_id":"r","major":1,"minor":2,"beacon_name":"b",)"
              R"("max_medium_far_distance":10,"param":"https://shop.test/page","type":"open_url","triggeredBy":2})");
    settings_.localNotificationActionsEnabled = false;
    find(seen);
    EXPECT_THAT(taken(), ElementsAre("trigger r", R"(r executed {"actions":[]})"));
    phone_.active();
    find(seen);
    EXPECT_THAT(taken(), ElementsAre("trigger r", "open_url r", R"(r executed {"actions":["open_url"]})"));
}

TEST_F(RuleTest, ServerDecidesAboutTheOtherActions) {
    const auto seen = beaconWith(rule("r", {kNotify, kServer}));
    const std::string asks = "request https://shop.test/hook?type=beacon";
    const std::string asked = R"(r askServer {"url":"https://shop.test/hook?type=beacon"})";
    const auto played = [&] {
        find(seen);
        phone_.advanceBy(seconds(60));
        return taken();
    };
    serverAnswers(R"({"decision": "enable"})");
    EXPECT_THAT(played(), ElementsAre("trigger r", asks, asked, "notify_server r", "notifies Hello",
                                      R"(r executed {"actions":["notify_user"]})"));
    const auto counted = data_->getBeaconRuleById("r")->triggersCount;
    EXPECT_EQ(counted, 1);
    settings_.serverNotificationActionsEnabled = false;
    EXPECT_THAT(played(), ElementsAre("trigger r", "r serverDisabled {}"));
    EXPECT_EQ(data_->getBeaconRuleById("r")->triggersCount, counted + 1) << "the count stays taken";
    settings_.serverNotificationActionsEnabled = true;
    host_.executeServerNotificationRequest = [](const auto&, int, auto success, auto) { success(); };
    EXPECT_THAT(played(), ElementsAre("trigger r", "notify_server r", "r hostAsked {}"));
    host_.shouldExecuteServerNotificationRequest = [](const auto&, int) { return false; };
    EXPECT_THAT(played(), ElementsAre("trigger r", R"(r vetoed {"action":"notify_server"})"));
    EXPECT_EQ(data_->getBeaconRuleById("r")->triggersCount, counted + 2) << "the refused one is taken back";
}

TEST_F(RuleTest, PlaceholdersOfTheServersUrl) {
    const std::string uuid = Uuid().string();
    const auto seen = beaconWith(rule("r", {{kActionNotifyServer,
                                             "https://a.test/{id}/{udid}/{namespace}/{proximityUUID}/{major}.{minor}."
                                             "{proximity}.{proximityEnd}?e={ext_id}&x={else} a"}}));
    find(seen);
    EXPECT_THAT(taken(), Contains("request https://a.test/b/UDID/shop/" + uuid +
                                  "/1.2.1.3?e=%61%20%62%25%34&x=%7Belse%7D%20a&type=beacon"));
    seen->minor.reset();
    find(seen);
    phone_.advanceBy(seconds(1));
    EXPECT_THAT(taken(), Contains("request https://a.test/b/UDID/shop/" + uuid +
                                  "/%7Bmajor%7D.%7Bminor%7D.%7Bproximity%7D.%7BproximityEnd%7D?e=%61%20%62%25%34"
                                  "&x=%7Belse%7D%20a&type=beacon"));
}

TEST_F(RuleTest, TheServersUrlIsBoundedWhateverFillsIt) {
    std::string many = "https://a.test/?";
    for (int i = 0; i < 2000; ++i) many += "{id}";
    for (const auto& [id, url] : Table<std::string, std::string>{
             {"{udid}", "https://a.test/{id}"}, {std::string(60'000, 'i'), "https://a.test/{id}"}, {"12345", many}}) {
        auto seen = beacon(id, Rules{rule("r", {{kActionNotifyServer, url}})});
        find(seen);
        if (id == "{udid}") {
            EXPECT_THAT(taken(), Contains("request https://a.test/%7Budid%7D?type=beacon")) << "filled once";
        } else {
            EXPECT_THAT(taken(), AllOf(Contains("r serverFailed {}"), Not(Contains(StartsWith("request")))));
        }
    }
}

TEST_F(RuleTest, RemovedRuleAndFailedSaveEndTheRuleQuietlyAndTheNextRunsCounted) {
    find(beacon("b", Rules{rule("r", {kNotify}), rule("s", {kNotify})}));
    taken();
    inCallback_ = [&](const std::string& line) {
        // A rule that the store refuses: everything that the next save would write is dropped.
        if (line == "trigger r") data_->getBeaconRuleById("r")->ruleId.reset();
        EXPECT_TRUE(line != "trigger s" || data_->getBeaconRuleById("s")->triggersCount == 1);
    };
    EXPECT_TRUE(beacons_->executeBeaconFoundActions(data_->getBeaconById("b"), kNear));
    EXPECT_THAT(taken(), ElementsAre("trigger r", "r saveFailed {}", "trigger s", "notifies Hello",
                                     R"(s executed {"actions":["notify_user"]})"));
    EXPECT_EQ(data_->getBeaconRuleById("s")->triggersCount, 2);
    inCallback_ = [&](const std::string& line) {
        if (line == "trigger r") data_->removeAllBeacons();
    };
    EXPECT_TRUE(beacons_->executeBeaconFoundActions(data_->getBeaconById("b"), kNear));
    EXPECT_THAT(taken(), ElementsAre("trigger r")) << "neither rule is there any more";
}

TEST_F(RuleTest, EndFromEveryCallbackIsTheLastThingThatHappens) {
    const auto answers = [this](auto value) {
        return [this, value](const auto&, int) { return note("asked"), value; };
    };
    host_.shouldExecuteNotificationRequest = answers(true);
    host_.shouldExecuteOpenWebPageRequest = answers(true);
    host_.shouldExecuteServerNotificationRequest = answers(true);
    serverAnswers(R"({"decision": "enable"})");
    const auto play = [this] {
        const auto latched = [](auto& r) { r.latchTime = 5; };
        const auto seen =
            beacon("b", Rules{rule("r", {kNotify, kPage}), rule("s", {kNotify, kServer}), rule("t", {kPage}, latched)});
        const auto place = geofence("g", std::vector{rule<GeofenceRule>("u", {kNotify, kServer})});
        hear(kNear);
        beacons_->executeBeaconFoundActions(seen, kNear);
        beacons_->executeBeaconProximityChangedActions(seen, kFar, kUnknown);
        geofences_->executeGeofenceEnteredActions(place);
        phone_.advanceBy(seconds(60));
        return taken();
    };
    const auto whole = play();
    ASSERT_GT(whole.size(), 25U);
    for (std::size_t end = 0; end < whole.size(); ++end) {
        if (whole[end].starts_with("request ")) continue;  // nobody is called there
        data_->removeAllBeacons();
        data_->removeAllGeofences();
        makeExecutors();
        std::size_t seen = 0;
        bool hasEnded = false;
        inCallback_ = [&](const std::string& line) {
            const bool endsAWait = line.ends_with("latchCancelled {}") || line.ends_with("serverFailed {}");
            EXPECT_TRUE(!hasEnded || endsAWait) << end << ": " << line;
            if (seen++ != end) return;
            // As a stop does: what is sent is cancelled, and nothing is left of what was there.
            hasEnded = true;
            beacons_->end();
            geofences_->end();
            actions_->end();
            api_.cancelAllRequests();
            data_->removeAllBeacons();
            data_->removeAllGeofences();
        };
        play();
        phone_.closeWebPage();
        EXPECT_TRUE(hasEnded) << end;
        inCallback_ = {};
    }
}

}  // namespace
}  // namespace quomi::test
