#include "quomi/platform/clock.h"
#include "tests/data/store_support.h"

namespace quomi::test {
namespace {

/// Opening hours are those of the phone's zone, start and end are moments.
TEST(Entities, WhatIsActive) {
    constexpr const char* kMorning = R"({"week":{"thu":{"open":32400,"close":43200}}})";  // 9 to 12
    constexpr double kNow = 1'700'128'800;                                                // Thursday, 10:00 in UTC
    const Table<std::optional<double>, std::optional<double>, const char*, const char*, std::int64_t> cases{
        {{}, {}, nullptr, "UTC", 0},
        {kNow, kNow, nullptr, "UTC", 0},
        {kNow + 0.000001, {}, nullptr, "UTC", 202},
        {{}, kNow - 0.000001, nullptr, "UTC", 203},
        {kNow + 1, kNow - 1, kMorning, "Asia/Tokyo", 202},
        {{}, kNow - 1, kMorning, "Asia/Tokyo", 203},
        {{}, {}, kMorning, "UTC", 0},
        {{}, {}, kMorning, "Europe/Berlin", 0},
        {{}, {}, kMorning, "Europe/Helsinki", 204},
        {{}, {}, kMorning, "Asia/Tokyo", 204},
        {{}, {}, R"({"week":{"fri":{"open":0,"close":36000}}})", "Pacific/Auckland", 0},
        {{}, {}, "", "UTC", 0},
        {{}, {}, "no JSON", "UTC", 0}};
    for (const auto& [start, end, schedule, zone, code] : cases) {
        const StoreHost host({.start = at(kNow), .timeZone = zone});
        const auto made = beacon("b");
        if (start) made->startDate = at(*start);
        if (end) made->endDate = at(*end);
        if (schedule != nullptr) made->schedule = schedule;
        std::optional<Error> error;
        EXPECT_EQ(made->isActive(host.platform.clock, host.errors, &error), code == 0) << schedule << " " << zone;
        EXPECT_EQ(error ? error->code : 0, code) << zone;
    }
    QuomiGeofence geofence;
    QuomiSchedule hours;
    hours.setFromJSONString(kMorning);
    geofence.setScheduleObject(hours);
    EXPECT_EQ(geofence.schedule, kMorning);
    geofence.schedule = "no JSON";
    EXPECT_EQ(geofence.getScheduleObject().toJSONString(), kMorning) << "what cannot be read changes nothing";
}

TEST(Entities, ActionsAsText) {
    const StoreHost host;
    std::optional<Error> error;
    QuomiBeaconRuleWithActions rule;
    EXPECT_EQ(rule.getAndDeserializeActions(&error), std::nullopt);
    EXPECT_FALSE(error);
    EXPECT_FALSE(rule.serializeAndSetActions({}, host.errors, &error));
    EXPECT_EQ(error->code, 607);
    EXPECT_FALSE(rule.addAction(nullptr, host.errors, &error));
    EXPECT_EQ(error->code, 608);
    const auto open = QuomiAction::createWithType(kActionOpenUrl, "https://a/\"ä\"");
    const auto tell = QuomiAction::createWithType(kActionNotifyUser, "");
    EXPECT_TRUE(rule.addAction(&open, host.errors));
    EXPECT_TRUE(rule.addAction(&tell, host.errors));
    EXPECT_EQ(rule.actions, R"([{"action_type":"open_url","action_param":"https://a/\"ä\""},)"
                            R"({"action_type":"notify_user","action_param":""}])");
    EXPECT_EQ(rule.getAndDeserializeActions(), (std::vector{open, tell}));
    EXPECT_FALSE(rule.serializeAndSetActions({}, host.errors));
    EXPECT_EQ(rule.getAndDeserializeActions()->size(), 2U) << "a failure changes nothing";
    for (const auto& [text, fails] : {std::pair("[", true), {"{}", false}, {" \n", false}, {"", false}}) {
        error.reset();
        rule.actions = text;
        EXPECT_EQ(rule.getAndDeserializeActions(&error), std::nullopt) << text;
        EXPECT_EQ(error.has_value(), fails) << text;
    }
    rule.actions = "[7, {\"action_param\": 1}]";
    EXPECT_THAT(*rule.getAndDeserializeActions(), ElementsAre(QuomiAction(), (QuomiAction{"", "1"})));
    EXPECT_TRUE(rule.removeAllActions());
    EXPECT_EQ(rule.actions, "");
}

TEST(Entities, Dictionaries) {
    const StoreHost host;
    EXPECT_EQ(boost::json::serialize(QuomiDebugLog().dictionary()), R"({"logTime":null,"logData":null})");
    const auto place = beacon("b1", {"r"});
    const auto rule = place->getActionsAndRulesSuitableForTrigger(kTriggerOnEntry).front();
    const auto action = QuomiAction::createWithType(kActionOpenUrl, "u");
    ASSERT_TRUE(rule->addAction(&action, host.errors));
    rule->history = {at(1.5)};
    place->minor = 7;
    const auto dictionary = place->dictionary();
    EXPECT_EQ(dictionary.at("minor"), 7);
    EXPECT_TRUE(dictionary.at("major").is_null());
    EXPECT_EQ(dictionary.at("lastSeenAt"), "1970-01-01T00:00:00.000Z");
    const auto& ruleDictionary = dictionary.at("actions").at(0).as_object();
    EXPECT_EQ(boost::json::serialize(ruleDictionary.at("actions")),
              R"([{"action_type":"open_url","action_param":"u"}])");
    EXPECT_EQ(boost::json::serialize(ruleDictionary.at("history")), R"(["1970-01-01T00:00:01.500Z"])");
    EXPECT_EQ(ruleDictionary.at("underGlobalCounter"), true);
}

TEST(Entities, RulesSelectedByTheMove) {
    using enum QuomiProximity;
    const Table<const char*, int, std::optional<int>, QuomiProximity, QuomiProximity, bool> cases{
        {"on_entry", 2, {}, QuomiProximityFar, QuomiProximityNear, true},
        {"on_entry", 2, {}, QuomiProximityImmediate, QuomiProximityNear, true},
        {"on_entry", 2, {}, QuomiProximityNear, QuomiProximityNear, false},
        {"on_entry", 1, 2, QuomiProximityImmediate, QuomiProximityNear, false},
        {"on_entry", 1, 2, QuomiProximityUndetermined, QuomiProximityImmediate, true},
        {"on_entry", 1, 3, QuomiProximityUndetermined, QuomiProximityDistantFar, true},
        {"on_entry", 1, 4, QuomiProximityUndetermined, QuomiProximityDistantFar, false},
        {"on_exit", 1, 2, QuomiProximityNear, QuomiProximityMediumFar, true},
        {"on_exit", 1, 2, QuomiProximityFar, QuomiProximityNear, false},
        {"on_exit", 0, {}, QuomiProximityUnknown, QuomiProximityNear, true},
        {"on_dwell", 1, 5, QuomiProximityUndetermined, QuomiProximityNear, false},
    };
    for (const auto& [trigger, start, end, from, to, isSelected] : cases) {
        const auto place = beacon("b", {"r", "other"});
        const auto rules = place->getActionsAndRulesSuitableForTrigger(kTriggerOnEntry);
        rules.front()->trigger = trigger;
        rules.front()->proximity = start;
        rules.front()->proximityEnd = end;
        rules.back()->trigger = "never";
        EXPECT_EQ(place->getActionsAndRulesSuitableForTrigger(trigger, from, to).size(), isSelected ? 1U : 0U)
            << trigger << " " << start << " " << from << " " << to;
        EXPECT_EQ(place->getActionsAndRulesSuitableForTrigger(trigger).size(), 1U);
    }
}

TEST(Entities, CountersGoToTheRulesOfTheSameIdentifier) {
    const auto old = beacon("b", {"kept", "gone"});
    old->seenCount = 3;
    old->lastSeenAt = at(5);
    old->groupTriggersCount = 4;
    old->groupHistory = {at(6)};
    for (const auto& rule : old->rules()) {
        rule->triggersCount = 8;
        rule->lastTriggerDate = at(90);
        rule->history = {at(10), at(90)};
    }
    const auto fresh = beacon("b", {"new", "kept"});
    fresh->rules().back()->maxEventsPeriod = 20;
    fresh->copyCounters(*old, at(100));
    EXPECT_EQ(fresh->seenCount, 3);
    EXPECT_EQ(fresh->lastSeenAt, at(5));
    EXPECT_EQ(fresh->groupTriggersCount, 4);
    EXPECT_THAT(fresh->groupHistory, ElementsAre(at(6)));
    EXPECT_EQ(fresh->rules().front()->triggersCount, 0);
    EXPECT_EQ(fresh->rules().back()->triggersCount, 8);
    EXPECT_EQ(fresh->rules().back()->lastTriggerDate, at(90));
    EXPECT_THAT(fresh->rules().back()->history, ElementsAre(at(90))) << "by the new rule's period";
    fresh->resetAllCounters();
    EXPECT_EQ(fresh->seenCount + fresh->groupTriggersCount + fresh->rules().back()->triggersCount, 0);
    EXPECT_TRUE(fresh->groupHistory.empty() && fresh->rules().back()->history.empty());
    EXPECT_EQ(fresh->lastSeenAt, WallTime());
}

}  // namespace
}  // namespace quomi::test
