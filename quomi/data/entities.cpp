#include "quomi/data/entity_type.h"
#include "quomi/data/records.h"
#include "quomi/data/rule_owner.h"

#include <iterator>

namespace quomi {

namespace {

using Fields = std::vector<Field>;

template <class Object>
std::shared_ptr<ManagedObject> make() {
    return std::make_shared<Object>();
}

Fields operator+(Fields fields, Fields more) {
    std::move(more.begin(), more.end(), std::back_inserter(fields));
    return fields;
}

Fields limitFields() {
    using R = RuleWithActions;
    return {field<&R::minEvents>("minEvents", kRequired, "0"),
            field<&R::minEventsPeriod>("minEventsPeriod", kRequired, "0"),
            field<&R::maxEvents>("maxEvents", kRequired, "0"),
            field<&R::maxEventsPeriod>("maxEventsPeriod", kRequired, "0"),
            field<&R::minGroupEvents>("minGroupEvents", kRequired, "0"),
            field<&R::minGroupEventsPeriod>("minGroupEventsPeriod", kRequired, "0"),
            field<&R::maxGroupEvents>("maxGroupEvents", kRequired, "0"),
            field<&R::maxGroupEventsPeriod>("maxGroupEventsPeriod", kRequired, "0")};
}

/// What rules keep of their past. A number for geofence rules and a boolean for beacon rules say whether they count
/// device-wide: deliberate, stores in the field have it so.
Fields counterFields(AttributeType underGlobalCounter) {
    using R = RuleWithActions;
    return {field<&R::triggersCount>("triggersCount", kRequired, "0"),
            field<&R::lastTriggerDate>("lastTriggerDate", kRequired, "0.0"),
            field<&R::actions>("actions", kRequired, "''"),
            field<&R::history>("history", kRequired, "'[]'"),
            field<&R::underGlobalCounter>("underGlobalCounter", kRequired, "1", underGlobalCounter),
            field<&R::useRuleMaxMediumFar>("useRuleMaxMediumFar", kRequired, "0")};
}

/// A whole number by its type; a column of integers keeps parts of a second too.
Field latchTimeField() {
    return field<&RuleWithActions::latchTime>("latchTime", kRequired, "0", AttributeType::integer32);
}

Fields validityFields() {
    using O = RuleOwner;
    return {field<&O::startDate>("startDate", kOptional), field<&O::endDate>("endDate", kOptional),
            field<&O::schedule>("schedule", kOptional), field<&O::updatedAt>("updatedAt", kOptional)};
}

Fields timeZoneFields() {
    using O = RuleOwner;
    return {field<&O::timeZone_zone>("timeZone_zone", kOptional),
            field<&O::timeZone_title>("timeZone_title", kOptional),
            field<&O::timeZone_offset>("timeZone_offset", kOptional),
            field<&O::timeZone_utcOffset>("timeZone_utcOffset", kOptional, {}, AttributeType::integer16),
            field<&O::timeZone_dst>("timeZone_dst", kOptional),
            field<&O::groupHistory>("groupHistory", kRequired, "'[]'")};
}

Fields geofenceFields() {
    using G = QuomiGeofence;
    return Fields{field<&G::geofenceId>("geofenceId", kRequired),
                  field<&G::name>("name", kOptional),
                  field<&G::latitude>("latitude", kRequired),
                  field<&G::longitude>("longitude", kRequired),
                  field<&G::radius>("radius", kRequired),
                  field<&G::address>("address", kOptional),
                  field<&G::group>("group", kOptional),
                  field<&G::entryCount>("entryCount", kRequired, "0"),
                  field<&G::lastEnteredAt>("lastEnteredAt", kRequired, "0.0"),
                  field<&G::groupTriggersCount>("groupTriggersCount", kRequired, "0"),
                  field<&G::namespace_>("namespace", kOptional),
                  field<&G::enabled>("enabled", kRequired, "1")} +
           validityFields() + timeZoneFields();
}

Fields beaconFields() {
    using B = QuomiBeaconData;
    return Fields{field<&B::beaconId>("beaconId", kRequired),
                  field<&B::name>("name", kRequired),
                  field<&B::proximityUUID>("proximityUUID", kRequired),
                  field<&B::major>("major", kOptional),
                  field<&B::minor>("minor", kOptional),
                  field<&B::serialNumber>("serialNumber", kOptional),
                  field<&B::sharedSecret>("sharedSecret", kOptional),
                  field<&B::latitude>("latitude", kOptional),
                  field<&B::longitude>("longitude", kOptional),
                  field<&B::address>("address", kOptional),
                  field<&B::group>("group", kOptional),
                  field<&B::namespace_>("namespace", kOptional),
                  field<&B::enabled>("enabled", kRequired, "1"),
                  field<&B::seenCount>("seenCount", kRequired, "0"),
                  field<&B::lastSeenAt>("lastSeenAt", kRequired, "0.0"),
                  field<&B::groupTriggersCount>("groupTriggersCount", kRequired, "0")} +
           validityFields() + timeZoneFields();
}

Fields geofenceRuleFields() {
    using R = QuomiGeofenceRuleWithActions;
    return Fields{field<&R::ruleId>("ruleId", kRequired), field<&R::trigger>("trigger", kRequired)} + limitFields() +
           Fields{field<&R::maxDistanceMediumFar>("maxDistanceMediumFar", kRequired, "10", AttributeType::integer16),
                  latchTimeField(),
                  field<&R::maxSpeedToNotifyUserThreshold>("maxSpeedToNotifyUserThreshold", kOptional)} +
           counterFields(AttributeType::number);
}

Fields beaconRuleFields() {
    using R = QuomiBeaconRuleWithActions;
    return Fields{field<&R::ruleId>("ruleId", kRequired), field<&R::trigger>("trigger", kRequired),
                  field<&R::proximity>("proximity", kRequired, {}, AttributeType::integer16),
                  field<&R::proximityEnd>("proximityEnd", kOptional, {}, AttributeType::integer16)} +
           limitFields() +
           Fields{field<&R::priority>("priority", kRequired, "1"),
                  field<&R::maxDistanceMediumFar>("maxDistanceMediumFar", kRequired, "10", AttributeType::integer16),
                  latchTimeField()} +
           counterFields(AttributeType::boolean);
}

}  // namespace

template <>
const EntityType& entityType<QuomiStatusInfo>() {
    using S = QuomiStatusInfo;
    static const EntityType type("QuomiStatusInfo",
                                 {field<&S::isStarted>("isStarted", kRequired, "0", AttributeType::integer16),
                                  field<&S::lastGeofencesDataUpdatedAt>("lastGeofencesDataUpdatedAt", kRequired, "0.0"),
                                  field<&S::lastBeaconsDataUpdatedAt>("lastBeaconsDataUpdatedAt", kRequired, "0.0"),
                                  field<&S::globalTriggersCount>("globalTriggersCount", kRequired, "0"),
                                  field<&S::globalMaxEvents>("globalMaxEvents", kRequired, "0"),
                                  field<&S::globalMaxEventsPeriod>("globalMaxEventsPeriod", kRequired, "0"),
                                  field<&S::globalMinInterval>("globalMinInterval", kRequired, "0"),
                                  field<&S::lastEventDate>("lastEventDate", kRequired, "0.0"),
                                  field<&S::globalHistory>("globalHistory", kRequired, "'[]'")},
                                 {}, make<S>);
    return type;
}

template <>
const EntityType& entityType<QuomiApplication>() {
    using A = QuomiApplication;
    static const EntityType type(
        "QuomiApplication",
        {field<&A::appNamespace>("appNamespace", kRequired),
         field<&A::proximityUUIDNormal>("proximityUUIDNormal", kRequired),
         field<&A::proximityUUIDSecure>("proximityUUIDSecure", kRequired),
         field<&A::proximityUUIDService>("proximityUUIDService", kRequired),
         field<&A::antiHackingProtocol>("antiHackingProtocol", kRequired),
         field<&A::proximityFarSplitThreshold>("proximityFarSplitThreshold", kRequired, "10.0")},
        {}, make<A>);
    return type;
}

template <>
const EntityType& entityType<QuomiDebugLog>() {
    using D = QuomiDebugLog;
    static const EntityType type("QuomiDebugLog",
                                 {field<&D::logTime>("logTime", kOptional), field<&D::logData>("logData", kOptional)},
                                 {}, make<D>);
    return type;
}

template <>
const EntityType& entityType<QuomiBatteryAlert>() {
    using B = QuomiBatteryAlert;
    static const EntityType type(
        "QuomiBatteryAlert",
        {field<&B::date>("date", kRequired), field<&B::appNamespace>("appNamespace", kRequired),
         field<&B::proximityUUID>("proximityUUID", kRequired), field<&B::serviceID>("serviceID", kRequired)},
        {}, make<B>);
    return type;
}

template <>
const EntityType& entityType<QuomiGeofenceRegion>() {
    using R = QuomiGeofenceRegion;
    static const EntityType type(
        "QuomiGeofenceRegion",
        {field<&R::latitude>("latitude", kRequired), field<&R::longitude>("longitude", kRequired),
         field<&R::radius>("radius", kRequired), field<&R::validUntil>("validUntil", kOptional)},
        {}, make<R>);
    return type;
}

template <>
const EntityType& entityType<QuomiGeofence>() {
    static const EntityType type("QuomiGeofence", geofenceFields(),
                                 {"\"geofenceId\"", "\"group\"", "CAST(\"latitude\" * 10 AS INTEGER), \"longitude\""},
                                 make<QuomiGeofence>);
    return type;
}

template <>
const EntityType& entityType<QuomiGeofenceRuleWithActions>() {
    static const EntityType type("QuomiGeofenceRuleWithActions", geofenceRuleFields(), {"\"ruleId\"", "\"geofence\""},
                                 make<QuomiGeofenceRuleWithActions>, "geofence", "QuomiGeofence");
    return type;
}

template <>
const EntityType& entityType<QuomiBeaconData>() {
    static const EntityType type("QuomiBeaconData", beaconFields(),
                                 {"\"beaconId\"", "\"group\"", "\"proximityUUID\", \"major\", \"minor\""},
                                 make<QuomiBeaconData>);
    return type;
}

template <>
const EntityType& entityType<QuomiBeaconRuleWithActions>() {
    static const EntityType type("QuomiBeaconRuleWithActions", beaconRuleFields(), {"\"ruleId\"", "\"beacon\""},
                                 make<QuomiBeaconRuleWithActions>, "beacon", "QuomiBeaconData");
    return type;
}

const EntityType& QuomiStatusInfo::entityType() const {
    return quomi::entityType<QuomiStatusInfo>();
}
const EntityType& QuomiApplication::entityType() const {
    return quomi::entityType<QuomiApplication>();
}
const EntityType& QuomiDebugLog::entityType() const {
    return quomi::entityType<QuomiDebugLog>();
}
const EntityType& QuomiBatteryAlert::entityType() const {
    return quomi::entityType<QuomiBatteryAlert>();
}
const EntityType& QuomiGeofenceRegion::entityType() const {
    return quomi::entityType<QuomiGeofenceRegion>();
}
const EntityType& QuomiGeofence::entityType() const {
    return quomi::entityType<QuomiGeofence>();
}
const EntityType& QuomiGeofenceRuleWithActions::entityType() const {
    return quomi::entityType<QuomiGeofenceRuleWithActions>();
}
const EntityType& QuomiBeaconData::entityType() const {
    return quomi::entityType<QuomiBeaconData>();
}
const EntityType& QuomiBeaconRuleWithActions::entityType() const {
    return quomi::entityType<QuomiBeaconRuleWithActions>();
}

const std::vector<const EntityType*>& allEntityTypes() {
    static const std::vector<const EntityType*> types{&entityType<QuomiStatusInfo>(),
                                                      &entityType<QuomiApplication>(),
                                                      &entityType<QuomiDebugLog>(),
                                                      &entityType<QuomiBatteryAlert>(),
                                                      &entityType<QuomiGeofenceRegion>(),
                                                      &entityType<QuomiGeofence>(),
                                                      &entityType<QuomiGeofenceRuleWithActions>(),
                                                      &entityType<QuomiBeaconData>(),
                                                      &entityType<QuomiBeaconRuleWithActions>()};
    return types;
}

const EntityType* memberType(const EntityType& owner) {
    if (&owner == &entityType<QuomiGeofence>()) return &entityType<QuomiGeofenceRuleWithActions>();
    if (&owner == &entityType<QuomiBeaconData>()) return &entityType<QuomiBeaconRuleWithActions>();
    return nullptr;
}

const EntityType* ownerType(const EntityType& member) {
    if (&member == &entityType<QuomiGeofenceRuleWithActions>()) return &entityType<QuomiGeofence>();
    if (&member == &entityType<QuomiBeaconRuleWithActions>()) return &entityType<QuomiBeaconData>();
    return nullptr;
}

const std::vector<Entity>& currentSchema() {
    static const std::vector<Entity> entities = [] {
        std::vector<Entity> all;
        for (const auto* type : allEntityTypes()) all.push_back(type->schema());
        return all;
    }();
    return entities;
}

}  // namespace quomi
