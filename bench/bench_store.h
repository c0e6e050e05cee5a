#pragma once

#include "hosts/simulated/simulated_phone.h"
#include "quomi/data/data.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"

#include <functional>
#include <memory>
#include <optional>
#include <sqlite3.h>
#include <string>

namespace quomi::bench {

/// A server's answer of so many geofences with two rules each, about 800 bytes a geofence.
[[nodiscard]] std::string geofencesAnswer(int count);

/// Puts a geofence there (degrees, kilometres), valid from 2019 to 2030.
void placeAt(QuomiGeofence& geofence, double latitude, double longitude, double radius);

/// A phone with an empty store.
struct BenchStore {
    BenchStore();
    /// Has geofences downloaded; the server gives this answer. False when it is not taken.
    bool download(std::string answer);
    /// Geofences without rules, or beacons of the UUID of every benchmark with one rule, made by number; saved.
    void fillGeofences(int count, const std::function<void(int, QuomiGeofence&)>& place);
    void fillBeacons(int count);

    simulated::SimulatedPhone phone;
    Platform platform = phone.platform();
    QuomiErrors errors{platform.localization};
    QuomiSettings settings;  // of a deployment that allows long answers
    std::filesystem::path file = QuomiData::dataStorageDirectory(platform) / kQuomiSQLiteStoreFile;
    std::unique_ptr<QuomiData> data;
};

/// SQLite without anything around it, for the floors. Aborts when it fails.
class RawStatement {
public:
    RawStatement(sqlite3* database, const std::string& sql);
    ~RawStatement() { sqlite3_finalize(statement_); }
    RawStatement(const RawStatement&) = delete;
    RawStatement& operator=(const RawStatement&) = delete;

    [[nodiscard]] sqlite3_stmt* handle() const { return statement_; }
    /// Whether there is a row.
    bool step();
    void run();  // to its end, and back to its beginning
    [[nodiscard]] std::string text(int column) const;
    [[nodiscard]] std::optional<std::string> optionalText(int column) const;
    [[nodiscard]] double real(int column) const { return sqlite3_column_double(statement_, column); }
    [[nodiscard]] int integer(int column) const { return sqlite3_column_int(statement_, column); }
    [[nodiscard]] bool isNull(int column) const { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

private:
    sqlite3_stmt* statement_ = nullptr;
};

class RawDatabase {
public:
    /// A connection set up as the store's is.
    explicit RawDatabase(const std::filesystem::path& file);
    ~RawDatabase() { sqlite3_close(database_); }
    RawDatabase(const RawDatabase&) = delete;
    RawDatabase& operator=(const RawDatabase&) = delete;

    [[nodiscard]] sqlite3* handle() const { return database_; }
    void exec(const std::string& sql);

private:
    sqlite3* database_ = nullptr;
};

}  // namespace quomi::bench
