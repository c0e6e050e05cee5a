#include "quomi/data/schema_versions.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <string_view>
#include <tuple>
#include <utility>

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>
#include <fmt/format.h>

namespace quomi {

namespace {

using enum AttributeType;

using Names = std::vector<std::string_view>;

constexpr bool kRequired = false;
constexpr bool kOptional = true;

constexpr std::string_view kStatusInfo = "QuomiStatusInfo";
constexpr std::string_view kApplication = "QuomiApplication";
constexpr std::string_view kBatteryAlert = "QuomiBatteryAlert";
constexpr std::string_view kGeofence = "QuomiGeofence";
constexpr std::string_view kBeaconData = "QuomiBeaconData";
constexpr std::string_view kGeofenceRule = "QuomiGeofenceRuleWithActions";
constexpr std::string_view kBeaconRule = "QuomiBeaconRuleWithActions";

/// One thing that a version changed against the one before, in all the entities named.
struct Change {
    enum class Kind { newEntity, added, removed, redefined };
    Kind kind;
    Names entities;
    std::vector<Attribute> attributes = {};  ///< as they were before; of added ones only the names count
};

Change newEntities(Names names) {
    return {Change::Kind::newEntity, std::move(names)};
}

Change added(Names entities, const Names& names) {
    Change change{Change::Kind::added, std::move(entities)};
    for (const std::string_view name : names) change.attributes.push_back({name, text});
    return change;
}

Change removed(Names entities, std::vector<Attribute> attributes) {
    return {Change::Kind::removed, std::move(entities), std::move(attributes)};
}

Change redefined(Names entities, std::vector<Attribute> before) {
    return {Change::Kind::redefined, std::move(entities), std::move(before)};
}

/// Counters and limits of each kind of action, which both kinds of rule had.
std::vector<Attribute> countersPerAction() {
    return {{"lastLocalNotificationSentAt", date, kRequired, "0.0"},
            {"localNotificationAllowIntervalSeconds", integer32, kRequired, "0"},
            {"localNotificationShownCount", integer32, kRequired, "0"},
            {"localNotificationShownMax", integer32, kRequired, "0"},
            {"lastWebPageOpenedAt", date, kRequired, "0.0"},
            {"webPageOpenedAllowIntervalSeconds", integer32, kRequired, "0"},
            {"webPageOpenedCount", integer32, kRequired, "0"},
            {"webPageOpenedMax", integer32, kRequired, "0"},
            {"lastServerNotificationSentAt", date, kRequired, "0.0"},
            {"serverNotificationAllowIntervalSeconds", integer32, kRequired, "0"},
            {"serverNotificationsSentCount", integer32, kRequired, "0"},
            {"serverNotificationsSentMax", integer32, kRequired, "0"}};
}

struct VersionChanges {
    int number;
    std::vector<Change> changes;
};

/// What each version changed, newest first. Each earlier version is the next one with its changes undone, so an
/// attribute stands here as it was before, and after the change as the newer versions have it.
std::vector<VersionChanges> versionChanges() {
    return {
        // The same tables; only how stored values were guarded when they were read changed.
        {13, {}},
        {12, {added({kStatusInfo}, {"globalMinInterval", "lastEventDate"}), added({kBeaconRule}, {"priority"})}},
        {11,
         {redefined({kApplication}, {{"proximityFarSplitThreshold", real, kRequired, "0.0"}}),
          added({kGeofenceRule, kBeaconRule}, {"maxDistanceMediumFar", "underGlobalCounter", "useRuleMaxMediumFar"})}},
        {10,
         {removed({kStatusInfo}, {{"lastAdDownloadedAt", date, kRequired, "0.0"}}),
          added({kApplication}, {"proximityFarSplitThreshold"})}},
        {9,
         {added({kStatusInfo}, {"globalTriggersCount", "globalMaxEvents", "globalMaxEventsPeriod", "globalHistory"})}},
        {8,
         {redefined({kBeaconData}, {{"major", integer32, kRequired}, {"minor", integer32, kRequired}}),
          added({kBeaconData, kGeofence}, {"groupHistory"}),
          added({kGeofenceRule, kBeaconRule},
                {"minEventsPeriod", "maxEventsPeriod", "minGroupEventsPeriod", "maxGroupEventsPeriod", "history"})}},
        {7, {added({kBeaconRule}, {"proximityEnd"})}},
        {6, {newEntities({kApplication, kBatteryAlert}), added({kBeaconData}, {"serialNumber", "sharedSecret"})}},
        {5,
         {removed({kGeofenceRule, kBeaconRule}, countersPerAction()),
          added({kGeofenceRule, kBeaconRule},
                {"ruleId", "maxEvents", "minGroupEvents", "maxGroupEvents", "triggersCount", "lastTriggerDate"}),
          redefined({kGeofenceRule, kBeaconRule}, {{"minEvents", integer32, kRequired}}),
          // Geofence rules had a latch time before, though not always; beacon rules had none.
          redefined({kGeofenceRule}, {{"latchTime", integer32, kOptional}}), added({kBeaconRule}, {"latchTime"}),
          added({kGeofence}, {"group", "groupTriggersCount"}),
          redefined({kGeofence}, {{"entryCount", real, kRequired, "0.0"}}),
          removed({kBeaconData}, {{"entryCount", integer32, kRequired, "0"}, {"lastConnectedAt", date}}),
          added({kBeaconData}, {"latitude", "longitude", "address", "group", "seenCount", "groupTriggersCount"}),
          redefined({kBeaconData},
                    {{"lastSeenAt", date}, {"major", integer32, kRequired, "0"}, {"minor", integer32, kRequired, "0"}}),
          added({kStatusInfo}, {"lastGeofencesDataUpdatedAt", "lastBeaconsDataUpdatedAt"})}},
        {4, {}},  // the oldest that stores in the field have
    };
}

void undo(const Change& change, Entity& entity) {
    for (const auto& attribute : change.attributes) {
        const auto found = std::ranges::find_if(entity.attributes,
                                                [&](const Attribute& other) { return other.name == attribute.name; });
        switch (change.kind) {
            case Change::Kind::added:
                entity.attributes.erase(found);
                break;
            case Change::Kind::redefined:
                *found = attribute;
                break;
            case Change::Kind::removed:
            case Change::Kind::newEntity:
                entity.attributes.push_back(attribute);
                break;
        }
    }
}

void undo(const Change& change, std::vector<Entity>& entities) {
    const auto isMeant = [&](const Entity& entity) {
        return std::ranges::find(change.entities, entity.name) != change.entities.end();
    };
    if (change.kind == Change::Kind::newEntity) {
        std::erase_if(entities, isMeant);
        return;
    }
    for (auto& entity : entities) {
        if (isMeant(entity)) undo(change, entity);
    }
}

std::vector<SchemaVersion> makeVersions() {
    std::vector<SchemaVersion> versions;
    auto entities = currentSchema();
    for (const auto& [versionNumber, changes] : versionChanges()) {
        versions.push_back({versionNumber, fmt::format("QuomiObjectModel_v{:03}", versionNumber), entities});
        for (const auto& change : changes) undo(change, entities);
        for (auto& entity : entities) entity.indices.clear();
    }
    std::ranges::reverse(versions);
    return versions;
}

/// Table, column, type, required, default, whether it is the key, the table it refers to.
using Column = std::tuple<std::string, std::string, std::string, bool, std::string, bool, std::string>;

std::set<Column> columnsOf(const std::vector<Entity>& entities) {
    std::set<Column> columns;
    for (const auto& entity : entities) {
        const std::string table(entity.name);
        columns.emplace(table, kKeyColumn, "INTEGER", false, "", true, "");
        for (const auto& attribute : entity.attributes) {
            columns.emplace(table, attribute.name, columnType(attribute.type), !attribute.optional,
                            attribute.defaultValue, false, "");
        }
        for (const auto& owner : entity.owners) {
            columns.emplace(table, owner.name, "INTEGER", false, "", false, owner.destination);
        }
    }
    return columns;
}

/// The tables that SQLite adds by itself: for keys that count up, and for statistics (ANALYZE).
constexpr std::string_view kTablesOfSQLite[] = {"CREATE TABLE sqlite_sequence(name,seq)",
                                                "CREATE TABLE sqlite_stat1(tbl,idx,stat)",
                                                "CREATE TABLE sqlite_stat4(tbl,idx,neq,nlt,ndlt,sample)"};

bool isTableOfSQLite(std::string_view statement) {
    return std::ranges::find(kTablesOfSQLite, statement) != std::end(kTablesOfSQLite);
}

/// Whether the line of the schema stands for a plain table or an index. It is the statement that SQLite goes by: the
/// line may call a trigger an index. SQLite writes the beginnings of statements anew, so these are all there are.
bool isTableOrIndex(std::string_view type, std::string_view name, const std::optional<std::string>& statement) {
    if (!statement) return name.starts_with("sqlite_autoindex_");
    if (statement->starts_with("CREATE INDEX ") || statement->starts_with("CREATE UNIQUE INDEX "))
        return type == "index";
    return type == "table" && statement->starts_with("CREATE TABLE ") &&
           (statement->ends_with(')') || isTableOfSQLite(*statement));
}

/// Asked before anything else is, since even the columns of a virtual table run code.
bool hasTablesAndIndicesAlone(const SQLite::Database& database) {
    SQLite::Statement query(database, "SELECT type, name, sql FROM sqlite_master");
    while (query.executeStep()) {
        std::optional<std::string> statement;
        if (!query.isColumnNull(2)) statement = query.getColumn(2).getString();
        if (!isTableOrIndex(query.getColumn(0).getString(), query.getColumn(1).getString(), statement)) return false;
    }
    return true;
}

/// A column that is not simply stored (a generated one) is none that a version has.
std::set<Column> columnsOf(const SQLite::Database& database) {
    std::set<Column> columns;
    SQLite::Statement query(database,
                            "SELECT m.name, p.name, iif(p.hidden, 'generated', p.type), p.\"notnull\", p.dflt_value,"
                            " p.pk, f.\"table\", m.sql"
                            " FROM sqlite_master m LEFT JOIN pragma_table_xinfo(m.name) p"
                            " LEFT JOIN pragma_foreign_key_list(m.name) f ON f.\"from\" = p.name"
                            " WHERE m.type = 'table'");
    while (query.executeStep()) {
        if (isTableOfSQLite(query.getColumn(7).getString())) continue;
        columns.emplace(query.getColumn(0).getString(), query.getColumn(1).getString(), query.getColumn(2).getString(),
                        query.getColumn(3).getInt() != 0, query.getColumn(4).getString(),
                        query.getColumn(5).getInt() != 0, query.getColumn(6).getString());
    }
    return columns;
}

int markOf(const SQLite::Database& database) {
    SQLite::Statement query(database, "PRAGMA user_version");
    return query.executeStep() ? query.getColumn(0).getInt() : 0;
}

}  // namespace

const std::vector<SchemaVersion>& allVersions() {
    static const std::vector<SchemaVersion> versions = makeVersions();
    return versions;
}

const SchemaVersion& currentVersion() {
    return allVersions().back();
}

void makeTables(SQLite::Database& database, const std::vector<Entity>& entities, int versionNumber) {
    for (const auto& entity : entities) {
        for (const auto& statement : createStatements(entity)) database.exec(statement);
    }
    database.exec(fmt::format("PRAGMA user_version = {}", versionNumber));
}

const SchemaVersion* findVersion(const SQLite::Database& database) {
    const int mark = markOf(database);
    if (mark > kCurrentVersionNumber || !hasTablesAndIndicesAlone(database)) return nullptr;
    const auto present = columnsOf(database);
    const SchemaVersion* newest = nullptr;
    for (auto version = allVersions().rbegin(); version != allVersions().rend(); ++version) {
        if (columnsOf(version->entities) != present) continue;
        if (version->number == mark) return &*version;
        if (newest == nullptr) newest = &*version;
    }
    return newest;
}

}  // namespace quomi
