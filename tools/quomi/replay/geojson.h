#pragma once

#include "hosts/simulated/visit/visit.h"
#include "quomi/platform/location.h"
#include "quomi/util/time.h"

#include <filesystem>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include <boost/json/object.hpp>

namespace quomi::tool {

/// A played visit as GeoJSON (RFC 7946): the device's track, the geofences that the phone was asked to watch, the
/// world's beacons, and every event where the device was at that time. docs/geojson.md describes every feature. One
/// thread.
class GeoJson {
public:
    /// With the beacons of the visit's world.
    explicit GeoJson(const simulated::Visit& visit);

    /// The device is there now; times are counted from the visit's start.
    void moved(const Coordinate& place, Duration at);
    /// A record of the trace; `now` is the phone's wall clock. Records that are no event are passed over.
    void record(const boost::json::object& record, WallTime now);

    /// The whole collection, a feature a line.
    [[nodiscard]] std::string text() const;

private:
    void addGeofence(const boost::json::object& region);
    [[nodiscard]] std::optional<std::string> trackFeature() const;

    std::vector<std::string> places_;  // features, in the order in which they became known
    std::vector<std::string> events_;
    std::set<std::tuple<std::string, double, double, double>> geofences_;
    struct Stop {
        Coordinate place;
        Duration at;
    };
    std::vector<Stop> track_;
};

/// A file that is written beside its place and moved there when it is complete. Something else than a file (a pipe, a
/// device) is written as it is.
class NewFile {
public:
    explicit NewFile(const std::filesystem::path& path);
    /// Removes what was not completed.
    ~NewFile();
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;

    /// Whether it can be written at all.
    [[nodiscard]] bool canBeWritten() const { return writable_; }
    /// Writes all of it and moves it into its place; false when that failed, and the place is as it was.
    bool complete(const std::string& text);

private:
    std::filesystem::path path_;
    std::filesystem::path fresh_;  // the same as `path_` for something else than a file
    bool writable_ = false;
};

/// A ring of so many points, and the first one again, around a circle on the ground: counter-clockwise from due north.
/// Longitudes go on beyond ±180 rather than jump.
[[nodiscard]] std::vector<Coordinate> ringAround(const Coordinate& center, double metres, std::size_t points);

}  // namespace quomi::tool
