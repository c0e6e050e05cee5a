// Rules of beacons beside the SQLite work that they cause, with the same statements, prepared, and the same commits.

#include "bench/bench_phone.h"
#include "bench/bench_store.h"
#include "bench/measure.h"
#include "hosts/simulated/scripted_transport.h"
#include "quomi/api/api_client.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/screens.h"
#include "quomi/rules/action_executor.h"
#include "quomi/rules/beacon_rule_executor.h"
#include "quomi/rules/latch_timers.h"
#include "quomi/rules/rule_observer.h"
#include "quomi/rules/web_page.h"

#include <vector>

#include <benchmark/benchmark.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::bench {
namespace {

using ChangeRule = std::function<void(int number, QuomiBeaconRuleWithActions&)>;

/// Implements no operation.
struct SilentHost final : ActionHost {
    std::optional<bool> shouldExecute(ActionKind, const std::string&, int) const override { return std::nullopt; }
    bool execute(ActionKind, const std::string&, int) const override { return false; }
    bool shouldExecuteNotificationRequest(const NotificationRequest&, int, std::function<void(bool)>) const override {
        return false;
    }
    std::optional<bool> shouldExecuteNotificationRequest(const NotificationRequest&, int) const override {
        return std::nullopt;
    }
    bool executeNotificationRequest(const NotificationRequest&, int) const override { return false; }
    bool executeServerNotificationRequest(const std::string&, int, std::function<void()>,
                                          std::function<void(const Error&)>) const override {
        return false;
    }
};

/// Both executors on a store that holds one beacon with so many rules, which order a notification each.
struct RuleBench : BenchStore {
    RuleBench(int rules, const ChangeRule& change) {
        auto beacon = std::make_shared<QuomiBeaconData>();
        beacon->beaconId = "b";
        beacon->proximityUUID = kShopUuid.string();
        beacon->major = 1;
        beacon->minor = 1;
        beacon->namespace_ = "shop";
        for (int number = 0; number < rules; ++number) {
            auto rule = std::make_shared<QuomiBeaconRuleWithActions>();
            rule->ruleId = fmt::format("r{}", number);
            rule->trigger = kTriggerOnEntry;
            rule->proximity = 1;
            rule->proximityEnd = 2;
            rule->serializeAndSetActions(std::vector<QuomiAction>{{kActionNotifyUser, "Hello"}}, errors);
            change(number, *rule);
            beacon->addActionObject(std::move(rule));
        }
        beacon->addToContext(data->currentObjectContext());
        data->saveContext();
        beacons.setActionExecutor(&actions);
    }

    /// As the router does with a beacon that was found.
    void find() {
        for (const auto& beacon : data->getBeaconsByProximityUUID(kShopUuid, 1, 1)) {
            beacons.executeBeaconFoundActions(beacon, QuomiProximityNear);
        }
        phone.runTurns();
    }

    DebugLog debugLog{platform.files, platform.clock, [] { return false; }};
    QuomiAPI api{"https://api.test", platform, settings, debugLog};
    WebPagePresenter pages{platform.screens, platform.runLoop};
    std::shared_ptr<RuleObserver> observer;
    const SilentHost host;
    QuomiActionExecutor actions{
        ActionExecutorContext{platform, pages, host, [](const auto&) {}, [] { return boost::json::object(); }}};
    QuomiBeaconActionExecutor beacons{
        RuleExecutorContext{*data, platform, settings, errors, debugLog, [](const auto&) {},
                            [] { return std::optional<std::string>(); }, [] { return std::string("UDID"); },
                            [this]() -> std::shared_ptr<const RuleObserver> { return observer; }},
        [] { return std::vector<std::shared_ptr<const QuomiBeacon>>(); }};
};

/// Five pass; the others have had their share.
void fivePass(int number, QuomiBeaconRuleWithActions& rule) {
    if (number % 4 == 0) return;
    rule.maxEvents = 1;
    rule.triggersCount = 1;
}

/// The statements of one event, in a copy of the store.
class RawRules {
public:
    explicit RawRules(BenchStore& store) : database_(copyOf(store)) {}

    void beginEvent() {
        lookup_.run();
        begin_.run();
        seen_.run();
        commit_.run();
        rules_.run();
    }
    void considerRule(bool passes) {
        status_.run();
        if (!passes) return;
        begin_.run();
        countStatus_.run();
        countRule_.run();
        commit_.run();
    }

private:
    static std::filesystem::path copyOf(BenchStore& store) {
        const auto copy = store.phone.container() / "raw.sqlite";
        RawDatabase(store.file).exec("VACUUM INTO '" + copy.string() + "'");
        return copy;
    }

