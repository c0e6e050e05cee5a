#include "bench/bench_replay.h"

#include "bench/measure.h"
#include "tools/quomi/replay/replay_command.h"

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace quomi::bench {

std::filesystem::path measureReplay(benchmark::State& state, const std::filesystem::path& folder,
                                    const boost::json::object& visit, double visitSeconds, Shown shown) {
    const auto file = folder / "visit.json";
    const auto traceFile = folder / "trace.jsonl";
    std::ofstream(file) << boost::json::serialize(visit);
    std::vector<std::string> args{file.string()};
    if (shown == Shown::trace) args.emplace_back("--json");
    double seconds = 0;
    for (auto _ : state) {
        std::ofstream trace(traceFile);
        const double begin = processorSeconds();
        const int status = tool::ReplayCommand().run(args, trace, std::cerr);
        const double elapsed = processorSeconds() - begin;
        if (status != 0) {
            state.SkipWithError("the visit did not play");
            break;
        }
        seconds += elapsed;
        state.SetIterationTime(elapsed);
    }
    state.counters["times_real"] = visitSeconds * static_cast<double>(state.iterations()) / seconds;
    return traceFile;
}

}  // namespace quomi::bench
