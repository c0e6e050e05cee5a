// A download of 100,000 geofences with 200,000 rules, parsed and stored, beside reading the same bytes as JSON and
// inserting the same rows with prepared statements; and the memory that it takes.

#include "bench/bench_phone.h"
#include "bench/bench_store.h"
#include "bench/measure.h"
#include "quomi/data/schema.h"

#include <cstdio>
#include <filesystem>
#include <vector>

#include <benchmark/benchmark.h>
#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi::bench {
namespace {

constexpr int kGeofences = 100'000;

/// All rows of the tables that a download fills, as SQLite's own values.
class Rows {
public:
    Rows(RawDatabase& database, const Entity& entity) : entity_(&entity) {
        const RawStatement count(database.handle(), fmt::format("SELECT * FROM {}", entity.name));
        columns_ = sqlite3_column_count(count.handle());
        RawStatement query(database.handle(), fmt::format("SELECT * FROM {}", entity.name));
        while (query.step()) {
            for (int i = 0; i < columns_; ++i) {
                values_.push_back(sqlite3_value_dup(sqlite3_column_value(query.handle(), i)));
            }
        }
    }
    ~Rows() {
        for (auto* value : values_) sqlite3_value_free(value);
    }
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    void makeTable(RawDatabase& database) const {
        for (const auto& statement : createStatements(*entity_)) database.exec(statement);
    }
    void insert(RawDatabase& database) const {
        std::string places = "?";
        for (int i = 1; i < columns_; ++i) places += ", ?";
        RawStatement insertion(database.handle(), fmt::format("INSERT INTO {} VALUES ({})", entity_->name, places));
        for (std::size_t i = 0; i < values_.size();) {
            for (int column = 1; column <= columns_; ++column) {
                sqlite3_bind_value(insertion.handle(), column, values_[i++]);
            }
            insertion.run();
        }
    }

private:
    const Entity* entity_;
    int columns_ = 0;
    std::vector<sqlite3_value*> values_;
};

double floorSeconds(const std::string& answer, const std::vector<std::unique_ptr<Rows>>& tables) {
    const BenchPhone directory;
    RawDatabase database(directory.phone.container() / "rows.sqlite");
    for (const auto& rows : tables) rows->makeTable(database);
    return secondsOf([&] {
        const auto value = boost::json::parse(answer);
        benchmark::DoNotOptimize(value.is_object());
        database.exec("BEGIN IMMEDIATE");
        for (const auto& rows : tables) rows->insert(database);
        database.exec("COMMIT");
    });
}

void download(benchmark::State& state) {
    const auto answer = geofencesAnswer(kGeofences);
    double ours = 0;
    double floor = 0;
    for (auto _ : state) {
        BenchStore store;
        bool isTaken = false;
        std::string received = answer;
        const double elapsed = secondsOf([&] { isTaken = store.download(std::move(received)); });
        if (!isTaken) return state.SkipWithError("the answer was not taken");
        ours += elapsed;
        state.SetIterationTime(elapsed);
        RawDatabase stored(store.file);
        std::vector<std::unique_ptr<Rows>> tables;
        for (const auto& entity : currentSchema()) {
            if (entity.name.starts_with("QuomiGeofence") && entity.name != "QuomiGeofenceRegion") {
                tables.push_back(std::make_unique<Rows>(stored, entity));
            }
        }
        floor += floorSeconds(answer, tables);
    }
    state.counters["bytes"] = static_cast<double>(answer.size());
    state.counters["floor_s"] = floor / static_cast<double>(state.iterations());
    state.counters["ratio"] = ours / floor;
    state.counters["bound"] = 2;
}

/// Greatest growth of the resident set, text and value included, beside the text's size.
void downloadMemory(benchmark::State& state) {
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "quomi_download_memory";
    long long bytes = 0;
    long long peak = 0;
    for (auto _ : state) {
        std::FILE* output = ::popen(program.c_str(), "r");
        const bool isRead = output != nullptr && std::fscanf(output, "%lld %lld", &bytes, &peak) == 2;
        if (output != nullptr) ::pclose(output);
        if (!isRead) return state.SkipWithError("the process did not measure");
    }
    state.counters["peak_MB"] = static_cast<double>(peak) / 1e6;
    state.counters["ratio"] = static_cast<double>(peak) / static_cast<double>(bytes);
    state.counters["bound"] = 6;
}

BENCHMARK(download)->UseManualTime()->Unit(benchmark::kSecond)->Iterations(3);
BENCHMARK(downloadMemory)->Unit(benchmark::kSecond)->Iterations(1);

}  // namespace
}  // namespace quomi::bench
