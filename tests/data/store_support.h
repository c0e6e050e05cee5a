#pragma once

#include "hosts/simulated/simulated_phone.h"
#include "quomi/data/data.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/errors.h"
#include "quomi/model/settings.h"
#include "quomi/platform/files.h"
#include "tests/support/prelude.h"

#include <SQLiteCpp/Database.h>

namespace quomi::test {

inline std::shared_ptr<QuomiApplication> record(const std::string& appNamespace, double threshold = 7.5) {
    auto application = std::make_shared<QuomiApplication>();
    application->appNamespace = appNamespace;
    application->proximityUUIDNormal = "normal";
    application->proximityUUIDSecure = "secure";
    application->proximityUUIDService = "service";
    application->antiHackingProtocol = "none";
    application->proximityFarSplitThreshold = threshold;
    return application;
}

inline WallTime at(double since1970) {
    return WallTime(toDuration(Seconds(since1970)));
}

template <class Rule>
void addRules(RuleOwner& place, std::initializer_list<const char*> ruleIds) {
    for (const char* id : ruleIds) {
        auto rule = std::make_shared<Rule>();
        rule->ruleId = id;
        rule->trigger = kTriggerOnEntry;
        place.addActionObject(std::move(rule));
    }
}

inline std::shared_ptr<QuomiGeofence> geofence(const std::string& id, std::initializer_list<const char*> ruleIds = {}) {
    auto geofence = std::make_shared<QuomiGeofence>();
    geofence->geofenceId = id;
    addRules<QuomiGeofenceRuleWithActions>(*geofence, ruleIds);
    return geofence;
}

inline std::shared_ptr<QuomiGeofence> geofenceAt(const std::string& id, double latitude, double longitude) {
    auto made = geofence(id);
    made->latitude = latitude;
    made->longitude = longitude;
    return made;
}

inline std::shared_ptr<QuomiBeaconData> beacon(const std::string& id, std::initializer_list<const char*> ruleIds = {}) {
    auto beacon = std::make_shared<QuomiBeaconData>();
    beacon->beaconId = id;
    addRules<QuomiBeaconRuleWithActions>(*beacon, ruleIds);
    return beacon;
}

/// Those of the list, one after the other.
template <class Place>
QuomiData::Source<Place> sourceOf(std::vector<std::shared_ptr<Place>> places) {
    return [places = std::move(places), next = std::size_t{0}]() mutable -> std::shared_ptr<Place> {
        return next < places.size() ? places[next++] : nullptr;
    };
}

/// Identifiers of the places, in a row.
template <class Place>
std::string idsOf(const std::vector<std::shared_ptr<Place>>& places) {
    std::string ids;
    for (const auto& place : places) ids += (ids.empty() ? "" : " ") + place->identifier();
    return ids;
}

/// A phone and what a store needs of it.
class StoreHost {
public:
    explicit StoreHost(simulated::PhoneConfig config = {}) : phone(std::move(config)) {}

    std::unique_ptr<QuomiData> open(bool allowDeletion = false) {
        error.reset();
        return QuomiData::create(file, allowDeletion, platform, errors, &error);
    }
    /// Code of the error with which opening failed; 0 when it did not.
    std::int64_t failureOf(bool allowDeletion = false) {
        if (open(allowDeletion) != nullptr) return 0;
        return error ? error->code : -1;
    }
    /// Another connection to the store's file, or to a new one in its place.
    [[nodiscard]] SQLite::Database connect() const {
        std::filesystem::create_directories(file.parent_path());
        return SQLite::Database(file.string(), SQLite::OPEN_READWRITE | SQLite::OPEN_CREATE);
    }

    simulated::SimulatedPhone phone;
    Platform platform = phone.platform();
    QuomiErrors errors{platform.localization};
    DebugLog debugLog{platform.files, platform.clock, [] { return true; }};
    std::filesystem::path file = QuomiData::dataStorageDirectory(platform) / kQuomiSQLiteStoreFile;
    std::optional<Error> error;
};

}  // namespace quomi::test
