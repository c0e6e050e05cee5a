// The places of the store: geofences and beacons, and what is done alike with both.
#include "quomi/data/data.h"
#include "quomi/location/location_utils.h"
#include "quomi/model/errors.h"
#include "quomi/platform/clock.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/uuid.h"

#include <utility>

namespace quomi {

namespace {

constexpr double kSmallestTolerance = 0.01;  // degrees
constexpr double kWidestIndexedLatitude = 91;

/// What tells the two kinds of place apart in queries.
template <class Place>
struct PlaceQueries;

template <>
struct PlaceQueries<QuomiGeofence> {
    static constexpr const char* byId = "WHERE \"geofenceId\" = ? ORDER BY \"geofenceId\", \"_id\"";
    static constexpr const char* all = "ORDER BY \"geofenceId\", \"_id\"";
    static constexpr const char* inGroup = "WHERE \"group\" = ? ORDER BY \"geofenceId\", \"_id\"";
    static constexpr const char* counted =
        "AS place WHERE \"entryCount\" <> 0 OR \"lastEnteredAt\" <> 0 OR \"groupTriggersCount\" <> 0 OR "
        "\"groupHistory\" "
        "<> '[]' OR EXISTS (SELECT 1 FROM \"QuomiGeofenceRuleWithActions\" AS rule WHERE rule.\"geofence\" = "
        "place.\"_id\" AND (rule.\"triggersCount\" <> 0 OR rule.\"lastTriggerDate\" <> 0 OR rule.\"history\" <> "
        "'[]'))";
};

template <>
struct PlaceQueries<QuomiBeaconData> {
    static constexpr const char* byId = "WHERE \"beaconId\" = ? ORDER BY \"beaconId\", \"_id\"";
    static constexpr const char* all = "ORDER BY \"beaconId\", \"_id\"";
    static constexpr const char* inGroup = "WHERE \"group\" = ? ORDER BY \"beaconId\", \"_id\"";
    static constexpr const char* counted =
        "AS place WHERE \"seenCount\" <> 0 OR \"lastSeenAt\" <> 0 OR \"groupTriggersCount\" <> 0 OR \"groupHistory\" "
        "<> "
        "'[]' OR EXISTS (SELECT 1 FROM \"QuomiBeaconRuleWithActions\" AS rule WHERE rule.\"beacon\" = place.\"_id\" "
        "AND (rule.\"triggersCount\" <> 0 OR rule.\"lastTriggerDate\" <> 0 OR rule.\"history\" <> '[]'))";
};

template <class Place>
std::shared_ptr<Place> placeById(ObjectContext& context, const std::string& id, std::optional<Error>* error) {
    static const Query<Place> query(PlaceQueries<Place>::byId);
    return context.fetchFirst(query, {id}, error);
}

template <class Place>
std::vector<std::shared_ptr<Place>> placesInGroup(ObjectContext& context, const std::string& group,
                                                  std::optional<Error>* error) {
    static const Query<Place> query(PlaceQueries<Place>::inGroup);
    return context.fetch(query, {group}, error);
}

template <class Rule>
std::shared_ptr<Rule> ruleById(ObjectContext& context, const std::string& id, std::optional<Error>* error) {
    static const Query<Rule> query("WHERE \"ruleId\" = ? ORDER BY \"ruleId\", \"_id\"");
    return context.fetchFirst(query, {id}, error);
}

template <class Place>
std::vector<std::shared_ptr<Place>> allPlaces(ObjectContext& context, std::optional<Error>* error) {
    static const Query<Place> query(PlaceQueries<Place>::all);
    return context.fetch(query, {}, error);
}

/// Sets a flag and takes it back.
class Guard {
public:
    explicit Guard(bool& flag) : flag_(flag) { flag_ = true; }
    ~Guard() { flag_ = false; }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    bool& flag_;
};

QueryValue valueOf(std::optional<int> number) {
    return number ? QueryValue(std::int64_t{*number}) : QueryValue();
}

}  // namespace

// Alike for both

template <class Place>
std::size_t QuomiData::insertOrUpdate(const Source<Place>& places, ErrorSlot error) {
    if (busyWithInsertOrUpdateData_) {
        failBusy(error);
        return 0;
    }
    const Guard guard(busyWithInsertOrUpdateData_);
    auto next = places();
    if (next == nullptr || !objectContext_.begin(error)) return 0;
    const WallTime now = platform_.clock.now();
    List<Place> withGroupHistory;
    std::size_t count = 0;
    std::optional<Error> failure;
    // What is held has just been written; from here on nothing changes but what is done here.
    const ObjectContext::Bulk bulk(objectContext_);
    for (; next != nullptr && !failure; next = places(), ++count) {
        next->enabled = true;
        if (const auto stored = placeById<Place>(objectContext_, next->identifier(), &failure)) {
            next->copyCounters(*stored, now, &failure);
            objectContext_.remove(*stored);
        }
        if (!next->groupHistory.empty()) withGroupHistory.push_back(next);
        objectContext_.insert(std::move(next), &failure);
    }
    // An empty history stays empty. The members are those of the group named by the identifier, not by `group`:
    // deliberate, stores in the field are trimmed so.
    for (const auto& place : withGroupHistory) {
        const auto members = placesInGroup<Place>(objectContext_, place->identifier(), &failure);
        QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(
            *place, std::vector<std::shared_ptr<RuleOwner>>(members.begin(), members.end()), now, &failure);
    }
    if (!failure) return count;
    objectContext_.rollback();  // what could not be looked up would be there twice
    assign(error, std::move(*failure));
    return 0;
}

template <class Place>
std::size_t QuomiData::enable(const std::string& appNamespace, bool enabled, ErrorSlot error) {
    static const Query<Place> inAny("WHERE \"enabled\" <> ?");
    static const Query<Place> inOne("WHERE \"enabled\" <> ? AND \"namespace\" = ?");
    const boost::json::value text(appNamespace);
    const bool isForAll = QuomiUtils::isEmpty(&text);
    const auto count = isForAll ? objectContext_.count(entityType<Place>(), error)
                                : objectContext_.count(entityType<Place>(), "namespace", appNamespace, error);
    const std::int64_t flag = enabled ? 1 : 0;
    const auto others = isForAll ? objectContext_.fetch(inAny, {flag}, error)
                                 : objectContext_.fetch(inOne, {flag, appNamespace}, error);
    for (const auto& place : others) place->enabled = enabled;
    return static_cast<std::size_t>(count.value_or(0));
}

template <class Place>
bool QuomiData::removeWithIds(std::span<const std::string> ids, ErrorSlot error) {
    // Begun first, so that what a busy store cannot take does not wait in memory.
    if (!ids.empty() && !objectContext_.begin(error)) return false;
    std::optional<Error> failure;
    for (const auto& id : ids) {
        if (const auto place = placeById<Place>(objectContext_, id, &failure)) objectContext_.remove(*place);
        if (!failure) continue;
        assign(error, std::move(*failure));
        return false;
    }
    return saveContext(error);
}

template <class Place>
bool QuomiData::resetAllCounters(ErrorSlot error) {
    static const Query<Place> counted(PlaceQueries<Place>::counted);
    std::optional<Error> failure;
    const auto places = objectContext_.fetch(counted, {}, &failure);
    for (const auto& place : places) {
        if (!failure) static_cast<void>(place->rules(&failure));
    }
    if (failure) {
        assign(error, std::move(*failure));
        return false;
    }
    for (const auto& place : places) place->resetAllCounters();
    return saveContext(error);
}

// Geofences

bool QuomiData::insertOrUpdateGeofenceRegion(const std::shared_ptr<QuomiGeofenceRegion>& region, ErrorSlot error) {
    return objectContext_.begin(error) && objectContext_.insert(region, error) && saveContext(error);
}

std::size_t QuomiData::insertOrUpdateGeofences(const Source<QuomiGeofence>& geofences,
                                               const QuomiGeofenceRegion& /*inRegion*/, ErrorSlot error) {
    return insertOrUpdate(geofences, error);
}

QuomiData::List<QuomiGeofenceRegion> QuomiData::getAllGeofenceRegions(ErrorSlot error) {
    static const Query<QuomiGeofenceRegion> all("");
    return currentObjectContext().fetch(all, {}, error);
}

QuomiData::List<QuomiGeofence> QuomiData::getAllGeofences(ErrorSlot error) {
    return allPlaces<QuomiGeofence>(currentObjectContext(), error);
}

std::shared_ptr<QuomiGeofence> QuomiData::getGeofenceById(const std::string& id, ErrorSlot error) {
    return placeById<QuomiGeofence>(currentObjectContext(), id, error);
}

std::shared_ptr<QuomiGeofenceRuleWithActions> QuomiData::getGeofenceRuleById(const std::string& id, ErrorSlot error) {
    return ruleById<QuomiGeofenceRuleWithActions>(currentObjectContext(), id, error);
}

QuomiData::List<QuomiGeofence> QuomiData::getGeofencesInGroup(const std::string& group, ErrorSlot error) {
    return placesInGroup<QuomiGeofence>(currentObjectContext(), group, error);
}

QuomiData::List<QuomiGeofence> QuomiData::findNearbyGeofences(double latitude, double longitude,
                                                              double searchToleranceDegrees, ErrorSlot error) {
    // Strips of a tenth of a degree, as the index has them, and in each the stretch between the longitudes.
    static const Query<QuomiGeofence> inStrips(
        "WHERE CAST(\"latitude\" * 10 AS INTEGER) IN (WITH RECURSIVE strip(n) AS (SELECT CAST(?1 * 10 AS INTEGER)"
        " UNION ALL SELECT n + 1 FROM strip WHERE n < CAST(?2 * 10 AS INTEGER)) SELECT n FROM strip)"
        " AND \"longitude\" >= ?3 AND \"longitude\" <= ?4 AND \"latitude\" >= ?1 AND \"latitude\" <= ?2"
        " AND \"enabled\" = 1 ORDER BY \"geofenceId\", \"_id\"");
    static const Query<QuomiGeofence> anywhere(
        "WHERE \"latitude\" >= ?1 AND \"latitude\" <= ?2 AND \"longitude\" >= ?3 AND \"longitude\" <= ?4"
        " AND \"enabled\" = 1 ORDER BY \"geofenceId\", \"_id\"");
    const double tolerance = searchToleranceDegrees > 0 ? searchToleranceDegrees : kSmallestTolerance;
    const double south = latitude - tolerance;
    const double north = latitude + tolerance;
    const bool hasFewStrips = south >= -kWidestIndexedLatitude && north <= kWidestIndexedLatitude;
    return currentObjectContext().fetch(hasFewStrips ? inStrips : anywhere,
                                        {south, north, longitude - tolerance, longitude + tolerance}, error);
}

QuomiData::List<QuomiGeofenceRegion> QuomiData::findNearbyGeofenceRegions(double latitude, double longitude,
                                                                          ErrorSlot error) {
    static const Query<QuomiGeofenceRegion> query(
        "WHERE \"latitude\" >= ?1 AND \"latitude\" <= ?2 AND \"longitude\" >= ?3 AND \"longitude\" <= ?4"
        " ORDER BY \"radius\" DESC, \"_id\"");
    const double given = geofenceRegionsSearchToleranceDegrees;
    const double tolerance = given > 0 ? given : kSmallestTolerance;
    return currentObjectContext().fetch(
        query, {latitude - tolerance, latitude + tolerance, longitude - tolerance, longitude + tolerance}, error);
}

std::shared_ptr<QuomiGeofenceRegion> QuomiData::findClosestGeofenceRegion(double latitude, double longitude,
                                                                          ErrorSlot error) {
    std::shared_ptr<QuomiGeofenceRegion> closest;
    double least = 0;
    for (const auto& region : findNearbyGeofenceRegions(latitude, longitude, error)) {
        const double distance = QuomiLocationUtils::calculateDistance(latitude, longitude, region->latitude.value_or(0),
                                                                      region->longitude.value_or(0));
        if (closest != nullptr && !(distance < least)) continue;
        closest = region;
        least = distance;
    }
    return closest;
}

bool QuomiData::locationIsInExpiredRegion(double latitude, double longitude) {
    for (const auto& region : findNearbyGeofenceRegions(latitude, longitude)) {
        if (QuomiLocationUtils::pointIsInRegion(latitude, longitude, region->latitude.value_or(0),
                                                region->longitude.value_or(0), region->radius.value_or(0))) {
            return geofenceRegionExpired(*region);
        }
    }
    return false;
}

bool QuomiData::geofenceRegionExpired(const QuomiGeofenceRegion& region) const {
    return region.validUntil && *region.validUntil < platform_.clock.now();
}

std::size_t QuomiData::enableGeofencesWithNamespace(const std::string& appNamespace, bool enabled, ErrorSlot error) {
    return enable<QuomiGeofence>(appNamespace, enabled, error);
}

bool QuomiData::removeAllGeofenceRegions(ErrorSlot error) {
    return removeAll(entityType<QuomiGeofenceRegion>(), error);
}

bool QuomiData::removeAllGeofences(ErrorSlot error) {
    return removeAll(entityType<QuomiGeofence>(), error);
}

bool QuomiData::removeGeofencesWithIds(std::span<const std::string> ids, ErrorSlot error) {
    return removeWithIds<QuomiGeofence>(ids, error);
}

bool QuomiData::removeGeofenceWithId(const std::string& id, ErrorSlot error) {
    return removeWithIds<QuomiGeofence>({&id, 1}, error);
}

bool QuomiData::resetAllGeofencesCounters(ErrorSlot error) {
    return resetAllCounters<QuomiGeofence>(error);
}

// Beacons

std::size_t QuomiData::insertOrUpdateBeacons(const Source<QuomiBeaconData>& beacons, ErrorSlot error) {
    return insertOrUpdate(beacons, error);
}

QuomiData::List<QuomiBeaconData> QuomiData::getAllBeacons(ErrorSlot error) {
    return allPlaces<QuomiBeaconData>(currentObjectContext(), error);
}

std::shared_ptr<QuomiBeaconData> QuomiData::getBeaconById(const std::string& id, ErrorSlot error) {
    return placeById<QuomiBeaconData>(currentObjectContext(), id, error);
}

std::shared_ptr<QuomiBeaconRuleWithActions> QuomiData::getBeaconRuleById(const std::string& id, ErrorSlot error) {
    return ruleById<QuomiBeaconRuleWithActions>(currentObjectContext(), id, error);
}

QuomiData::List<QuomiBeaconData> QuomiData::getBeaconsInGroup(const std::string& group, ErrorSlot error) {
    return placesInGroup<QuomiBeaconData>(currentObjectContext(), group, error);
}

QuomiData::List<QuomiBeaconData> QuomiData::getBeaconsByProximityUUID(const Uuid& proximityUUID,
                                                                      std::optional<int> major,
                                                                      std::optional<int> minor, ErrorSlot error) {
    static const Query<QuomiBeaconData> query(
        "WHERE \"proximityUUID\" = ? AND \"major\" IS ? AND \"minor\" IS ? ORDER BY \"beaconId\", \"_id\"");
    return currentObjectContext().fetch(query, {proximityUUID.string(), valueOf(major), valueOf(minor)}, error);
}

QuomiData::List<QuomiBeaconData> QuomiData::getBeaconsByProximityUUID(
    const Uuid& proximityUUID, int major, const std::function<bool(const QuomiBeaconData&)>& securityCheck,
    ErrorSlot error) {
    static const Query<QuomiBeaconData> query(
        "WHERE \"proximityUUID\" = ? AND \"major\" IS ? ORDER BY \"beaconId\", \"_id\"");
    auto beacons = currentObjectContext().fetch(query, {proximityUUID.string(), valueOf(major)}, error);
    std::erase_if(beacons, [&](const auto& beacon) { return !securityCheck(*beacon); });
    return beacons;
}

std::size_t QuomiData::enableBeaconsWithNamespace(const std::string& appNamespace, bool enabled, ErrorSlot error) {
    if (busyWithInsertOrUpdateData_) {
        failBusy(error);
        return 0;
    }
    return enable<QuomiBeaconData>(appNamespace, enabled, error);
}

bool QuomiData::removeAllBeacons(ErrorSlot error) {
    return removeAll(entityType<QuomiBeaconData>(), error);
}

bool QuomiData::removeBeaconsWithIds(std::span<const std::string> ids, ErrorSlot error) {
    return busyWithInsertOrUpdateData_ ? failBusy(error) : removeWithIds<QuomiBeaconData>(ids, error);
}

bool QuomiData::resetAllBeaconsCounters(ErrorSlot error) {
    return resetAllCounters<QuomiBeaconData>(error);
}

}  // namespace quomi
