#pragma once

#include "quomi/data/managed_object.h"
#include "quomi/model/history.h"
#include "quomi/util/time.h"

#include <cstdint>
#include <optional>
#include <string>

#include <boost/json/fwd.hpp>

namespace quomi {

/// The SDK's status and device-wide counters: one row. Periods and intervals in seconds; 0 means no limit.
struct QuomiStatusInfo : ManagedObject {
    bool isStarted = false;
    WallTime lastGeofencesDataUpdatedAt{};
    WallTime lastBeaconsDataUpdatedAt{};
    std::int32_t globalTriggersCount = 0;
    std::int32_t globalMaxEvents = 0;
    std::int32_t globalMaxEventsPeriod = 0;
    std::int32_t globalMinInterval = 0;
    WallTime lastEventDate{};
    History globalHistory;  ///< one date for each counted event

    void addDateToHistory(WallTime now);
    void removeLastDateFromHistory();
    /// Forgets the events that no limit asks about any more: those before `now` minus the period, or all when there is
    /// no period.
    void trimOutdatedHistoryElements(WallTime now);
    /// Whether another event may be counted: fewer than the maximum in the period, or ever where there is no period.
    [[nodiscard]] bool maxEventsConditionsFulfilled(WallTime now) const;
    /// Whether more than the minimal interval has passed since the last event; just as much is not enough.
    [[nodiscard]] bool minIntervalPassed(WallTime now) const;

    [[nodiscard]] const EntityType& entityType() const override;
};

/// What the server says of the app's namespace: one row.
struct QuomiApplication : ManagedObject {
    std::optional<std::string> appNamespace;
    std::optional<std::string> proximityUUIDNormal;
    std::optional<std::string> proximityUUIDSecure;
    std::optional<std::string> proximityUUIDService;
    std::optional<std::string> antiHackingProtocol;
    double proximityFarSplitThreshold = 10.0;  ///< metres

    [[nodiscard]] boost::json::object dictionary() const;
    [[nodiscard]] const EntityType& entityType() const override;
};

/// One event of the log, as the store once kept them.
struct QuomiDebugLog : ManagedObject {
    std::optional<WallTime> logTime;     ///< when the event happened
    std::optional<std::string> logData;  ///< the event's dictionary as a JSON object's text

    [[nodiscard]] boost::json::object dictionary() const;
    [[nodiscard]] const EntityType& entityType() const override;
};

/// A service beacon whose battery runs low, to be told to the server.
struct BatteryAlert {
    WallTime date{};
    std::string appNamespace;
    std::string proximityUUID;
    std::string serviceID;  ///< the service identifier in decimal

    bool operator==(const BatteryAlert&) const = default;
};

/// The same as a row that waits to be sent.
struct QuomiBatteryAlert : ManagedObject {
    WallTime date{};
    std::string appNamespace;
    std::string proximityUUID;
    std::string serviceID;

    [[nodiscard]] BatteryAlert values() const { return {date, appNamespace, proximityUUID, serviceID}; }
    void setValues(const BatteryAlert& alert);
    [[nodiscard]] boost::json::object dictionary() const;
    [[nodiscard]] const EntityType& entityType() const override;
};

/// The circle around which geofences were last downloaded; degrees and metres.
struct QuomiGeofenceRegion : ManagedObject {
    std::optional<double> latitude;  // required: a region without place or size is refused at the save
    std::optional<double> longitude;
    std::optional<double> radius;
    std::optional<WallTime> validUntil;  ///< never expires without

    [[nodiscard]] const EntityType& entityType() const override;
};

}  // namespace quomi
