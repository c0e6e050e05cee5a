#include "bench/bench_store.h"

#include "bench/bench_phone.h"
#include "quomi/api/api_client.h"
#include "quomi/data/data_updater.h"
#include "quomi/data/parser.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/run_loop.h"

#include <cstdio>
#include <cstdlib>
#include <iterator>

#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi::bench {

namespace {

void appendRule(std::string& text, int geofence, const char* trigger) {
    fmt::format_to(std::back_inserter(text),
                   R"({{"id":"{0}-{1}","rule":{{"trigger":"{1}","min_events":0,"min_events_period":0,"max_events":3,)"
                   R"("max_events_period":86400,"latch_time":30}},"action":{{"notify_user":"Welcome to shop {0}",)"
                   R"("open_url":"https://shop.test/offers/{0}"}}}})",
                   geofence, trigger);
}

/// Answers with one text, which it hands over.
class OneAnswer final : public HttpTransport {
public:
    OneAnswer(RunLoop& runLoop, std::string text) : runLoop_(runLoop), text_(std::move(text)) {}
    std::unique_ptr<HttpTask> send(HttpRequest /*request*/, Completion completion) override {
        runLoop_.post([this, completion = std::move(completion)] {
            completion(HttpResponse{200, {}, std::move(text_)});
        });
        return std::make_unique<HttpTask>();
    }

private:
    RunLoop& runLoop_;
    std::string text_;
};

/// Of a phone that may be told much.
Deployment roomy() {
    Deployment deployment;
    deployment.maxResponseBytes = std::uint64_t{128} << 20;
    return deployment;
}

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "%s\n", what);
    std::abort();
}

}  // namespace

std::string geofencesAnswer(int count) {
    std::string text;
    text.reserve(static_cast<std::size_t>(count) * 900 + 200);
    text = R"({"query_params":{"lat":52.5,"lng":13.4,"radius":100000},"valid_until":"2030-01-01T00:00:00Z",)"
           R"("remove_ids":[],"u_geofences":[)";
    for (int i = 0; i < count; ++i) {
        fmt::format_to(
            std::back_inserter(text),
            R"({}{{"id":"5d1b2c7e-{:08}","name":"Shop {}","lat":{:.6f},"lng":{:.6f},"radius":120,)"
            R"("address":"Main Street {}","group_id":"group-{}","start":"2020-01-01T00:00:00Z",)"
            R"("end":"2030-01-01T00:00:00Z","updated_at":"2026-01-01T10:00:00Z","timezone":{{"zone":"Europe/Berlin",)"
            R"("title":"Berlin","offset":3600,"utc_offset":1,"dst":false}},"rules_actions":[)",
            i == 0 ? "" : ",", i, i, 52 + (i % 1000) * 0.001, 13 + (i / 1000) * 0.01, i, i % 100);
        appendRule(text, i, "on_entry");
        text += ',';
        appendRule(text, i, "on_exit");
        text += "]}";
    }
    return text += "]}";
}

void placeAt(QuomiGeofence& geofence, double latitude, double longitude, double radius) {
    geofence.latitude = latitude;
    geofence.longitude = longitude;
    geofence.radius = radius;
    geofence.startDate = WallTime(std::chrono::days(18000));
    geofence.endDate = WallTime(std::chrono::days(22000));
    geofence.updatedAt = WallTime(std::chrono::days(20000));
}

BenchStore::BenchStore() : settings(roomy(), platform.location) {
    std::optional<Error> error;
    data = QuomiData::create(file, false, platform, errors, &error);
    if (data == nullptr) fail("the store did not open");
}

bool BenchStore::download(std::string answer) {
    OneAnswer transport(platform.runLoop, std::move(answer));
    const Platform answering = platform.with(transport);
    phone.jumpClock(std::chrono::hours(24 * 20'000));
    DebugLog debugLog(platform.files, platform.clock, [] { return false; });
    QuomiAPI client(settings.baseAPIUrl, answering, settings, debugLog);
    QuomiDataApiResponseParser parser(*data, errors, platform, settings);
    QuomiDataUpdater updater(*data, client, parser, platform, settings, debugLog);
    updater.performFullGeofencesDataUpdate({52.5, 13.4, kGeofenceDownloadRadius});
    phone.runTurns();
    return !updater.geofencesDataNeedUpdating();
}

void BenchStore::fillGeofences(int count, const std::function<void(int, QuomiGeofence&)>& place) {
    int next = 0;
    const auto geofences = [&]() -> std::shared_ptr<QuomiGeofence> {
        if (next == count) return nullptr;
        auto geofence = std::make_shared<QuomiGeofence>();
        geofence->geofenceId = fmt::format("g{:06}", next);
        geofence->name = fmt::format("Shop {}", next);
        geofence->address = fmt::format("Main Street {}", next);
        geofence->namespace_ = "shop";
        place(next++, *geofence);
        return geofence;
    };
    data->insertOrUpdateGeofences(geofences, QuomiGeofenceRegion());
    if (!data->saveContext()) fail("the geofences were not stored");
}

void BenchStore::fillBeacons(int count) {
    int next = 0;
    const auto beacons = [&]() -> std::shared_ptr<QuomiBeaconData> {
        if (next == count) return nullptr;
        auto beacon = std::make_shared<QuomiBeaconData>();
        beacon->beaconId = fmt::format("b{:06}", next);
        beacon->name = fmt::format("Shelf {}", next);
        beacon->proximityUUID = kShopUuid.string();
        beacon->major = next / 1000;
        beacon->minor = next % 1000;
        auto rule = std::make_shared<QuomiBeaconRuleWithActions>();
        rule->ruleId = fmt::format("r{:06}", next++);
        rule->trigger = kTriggerOnEntry;
        beacon->addActionObject(std::move(rule));
        return beacon;
    };
    data->insertOrUpdateBeacons(beacons);
    if (!data->saveContext()) fail("the beacons were not stored");
}

RawStatement::RawStatement(sqlite3* database, const std::string& sql) {
    if (sqlite3_prepare_v2(database, sql.c_str(), -1, &statement_, nullptr) != SQLITE_OK)
        fail(sqlite3_errmsg(database));
}

bool RawStatement::step() {
    const int code = sqlite3_step(statement_);
    if (code != SQLITE_ROW && code != SQLITE_DONE) fail("a statement failed");
    return code == SQLITE_ROW;
}

void RawStatement::run() {
    while (step()) {
    }
    sqlite3_reset(statement_);
}

std::string RawStatement::text(int column) const {
    const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_, column));
    return bytes == nullptr ? ""
                            : std::string(bytes, static_cast<std::size_t>(sqlite3_column_bytes(statement_, column)));
}

std::optional<std::string> RawStatement::optionalText(int column) const {
    return isNull(column) ? std::nullopt : std::optional(text(column));
}

RawDatabase::RawDatabase(const std::filesystem::path& file) {
    constexpr int kFlags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(file.c_str(), &database_, kFlags, nullptr) != SQLITE_OK) fail("the raw database did not open");
    exec("PRAGMA journal_mode = WAL; PRAGMA synchronous = NORMAL; PRAGMA foreign_keys = ON");
}

void RawDatabase::exec(const std::string& sql) {
    if (sqlite3_exec(database_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) fail(sqlite3_errmsg(database_));
}

}  // namespace quomi::bench
