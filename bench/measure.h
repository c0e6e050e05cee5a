#pragma once

#include <chrono>
#include <cstddef>

#include <benchmark/benchmark.h>

namespace quomi::bench {

/// Runs the work once and gives the time that it took.
template <class Work>
[[nodiscard]] double secondsOf(Work&& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

/// Time of our work and of its floor, in turns, so that both meet the same machine.
template <class Ours, class Floor>
void compare(benchmark::State& state, double bound, Ours&& ours, Floor&& floor) {
    double sum = 0;
    double floorSum = 0;
    for (auto _ : state) {
        floorSum += secondsOf(floor);
        const double elapsed = secondsOf(ours);
        sum += elapsed;
        state.SetIterationTime(elapsed);
    }
    state.counters["floor_us"] = floorSum * 1e6 / static_cast<double>(state.iterations());
    state.counters["ratio"] = sum / floorSum;
    state.counters["bound"] = bound;
}

/// Processor time of this process so far.
[[nodiscard]] double processorSeconds();

/// Bytes that the program holds on its heap.
[[nodiscard]] std::size_t heapInUse();

}  // namespace quomi::bench
