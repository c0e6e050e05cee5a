// Hours with beacons in view, one report a second, played through `quomi replay` into a file.

#include "bench/bench_phone.h"
#include "bench/bench_replay.h"

#include <string>

#include <benchmark/benchmark.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace quomi::bench {
namespace {

constexpr int kBeacons = 10;

/// The store knows the beacons when the back office does.
boost::json::object hoursInAShop(int seconds, bool areKnown) {
    const boost::json::object done{{"json", {{"success", true}}}};
    boost::json::array records;
    for (int minor = 0; areKnown && minor < kBeacons; ++minor) {
        records.push_back({{"id", "beacon-" + std::to_string(minor)},
                           {"name", ""},
                           {"proximity_uid", kShopUuid.string()},
                           {"major", 1},
                           {"minor", minor},
                           {"start", "2020-01-01T00:00:00Z"},
                           {"end", "2100-01-01T00:00:00Z"},
                           {"rules_actions", boost::json::array()}});
    }
    const boost::json::object nothingNew{{"u_beacons", records},
                                         {"query_params", boost::json::object()},
                                         {"valid_until", "2100-01-01T00:00:00Z"},
                                         {"remove_ids", boost::json::array()}};
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
                {"GET /u_beacons/query.json", {{"json", nothingNew}}},
                {"POST /u_app_users/find_or_create_by_udid.json", done},
                {"POST /u_applications/shop/log_multi.json", done}}}}},
            {"timeline",
             {{{"at", 0}, {"call", "start"}}, {{"at", 1}, {"every", 1}, {"until", seconds}, {"range", beacons}}}}};
}

void replayOfAnHour(benchmark::State& state) {
    const BenchPhone directory;
    measureReplay(state, directory.phone.container(), hoursInAShop(3600, false), 3600);
    state.counters["bound_s"] = 0.4;
}

BENCHMARK(replayOfAnHour)->UseManualTime()->Unit(benchmark::kSecond);

/// The first argument counts hours: the time of twelve is twelve times that of one.
void replayWithKnownBeacons(benchmark::State& state, Shown shown) {
    const BenchPhone directory;
    const auto seconds = 3600 * static_cast<int>(state.range(0));
    measureReplay(state, directory.phone.container(), hoursInAShop(seconds, true), seconds, shown);
    state.counters["bound_s"] = (shown == Shown::trace ? 0.6 : 0.4) * static_cast<double>(state.range(0));
}

BENCHMARK_CAPTURE(replayWithKnownBeacons, trace, Shown::trace)
    ->Arg(1)
    ->Arg(12)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(replayWithKnownBeacons, timeline, Shown::timeline)
    ->Arg(1)
    ->Arg(12)
    ->UseManualTime()
    ->Unit(benchmark::kSecond);
BENCHMARK_CAPTURE(replayWithKnownBeacons, story, Shown::story)->Arg(1)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace quomi::bench
