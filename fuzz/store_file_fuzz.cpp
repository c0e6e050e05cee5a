// A store file as somebody else may have left it, opened and used. The first byte of the input says what the rest is:
// the file itself, bytes that lie over a sound store from an offset on, or lines TYPE, tab, NAME, tab, STATEMENT that
// are written into the schema of a sound store of some version. "OUTSIDE" in them is a path outside of the container.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/simulated_phone.h"
#include "hosts/simulated/temporary_directory.h"
#include "quomi/data/data.h"
#include "quomi/data/schema_versions.h"
#include "quomi/model/errors.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <utility>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void write(const fs::path& file, std::string_view bytes) {
    std::ofstream(file, std::ios::binary) << bytes;
}

/// A store of the version, with a beacon and its rule.
void makeStore(const fs::path& file, std::size_t version) {
    fs::remove(file);
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    const auto& schema = quomi::allVersions()[version % quomi::allVersions().size()];
    quomi::makeTables(database, schema.entities, schema.number);
    database.exec(
        "INSERT INTO QuomiBeaconData (_id, beaconId, name, proximityUUID, major, minor) VALUES (1, 'b', '', 'U', 1, 2);"
        "INSERT INTO QuomiGeofence (_id, geofenceId, latitude, longitude, radius) VALUES (1, 'g', 1, 2, 3)");
}

void overlay(const fs::path& file, std::string_view input) {
    if (input.size() < 2) return;
    auto bytes = contentOf(file);
    const std::size_t at = static_cast<unsigned char>(input[0]) * 256U + static_cast<unsigned char>(input[1]);
    const auto over = input.substr(2);
    if (at < bytes.size()) bytes.replace(at, std::min(over.size(), bytes.size() - at), over);
    write(file, bytes);
}

std::string replaced(std::string text, std::string_view from, const std::string& to) {
    for (auto at = text.find(from); at != text.npos; at = text.find(from, at + to.size()))
        text.replace(at, from.size(), to);
    return text;
}

/// The statement makes what it can, and the line of the schema then calls itself something else.
void addLine(SQLite::Database& database, const std::string& type, const std::string& name,
             const std::string& statement) {
    const auto run = [&](const char* sql) {
        SQLite::Statement line(database, sql);
        line.bind(1, type);
        line.bind(2, name);
        if (line.getBindParameterCount() > 2) line.bind(3, statement);
        line.exec();
    };
    try {
        if (!statement.starts_with("CREATE ")) throw SQLite::Exception("nothing to make");
        SQLite::Statement(database, statement).exec();
        run("UPDATE sqlite_master SET type = ?, name = ? WHERE rowid = (SELECT MAX(rowid) FROM sqlite_master)");
    } catch (const SQLite::Exception&) {
        run("INSERT INTO sqlite_master VALUES (?, ?, 'QuomiDebugLog', 2, ?)");
    }
}

void addToSchema(const fs::path& file, std::string_view input, const fs::path& outside) {
    SQLite::Database database(file.string(), SQLite::OPEN_READWRITE);
    database.exec("PRAGMA writable_schema = ON; PRAGMA user_version = 0");
    std::istringstream lines(replaced(std::string(input), "OUTSIDE", outside.string()));
    for (std::string line, type, name; std::getline(lines, line);) {
        std::istringstream fields(line);
        std::string statement;
        std::getline(std::getline(std::getline(fields, type, '\t'), name, '\t'), statement);
        addLine(database, type, name, statement);
    }
}

/// What a store that was opened must not have any more: anything that may run.
bool hasTablesAndIndicesAlone(const fs::path& file) try {
    SQLite::Database database(file.string());
    return database
               .execAndGet(
                   "SELECT count(*) FROM sqlite_master WHERE type NOT IN ('table', 'index') OR"
                   " sql NOT LIKE 'CREATE TABLE %' AND sql NOT LIKE 'CREATE INDEX %'")
               .getInt() == 0;
} catch (const SQLite::Exception&) {
    return true;  // damaged
}

/// What an app does with its store in a launch.
void use(quomi::QuomiData& data) {
    using namespace quomi;
    data.setSdkIsStarted(true);
    static_cast<void>(data.getApplication());
    for (const auto& beacon : data.getAllBeacons()) {
        ++beacon->seenCount;
        for (const auto& rule : beacon->rules()) static_cast<void>(rule->getAndDeserializeActions());
        static_cast<void>(beacon->dictionary());
    }
    for (const auto& geofence : data.findNearbyGeofences(1, 2)) static_cast<void>(geofence->dictionary());
    data.saveContext();
    auto fresh = std::make_shared<QuomiGeofence>();
    fresh->geofenceId = "g";
    const QuomiData::Source<QuomiGeofence> one = [&fresh] { return std::exchange(fresh, nullptr); };
    data.insertOrUpdateGeofences(one, QuomiGeofenceRegion());
    data.saveContext();
    data.resetAllBeaconsCounters();
    data.removeEverything();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quomi;
    if (size == 0) return 0;
    const simulated::TemporaryDirectory directory;
    simulated::PhoneConfig config;
    config.container = directory.path() / "container";
    simulated::SimulatedPhone phone(std::move(config));
    const auto platform = phone.platform();
    const QuomiErrors errors(platform.localization);
    const auto file = QuomiData::dataStorageDirectory(platform) / "store.sqlite";
    fs::create_directories(file.parent_path());
    const auto input = fuzz::textOf(data, size).substr(1);
    try {
        if (data[0] % 3 != 0) makeStore(file, data[0] / 3U);
        if (data[0] % 3 == 0) write(file, input);
        if (data[0] % 3 == 1) overlay(file, input);
        if (data[0] % 3 == 2) addToSchema(file, input, directory.path() / "outside");
    } catch (const SQLite::Exception&) {
        return 0;  // not even SQLite would write it
    }
    std::optional<Error> error;
    auto store = QuomiData::create(file, false, platform, errors, &error);
    fuzz::require(store != nullptr || error.has_value());
    fuzz::require(store == nullptr || hasTablesAndIndicesAlone(file));
    if (store != nullptr) use(*store);
    store.reset();
    store = QuomiData::create(file, true, platform, errors, &error);
    if (store != nullptr) use(*store);
    store.reset();
    // Nothing reaches outside of the container.
    fuzz::require(std::distance(fs::directory_iterator(directory.path()), {}) == 1);
    return 0;
}
