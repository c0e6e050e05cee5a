#include "bench/bench_replay.h"

#include "bench/measure.h"
#include "tools/quomi/explain/explain_command.h"
#include "tools/quomi/replay/replay_command.h"

#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace quomi::bench {

namespace {

int play(const std::string& visit, Shown shown, std::ostream& out) {
    if (shown == Shown::story) return tool::runExplain({visit, "--rule", "any"}, {}, out, std::cerr);
    std::vector<std::string> args{visit};
    if (shown == Shown::trace) args.emplace_back("--json");
    return tool::ReplayCommand().run(args, out, std::cerr);
}

}  // namespace

std::filesystem::path measureReplay(benchmark::State& state, const std::filesystem::path& folder,
                                    const boost::json::object& visit, double visitSeconds, Shown shown) {
    const auto file = folder / "visit.json";
    const auto traceFile = folder / "trace.jsonl";
    std::ofstream(file) << boost::json::serialize(visit);
    double seconds = 0;
    for (auto _ : state) {
        std::ofstream trace(traceFile);
        const double begin = processorSeconds();
        const int status = play(file.string(), shown, trace);
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
