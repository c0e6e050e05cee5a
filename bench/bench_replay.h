#pragma once

#include <filesystem>

#include <benchmark/benchmark.h>
#include <boost/json/fwd.hpp>

namespace quomi::bench {

enum class Shown { trace, timeline, story };

/// Plays a visit of so many seconds through `quomi replay`, or `quomi explain` for the story of a rule, into a file of
/// its folder, as often as the benchmark asks, and measures processor time. The folder holds what the visit names.
/// Gives the path of what was written.
std::filesystem::path measureReplay(benchmark::State& state, const std::filesystem::path& folder,
                                    const boost::json::object& visit, double visitSeconds, Shown shown = Shown::trace);

}  // namespace quomi::bench
