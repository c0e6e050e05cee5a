// `start` of an app that was started before: the store is opened and holds the application record.

#include "bench/bench_phone.h"

#include <benchmark/benchmark.h>

namespace quomi::bench {
namespace {

void repeatedStart(benchmark::State& state) {
    BenchPhone first;
    first.sdk.start();
    first.phone.advanceBy(std::chrono::seconds(1));
    first.sdk.stop();
    first.phone.runTurns();
    for (auto _ : state) {
        BenchPhone again(first.phone.container());
        bool started = false;
        state.SetIterationTime(secondsOf([&] { started = again.sdk.start(); }));
        if (!started) return state.SkipWithError("the SDK did not start");
    }
    state.counters["bound_ms"] = 10;
}

BENCHMARK(repeatedStart)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quomi::bench
