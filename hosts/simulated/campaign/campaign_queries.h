#pragma once

#include "quomi/util/time.h"
#include "quomi/util/uuid.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi::simulated {

class Campaign;

/// One parameter of a request's query, decoded: foreign bytes. Empty when the request does not carry it.
using QueryParameter = std::function<std::optional<std::string>(const char* name)>;

/// Answers the questions about a campaign's beacons and geofences. An answer has "u_beacons" or "u_geofences",
/// "query_params" (what was asked, as it was understood), "valid_until" and "remove_ids".
///
/// Any thread may ask. Each operation gives nothing, with a fault in one line, when a parameter is missing or not as
/// described; parameters that it does not name are ignored.
class CampaignQueries {
public:
    using Answer = std::optional<boost::json::object>;

    /// The campaign outlives it, unmoved.
    explicit CampaignQueries(const Campaign& campaign);
    ~CampaignQueries();

    /// The beacons of "proximity_uid", and of "major" and of "minor" where these are given: 0 is a number like any
    /// other, and a beacon without one matches none. With "updated_at" only those that changed after it, or do not say
    /// when they changed.
    [[nodiscard]] Answer beacons(const QueryParameter& parameter, WallTime now, std::string& fault) const;

    /// The geofences that the circle around "lat" and "lng" (degrees) with "radius" (kilometres) touches: their centre
    /// lies within both radii along the geodesic on WGS 84, give or take a millimetre. "updated_at" as above.
    [[nodiscard]] Answer geofences(const QueryParameter& parameter, WallTime now, std::string& fault) const;

private:
    struct Beacon {
        const boost::json::object* object;
        Uuid uuid;
        std::optional<std::int64_t> major;
        std::optional<std::int64_t> minor;
        std::optional<WallTime> updatedAt;
    };
    struct Geofence {
        const boost::json::object* object;
        double latitude;
        double longitude;
        double metres;
        std::optional<WallTime> updatedAt;
    };

    const Campaign& campaign_;
    std::vector<Beacon> beacons_;
    std::vector<Geofence> geofences_;
};

}  // namespace quomi::simulated
