// Positions in a large store, and ten hours on foot.

#include "bench/bench_phone.h"
#include "bench/bench_replay.h"
#include "bench/bench_store.h"
#include "bench/measure.h"
#include "hosts/simulated/scripted_transport.h"

#include <cmath>
#include <fstream>

#include <benchmark/benchmark.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::bench {
namespace {

constexpr double kLatitude = 52.6;
constexpr double kLongitude = 13.6;

/// 100,000 geofences, of which about 2,500 lie within a degree: 40 to a degree of latitude, 15 to one of longitude.
void placeInCountry(int number, QuomiGeofence& geofence) {
    placeAt(geofence, 40 + (number % 800) * 0.025, 9 + (number / 800) * 0.065, 0.1);
}

/// The floor are the two searches that a position makes: what lies around it, and what lies around the phone.
void positionAmongManyGeofences(benchmark::State& state) {
    BenchPhone bench;
    bench.settings.stopUpdatingLocationAfterFirstUpdate = false;
    bench.sdk.setBeaconsEnabled(false);
    bench.sdk.setGeofencesEnabled(true);
    const boost::json::object area{{"lat", kLatitude}, {"lng", kLongitude}, {"radius", 100}};
    bench.phone.transport().answer("GET /u_geofences/query.json", simulated::ScriptedAnswer::json(boost::json::object{
                                                                      {"u_geofences", boost::json::array()},
                                                                      {"query_params", area},
                                                                      {"valid_until", "2100-01-01T00:00:00Z"},
                                                                      {"remove_ids", boost::json::array()}}));
    BenchStore store;
    store.fillGeofences(100'000, placeInCountry);
    store.data.reset();
    const auto file = QuomiData::dataStorageDirectory(bench.phone.platform()) / kQuomiSQLiteStoreFile;
    std::filesystem::create_directories(file.parent_path());
    std::filesystem::copy_file(store.file, file);
    bench.sdk.start();
    bench.phone.advanceBy(std::chrono::seconds(1));
    const auto goTo = [&bench](double latitude) {
        bench.phone.setLocation({latitude, kLongitude}, 10);
        bench.phone.runTurns();
    };
    goTo(kLatitude);
    bench.phone.advanceBy(std::chrono::seconds(1));
    store.data = QuomiData::create(file, false, store.platform, store.errors);
    double step = 0;
    std::size_t found = 0;
    compare(
        state, 1.5, [&] { goTo(kLatitude + step); },
        [&] {
            step = step > 0.0005 ? 0 : step + 0.0001;
            for (int query = 0; query < 2; ++query) {
                found = store.data->findNearbyGeofences(kLatitude + step, kLongitude).size();
            }
        });
    if (bench.phone.monitoredRegions().size() != 20) state.SkipWithError("the phone does not watch what it can");
    state.counters["found"] = static_cast<double>(found);
}

constexpr int kHours = 10;
constexpr int kPointEvery = 10;         // seconds
constexpr double kMetresPerPoint = 14;  // along the way

/// A way that winds north-east; a point every ten seconds.
Coordinate pointOfWay(int number) {
    const double metres = number * kMetresPerPoint;
    return {kLatitude + metres / 111'320 * 0.8, kLongitude + (metres * 0.6 + 300 * std::sin(metres / 500)) / 67'600};
}

void writeTrack(const std::filesystem::path& path, int hours) {
    std::ofstream file(path);
    file << "<gpx version=\"1.1\" xmlns=\"http://www.topografix.com/GPX/1/1\"><trk><trkseg>\n";
    for (int i = 0; i <= hours * 3600 / kPointEvery; ++i) {
        const auto point = pointOfWay(i);
        const int seconds = i * kPointEvery;
        file << fmt::format("<trkpt lat=\"{:.6f}\" lon=\"{:.6f}\"><time>2026-05-09T{:02}:{:02}:{:02}Z</time></trkpt>\n",
                            point.latitude, point.longitude, 6 + seconds / 3600, seconds / 60 % 60, seconds % 60);
    }
    file << "</trkseg></trk></gpx>\n";
}

/// One along the way every half an hour, with a rule for each direction.
boost::json::array geofencesOnTheWay() {
    boost::json::array geofences;
    for (int i = 90; i < kHours * 3600 / kPointEvery; i += 180) {
        boost::json::array rules;
        for (const char* trigger : {"on_entry", "on_exit"}) {
            rules.push_back({{"id", fmt::format("{}-{}", trigger, i)},
                             {"rule", {{"trigger", trigger}, {"max_events", 3}, {"max_events_period", 86400}}},
                             {"action", {{"notify_user", "Hello"}}}});
        }
        const auto center = pointOfWay(i);
        geofences.push_back({{"id", fmt::format("stop-{}", i)},
                             {"lat", center.latitude},
                             {"lng", center.longitude},
                             {"radius", 0.1},
                             {"end", "2100-01-01T00:00:00Z"},
                             {"rules_actions", rules}});
    }
    return geofences;
}

boost::json::object walkPast20Geofences() {
    const boost::json::object done{{"json", {{"success", true}}}};
    const boost::json::object application{{"success", true},
                                          {"namespace_uid", "shop"},
                                          {"normal_proximity_uuid", kShopUuid.string()},
                                          {"secure_proximity_uuid", "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B91"},
                                          {"service_proximity_uuid", "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B92"},
                                          {"anti_hacking_protocol", "none"}};
    const boost::json::object area{{"lat", kLatitude}, {"lng", kLongitude}, {"radius", 100}};
    const boost::json::object geofences{{"u_geofences", geofencesOnTheWay()},
                                        {"query_params", area},
                                        {"valid_until", "2100-01-01T00:00:00Z"},
                                        {"remove_ids", boost::json::array()}};
    return {{"visit", 1},
            {"start", "2026-05-09T06:00:00Z"},
            {"app",
             {{"namespace", "shop"},
              {"properties", {{"beaconsEnabled", false}, {"geofencesEnabled", true}}},
              {"settings", {{"stopUpdatingLocationAfterFirstUpdate", false}}}}},
            {"backoffice",
             {{"answers",
               {{"GET /u_applications/query.json", {{"json", application}}},
                {"GET /u_applications/limits.json", done},
                {"GET /u_geofences/query.json", {{"json", geofences}}},
                {"GET /u_beacons/query.json", done},
                {"POST /u_app_users/find_or_create_by_udid.json", done},
                {"POST /u_applications/shop/log_multi.json", done}}}}},
            {"timeline", {{{"at", 0}, {"call", "start"}}, {{"at", 1}, {"walk", {{"gpx", "way.gpx"}}}}}}};
}

void tenHoursOnFoot(benchmark::State& state) {
    const BenchPhone directory;
    const auto folder = directory.phone.container();
    writeTrack(folder / "way.gpx", kHours);
    std::ifstream trace(measureReplay(state, folder, walkPast20Geofences(), kHours * 3600.0));
    int entries = 0;
    for (std::string line; std::getline(trace, line);) {
        if (line.find("didReceiveEnterRegionNotification") != std::string::npos) ++entries;
    }
    state.counters["entries"] = entries;
    state.counters["bound_s"] = 1;
}

/// The same walk without a tool around the SDK: what is on the heap after ten hours beside what is after one.
void memoryOnFoot(benchmark::State& state) {
    for (auto _ : state) {
        BenchPhone bench;
        bench.settings.stopUpdatingLocationAfterFirstUpdate = false;
        bench.sdk.setBeaconsEnabled(false);
        bench.sdk.setGeofencesEnabled(true);
        bench.sdk.setEventLogsEnabled(true);
        const boost::json::object area{{"lat", kLatitude}, {"lng", kLongitude}, {"radius", 100}};
        bench.phone.transport().answer(
            "GET /u_geofences/query.json",
            simulated::ScriptedAnswer::json(boost::json::object{{"u_geofences", geofencesOnTheWay()},
                                                                {"query_params", area},
                                                                {"valid_until", "2100-01-01T00:00:00Z"},
                                                                {"remove_ids", boost::json::array()}}));
        bench.sdk.start();
        bench.phone.advanceBy(std::chrono::seconds(1));
        std::size_t afterTheFirst = 0;
        constexpr int kPerHour = 3600 / kPointEvery;
        for (int i = 0; i <= kHours * kPerHour; ++i) {
            bench.phone.walk({pointOfWay(i), {}, {}, {}});
            bench.phone.advanceBy(std::chrono::seconds(kPointEvery));
            if (i == kPerHour) afterTheFirst = heapInUse();
        }
        state.counters["grown_kib"] = (static_cast<double>(heapInUse()) - static_cast<double>(afterTheFirst)) / 1024;
        state.counters["notifications"] = static_cast<double>(bench.phone.notifications().size());
    }
    state.counters["bound_kib"] = 1024;
}

BENCHMARK(positionAmongManyGeofences)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(tenHoursOnFoot)->UseManualTime()->Unit(benchmark::kSecond);
BENCHMARK(memoryOnFoot)->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace
}  // namespace quomi::bench
