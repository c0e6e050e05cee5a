#include "tests/sdk/town_fixture.h"

namespace quomi::test {
namespace {

const boost::json::array kWell{geofenceOf("well", {ruleOf("in", "on_entry"), ruleOf("out", "on_exit")})};
const char* const kHook = "GET https://town.test/hook";

/// Downloads of geofences and of beacons since the journal began.
std::pair<std::size_t, std::size_t> downloads(const Town& town) {
    const auto requests = town.lines("request");
    const auto count = [&requests](std::string_view path) {
        return static_cast<std::size_t>(
            std::ranges::count_if(requests, [path](const auto& line) { return line.find(path) != std::string::npos; }));
    };
    return {count("/u_geofences/"), count("/u_beacons/")};
}

/// The rules whose notifications were posted since the journal began.
std::vector<std::string> posted(const Town& town) {
    std::vector<std::string> rules;
    for (const auto& line : town.lines(R"(event {"type":"action","action":"notify_user")")) {
        rules.emplace_back(boost::json::parse(line.substr(line.find('{'))).at("rule_id").as_string());
    }
    return rules;
}

TEST(LocationChange, TheFirstAfterAStartDownloadsTheGeofencesAroundInFull) {
    Town town(kWell);
    for (int starts = 1; starts <= 2; ++starts) {
        const auto before = town.phone.transport().requests(kGeofencesRequest);
        ASSERT_TRUE(town.begin());
        EXPECT_GT(town.phone.transport().requests(kGeofencesRequest), before);
        EXPECT_THAT(town.watched(), ElementsAre("well"));
        town.goTo(kTownLatitude + 0.011);
        EXPECT_EQ(downloads(town), std::pair(0UL, 0UL)) << "data this new is not asked for again";
        EXPECT_THAT(town.lines("location"), ElementsAre("location"));
        town.sdk->stop();
        EXPECT_THAT(town.watched(), IsEmpty());
    }
}

TEST(LocationChange, PositionsWithoutNetworkAreFollowedByOneChoiceOfRegions) {
    Town town(kWell);
    ASSERT_TRUE(town.start());
    town.phone.network(false);
    for (int step = 0; step < 20; ++step) town.goTo(kTownLatitude + 0.001 * (step / 2));
    town.journal.clear();
    town.settings.geofencingEnabled = false;  // each choice tells so, twice
    town.phone.network(true);
    town.settle(seconds(5));
    EXPECT_EQ(downloads(town).first, 1U);
    EXPECT_THAT(town.lines("error"), SizeIs(2));
}

struct Change {
    const char* what;
    std::function<void(Town&)> prepare;
    double latitude;
    std::pair<std::size_t, std::size_t> downloads;
    bool choosesAtOnce;
};

TEST(LocationChange, WhatIsDownloadedDependsOnTheNearestArea) {
    const auto nothing = [](Town&) {};
    const auto wait = [](Town& town) { town.settle(seconds(7201)); };
    const auto empty = [](Town& town) { town.edit("DELETE FROM QuomiGeofence"); };
    const auto insist = [empty](Town& town) {
        empty(town);
        town.settings.downloadGeofenceUpdatesIfNoGeofencesAreFoundInRegion = true;
    };
    for (const auto& change : std::vector<Change>{
             {"valid area", nothing, kTownLatitude, {0, 0}, true},
             {"valid area, old data", wait, kTownLatitude, {1, 1}, true},
             {"forced", [](Town& town) { town.sdk->triggerLocationUpdate(); }, kTownLatitude, {1, 0}, true},
             {"expired area",
              [](Town& town) { town.edit("UPDATE QuomiGeofenceRegion SET validUntil = 1"); },
              kTownLatitude,
              {1, 0},
              false},
             {"area without an end",
              [](Town& town) { town.edit("UPDATE QuomiGeofenceRegion SET validUntil = NULL"); },
              kTownLatitude,
              {0, 0},
              true},
             {"far from every area", nothing, kTownLatitude + 3, {1, 0}, false},
             {"no geofence in the area", empty, kTownLatitude, {0, 0}, false},
             {"no geofence in the area, and asked to look", insist, kTownLatitude, {1, 0}, false},
         }) {
        SCOPED_TRACE(change.what);
        Town town(kWell);
        ASSERT_TRUE(town.begin());
        town.phone.transport().answer(kGeofencesRequest, ScriptedAnswer::text("", 404));
        change.prepare(town);
        town.phone.runTurns();
        town.edit("UPDATE QuomiGeofence SET geofenceId = 'moved'");
        town.journal.clear();
        town.goTo(change.latitude);
        EXPECT_EQ(downloads(town), change.downloads);
        EXPECT_EQ(town.lines("monitor moved").size(), change.choosesAtOnce ? 1U : 0U);
        EXPECT_EQ(town.lines("location").size(), 1U);
        EXPECT_THAT(town.lines("error"), IsEmpty());
    }
}

TEST(RegionChoice, RegionsComeAndGoByTheirIdentifiers) {
    Town town({geofenceOf("a"), geofenceOf("b", {}, kTownLatitude + 0.5)});
    ASSERT_TRUE(town.begin());
    EXPECT_THAT(town.watched(), ElementsAre("a", "b"));
    town.serve({geofenceOf("a", {}, kTownLatitude + 0.2), geofenceOf("c")}, {"b"});
    town.sdk->triggerLocationUpdate();
    town.goTo(kTownLatitude + 0.3);
    EXPECT_THAT(town.watched(), ElementsAre("a", "c"));
    EXPECT_THAT(town.lines("monitor"), ElementsAre("monitor c")) << "where a region lies is not compared";
    EXPECT_THAT(town.lines("unmonitor"), ElementsAre("unmonitor b"));
    town.sdk->setGeofencesEnabled(false);
    EXPECT_THAT(town.watched(), IsEmpty());
}

TEST(RegionChoice, WhatThePhoneRefusesIsToldInOneLine) {
    boost::json::array many;
    for (int i = 0; i < 30; ++i) many.push_back(geofenceOf(fmt::format("g{:02}", i)));
    Town town(many);
    ASSERT_TRUE(town.start());
    const auto beacons = town.phone.monitoredRegions().size();
    town.goTo(kTownLatitude + 0.01);
    EXPECT_EQ(town.watched().size(), 20 - beacons);
    const auto warnings = town.lines("console Quomi SDK Warning: ");
    ASSERT_EQ(warnings.size(), 1U);
    EXPECT_EQ(warnings[0], fmt::format("console Quomi SDK Warning: {} nearby geofences are not watched, because the "
                                       "phone can't watch more regions",
                                       10 + beacons));
    EXPECT_THAT(town.lines("error"), IsEmpty());
}

TEST(GeofenceTransitions, WhatHappensDependsOnTheState) {
    const std::string event =
        R"(event {"type":"view","trigger":"on_entry","area_type":"geofence","geofence_id":"well"})";
    struct Case {
        void (simulated::SimulatedPhone::*state)();
        bool runs, tellsExit;
        std::size_t tasks;
    };
    using simulated::SimulatedPhone;
    for (const auto& [state, runs, tellsExit, tasks] :
         {Case{&SimulatedPhone::active, true, true, 0}, Case{&SimulatedPhone::inactive, false, false, 0},
          Case{&SimulatedPhone::background, true, false, 1}}) {
        Town town(kWell);
        town.sdk->setBeaconsEnabled(false);
        ASSERT_TRUE(town.begin());
        (town.phone.*state)();
        town.phone.runTurns();
        town.journal.clear();
        town.enter("well");
        EXPECT_EQ(town.lines(event).size(), 1U);
        EXPECT_THAT(town.lines("entered"), ElementsAre("entered geofence well")) << "in every state";
        EXPECT_EQ(posted(town), runs ? std::vector<std::string>{"in"} : std::vector<std::string>{});
        town.settle(seconds(10));
        EXPECT_EQ(town.lines("task end").size(), tasks);
        town.journal.clear();
        town.leave("well");
        EXPECT_THAT(town.lines(R"(event {"type":"view")"), IsEmpty());
        EXPECT_EQ(town.lines("left geofence well").size(), tellsExit ? 1U : 0U);
        EXPECT_EQ(posted(town).size(), runs ? 1U : 0U);
        town.settle(seconds(10));
        EXPECT_EQ(town.lines("task begin").size(), tasks);
        EXPECT_EQ(town.phone.runningBackgroundTasks(), 0U);
    }
}

TEST(GeofenceTransitions, UnknownAndDisabledGeofences) {
    for (const auto& [edit, unmonitoredByEntry, unmonitoredByExit] : Table<const char*, std::size_t, std::size_t>{
             {"DELETE FROM QuomiGeofence", 1, 0}, {"UPDATE QuomiGeofence SET enabled = 0", 1, 1}}) {
        SCOPED_TRACE(edit);
        for (const bool enters : {true, false}) {
            Town town(kWell);
            ASSERT_TRUE(town.begin());
            town.edit(edit);
            enters ? town.enter("well") : town.leave("well");
            EXPECT_THAT(town.lines("event"), IsEmpty());
            EXPECT_THAT(posted(town), IsEmpty());
            EXPECT_EQ(town.lines("entered").size(), enters ? 1U : 0U);
            EXPECT_THAT(town.lines("left"), IsEmpty());
            EXPECT_EQ(town.lines("unmonitor").size(), enters ? unmonitoredByEntry : unmonitoredByExit);
            EXPECT_THAT(town.lines("error"), IsEmpty());
        }
    }
}

TEST(GeofenceTransitions, AnExitAsksForNewsOfItsGeofenceWhenTheyAreDue) {
    auto large = geofenceOf("large");
    large["radius"] = 1.5;
    Town town({large});
    ASSERT_TRUE(town.begin());
    town.settle(seconds(7201));
    town.leave("large");
    EXPECT_EQ(downloads(town), std::pair(1UL, 0UL));
}

TEST(GeofenceTransitions, TimersGoWithTheExitAndWithTheGeofence) {
    const boost::json::array latched{geofenceOf("well", {ruleOf("dwell", "on_entry", 60)})};
    Town town(latched);
    ASSERT_TRUE(town.begin());
    town.enter("well");
    town.settle(seconds(30));
    town.leave("well");
    town.settle(seconds(60));
    EXPECT_THAT(posted(town), IsEmpty());
    town.enter("well");
    town.serve({}, {"well"});
    town.sdk->triggerLocationUpdate();
    town.goTo(kTownLatitude + 0.01);
    EXPECT_THAT(town.watched(), IsEmpty());
    town.settle(seconds(60));
    EXPECT_THAT(posted(town), IsEmpty());
    EXPECT_THAT(town.lines("console"),
                ElementsAre("console Quomi SDK: Geofence (null) has been exited, rule won't be executed."));
}

TEST(GeofenceTransitions, ARuleOfAPreparedStoreIsDroppedAtSpeed) {
    for (const auto& [limit, notifications] : {std::pair{40, 0U}, {80, 1U}, {0, 1U}}) {
        Town town(kWell);
        ASSERT_TRUE(town.begin());
        town.edit(fmt::format("UPDATE QuomiGeofenceRuleWithActions SET maxSpeedToNotifyUserThreshold = {}", limit));
        town.settle(seconds(35));
        town.goTo(kTownLatitude + 0.01 - 0.0053957);  // 600 m in 36 s
        town.enter("well");
        EXPECT_EQ(posted(town).size(), notifications) << limit;
    }
}

/// A town whose well asks a server that takes its time, with the app in the background.
class BackgroundWork : public testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(prepare(town_)); }
    static bool prepare(Town& town) {
        boost::json::array geofences;
        for (const char* id : {"mill", "well"}) {
            const boost::json::object action{{"notify_server", "https://town.test/hook"}, {"notify_user", id}};
            geofences.push_back(geofenceOf(id, {ruleOf(std::string("ask ") + id, "on_entry", 0, action)}));
        }
        town.serve(geofences);
        auto answer = ScriptedAnswer::json({{"decision", "enable"}});
        answer.delay = seconds(12);
        town.phone.transport().answer(kHook, answer);
        town.sdk->setBeaconsEnabled(false);
        const bool isRunning = town.begin();
        town.phone.background();
        town.settle(seconds(300));
        town.journal.clear();
        return isRunning;
    }
    [[nodiscard]] int entries(const char* id) {
        return town_.stored(fmt::format("SELECT entryCount FROM QuomiGeofence WHERE geofenceId = '{}'", id));
    }
    [[nodiscard]] std::size_t tasks() const { return town_.phone.runningBackgroundTasks(); }

