// An hour with ten beacons in view and a server that fails every download of them, beside an hour with a good server;
// and the return to the network after an hour without.

#include "bench/bench_phone.h"
#include "bench/measure.h"
#include "hosts/simulated/scripted_transport.h"

#include <memory>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::bench {
namespace {

constexpr const char* kDownload = "GET /u_beacons/query.json";
constexpr int kHour = 3600;

simulated::ScriptedAnswer shelves(int count) {
    boost::json::array beacons;
    for (int minor = 0; minor < count; ++minor) {
        beacons.push_back({{"id", fmt::format("shelf-{}", minor)},
                           {"proximity_uid", kShopUuid.string()},
                           {"major", 2},
                           {"minor", minor}});
    }
    return simulated::ScriptedAnswer::json(boost::json::object{{"u_beacons", std::move(beacons)},
                                                               {"query_params", boost::json::object()},
                                                               {"valid_until", "2100-01-01T00:00:00Z"},
                                                               {"remove_ids", boost::json::array()}});
}

/// A phone before ten beacons, whose download is due.
class Visitor {
public:
    Visitor() {
        app_.phone.jumpClock(std::chrono::hours(24 * 20'000));
        app_.phone.transport().answer(kDownload, simulated::ScriptedAnswer::text("", 503));
        app_.sdk.start();
        app_.phone.advanceBy(std::chrono::seconds(1));
        for (std::uint16_t minor = 0; minor < 10; ++minor) {
            view_.push_back({kShopUuid, 1, minor, PlatformProximity::near, 2.0, -65});
        }
    }

    void answer(const simulated::ScriptedAnswer& answer) { app_.phone.transport().answer(kDownload, answer); }
    /// One ranging report a second.
    void lookForAnHour() {
        for (int second = 0; second < kHour; ++second) {
            app_.phone.range(view_);
            app_.phone.advanceBy(std::chrono::seconds(1));
        }
    }
    void network(bool isThere) {
        app_.phone.network(isThere);
        app_.phone.advanceBy(std::chrono::seconds(5));
    }
    [[nodiscard]] std::size_t downloads() { return app_.phone.transport().requests(kDownload); }

private:
    BenchPhone app_;
    std::vector<RangedBeacon> view_;
};

/// Processor time of the hour, and the downloads in it.
std::pair<double, std::size_t> hourWith(const simulated::ScriptedAnswer& answer) {
    Visitor visitor;
    visitor.answer(answer);
    const double begin = processorSeconds();
    visitor.lookForAnHour();
    return {processorSeconds() - begin, visitor.downloads()};
}

void hourWithAFailingServer(benchmark::State& state) {
    double ours = 0;
    double floor = 0;
    std::size_t requests = 0;
    for (auto _ : state) {
        floor += hourWith(shelves(0)).first;
        const auto [seconds, downloads] = hourWith(simulated::ScriptedAnswer::text("", 503));
        ours += seconds;
        requests = downloads;
        state.SetIterationTime(seconds);
    }
    state.counters["requests"] = static_cast<double>(requests);
    state.counters["bound_requests"] = 75;
    state.counters["ratio"] = ours / floor;
    state.counters["bound"] = 2;
}

void returnToTheNetwork(benchmark::State& state) {
    for (auto _ : state) {
        Visitor visitor;
        visitor.answer(shelves(300));
        visitor.network(false);
        visitor.lookForAnHour();
        const double begin = processorSeconds();
        visitor.network(true);
        state.SetIterationTime(processorSeconds() - begin);
    }
    state.counters["bound_s"] = 0.3;
}

BENCHMARK(hourWithAFailingServer)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(3);
BENCHMARK(returnToTheNetwork)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(3);

}  // namespace
}  // namespace quomi::bench
