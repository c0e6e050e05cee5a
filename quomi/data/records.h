#pragma once

#include "quomi/util/time.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace quomi {

/// The SDK's status and device-wide counters: one row. Periods and intervals in seconds; 0 means no limit.
struct QuomiStatusInfo {
    bool isStarted = false;
    WallTime lastGeofencesDataUpdatedAt{};
    WallTime lastBeaconsDataUpdatedAt{};
    std::int32_t globalTriggersCount = 0;
    std::int32_t globalMaxEvents = 0;
    std::int32_t globalMaxEventsPeriod = 0;
    std::int32_t globalMinInterval = 0;
    WallTime lastEventDate{};
    std::vector<WallTime> globalHistory;  ///< one date for each counted event, oldest first

    /// Forgets the events that no limit asks about any more: those before `now` minus the period, or all when there is
    /// no period.
    void trimOutdatedHistoryElements(WallTime now);
};

/// What the server says of the app's namespace: one row.
struct QuomiApplication {
    std::string appNamespace;
    std::string proximityUUIDNormal;
    std::string proximityUUIDSecure;
    std::string proximityUUIDService;
    std::string antiHackingProtocol;
    double proximityFarSplitThreshold = 10.0;  ///< metres
};

/// One event of the log, as the store once kept them.
struct QuomiDebugLog {
    std::optional<WallTime> logTime;     ///< when the event happened
    std::optional<std::string> logData;  ///< the event's dictionary as a JSON object's text
};

/// A service beacon whose battery runs low, to be told to the server.
struct BatteryAlert {
    WallTime date{};
    std::string appNamespace;
    std::string proximityUUID;
    std::string serviceID;  ///< the service identifier in decimal

    bool operator==(const BatteryAlert&) const = default;
};

}  // namespace quomi
