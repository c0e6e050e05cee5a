// An hour with ten beacons in view, one report a second, played through `quomi replay --json` into a file.

#include "bench/bench_phone.h"
#include "tools/quomi/replay/replay_command.h"

#include <ctime>
#include <fstream>
#include <iostream>

#include <benchmark/benchmark.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace quomi::bench {
namespace {

constexpr int kSeconds = 3600;
constexpr int kBeacons = 10;

boost::json::object hourInAShop() {
    const boost::json::object done{{"json", {{"success", true}}}};
    const boost::json::object application{{"json",
                                           {{"success", true},
                                            {"namespace_uid", "shop"},
                                            {"normal_proximity_uuid", kShopUuid.string()},
                                            {"secure_proximity_uuid", "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B91"},
                                            {"service_proximity_uuid", "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B92"},
                                            {"anti_hacking_protocol", "none"}}}};
    boost::json::array beacons;
    for (int minor = 0; minor < kBeacons; ++minor) {
        beacons.push_back({{"uuid", kShopUuid.string()},
                           {"major", 1},
                           {"minor", minor},
                           {"proximity", "near"},
                           {"accuracy", 2.5},
                           {"rssi", -70}});
    }
    return {{"visit", 1},
            {"start", "2026-01-01T10:00:00Z"},
            {"app", {{"namespace", "shop"}, {"properties", {{"geofencesEnabled", false}}}}},
            {"backoffice",
             {{"answers",
               {{"GET /u_applications/query.json", application},
                {"GET /u_applications/limits.json", done},
                {"POST /u_app_users/find_or_create_by_udid.json", done},
                {"POST /u_applications/shop/log_multi.json", done}}}}},
            {"timeline",
             {{{"at", 0}, {"call", "start"}}, {{"at", 1}, {"every", 1}, {"until", kSeconds}, {"range", beacons}}}}};
}

double processorSeconds() {
    return static_cast<double>(std::clock()) / CLOCKS_PER_SEC;
}

void replayOfAnHour(benchmark::State& state) {
    const BenchPhone directory;
    const auto visit = directory.phone.container() / "hour.json";
    std::ofstream(visit) << boost::json::serialize(hourInAShop());
    double seconds = 0;
    for (auto _ : state) {
        std::ofstream trace(directory.phone.container() / "trace.jsonl");
        const double begin = processorSeconds();
        const int status = tool::ReplayCommand(false).run({visit.string(), "--json"}, trace, std::cerr);
        const double elapsed = processorSeconds() - begin;
        if (status != 0) return state.SkipWithError("the visit did not play");
        seconds += elapsed;
        state.SetIterationTime(elapsed);
    }
    state.counters["times_real"] = kSeconds * static_cast<double>(state.iterations()) / seconds;
    state.counters["bound_s"] = 0.4;
}

BENCHMARK(replayOfAnHour)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace quomi::bench
