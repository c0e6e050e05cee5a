#pragma once

#include "tests/support/sdk_fixture.h"

#include <SQLiteCpp/Database.h>
#include <SQLiteCpp/Statement.h>

namespace quomi::test {

inline constexpr const char* kGeofencesRequest = "GET /u_geofences/query.json";
inline constexpr double kTownLatitude = 52.5;
inline constexpr double kTownLongitude = 13.4;

/// A rule as the server tells it; it notifies "ID" unless it has another action.
inline boost::json::object ruleOf(const std::string& id, const char* trigger, int latch = 0,
                                  boost::json::object action = {}) {
    if (action.empty()) action = {{"notify_user", id}};
    return {{"id", id}, {"rule", {{"trigger", trigger}, {"latch_time", latch}}}, {"action", action}};
}

/// A geofence of 100 m in the town.
inline boost::json::object geofenceOf(const std::string& id, boost::json::array rules = {},
                                      double latitude = kTownLatitude) {
    return {{"id", id}, {"lat", latitude}, {"lng", kTownLongitude}, {"radius", 0.1}, {"rules_actions", rules}};
}

/// A host app that follows positions, with a server that knows geofences. Journal lines beside the fixture's:
/// "location", "entered geofence ID", "left geofence ID".
class Town : public SdkFixture {
public:
    explicit Town(const boost::json::array& geofences, simulated::PhoneConfig config = {})
        : SdkFixture(inSpring(std::move(config))) {
        settings.stopUpdatingLocationAfterFirstUpdate = false;
        serve(geofences);
        delegate->didReceiveLocationChange = [this](auto&, const Location&) { note("location"); };
        delegate->didReceiveEnterRegionNotification = [this](auto&, const CircularRegion& region) {
            note("entered geofence " + region.identifier);
        };
        delegate->didReceiveExitRegionNotification = [this](auto&, const CircularRegion& region) {
            note("left geofence " + region.identifier);
        };
    }

    void serve(const boost::json::array& geofences, const boost::json::array& removed = {},
               const char* validUntil = "2030-01-01T00:00:00Z", double latitude = kTownLatitude) {
        const boost::json::object area{{"lat", latitude}, {"lng", kTownLongitude}, {"radius", 100}};
        phone.transport().answer(kGeofencesRequest, rulesAnswer("u_geofences", geofences, removed, area, validUntil));
    }
    /// The device is there; a second passes for what follows from it.
    void goTo(double latitude) {
        phone.setLocation({latitude, kTownLongitude}, 10);
        settle();
    }
    /// Starts, and goes to a place in the town outside of every geofence; the journal begins afterwards.
    bool begin() {
        const bool isRunning = start();
        goTo(kTownLatitude + 0.01);
        journal.clear();
        return isRunning;
    }
    void enter(const std::string& id) {
        phone.enterRegion(id);
        phone.runTurns();
    }
    void leave(const std::string& id) {
        phone.exitRegion(id);
        phone.runTurns();
    }
    /// Geofences that the phone watches.
    [[nodiscard]] std::vector<std::string> watched() const {
        std::vector<std::string> identifiers;
        for (const auto& region : phone.monitoredRegions()) {
            if (std::holds_alternative<CircularRegion>(region)) identifiers.push_back(regionIdentifier(region));
        }
        return identifiers;
    }
    /// What the store file answers to a query of one number.
    [[nodiscard]] int stored(const std::string& query) {
        SQLite::Database database(storeFile().string());
        return database.execAndGet(query).getInt();
    }
    void edit(const std::string& statement) {
        SQLite::Database(storeFile().string(), SQLite::OPEN_READWRITE).exec(statement);
    }

private:
    static simulated::PhoneConfig inSpring(simulated::PhoneConfig config) {
        config.start = WallTime(std::chrono::days(20582));  // 2026-05-09
        return config;
    }
    void note(std::string line) {
        journal.push_back(line);
        if (inCallback) inCallback(line);
    }
};

}  // namespace quomi::test
