#include "quomi/data/schema.h"

#include <fmt/format.h>

namespace quomi {

namespace {

using enum AttributeType;

constexpr bool kRequired = false;
constexpr bool kOptional = true;

/// What both kinds of place carry, in the order of the columns.
void appendLimits(std::vector<Attribute>& attributes) {
    for (const std::string_view name :
         {"minEvents", "minEventsPeriod", "maxEvents", "maxEventsPeriod", "minGroupEvents", "minGroupEventsPeriod",
          "maxGroupEvents", "maxGroupEventsPeriod"}) {
        attributes.push_back({name, integer32, kRequired, "0"});
    }
}

void append(std::vector<Attribute>& attributes, std::vector<Attribute> more) {
    attributes.insert(attributes.end(), more.begin(), more.end());
}

std::vector<Attribute> timeZoneAndGroupHistory() {
    return {{"timeZone_zone", text},           {"timeZone_title", text},  {"timeZone_offset", integer32},
            {"timeZone_utcOffset", integer16}, {"timeZone_dst", boolean}, {"groupHistory", history, kRequired, "'[]'"}};
}

Entity statusInfo() {
    return {"QuomiStatusInfo",
            {{"isStarted", integer16, kRequired, "0"},
             {"lastGeofencesDataUpdatedAt", date, kRequired, "0.0"},
             {"lastBeaconsDataUpdatedAt", date, kRequired, "0.0"},
             {"globalTriggersCount", integer32, kRequired, "0"},
             {"globalMaxEvents", integer32, kRequired, "0"},
             {"globalMaxEventsPeriod", integer32, kRequired, "0"},
             {"globalMinInterval", integer32, kRequired, "0"},
             {"lastEventDate", date, kRequired, "0.0"},
             {"globalHistory", history, kRequired, "'[]'"}}};
}

Entity application() {
    return {"QuomiApplication",
            {{"appNamespace", text, kRequired},
             {"proximityUUIDNormal", text, kRequired},
             {"proximityUUIDSecure", text, kRequired},
             {"proximityUUIDService", text, kRequired},
             {"antiHackingProtocol", text, kRequired},
             {"proximityFarSplitThreshold", real, kRequired, "10.0"}}};
}

Entity debugLog() {
    return {"QuomiDebugLog", {{"logTime", date}, {"logData", text}}};
}

Entity batteryAlert() {
    return {"QuomiBatteryAlert",
            {{"date", date, kRequired},
             {"appNamespace", text, kRequired},
             {"proximityUUID", text, kRequired},
             {"serviceID", text, kRequired}}};
}

Entity geofenceRegion() {
    return {"QuomiGeofenceRegion",
            {{"latitude", real, kRequired},
             {"longitude", real, kRequired},
             {"radius", real, kRequired},
             {"validUntil", date}}};
}

Entity geofence() {
    Entity entity{"QuomiGeofence",
                  {{"geofenceId", text, kRequired},
                   {"name", text},
                   {"latitude", real, kRequired},
                   {"longitude", real, kRequired},
                   {"radius", real, kRequired},
                   {"address", text},
                   {"group", text},
                   {"entryCount", integer32, kRequired, "0"},
                   {"lastEnteredAt", date, kRequired, "0.0"},
                   {"groupTriggersCount", integer32, kRequired, "0"},
                   {"namespace", text},
                   {"enabled", boolean, kRequired, "1"},
                   {"startDate", date},
                   {"endDate", date},
                   {"schedule", text},
                   {"updatedAt", date}}};
    append(entity.attributes, timeZoneAndGroupHistory());
    entity.indices = {"\"geofenceId\"", "\"group\"", "\"latitude\", \"longitude\""};
    return entity;
}

Entity geofenceRule() {
    Entity entity{"QuomiGeofenceRuleWithActions",
                  {{"ruleId", text, kRequired}, {"trigger", text, kRequired}},
                  {{"geofence", "QuomiGeofence"}},
                  {"\"ruleId\"", "\"geofence\""}};
    appendLimits(entity.attributes);
    append(entity.attributes, {{"maxDistanceMediumFar", integer16, kRequired, "10"},
                               {"latchTime", integer32, kRequired, "0"},
                               {"maxSpeedToNotifyUserThreshold", real, kOptional},
                               {"triggersCount", integer32, kRequired, "0"},
                               {"lastTriggerDate", date, kRequired, "0.0"},
                               {"actions", text, kRequired, "''"},
                               {"history", history, kRequired, "'[]'"},
                               // A number here and a boolean for beacon rules: deliberate, stores in the field have it.
                               {"underGlobalCounter", number, kRequired, "1"},
                               {"useRuleMaxMediumFar", boolean, kRequired, "0"}});
    return entity;
}

Entity beaconData() {
    Entity entity{"QuomiBeaconData",
                  {{"beaconId", text, kRequired},
                   {"name", text, kRequired},
                   {"proximityUUID", text, kRequired},
                   {"major", integer32},
                   {"minor", integer32},
                   {"serialNumber", text},
                   {"sharedSecret", text},
                   {"latitude", real},
                   {"longitude", real},
                   {"address", text},
                   {"group", text},
                   {"namespace", text},
                   {"enabled", boolean, kRequired, "1"},
                   {"seenCount", integer32, kRequired, "0"},
                   {"lastSeenAt", date, kRequired, "0.0"},
                   {"groupTriggersCount", integer32, kRequired, "0"},
                   {"startDate", date},
                   {"endDate", date},
                   {"schedule", text},
                   {"updatedAt", date}}};
    append(entity.attributes, timeZoneAndGroupHistory());
    entity.indices = {"\"beaconId\"", "\"group\"", "\"proximityUUID\", \"major\", \"minor\""};
    return entity;
}

Entity beaconRule() {
    Entity entity{"QuomiBeaconRuleWithActions",
                  {{"ruleId", text, kRequired},
                   {"trigger", text, kRequired},
                   {"proximity", integer16, kRequired},
                   {"proximityEnd", integer16}},
                  {{"beacon", "QuomiBeaconData"}},
                  {"\"ruleId\"", "\"beacon\""}};
    appendLimits(entity.attributes);
    append(entity.attributes, {{"priority", integer32, kRequired, "1"},
                               {"maxDistanceMediumFar", integer16, kRequired, "10"},
                               {"latchTime", integer32, kRequired, "0"},
                               {"triggersCount", integer32, kRequired, "0"},
                               {"lastTriggerDate", date, kRequired, "0.0"},
                               {"actions", text, kRequired, "''"},
                               {"history", history, kRequired, "'[]'"},
                               {"underGlobalCounter", boolean, kRequired, "1"},
                               {"useRuleMaxMediumFar", boolean, kRequired, "0"}});
    return entity;
}

std::string columnDefinition(const Attribute& attribute) {
    return fmt::format("\"{}\" {}{}{}{}", attribute.name, columnType(attribute.type),
                       attribute.optional ? "" : " NOT NULL", attribute.defaultValue.empty() ? "" : " DEFAULT ",
                       attribute.defaultValue);
}

}  // namespace

std::string_view columnType(AttributeType type) {
    switch (type) {
        case integer16:
        case integer32:
        case boolean:
            return "INTEGER";
        case real:
        case date:
            return "REAL";
        case text:
        case history:
            return "TEXT";
        case number:
            return "NUMERIC";
    }
    return "BLOB";
}

const std::vector<Entity>& currentSchema() {
    static const std::vector<Entity> entities{statusInfo(),   application(),    debugLog(),
                                              batteryAlert(), geofenceRegion(), geofence(),
                                              geofenceRule(), beaconData(),     beaconRule()};
    return entities;
}

std::vector<std::string> createStatements(const Entity& entity) {
    std::string table = fmt::format("CREATE TABLE \"{}\" (\"{}\" INTEGER PRIMARY KEY", entity.name, kKeyColumn);
    for (const auto& attribute : entity.attributes) table += ", " + columnDefinition(attribute);
    for (const auto& owner : entity.owners) {
        table += fmt::format(", \"{}\" INTEGER REFERENCES \"{}\" (\"{}\") ON DELETE CASCADE", owner.name,
                             owner.destination, kKeyColumn);
    }
    std::vector<std::string> statements{table + ")"};
    int position = 0;
    for (const auto& columns : entity.indices) {
        statements.push_back(
            fmt::format("CREATE INDEX \"{0}_{1}\" ON \"{0}\" ({2})", entity.name, ++position, columns));
    }
    return statements;
}

}  // namespace quomi
