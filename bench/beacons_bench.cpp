// One ranging report of known beacons, through manager and facade to the host's delegate, beside as many prepared
// lookups by key in a store of the same size that holds none of them.

#include "bench/bench_phone.h"
#include "bench/measure.h"
#include "quomi/data/schema.h"

#include <vector>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <benchmark/benchmark.h>
#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::bench {
namespace {

constexpr std::uint16_t kBeacons = 1000;

std::vector<RangedBeacon> report() {
    std::vector<RangedBeacon> beacons;
    for (std::uint16_t minor = 0; minor < kBeacons; ++minor) {
        beacons.push_back({kShopUuid, 1, minor, PlatformProximity::near, 1.5 + minor * 0.001, -65});
    }
    return beacons;
}

/// A table as the store has it, with as many beacons of another UUID.
class Lookups {
public:
    explicit Lookups(const std::filesystem::path& file)
        : database_(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE) {
        database_.exec("PRAGMA journal_mode = WAL");
        for (const auto& entity : currentSchema()) {
            if (entity.name != "QuomiBeaconData") continue;
            for (const auto& statement : createStatements(entity)) database_.exec(statement);
        }
        database_.exec("BEGIN");
        for (int minor = 0; minor < kBeacons; ++minor) {
            database_.exec(fmt::format(
                "INSERT INTO QuomiBeaconData (beaconId, name, proximityUUID, major, minor) VALUES ('{0}', 'b', "
                "'6B6E1B5A-0C0D-4A6E-9E62-0000000000A1', 1, {0})",
                minor));
        }
        database_.exec("COMMIT");
        query_ = std::make_unique<SQLite::Statement>(
            database_, "SELECT * FROM QuomiBeaconData WHERE proximityUUID = ? AND major = ? AND minor = ?");
    }

    int run(const std::vector<RangedBeacon>& beacons) {
        int found = 0;
        for (const auto& beacon : beacons) {
            query_->reset();
            query_->bind(1, beacon.proximityUUID.string());
            query_->bind(2, beacon.major);
            query_->bind(3, beacon.minor);
            while (query_->executeStep()) ++found;
        }
        return found;
    }

private:
    SQLite::Database database_;
    std::unique_ptr<SQLite::Statement> query_;
};

/// A host that wants to hear of everything.
std::shared_ptr<QuomiSDKDelegate> curiousDelegate() {
    auto delegate = std::make_shared<QuomiSDKDelegate>();
    const auto hear = [](QuomiSDK&, const std::string& name, const boost::json::object& userInfo) {
        benchmark::DoNotOptimize(name.size() + userInfo.size());
    };
    delegate->didFindNewBeacon = hear;
    delegate->didUpdateBeacon = hear;
    delegate->didReceivePingFromBeacon = hear;
    return delegate;
}

void rangingReport(benchmark::State& state, std::shared_ptr<QuomiSDKDelegate> delegate) {
    BenchPhone bench;
    bench.sdk.setDelegate(delegate);
    bench.sdk.start();
    bench.phone.advanceBy(std::chrono::seconds(1));
    const auto beacons = report();
    bench.phone.range(beacons);
    bench.phone.runTurns();

    Lookups lookups(bench.phone.container() / "lookups.sqlite");
    compare(
        state, 3,
        [&] {
            bench.phone.range(beacons);
            bench.phone.runTurns();
        },
        [&] { benchmark::DoNotOptimize(lookups.run(beacons)); });
}

void rangingReportHostHearsNothing(benchmark::State& state) {
    rangingReport(state, nullptr);
}
void rangingReportHostHearsEverything(benchmark::State& state) {
    rangingReport(state, curiousDelegate());
}

BENCHMARK(rangingReportHostHearsNothing)->UseManualTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(rangingReportHostHearsEverything)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quomi::bench
