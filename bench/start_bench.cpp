// `start` of an app that was started before: the store is opened and holds the application record.

#include "bench/bench_phone.h"
#include "bench/bench_store.h"
#include "bench/measure.h"

#include <filesystem>

#include <benchmark/benchmark.h>

namespace quomi::bench {
namespace {

/// The first start, which stores the application record.
void startAndStop(BenchPhone& app) {
    app.sdk.start();
    app.phone.advanceBy(std::chrono::seconds(1));
    app.sdk.stop();
    app.phone.runTurns();
}

/// Starts of a launch each, until the SDK runs.
void measureStarts(benchmark::State& state, const std::filesystem::path& container, bool geofences, double bound) {
    for (auto _ : state) {
        BenchPhone again(container);
        if (geofences) again.sdk.setGeofencesEnabled(true);
        bool started = false;
        state.SetIterationTime(secondsOf([&] { started = again.sdk.start(); }));
        if (!started || !again.sdk.isRunning()) return state.SkipWithError("the SDK did not start");
    }
    state.counters["bound_ms"] = bound;
}

void repeatedStart(benchmark::State& state) {
    BenchPhone first;
    startAndStop(first);
    measureStarts(state, first.phone.container(), false, 10);
}

BENCHMARK(repeatedStart)->UseManualTime()->Unit(benchmark::kMillisecond);

/// The same with 10,000 beacons and 10,000 geofences in the store, and both switched on.
void startOfAFullStore(benchmark::State& state) {
    BenchStore store;
    store.fillBeacons(10'000);
    store.fillGeofences(10'000, [](int number, QuomiGeofence& geofence) {
        geofence.latitude = 52 + (number % 100) * 0.004;
        geofence.longitude = 13 + (number / 100) * 0.004;
        geofence.radius = 100;
    });
    store.data.reset();
    BenchPhone first(store.phone.container());
    startAndStop(first);
    measureStarts(state, store.phone.container(), true, 20);
}

BENCHMARK(startOfAFullStore)->UseManualTime()->Unit(benchmark::kMillisecond);

/// What a thousand starts and stops of one SDK leave on the heap.
void memoryOfAThousandStarts(benchmark::State& state) {
    for (auto _ : state) {
        BenchPhone app;
        for (int i = 0; i < 20; ++i) startAndStop(app);
        const auto before = static_cast<double>(heapInUse());
        for (int i = 0; i < 1000; ++i) startAndStop(app);
        state.counters["grown_bytes"] = static_cast<double>(heapInUse()) - before;
    }
    state.counters["bound_bytes"] = 1 << 20;
}

BENCHMARK(memoryOfAThousandStarts)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quomi::bench