    Town town_{{}};
};

TEST_F(BackgroundWork, LastsInStepsOfFiveSecondsUntilNoRequestIsPending) {
    town_.enter("well");
    EXPECT_EQ(tasks(), 1U);
    EXPECT_EQ(entries("well"), 1);
    town_.settle(milliseconds(14'999));
    EXPECT_THAT(posted(town_), ElementsAre("ask well"));
    EXPECT_EQ(tasks(), 1U);
    town_.settle(milliseconds(1));
    EXPECT_EQ(tasks(), 0U);
    EXPECT_THAT(town_.lines("task"), ElementsAre("task begin", "task end"));
    EXPECT_EQ(entries("well"), 1);
    EXPECT_EQ(town_.stored("SELECT triggersCount FROM QuomiGeofenceRuleWithActions WHERE ruleId = 'ask well'"), 1);
    town_.phone.active();
    town_.enter("mill");
    town_.enter("well");
    EXPECT_EQ(entries("well"), 2) << "what is counted in the foreground builds on it";
}

TEST_F(BackgroundWork, EndsWithItsTimeAndTheRequestGoesOn) {
    town_.enter("well");
    town_.settle(seconds(7));
    town_.phone.expireBackgroundTasks();
    town_.phone.runTurns();
    EXPECT_EQ(tasks(), 0U);
    town_.settle(seconds(20));
    EXPECT_THAT(posted(town_), ElementsAre("ask well"));
    EXPECT_THAT(town_.lines("task"), ElementsAre("task begin", "task end"));
    EXPECT_EQ(entries("well"), 1);
}

TEST_F(BackgroundWork, IsDoneThoughItsTimeWasUpBeforeItsTurn) {
    town_.inBackgroundTask = [this](std::string_view what) {
        if (what == "begin") town_.phone.expireBackgroundTasks();
    };
    town_.enter("well");
    EXPECT_THAT(town_.lines("task"), ElementsAre("task begin", "task end"));
    EXPECT_EQ(entries("well"), 1);
    town_.settle(seconds(20));
    EXPECT_THAT(posted(town_), ElementsAre("ask well"));
    EXPECT_THAT(town_.lines("task"), ElementsAre("task begin", "task end"));
}

TEST_F(BackgroundWork, TwoAtOnceEachEndTheirOwnTask) {
    town_.enter("well");
    town_.settle(seconds(4));
    town_.enter("mill");
    EXPECT_EQ(tasks(), 2U);
    town_.settle(seconds(25));  // the requests go one after the other
    EXPECT_EQ(tasks(), 0U);
    EXPECT_THAT(town_.lines("task"), ElementsAre("task begin", "task begin", "task end", "task end"));
    EXPECT_EQ(entries("well"), 1);
    EXPECT_EQ(entries("mill"), 1);
    EXPECT_THAT(posted(town_), ElementsAre("ask well", "ask mill"));
}

TEST_F(BackgroundWork, StopEndsItsTaskAtOnce) {
    town_.enter("well");
    town_.settle(seconds(2));
    town_.sdk->stop();
    EXPECT_EQ(tasks(), 0U);
    town_.journal.clear();
    town_.settle(seconds(60));
    EXPECT_THAT(town_.journal, IsEmpty());
    EXPECT_THAT(posted(town_), IsEmpty());
    EXPECT_EQ(entries("well"), 1);
}

TEST(GeofenceTransitions, StopInACallbackEndsWhatWouldFollow) {
    for (const bool isInBackground : {false, true}) {
        for (const char* line : {"event", "entered geofence"}) {
            Town town(kWell);
            ASSERT_TRUE(town.begin());
            if (isInBackground) town.phone.background();
            town.phone.runTurns();
            town.journal.clear();
            town.inCallback = [&town, line](const std::string& told) {
                if (told.starts_with(line)) town.sdk->stop();
            };
            town.enter("well");
            town.settle(seconds(10));
            ASSERT_FALSE(town.sdk->isRunning());
            EXPECT_EQ(town.lines("entered").size(), std::string_view(line) == "event" ? 0U : 1U);
            EXPECT_EQ(town.phone.runningBackgroundTasks(), 0U);
            EXPECT_THAT(town.watched(), IsEmpty());
        }
    }
}

}  // namespace
}  // namespace quomi::test
