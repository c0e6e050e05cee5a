#pragma once

#include "quomi/util/error.h"

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace quomi::simulated {

/// Domain of the errors of reading a campaign; their description is one line, ready to be shown.
inline constexpr const char* kCampaignErrorDomain = "QuomiCampaignErrorDomain";

enum class CampaignErrorCode { unreadable = 1, invalid = 2 };

/// What one back office serves: an application with its limits, its beacons and its geofences, with their rules. It
/// comes from one JSON file (docs/campaign.md), whose objects are those of the server's answers. An existing campaign
/// is valid, and never changes.
class Campaign {
public:
    /// Reads and validates a file of at most 64 MiB. The error names the file, the JSON path and what was expected
    /// there: "shop.json: $.beacons[3].major: expected a whole number from 0 to 65535, found -1".
    [[nodiscard]] static std::optional<Campaign> load(const std::string& path, std::optional<Error>* error = nullptr);
    /// The same for a text; `name` stands for the file in errors.
    [[nodiscard]] static std::optional<Campaign> parse(std::string_view text, const std::string& name,
                                                       std::optional<Error>* error = nullptr);

    /// The namespace that a request must name. Made of letters, digits, '-', '.', '_' and '~': it travels unescaped
    /// in paths.
    [[nodiscard]] const std::string& namespaceUid() const { return namespaceUid_; }
    /// The application as in the file, at least "namespace_uid".
    [[nodiscard]] const boost::json::object& application() const { return application_; }
    /// The limits as in the file; empty when it has none.
    [[nodiscard]] const boost::json::object& limits() const { return limits_; }
    /// Beacon objects in file order, each with an "id" of its own.
    [[nodiscard]] const boost::json::array& beacons() const { return beacons_; }
    /// Geofence objects in file order, each with an "id" of its own. Their "radius" is in kilometres.
    [[nodiscard]] const boost::json::array& geofences() const { return geofences_; }
    /// Texts: identifiers of what devices shall forget.
    [[nodiscard]] const boost::json::array& removeBeaconIds() const { return removeBeaconIds_; }
    [[nodiscard]] const boost::json::array& removeGeofenceIds() const { return removeGeofenceIds_; }
    /// What the campaign's own server says to rules that ask it: by path, the answer as in the file.
    [[nodiscard]] const boost::json::object& answers() const { return answers_; }
    /// How long devices may keep an answer about beacons or geofences.
    [[nodiscard]] std::chrono::seconds validFor() const { return validFor_; }

private:
    Campaign() = default;

    std::string namespaceUid_;
    boost::json::object application_;
    boost::json::object limits_;
    boost::json::array beacons_;
    boost::json::array geofences_;
    boost::json::array removeBeaconIds_;
    boost::json::array removeGeofenceIds_;
    boost::json::object answers_;
    std::chrono::seconds validFor_ = std::chrono::hours(24);
};

}  // namespace quomi::simulated