    RawDatabase database_;
    RawStatement lookup_{database_.handle(), "SELECT * FROM QuomiBeaconData WHERE proximityUUID = '" +
                                                 kShopUuid.string() +
                                                 "' AND major = 1 AND minor = 1 ORDER BY beaconId, _id"};
    RawStatement begin_{database_.handle(), "BEGIN"};
    RawStatement commit_{database_.handle(), "COMMIT"};
    RawStatement rules_{database_.handle(), "SELECT * FROM QuomiBeaconRuleWithActions"};
    RawStatement status_{database_.handle(), "SELECT * FROM QuomiStatusInfo LIMIT 1"};
    RawStatement seen_{database_.handle(),
                       "UPDATE QuomiBeaconData SET seenCount = seenCount + 1, lastSeenAt = lastSeenAt + 1"};
    RawStatement countStatus_{database_.handle(),
                              "UPDATE QuomiStatusInfo SET lastEventDate = lastEventDate + 1, "
                              "globalTriggersCount = globalTriggersCount + 1"};
    RawStatement countRule_{database_.handle(),
                            "UPDATE QuomiBeaconRuleWithActions SET triggersCount = triggersCount + "
                            "1, lastTriggerDate = lastTriggerDate + 1 WHERE ruleId = 'r0'"};
};

void foundBeaconWithTwentyRules(benchmark::State& state) {
    RuleBench bench(20, fivePass);
    RawRules raw(bench);
    compare(
        state, 5, [&] { bench.find(); },
        [&] {
            raw.beginEvent();
            for (int rule = 0; rule < 20; ++rule) raw.considerRule(rule % 4 == 0);
        });
}

/// With and without an observer, in turns; the floor is the event without.
void foundBeaconObserved(benchmark::State& state) {
    RuleBench bench(20, fivePass);
    const auto observer = std::make_shared<RuleObserver>(
        RuleObserver{[](const RuleReport& report) { benchmark::DoNotOptimize(report.detail.size()); }});
    compare(
        state, 1.1,
        [&] {
            bench.observer = observer;
            bench.find();
        },
        [&] {
            bench.observer = nullptr;
            bench.find();
        });
}

/// None of the thousand runs: the move crosses no range, or each has had its share.
void thousandRulesOutOfRange(benchmark::State& state) {
    RuleBench bench(1000, [](int, QuomiBeaconRuleWithActions& rule) { rule.proximityEnd = 1; });
    for (auto _ : state) bench.find();
    state.counters["bound_ms"] = 5;
}
void thousandRulesAtTheirLimit(benchmark::State& state) {
    RuleBench bench(1000, [](int, QuomiBeaconRuleWithActions& rule) { rule.maxEvents = rule.triggersCount = 1; });
    for (auto _ : state) bench.find();
    state.counters["bound_ms"] = 5;
}

/// All of one beacon's rules run; the floor is a thousand of them.
void fourThousandRulesRun(benchmark::State& state) {
    const auto all = [](int, QuomiBeaconRuleWithActions&) {};
    RuleBench many(4000, all);
    RuleBench few(1000, all);
    compare(
        state, 5, [&] { many.find(); }, [&] { few.find(); });
}

constexpr std::uint16_t kBeacons = 1000;

boost::json::object thousandBeacons() {
    boost::json::array beacons;
    for (int minor = 0; minor < kBeacons; ++minor) {
        const boost::json::object conditions{{"trigger", "on_entry"}, {"proximity", 1}};
        beacons.push_back(
            {{"id", fmt::format("b{:04}", minor)},
             {"proximity_uid", kShopUuid.string()},
             {"major", 1},
             {"minor", minor},
             {"end", "2100-01-01T00:00:00Z"},
             {"rules_actions", boost::json::array{boost::json::object{{"id", fmt::format("r{:04}", minor)},
                                                                      {"rule", conditions},
                                                                      {"action", {{"notify_user", "Hello"}}}}}}});
    }
    return {{"u_beacons", beacons},
            {"query_params", boost::json::object()},
            {"valid_until", "2100-01-01T00:00:00Z"},
            {"remove_ids", boost::json::array()}};
}

std::vector<RangedBeacon> report(bool isNear) {
    std::vector<RangedBeacon> beacons;
    for (std::uint16_t minor = 0; minor < kBeacons; ++minor) {
        beacons.push_back(
            {kShopUuid, 1, minor, isNear ? PlatformProximity::near : PlatformProximity::far, isNear ? 1.5 : 6.0, -65});
    }
    return beacons;
}

/// Every beacon has moved; the rule of none is due. The floor looks each up with its rule, marks it as seen and
/// commits.
void rangingReportOfBeaconsWithRecords(benchmark::State& state) {
    BenchPhone bench;
    bench.phone.transport().answer("GET /u_beacons/query.json", simulated::ScriptedAnswer::json(thousandBeacons()));
    bench.sdk.start();
    bench.phone.advanceBy(std::chrono::seconds(1));
    bench.phone.enterBeaconRegion(kShopUuid);
    bench.phone.advanceBy(std::chrono::seconds(1));
    const std::vector<RangedBeacon> reports[] = {report(true), report(false)};
    bench.phone.range(reports[1]);
    bench.phone.runTurns();

    const auto file = QuomiData::dataStorageDirectory(bench.phone.platform()) / kQuomiSQLiteStoreFile;
    const auto copy = bench.phone.container() / "raw.sqlite";
    RawDatabase(file).exec("VACUUM INTO '" + copy.string() + "'");
    RawDatabase database(copy);
    RawStatement count(database.handle(), "SELECT COUNT(*) FROM QuomiBeaconRuleWithActions");
    count.step();
    if (count.integer(0) != kBeacons) state.SkipWithError("the beacons were not downloaded");
    RawStatement lookup(database.handle(),
                        "SELECT * FROM QuomiBeaconData WHERE proximityUUID = ? AND major = 1 AND minor = ? ORDER BY "
                        "beaconId, _id");
    RawStatement seen(database.handle(), "UPDATE QuomiBeaconData SET lastSeenAt = lastSeenAt + 1 WHERE _id = ?");
    sqlite3_reset(count.handle());
    RawStatement begin(database.handle(), "BEGIN");
    RawStatement commit(database.handle(), "COMMIT");
    int turn = 0;
    compare(
        state, 3,
        [&] {
            bench.phone.range(reports[turn++ % 2]);
            bench.phone.runTurns();
        },
        [&] {
            for (int minor = 0; minor < kBeacons; ++minor) {
                const std::string uuid = kShopUuid.string();
                sqlite3_bind_text(lookup.handle(), 1, uuid.c_str(), -1, SQLITE_TRANSIENT);
                sqlite3_bind_int(lookup.handle(), 2, minor);
                lookup.step();
                sqlite3_bind_int(seen.handle(), 1, lookup.integer(0));
                lookup.run();
                begin.run();
                seen.run();
                commit.run();
            }
        });
}

/// Starts one latch time beside so many others that run.
void latchTimerBeside(benchmark::State& state) {
    simulated::SimulatedPhone phone;
    const auto platform = phone.platform();
    LatchTimers timers(platform.runLoop, [](const Latch&) {}, {});
    for (int number = 0; number < state.range(0); ++number) {
        timers.start({fmt::format("b{}", number % 100), "r", kTriggerOnEntry},
                     std::chrono::seconds(1'000'000 + number));
    }
    for (auto _ : state) {
        timers.start({"new", "r", kTriggerOnEntry}, std::chrono::seconds(1000));
        timers.clear("new");
    }
}

/// An hour in which none of them is due.
void hourBesideLatchTimers(benchmark::State& state) {
    simulated::SimulatedPhone phone;
    const auto platform = phone.platform();
    LatchTimers timers(platform.runLoop, [](const Latch&) {}, {});
    for (int number = 0; number < state.range(0); ++number) {
        timers.start({fmt::format("b{}", number), "r", kTriggerOnEntry}, std::chrono::seconds(2'000'000'000 + number));
    }
    for (auto _ : state) phone.advanceBy(std::chrono::hours(1));
}

BENCHMARK(foundBeaconWithTwentyRules)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(foundBeaconObserved)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(thousandRulesOutOfRange)->Unit(benchmark::kMillisecond);
BENCHMARK(thousandRulesAtTheirLimit)->Unit(benchmark::kMillisecond);
BENCHMARK(fourThousandRulesRun)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(rangingReportOfBeaconsWithRecords)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(latchTimerBeside)->Arg(0)->Arg(100)->Arg(10'000)->Arg(1'000'000);
BENCHMARK(hourBesideLatchTimers)->Arg(0)->Arg(10'000)->Iterations(10'000);

}  // namespace
}  // namespace quomi::bench
