#include "hosts/simulated/campaign/campaign_queries.h"

#include "hosts/simulated/campaign/campaign.h"
#include "quomi/location/location_utils.h"
#include "quomi/util/dates.h"

#include <charconv>
#include <cmath>
#include <string_view>
#include <utility>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::simulated {
namespace json = boost::json;
namespace {

constexpr double kMetresPerKilometre = 1000;
constexpr double kLongestRadius = 100'000;  // kilometres
constexpr double kBorder = 0.001;           // metres
/// A degree of latitude is nowhere shorter, so places of latitudes too far apart need no geodesic.
constexpr double kLeastMetresPerDegree = 110'500;

std::optional<WallTime> dateIn(const json::object& object, std::string_view key) {
    const json::value* date = object.if_contains(key);
    return date == nullptr ? std::nullopt : QuomiUtils::isoDate(std::string_view(date->get_string()));
}

double numberIn(const json::object& object, std::string_view key) {
    const json::value* number = object.if_contains(key);
    return number == nullptr ? 0 : number->to_number<double>();
}

std::optional<std::int64_t> integerIn(const json::object& object, std::string_view key) {
    const json::value* number = object.if_contains(key);
    return number == nullptr ? std::nullopt : std::optional(static_cast<std::int64_t>(number->to_number<double>()));
}

bool isNewer(std::optional<WallTime> updatedAt, std::optional<WallTime> since) {
    return !since || !updatedAt || *updatedAt > *since;
}

/// Reads the parameters of one request and keeps what it read, in order. After the first fault all reads give defaults.
class Reader {
public:
    Reader(const QueryParameter& parameter, std::string& fault) : parameter_(parameter), fault_(fault) {}

    [[nodiscard]] bool failed() const { return failed_; }
    [[nodiscard]] json::object takeRead() { return std::move(read_); }

    Uuid uuid(const char* name) {
        const auto text = given(name);
        const auto value = text ? Uuid::parse(*text) : std::nullopt;
        if (!value) fail(name, "a UUID");
        if (value) read_[name] = value->string();
        return value.value_or(Uuid());
    }

    double number(const char* name, double least, double most) {
        const double value = decimal(given(name).value_or(""));
        if (value >= least && value <= most) {
            read_[name] = value;
            return value;
        }
        fail(name, fmt::format("a number from {} to {}", least, most));
        return 0;
    }

    std::optional<std::int64_t> integer(const char* name, std::int64_t least, std::int64_t most) {
        const auto text = given(name);
        if (!text) return std::nullopt;
        std::int64_t value = 0;
        const char* end = text->data() + text->size();
        const auto [stop, failure] = std::from_chars(text->data(), end, value);
        if (failure == std::errc() && stop == end && value >= least && value <= most) {
            read_[name] = value;
            return value;
        }
        fail(name, fmt::format("an integer from {} to {}", least, most));
        return std::nullopt;
    }

    std::optional<WallTime> date(const char* name) {
        const auto text = given(name);
        if (!text) return std::nullopt;
        const auto value = QuomiUtils::isoDate(*text);
        if (value) read_[name] = *text;
        if (!value) fail(name, "a date such as 2031-05-04T09:30:00Z");
        return value;
    }

    /// A text that the caller has checked.
    void text(const char* name) {
        if (const auto text = given(name)) read_[name] = *text;
    }

private:
    std::optional<std::string> given(const char* name) const { return failed_ ? std::nullopt : parameter_(name); }

    void fail(const char* name, std::string_view expected) {
        if (failed_) return;
        failed_ = true;
        fault_ = fmt::format("the query parameter \"{}\" is missing or wrong: expected {}", name, expected);
    }

    /// NaN for anything but a number.
    static double decimal(std::string_view text) {
        double value = 0;
        const auto [stop, failure] = std::from_chars(text.data(), text.data() + text.size(), value);
        const bool isWhole = failure == std::errc() && stop == text.data() + text.size() && !text.empty();
        return isWhole && std::isfinite(value) ? value : std::nan("");
    }

    const QueryParameter& parameter_;
    std::string& fault_;
    json::object read_;
    bool failed_ = false;
};

json::object answerOf(const char* key, json::array found, json::object asked, WallTime validUntil,
                      const json::array& removed) {
    return {{key, std::move(found)},
            {"query_params", std::move(asked)},
            {"valid_until", QuomiUtils::stringUTCForDate(validUntil, "UTC")},
            {"remove_ids", removed}};
}

/// What both questions may carry beside their own.
std::optional<WallTime> readCommon(Reader& reader) {
    reader.text("namespace");
    reader.integer("api_version", 0, 1'000'000);
    return reader.date("updated_at");
}

}  // namespace

CampaignQueries::CampaignQueries(const Campaign& campaign) : campaign_(campaign) {
    for (const json::value& entry : campaign.beacons()) {
        const json::object& beacon = entry.get_object();
        const auto uuid = Uuid::parse(std::string_view(beacon.at("proximity_uid").get_string()));
        beacons_.push_back({&beacon, uuid.value_or(Uuid()), integerIn(beacon, "major"), integerIn(beacon, "minor"),
                            dateIn(beacon, "updated_at")});
    }
    for (const json::value& entry : campaign.geofences()) {
        const json::object& geofence = entry.get_object();
        geofences_.push_back({&geofence, numberIn(geofence, "lat"), numberIn(geofence, "lng"),
                              numberIn(geofence, "radius") * kMetresPerKilometre, dateIn(geofence, "updated_at")});
    }
}

CampaignQueries::~CampaignQueries() = default;

CampaignQueries::Answer CampaignQueries::beacons(const QueryParameter& parameter, WallTime now,
                                                 std::string& fault) const {
    Reader reader(parameter, fault);
    const Uuid uuid = reader.uuid("proximity_uid");
    const auto major = reader.integer("major", 0, 65535);
    const auto minor = reader.integer("minor", 0, 65535);
    const auto since = readCommon(reader);
    if (reader.failed()) return std::nullopt;
    json::array found;
    for (const Beacon& beacon : beacons_) {
        const bool matches =
            beacon.uuid == uuid && (!major || beacon.major == major) && (!minor || beacon.minor == minor);
        if (matches && isNewer(beacon.updatedAt, since)) found.push_back(*beacon.object);
    }
    return answerOf("u_beacons", std::move(found), reader.takeRead(), now + campaign_.validFor(),
                    campaign_.removeBeaconIds());
}

CampaignQueries::Answer CampaignQueries::geofences(const QueryParameter& parameter, WallTime now,
                                                   std::string& fault) const {
    Reader reader(parameter, fault);
    const double latitude = reader.number("lat", -90, 90);
    const double longitude = reader.number("lng", -180, 180);
    const double metres = reader.number("radius", 0, kLongestRadius) * kMetresPerKilometre;
    const auto since = readCommon(reader);
    if (reader.failed()) return std::nullopt;
    json::array found;
    for (const Geofence& geofence : geofences_) {
        const double reach = metres + geofence.metres + kBorder;
        if (std::abs(geofence.latitude - latitude) * kLeastMetresPerDegree > reach) continue;
        const bool touches =
            QuomiLocationUtils::calculateDistance(latitude, longitude, geofence.latitude, geofence.longitude) <= reach;
        if (touches && isNewer(geofence.updatedAt, since)) found.push_back(*geofence.object);
    }
    return answerOf("u_geofences", std::move(found), reader.takeRead(), now + campaign_.validFor(),
                    campaign_.removeGeofenceIds());
}

}  // namespace quomi::simulated
