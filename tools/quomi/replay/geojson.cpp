#include "tools/quomi/replay/geojson.h"

#include "hosts/simulated/circle_watch.h"
#include "hosts/simulated/json/json_writer.h"
#include "hosts/simulated/replay/trace.h"
#include "quomi/location/location_utils.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <cmath>
#include <fstream>
#include <numbers>
#include <system_error>
#include <utility>

#include <boost/json/array.hpp>

namespace quomi::tool {

namespace json = boost::json;

namespace {

constexpr std::size_t kRingPoints = 64;
constexpr double kDegreesPerRadian = 180 / std::numbers::pi;
constexpr double kMeanRadius = 6'371'008.8;  // metres
constexpr double kHalfTurn = 180;

json::array position(const Coordinate& place) {
    return {place.longitude, place.latitude};
}

json::object geometry(std::string_view type, json::array coordinates) {
    return {{"type", type}, {"coordinates", std::move(coordinates)}};
}

std::string feature(json::value shape, json::object properties) {
    return simulated::jsonText(
        json::object{{"type", "Feature"}, {"geometry", std::move(shape)}, {"properties", std::move(properties)}});
}

/// The point at so many metres on a sphere; `bearing` in radians, clockwise from north.
Coordinate destination(const Coordinate& from, double bearing, double metres) {
    const double angle = metres / kMeanRadius;
    const double latitude = from.latitude / kDegreesPerRadian;
    const double sine = std::sin(latitude) * std::cos(angle) + std::cos(latitude) * std::sin(angle) * std::cos(bearing);
    const double turned = std::atan2(std::sin(bearing) * std::sin(angle) * std::cos(latitude),
                                     std::cos(angle) - std::sin(latitude) * sine);
    return {std::asin(std::min(1.0, std::max(-1.0, sine))) * kDegreesPerRadian,
            from.longitude + turned * kDegreesPerRadian};
}

/// The same on the ellipsoid, to a few centimetres in a kilometre: the sphere's way is corrected by what it missed.
Coordinate pointAt(const Coordinate& from, double bearing, double metres) {
    auto point = destination(from, bearing, metres);
    const double reached = QuomiLocationUtils::calculateDistance(from, point);
    return reached > 0 ? destination(from, bearing, metres * metres / reached) : point;
}

bool isFailure(const json::object& record) {
    const auto& outcome = fieldOf(record, "response");
    if (outcome.is_string()) return outcome.get_string() != "cancelled";
    const double status = numberOf(record, "response", 0);
    return status < 200 || status > 299;
}

bool isEvent(std::string_view kind, const json::object& record) {
    if (kind == "response") return isFailure(record);
    return kind == "delegate" || kind == "notification" || kind == "webPage" || kind == "openURL" || kind == "rule";
}

std::optional<CircularRegion> circleOf(const json::object& region) {
    const auto number = [&](std::string_view key) { return numberOf(region, key, std::nan("")); };
    CircularRegion circle{textOf(region, "identifier"), {number("lat"), number("lng")}, number("radius")};
    const bool isWhole = std::isfinite(circle.center.latitude) && std::isfinite(circle.center.longitude) &&
                         std::isfinite(circle.radius) && circle.radius >= 0;
    return isWhole ? std::optional(std::move(circle)) : std::nullopt;
}

}  // namespace

std::vector<Coordinate> ringAround(const Coordinate& center, double metres, std::size_t points) {
    std::vector<Coordinate> ring;
    for (std::size_t i = 0; i < points; ++i) {
        const double share = static_cast<double>(i) / static_cast<double>(points);
        ring.push_back(pointAt(center, -2 * std::numbers::pi * share, metres));
    }
    if (!ring.empty()) ring.push_back(ring.front());
    return ring;
}

GeoJson::GeoJson(const simulated::Visit& visit) {
    for (const auto& beacon : visit.world) {
        places_.push_back(feature(geometry("Point", position(beacon.position)), {{"kind", "beacon"},
                                                                                 {"uuid", beacon.uuid.string()},
                                                                                 {"major", beacon.major},
                                                                                 {"minor", beacon.minor},
                                                                                 {"txPower", beacon.txPower}}));
    }
}

void GeoJson::moved(const Coordinate& place, Duration at) {
    track_.push_back({place, at});
}

void GeoJson::record(const json::object& record, WallTime now) {
    const auto kind = kindOf(record);
    if (kind == "monitor") return addGeofence(objectOf(record, "region"));
    if (!isEvent(kind, record)) return;
    json::object properties{{"kind", "event"},
                            {"t", fieldOf(record, "t")},
                            {"time", simulated::traceDate(now)},
                            {"record", kind},
                            {"value", fieldOf(record, kind)}};
    // A field of such a name would say something else than the feature's own.
    for (const auto& field : record) {
        if (field.key() != kind) properties.emplace(field.key(), field.value());
    }
    events_.push_back(feature(track_.empty() ? json::value() : geometry("Point", position(track_.back().place)),
                              std::move(properties)));
}

void GeoJson::addGeofence(const json::object& region) {
    const auto circle = circleOf(region);
    if (!circle) return;
    const auto& center = circle->center;
    if (!geofences_.emplace(circle->identifier, center.latitude, center.longitude, circle->radius).second) return;
    const json::object properties{{"identifier", circle->identifier}, {"radius", circle->radius}};
    json::array ring;
    for (const auto& point : ringAround(center, circle->radius, kRingPoints)) ring.push_back(position(point));
    auto area = properties;
    area["kind"] = "geofence";
    places_.push_back(feature(geometry("Polygon", {std::move(ring)}), std::move(area)));
    auto middle = properties;
    middle["kind"] = "geofence center";
    places_.push_back(feature(geometry("Point", position(center)), std::move(middle)));
}

std::optional<std::string> GeoJson::trackFeature() const {
    if (track_.empty()) return std::nullopt;
    json::array lines(1, json::array());
    json::array times(1, json::array());
    for (std::size_t i = 0; i < track_.size(); ++i) {
        const auto& place = track_[i].place;
        const double before = i == 0 ? place.longitude : track_[i - 1].place.longitude;
        if (std::abs(place.longitude - before) > kHalfTurn) {
            // A line is cut where it crosses the 180th meridian.
            const double turned = simulated::longitudeBetween(before, place.longitude);
            const double edge = std::copysign(kHalfTurn, before);
            const double share = turned == 0 ? 0 : (edge - before) / turned;
            const double latitude = std::lerp(track_[i - 1].place.latitude, place.latitude, share);
            const double at = toSeconds(track_[i - 1].at) + share * toSeconds(track_[i].at - track_[i - 1].at);
            lines.back().as_array().push_back(position({latitude, edge}));
            times.back().as_array().emplace_back(at);
            lines.push_back(json::array{position({latitude, -edge})});
            times.push_back(json::array{at});
        }
        lines.back().as_array().push_back(position(place));
        times.back().as_array().emplace_back(toSeconds(track_[i].at));
    }
    json::object properties{{"kind", "track"}, {"times", lines.size() > 1 ? json::value(times) : times[0]}};
    if (track_.size() == 1) return feature(geometry("Point", position(track_[0].place)), std::move(properties));
    if (lines.size() > 1) return feature(geometry("MultiLineString", std::move(lines)), std::move(properties));
    return feature(geometry("LineString", lines[0].as_array()), std::move(properties));
}

std::string GeoJson::text() const {
    std::string text = R"({"type":"FeatureCollection","features":[)";
    const char* separator = "\n";
    const auto append = [&](const std::string& line) {
        text += std::exchange(separator, ",\n");
        text += line;
    };
    if (const auto track = trackFeature()) append(*track);
    for (const auto& place : places_) append(place);
    for (const auto& event : events_) append(event);
    return text + "\n]}\n";
}

NewFile::NewFile(const std::filesystem::path& path) : path_(path), fresh_(path) {
    std::error_code error;
    // What a link names is replaced, not the link.
    if (auto whole = std::filesystem::weakly_canonical(path, error); !error) path_ = fresh_ = std::move(whole);
    const auto status = std::filesystem::status(path_, error);
    if (std::filesystem::is_directory(status)) return;
    if (std::filesystem::is_regular_file(status) || !std::filesystem::exists(status)) fresh_ += ".tmp";
    writable_ = !path.empty() && std::ofstream(fresh_, std::ios::binary).is_open();
}

NewFile::~NewFile() {
    std::error_code ignored;
    if (writable_ && fresh_ != path_) std::filesystem::remove(fresh_, ignored);
}

bool NewFile::complete(const std::string& text) {
    std::ofstream file(fresh_, std::ios::binary);
    file << text;
    file.close();
    if (!file) return false;
    std::error_code error;
    if (fresh_ != path_) std::filesystem::rename(fresh_, path_, error);
    return !error;
}

}  // namespace quomi::tool
