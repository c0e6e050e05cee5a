#include "quomi/data/migration.h"
#include "quomi/data/schema_versions.h"
#include "tests/data/migration_support.h"
#include "tests/data/store_support.h"
#include "tests/durability/scenarios.h"

#include <SQLiteCpp/Transaction.h>

namespace quomi::test {

namespace {

namespace fs = std::filesystem;

constexpr int kSaves = 3;
constexpr int kBeacons = 40;

void require(bool done, const char* what) {
    if (!done) throw std::runtime_error(what);
}

void setStatus(QuomiStatusInfo& status, int generation) {
    status.globalTriggersCount = status.globalMaxEvents = generation;
}

std::unique_ptr<QuomiData> open(const Platform& platform, const QuomiErrors& errors) {
    auto data = QuomiData::create(storePath(platform), false, platform, errors);
    require(data != nullptr, "opening");
    return data;
}

void openAndClose(const Platform& platform, Witness& /*witness*/) {
    const QuomiErrors errors(platform.localization);
    open(platform, errors);
}

void make(const Platform& platform, int version, int rows) {
    fs::create_directories(storePath(platform).parent_path());
    std::ostringstream out;
    const auto file = storePath(platform).string();
    require(tool::runStore({"make", "--version", std::to_string(version), "--rows", std::to_string(rows), file}, out,
                           out) == 0,
            "making");
}

void makeWithLog(const Platform& platform, int version, int rows) {
    make(platform, version, rows);
    moveRowsIntoLog(storePath(platform));
}

/// The rows that come of the work when nothing disturbs it. Done on a copy of the store and its log.
Rows rowsAfter(const Platform& platform, const std::function<void(const fs::path&, Files&)>& work) {
    const TemporaryDirectory directory;
    const auto copy = directory.path() / storePath(platform).filename();
    for (const char* suffix : {"", "-wal"}) {
        const auto from = storePath(platform).string() + suffix;
        if (fs::exists(from)) fs::copy_file(from, copy.string() + suffix);
    }
    work(copy, platform.files);
    return rowsOf(copy);
}

Rows rowsAfterOpening(const Platform& platform) {
    return rowsAfter(platform, [&platform](const fs::path& store, Files& /*files*/) {
        const QuomiErrors errors(platform.localization);
        require(QuomiData::create(store, false, platform, errors) != nullptr, "opening the copy");
    });
}

/// What the next launch finds: a store that opens, with these rows, sound, and nothing beside it.
std::string complaintOfNextLaunch(const Platform& platform, const Rows& expected) {
    const QuomiErrors errors(platform.localization);
    std::optional<Error> error;
    if (QuomiData::create(storePath(platform), false, platform, errors, &error) == nullptr) {
        return fmt::format("the store does not open: {}", error->code);
    }
    SQLite::Database database(storePath(platform).string(), SQLite::OPEN_READWRITE);
    if (database.execAndGet("PRAGMA integrity_check").getString() != "ok") return "the store is damaged";
    if (rowsOf(database) != expected) return "rows are lost or changed";
    const int mark = database.execAndGet("PRAGMA user_version").getInt();
    if (mark != kCurrentVersionNumber) return fmt::format("the store is of version {}", mark);
    return fs::exists(storePath(platform).string() + ".tmp") ? "a half-built store was left" : "";
}

/// Opening, whatever is there. The rows to be found are those of an undisturbed opening.
Scenario opening(std::string name, const std::function<void(const Platform&)>& make) {
    auto expected = std::make_shared<Rows>();
    return {.name = "opening " + std::move(name),
            .prepare =
                [make, expected](const Platform& platform) {
                    make(platform);
                    *expected = rowsAfterOpening(platform);
                },
            .act = openAndClose,
            .verify = [expected](const Platform& platform,
                                 const Witness& /*witness*/) { return complaintOfNextLaunch(platform, *expected); }};
}

void makeCurrent(const Platform& platform) {
    make(platform, kCurrentVersionNumber, 5);
    Witness nobody;
    openAndClose(platform, nobody);
}

void leaveHotLog(const Platform& platform) {
    makeCurrent(platform);
    const bool killed = runAndKill([&platform] {
        const QuomiErrors errors(platform.localization);
        static const auto data = open(platform, errors);  // nobody closes it
        require(data->insertOrUpdateApplication(record("in the log")), "writing");
        for (int i = 1; i <= kSaves; ++i) {
            setStatus(*data->getSDKStatusInfo(), i);
            require(data->saveContext(), "writing");
        }
    });
    require(killed && fs::file_size(storePath(platform).string() + "-wal") > 0, "leaving a log");
}

std::string complaintOfStatus(const Platform& platform, const Witness& witness) {
    const QuomiErrors errors(platform.localization);
    const auto status = open(platform, errors)->getSDKStatusInfo();
    if (!status) return "the status row cannot be read";
    const int found = status->globalTriggersCount;
    if (found != witness.done && found != witness.done + 1) {
        return fmt::format("save {} found after save {} had returned", found, witness.done);
    }
    return status->globalMaxEvents == found ? "" : "half a save";
}

std::string complaintOfBeacons(const Platform& platform, const Witness& witness) {
    const QuomiErrors errors(platform.localization);
    open(platform, errors);
    SQLite::Database database(storePath(platform).string(), SQLite::OPEN_READWRITE);
    if (database.execAndGet("PRAGMA integrity_check").getString() != "ok") return "the store is damaged";
    const auto names = texts(database, "SELECT DISTINCT name FROM QuomiBeaconData");
    if (names.size() != 1) return "half an update";
    if (names[0] != std::to_string(witness.done) && names[0] != std::to_string(witness.done + 1)) {
        return fmt::format("update {} found after update {} had returned", names[0], witness.done);
    }
    return texts(database, "SELECT _id FROM QuomiBeaconData").size() == kBeacons ? "" : "beacons are missing";
}

/// A few generations of something, one after another.
template <class Save>
auto savingOf(const Save& save) {
    return [save](const Platform& platform, Witness& witness) {
        for (int generation = 1; generation <= kSaves; ++generation) {
            save(platform, generation);
            witness.done = generation;
        }
    };
}

void saveStatus(const Platform& platform, int generation) {
    const QuomiErrors errors(platform.localization);
    const auto data = open(platform, errors);
    const auto status = data->getSDKStatusInfo();
    require(status != nullptr, "reading");
    setStatus(*status, generation);
    require(data->saveContext(), "saving");
}

/// A download of all beacons, each with a rule, named after the generation.
void updateBeacons(const Platform& platform, int generation) {
    const QuomiErrors errors(platform.localization);
    const auto data = open(platform, errors);
    int count = 0;
    const auto next = [&]() -> std::shared_ptr<QuomiBeaconData> {
        if (count == kBeacons) return nullptr;
        auto beacon = std::make_shared<QuomiBeaconData>();
        beacon->beaconId = std::to_string(++count);
        beacon->name = std::to_string(generation);
        beacon->address = std::string(200, 'x');  // so that the beacons fill several pages
        auto rule = std::make_shared<QuomiBeaconRuleWithActions>();
        rule->ruleId = beacon->beaconId;
        beacon->addActionObject(rule);
        return beacon;
    };
    require(data->insertOrUpdateBeacons(next) == kBeacons && data->saveContext(), "updating");
}

}  // namespace

fs::path storePath(const Platform& platform) {
    return QuomiData::dataStorageDirectory(platform) / "QuomiData.sqlite";
}

std::vector<Scenario> openingScenarios() {
    const auto prepareDirectory = [](const Platform& platform) {
        std::error_code ignored;
        platform.files.createDirectories(storePath(platform).parent_path().parent_path(), ignored);
    };
    return {opening("where there is no store", prepareDirectory), opening("a current store", makeCurrent),
            opening("a store whose writer was killed", leaveHotLog)};
}

Scenario migrationStep(int version) {
    struct Expected {
        Rows old;
        Rows next;
    };
    auto expected = std::make_shared<Expected>();
    return {.name = fmt::format("migrating from version {}", version),
            .prepare =
                [expected, version](const Platform& platform) {
                    makeWithLog(platform, version, 2);
                    expected->old = rowsAfter(platform, [](const fs::path&, Files&) {});
                    expected->next = rowsAfter(platform, migrateOneStep);
                },
            .act = [](const Platform& platform,
                      Witness& /*witness*/) { migrateOneStep(storePath(platform), platform.files); },
            .verify = [expected, version](const Platform& platform, const Witness& /*witness*/) -> std::string {
                if (!fs::exists(storePath(platform))) return "the store is gone";
                const int mark = markOf(storePath(platform));
                if (mark != version && mark != version + 1) return fmt::format("the store is of version {}", mark);
                if (mark == version) {
                    if (rowsOf(storePath(platform)) != expected->old) return "rows are lost or changed";
                    migrateOneStep(storePath(platform), platform.files);
                }
                return rowsOf(storePath(platform)) == expected->next ? "" : "rows are lost or changed in the step";
            }};
}

std::vector<Scenario> migrationScenarios() {
    std::vector<Scenario> all;
    for (int version = allVersions().front().number; version < kCurrentVersionNumber; ++version) {
        all.push_back(migrationStep(version));
        all.back().stride = 3;
    }
    all.push_back(opening("a store of version 4", [](const Platform& platform) { makeWithLog(platform, 4, 2); }));
    all.back().stride = 5;
    return all;
}

Scenario savingStatus(const SaveStatus& save) {
    return {.name = "saving the status",
            .prepare = [](const Platform& platform) { saveStatus(platform, 0); },
            .act = savingOf(save),
            .verify = complaintOfStatus};
}

Scenario bulkUpdating(const BulkUpdate& update) {
    return {.name = "updating all beacons",
            .prepare =
                [](const Platform& platform) {
                    std::error_code ignored;
                    platform.files.createDirectories(storePath(platform).parent_path(), ignored);
                    updateBeacons(platform, 0);
                },
            .act = savingOf(update),
            .verify = complaintOfBeacons};
}

std::vector<Scenario> savingScenarios() {
    return {savingStatus(saveStatus), bulkUpdating(updateBeacons)};
}

}  // namespace quomi::test
