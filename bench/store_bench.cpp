// The store's queries and counters beside the SQLite statements that they cannot do without.

#include "bench/bench_phone.h"
#include "bench/bench_store.h"
#include "bench/measure.h"

#include <vector>

#include <benchmark/benchmark.h>

namespace quomi::bench {
namespace {

WallTime dateOf(double seconds) {
    return WallTime(toDuration(Seconds(seconds)));
}

/// Places on a grid of a town: about 2,500 of 100,000 lie in a box of a fifth of a degree.
void placeInTown(int number, QuomiGeofence& geofence) {
    placeAt(geofence, 52 + (number % 316) * 0.004, 13 + (number / 316) * 0.004, 100);
}

/// A geofence made by hand of the statement's row.
std::shared_ptr<QuomiGeofence> geofenceOf(const RawStatement& row) {
    const auto date = [&row](int column) {
        return row.isNull(column) ? std::nullopt : std::optional(dateOf(row.real(column)));
    };
    auto geofence = std::make_shared<QuomiGeofence>();
    geofence->geofenceId = row.text(1);
    geofence->name = row.optionalText(2);
    geofence->latitude = row.real(3);
    geofence->longitude = row.real(4);
    geofence->radius = row.real(5);
    geofence->address = row.optionalText(6);
    geofence->group = row.optionalText(7);
    geofence->entryCount = row.integer(8);
    geofence->lastEnteredAt = dateOf(row.real(9));
    geofence->groupTriggersCount = row.integer(10);
    geofence->namespace_ = row.optionalText(11);
    geofence->enabled = row.integer(12) != 0;
    geofence->startDate = date(13);
    geofence->endDate = date(14);
    geofence->schedule = row.optionalText(15);
    geofence->updatedAt = date(16);
    geofence->timeZone_zone = row.optionalText(17);
    geofence->timeZone_title = row.optionalText(18);
    if (!row.isNull(19)) geofence->timeZone_offset = row.integer(19);
    if (!row.isNull(20)) geofence->timeZone_utcOffset = row.integer(20);
    if (!row.isNull(21)) geofence->timeZone_dst = row.integer(21) != 0;
    if (row.text(22) != "[]") geofence->groupHistory.emplace_back();
    return geofence;
}

/// The floor is the same search by hand: its statement and the objects.
void nearbySearch(benchmark::State& state) {
    BenchStore store;
    store.fillGeofences(100'000, placeInTown);
    RawDatabase database(store.file);
    RawStatement query(database.handle(),
                       "SELECT * FROM QuomiGeofence WHERE CAST(latitude * 10 AS INTEGER) IN (525, 526, 527)"
                       " AND longitude >= 13.5 AND longitude <= 13.7 AND latitude >= 52.5 AND latitude <= 52.7"
                       " AND enabled = 1 ORDER BY geofenceId, _id");
    std::size_t found = 0;
    std::size_t foundByHand = 0;
    compare(
        state, 1.5, [&] { found = store.data->findNearbyGeofences(52.6, 13.6, 0.1).size(); },
        [&] {
            std::vector<std::shared_ptr<QuomiGeofence>> geofences;
            while (query.step()) geofences.push_back(geofenceOf(query));
            sqlite3_reset(query.handle());
            foundByHand = geofences.size();
        });
    if (found != foundByHand) state.SkipWithError("not the same geofences");
    state.counters["found"] = static_cast<double>(found);
}

void beaconLookup(benchmark::State& state) {
    BenchStore store;
    store.fillBeacons(10'000);
    RawDatabase database(store.file);
    RawStatement query(database.handle(),
                       "SELECT * FROM QuomiBeaconData WHERE proximityUUID = ? AND major = ? AND "
                       "minor = ? ORDER BY beaconId, _id");
    int number = 0;
    compare(
        state, 3,
        [&] {
            const auto found = store.data->getBeaconsByProximityUUID(kShopUuid, number % 10, number * 7 % 1000);
            benchmark::DoNotOptimize(found.size());
        },
        [&] {
            number = (number + 1) % 10'000;
            const auto uuid = kShopUuid.string();
            sqlite3_bind_text(query.handle(), 1, uuid.data(), static_cast<int>(uuid.size()), SQLITE_TRANSIENT);
            sqlite3_bind_int(query.handle(), 2, number % 10);
            sqlite3_bind_int(query.handle(), 3, number * 7 % 1000);
            while (query.step()) {
                for (int column = 0; column < sqlite3_column_count(query.handle()); ++column) {
                    benchmark::DoNotOptimize(query.text(column).size());
                }
            }
            sqlite3_reset(query.handle());
        });
}

/// Counters and history of a rule whose period holds ten events.
void countOneEvent(benchmark::State& state) {
    BenchStore store;
    store.fillBeacons(1000);
    const auto beacon = store.data->getBeaconById("b000500");
    const auto rule = beacon->rules().front();
    rule->maxEventsPeriod = 10;
    const auto copy = store.phone.container() / "copy.sqlite";
    RawDatabase(store.file).exec("VACUUM INTO '" + copy.string() + "'");
    RawDatabase database(copy);
    RawStatement begin(database.handle(), "BEGIN IMMEDIATE");
    RawStatement update(database.handle(),
                        "UPDATE QuomiBeaconRuleWithActions SET triggersCount = ?, lastTriggerDate = "
                        "?, history = ? WHERE ruleId = 'r000700'");
    RawStatement commit(database.handle(), "COMMIT");
    const std::string history =
        "[1.0E9,1.000000001E9,1.000000002E9,1.000000003E9,1.000000004E9,1.000000005E9,"
        "1.000000006E9,1.000000007E9,1.000000008E9,1.000000009E9]";
    double now = 1e9;
    compare(
        state, 3,
        [&] {
            const auto date = dateOf(now);
            ++rule->triggersCount;
            rule->lastTriggerDate = date;
            QuomiRuleHelper::addDateToHistoryOfRule(*rule, date);
            QuomiRuleHelper::trimOutdatedHistoryElementsOfRule(*rule, date);
            store.data->saveContext();
        },
        [&] {
            now += 1;
            begin.run();
            sqlite3_bind_double(update.handle(), 1, now);
            sqlite3_bind_double(update.handle(), 2, now);
            sqlite3_bind_text(update.handle(), 3, history.data(), static_cast<int>(history.size()), SQLITE_STATIC);
            update.run();
            commit.run();
        });
    RawDatabase stored(store.file);
    RawStatement counted(stored.handle(),
                         "SELECT triggersCount FROM QuomiBeaconRuleWithActions WHERE ruleId = 'r000500'");
    if (!counted.step() || counted.integer(0) != rule->triggersCount) state.SkipWithError("events were not stored");
}

void openStore(benchmark::State& state) {
    BenchStore store;
    store.fillBeacons(10'000);
    for (auto _ : state) {
        store.data.reset();
        state.SetIterationTime(
            secondsOf([&] { store.data = QuomiData::create(store.file, false, store.platform, store.errors); }));
    }
    state.counters["bound_ms"] = 20;
}

/// Ten places around the point, whatever lies elsewhere.
void nearbySearchInALargerStore(benchmark::State& state) {
    BenchStore store;
    store.fillGeofences(static_cast<int>(state.range(0)), [](int number, QuomiGeofence& geofence) {
        placeInTown(number, geofence);
        if (number < 10) geofence.latitude = 48 + number * 0.001;
    });
    std::size_t found = 0;
    for (auto _ : state) found = store.data->findNearbyGeofences(48, 13, 1).size();
    state.counters["found"] = static_cast<double>(found);
}

void lookupByIdInALargerStore(benchmark::State& state) {
    BenchStore store;
    store.fillGeofences(static_cast<int>(state.range(0)), placeInTown);
    for (auto _ : state) benchmark::DoNotOptimize(store.data->getGeofenceById("g000500"));
}

void lookupByNumbersInALargerStore(benchmark::State& state) {
    BenchStore store;
    store.fillBeacons(static_cast<int>(state.range(0)));
    for (auto _ : state) benchmark::DoNotOptimize(store.data->getBeaconsByProximityUUID(kShopUuid, 0, 500));
}

BENCHMARK(nearbySearch)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(beaconLookup)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(countOneEvent)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(openStore)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(50);
BENCHMARK(nearbySearchInALargerStore)->RangeMultiplier(10)->Range(1000, 100'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(lookupByIdInALargerStore)->RangeMultiplier(10)->Range(1000, 100'000)->Unit(benchmark::kMicrosecond);
BENCHMARK(lookupByNumbersInALargerStore)->RangeMultiplier(10)->Range(1000, 100'000)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quomi::bench
