#include "tests/sdk/town_fixture.h"

namespace quomi::test {
namespace {

const boost::json::array kWell{geofenceOf("well", {ruleOf("in", "on_entry")})};

/// Beacons with one each of both; a namespace for all that comes from the server.
ScriptedAnswer beaconsAnswer(const char* name) {
    const boost::json::object beacon{{"id", name}, {"name", name}, {"proximity_uid", kShopUUID},
                                     {"major", 1}, {"minor", 1},   {"rules_actions", {ruleOf(name, "on_entry")}}};
    return rulesAnswer("u_beacons", {beacon});
}

// Synchronisation

/// The codes that the handler of one synchronisation was called with.
using Codes = std::vector<std::uint64_t>;

void sync(Town& town, Codes& codes) {
    town.sdk->performServerSync([&codes](std::uint64_t code) { codes.push_back(code); });
}

struct SyncCase {
    const char* what;
    std::function<void(Town&)> prepare;
    std::function<void(Town&)> afterwards;
    std::size_t downloads;  // before it has ended
};

TEST(ServerSync, CallsItsHandlerOnceWhateverHappens) {
    const auto nothing = [](Town&) {};
    const auto beaconsOnly = [](Town& town) { town.sdk->setGeofencesEnabled(false); };
    const auto failing = [](Town& town) {
        for (const char* key : {kBeaconsRequest, kGeofencesRequest}) {
            town.phone.transport().answer(key, ScriptedAnswer::failure(HttpFailureKind::connection));
        }
    };
    const auto busy = [](Town& town) {  // with a download of its own, which a second one is refused beside
        town.sdk->triggerLocationUpdate();
        town.phone.runTurns();
        town.phone.setLocation({kTownLatitude, kTownLongitude}, 10);
        town.phone.runTurns();
        town.journal.clear();
    };
    const auto loseNetwork = [](Town& town) { town.phone.network(false); };
    const auto moveOn = [](Town& town) {
        town.sdk->triggerLocationUpdate();
        town.goTo(kTownLatitude + 0.1);
        town.phone.network(true);
    };
    const auto stop = [](Town& town) { town.sdk->stop(); };
    const auto restart = [](Town& town) {
        town.sdk->stop();
        town.sdk->start();
    };
    const auto removeData = [](Town& town) { town.sdk->removeAllData(); };
    for (const auto& each : std::vector<SyncCase>{
             {"both", nothing, nothing, 2},
             {"both, and secure beacons", [](Town& town) { town.settings.beaconSecurityMode = 1; }, nothing, 3},
             {"beacons only", beaconsOnly, nothing, 1},
             {"geofences only", [](Town& town) { town.sdk->setBeaconsEnabled(false); }, nothing, 1},
             {"neither",
              [beaconsOnly](Town& town) {
                  beaconsOnly(town);
                  town.sdk->setBeaconsEnabled(false);
              },
              nothing, 0},
             {"both fail", failing, nothing, 2},
             {"geofences refused", busy, nothing, 1},
             {"another place asked for meanwhile", loseNetwork, moveOn, 2},
             {"stop meanwhile", nothing, stop, 1},
             {"stop and start meanwhile", nothing, restart, 2},
             {"data removed meanwhile", nothing, removeData, 2},
             {"stopped before", stop, nothing, 0},
         }) {
        SCOPED_TRACE(each.what);
        Town town(kWell);
        ASSERT_TRUE(town.begin());
        each.prepare(town);
        town.phone.runTurns();
        town.journal.clear();
        Codes codes;
        sync(town, codes);
        EXPECT_EQ(codes.size(), each.downloads == 0 ? 1U : 0U) << "not before the downloads have ended";
        each.afterwards(town);
        town.settle(seconds(120));
        EXPECT_THAT(codes, ElementsAre(0));
        EXPECT_GE(town.lines("request GET").size(), each.downloads);
    }
}

TEST(ServerSync, OfAStartThatFailsEndsToo) {
    for (const bool removesData : {true, false}) {
        Town town(kWell);
        auto late = beaconsAnswer("late");
        late.delay = seconds(50);
        town.phone.transport().answer(kBeaconsRequest, late);
        town.phone.transport().answer(kApplicationRequest, ScriptedAnswer::text("", 404));
        town.sdk->start();
        Codes codes;
        sync(town, codes);
        town.settle(seconds(2));
        ASSERT_FALSE(town.sdk->isRunning());
        EXPECT_THAT(codes, IsEmpty());
        if (removesData) {
            EXPECT_TRUE(town.sdk->removeAllData());
        } else {
            town.sdk->setBaseURL("https://other.test");
            town.sdk->start();
        }
        town.settle(seconds(120));
        EXPECT_THAT(codes, ElementsAre(0));
    }
}

TEST(ServerSync, WithoutHandlerNothingIsDone) {
    Town town(kWell);
    ASSERT_TRUE(town.begin());
    town.sdk->performServerSync({});
    EXPECT_THAT(town.journal, ElementsAre("console QuomiSDK Error: completionHandler for performServerSync not "
                                          "provided! Aborting server sync..."));
}

TEST(Updates, OfAllRulesAndOfThePosition) {
    Town town(kWell);
    std::optional<Error> error;
    EXPECT_FALSE(town.sdk->updateLocation(&error));
    EXPECT_EQ(error->code, 2);
    ASSERT_TRUE(town.begin());
    town.sdk->updateAllRulesData();
    town.settle();
    EXPECT_EQ(town.lines("request GET").size(), 1U) << "geofences wait for the next position";
    town.goTo(kTownLatitude);
    EXPECT_EQ(town.lines("request GET").size(), 2U);
    EXPECT_THAT(town.lines("task"), ElementsAre("task begin", "task end"));
    town.sdk->setGeofencesEnabled(false);
    EXPECT_FALSE(town.sdk->updateLocation(&error));
    EXPECT_EQ(error->code, 8);
    EXPECT_THAT(town.lines("error"), IsEmpty());
}

// The store

/// The store file and what SQLite lays beside it.
std::string bytesOfStore(Town& town) {
    std::string bytes;
    for (const auto& entry : std::filesystem::directory_iterator(town.storeFile().parent_path())) {
        if (entry.path().filename().string().starts_with(town.storeFile().filename().string())) {
            bytes += contentOf(entry.path());
        }
    }
    return bytes;
}

TEST(RemoveAllData, LeavesNoByteOfWhatWasStored) {
    for (const bool isRunning : {true, false}) {
        boost::json::array geofences;
        for (int i = 0; i < 200; ++i) {
            const boost::json::object action{{"notify_user", "canary " + std::string(500, 'x')}};
            geofences.push_back(geofenceOf(fmt::format("canary-{}", i), {ruleOf("canary", "on_entry", 0, action)}));
        }
        Town town(geofences);
        town.phone.transport().answer(kBeaconsRequest, beaconsAnswer("canary-beacon"));
        ASSERT_TRUE(town.begin());
        town.sdk->updateAllRulesData();
        town.settle();
        town.serve(boost::json::array{geofenceOf("canary-new")}, {"canary-7", "canary-8"});
        town.goTo(kTownLatitude);
        EXPECT_THAT(bytesOfStore(town), HasSubstr("canary-beacon"));
        if (!isRunning) town.sdk->stop();
        town.phone.transport().answer(kApplicationRequest, ScriptedAnswer::failure(HttpFailureKind::connection));
        town.journal.clear();
        EXPECT_TRUE(town.sdk->removeAllData());
        EXPECT_THAT(bytesOfStore(town), Not(HasSubstr("canary")));
        town.settle();
        EXPECT_THAT(bytesOfStore(town), Not(HasSubstr("canary")));
        EXPECT_EQ(town.lines("request GET").size(), isRunning ? 1U : 0U);
        EXPECT_FALSE(town.sdk->isRunning());
    }
}

TEST(RemoveAllData, StartsAnewWhatRan) {
    Town town(kWell);
    ASSERT_TRUE(town.begin());
    town.serve({});
    EXPECT_TRUE(town.sdk->removeAllData());
    town.settle();
    EXPECT_TRUE(town.sdk->isRunning());
    town.serve(kWell);
    EXPECT_EQ(town.stored("SELECT COUNT(*) FROM QuomiGeofence"), 0);
    town.sdk->triggerLocationUpdate();
    town.goTo(kTownLatitude + 0.01);
    EXPECT_THAT(town.watched(), ElementsAre("well"));
    // A host that starts at once by itself is not undermined.
    const auto observation = town.sdk->observe(QuomiSDKProperty::isRunning, [&town](bool, bool isRunning) {
        if (!isRunning) town.sdk->start();
    });
    EXPECT_FALSE(town.sdk->removeAllData());
    EXPECT_EQ(town.lastError->code, 609);
    EXPECT_TRUE(town.sdk->isRunning());
    town.goTo(kTownLatitude);
    EXPECT_THAT(town.watched(), ElementsAre("well"));
}

TEST(RemoveAllData, HelpsWhereTheStoreCannotBeMigrated) {
    Town town(kWell);
    std::filesystem::create_directories(town.storeFile().parent_path());
    std::ofstream(town.storeFile(), std::ios::binary) << std::string(20000, 'g');
    EXPECT_FALSE(town.sdk->start());
    EXPECT_TRUE(town.sdk->removeAllData());
    EXPECT_FALSE(town.sdk->isRunning()) << "it did not run before";
    EXPECT_TRUE(town.start());
}

TEST(ResetCounters, BeforeAnyStart) {
    {
        Town town(kWell);
        EXPECT_TRUE(town.sdk->resetCounters()) << "there is no store yet";
    }
    Town town(kWell);
    ASSERT_TRUE(town.begin());
    town.enter("well");
    town.sdk->stop();
    town.settle();
    const std::string counts =
        "SELECT (SELECT entryCount FROM QuomiGeofence) * 100 + (SELECT triggersCount FROM QuomiGeofenceRuleWithActions)"
        " * 10 + (SELECT globalTriggersCount FROM QuomiStatusInfo)";
    EXPECT_EQ(town.stored(counts), 111);
    town.sdk = std::make_unique<QuomiSDK>(town.phone.platform(), town.settings);
    EXPECT_TRUE(town.sdk->resetCounters());
    EXPECT_EQ(town.stored(counts), 0);
    EXPECT_FALSE(town.sdk->isRunning());
    EXPECT_TRUE(town.start());
}

TEST(ResetCounters, FailsWithTheStoresError) {
    Town town(kWell);
    std::filesystem::create_directories(town.storeFile().parent_path());
    std::ofstream(town.storeFile(), std::ios::binary) << "garbage";
    std::optional<Error> error;
    EXPECT_FALSE(town.sdk->resetCounters(&error));
    EXPECT_EQ(error->code, 601);
    EXPECT_THAT(town.lines("error"), ElementsAre("error 601"));
}

TEST(AppNamespace, OfAFailedStartTakesItsRecordsAlong) {
    Town town(kWell);
    town.phone.transport().answer(kBeaconsRequest, beaconsAnswer("shelf"));
    ASSERT_TRUE(town.begin());
    town.sdk->updateAllRulesData();
    town.settle();
    town.sdk->stop();
    town.settle();
    const std::string enabled =
        "SELECT (SELECT SUM(enabled) FROM QuomiGeofence) * 10 + SUM(enabled) FROM QuomiBeaconData";
    town.edit("DELETE FROM QuomiApplication");
    town.phone.transport().answer(kApplicationRequest, ScriptedAnswer::text("", 404));
    EXPECT_FALSE(town.start());
    EXPECT_EQ(town.stored(enabled), 11);
    for (const auto& [appNamespace, both] : {std::pair{"other", 0}, {"shop", 11}, {"shop", 11}, {"third", 0}}) {
        town.sdk->setAppNamespace(appNamespace);
        EXPECT_EQ(town.stored(enabled), both) << appNamespace;
    }
}

}  // namespace
}  // namespace quomi::test
