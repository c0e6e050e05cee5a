#include "quomi/location/location_utils.h"
#include "tests/tool/replay_support.h"

#include <span>

namespace quomi::test {
namespace {

namespace json = boost::json;

const std::filesystem::path kTracks = QUOMI_SHARED_DATA_DIR "/tracks";
const std::filesystem::path kPlaces = QUOMI_SHARED_DATA_DIR "/places/greater_manchester_places.csv";
constexpr std::size_t kWatched = 18;  // fewer than a phone watches

/// The points of a track in its order, whatever else it holds.
std::vector<Coordinate> pointsOf(const std::string& gpx) {
    const auto number = [&gpx](std::size_t from, const char* key) {
        return std::stod(gpx.substr(gpx.find(key, from) + 5, 20));
    };
    std::vector<Coordinate> points;
    for (auto at = gpx.find("<trkpt"); at != std::string::npos; at = gpx.find("<trkpt", at + 1)) {
        points.push_back({number(at, "lat=\""), number(at, "lon=\"")});
    }
    return points;
}

json::object geofence(const std::string& id, const Coordinate& center, double kilometres) {
    return {{"id", id}, {"lat", center.latitude}, {"lng", center.longitude}, {"radius", kilometres}};
}

/// Entries ("+") and exits ("-") of each geofence, in order.
using Crossings = std::map<std::string, std::string>;

Crossings crossingsOf(const Replayed& played) {
    Crossings crossings;
    for (const auto& record : played.records) {
        const auto* news = record.if_contains("delegate");
        if (news == nullptr) continue;
        const bool enters = *news == "didReceiveEnterRegionNotification";
        if (!enters && *news != "didReceiveExitRegionNotification") continue;
        crossings[std::string(record.at("region").as_object().at("identifier").as_string())] += enters ? '+' : '-';
    }
    return crossings;
}

/// The same by the points alone, for someone who begins outside.
Crossings expectedCrossings(const std::vector<Coordinate>& points, const std::vector<Coordinate>& centers,
                            double metres) {
    Crossings crossings;
    for (std::size_t i = 0; i < centers.size(); ++i) {
        std::string series;
        for (const auto& point : points) {
            const bool isInside = QuomiLocationUtils::calculateDistance(point, centers[i]) <= metres;
            const bool wasInside = !series.empty() && series.back() == '+';
            if (isInside != wasInside) series += isInside ? '+' : '-';
        }
        if (!series.empty()) crossings[fmt::format("stop-{:02}", i)] = series;
    }
    return crossings;
}

class GeofenceTracksTest : public testing::Test {
protected:
    /// Someone follows the track with beacons off; the server knows these geofences.
    [[nodiscard]] Replayed follow(const std::filesystem::path& track, const json::array& geofences,
                                  bool keepsUpdating) const {
        auto visit = shopVisit(
            fmt::format(R"([{{"at": 0, "call": "start"}}, {{"at": 1, "walk": {{"gpx": "{}"}}}}])", track.string()));
        auto& app = visit["app"].as_object();
        app["properties"] = {{"geofencesEnabled", true}, {"beaconsEnabled", false}, {"eventLogsEnabled", false}};
        app["settings"] = {{"stopUpdatingLocationAfterFirstUpdate", !keepsUpdating}};
        const auto center = pointsOf(contentOf(track)).front();
        const json::object area{{"lat", center.latitude}, {"lng", center.longitude}, {"radius", 100}};
        const json::object answer{{"u_geofences", geofences},
                                  {"query_params", area},
                                  {"valid_until", "2030-01-01T00:00:00Z"},
                                  {"remove_ids", json::array()}};
        answersOf(visit)["GET /u_geofences/query.json"] = {{"json", answer}};
        return bench_.play(visit);
    }

    ReplayBench bench_;
};

TEST_F(GeofenceTracksTest, WhatLiesOnTheWayIsEnteredAndLeft) {
    if (!std::filesystem::exists(kTracks)) GTEST_SKIP() << "the tracks are not here";
    for (const char* name : {"bus_limerick.gpx", "bike_berkshire.gpx", "hike_alps_all_day.gpx"}) {
        SCOPED_TRACE(name);
        const auto points = pointsOf(contentOf(kTracks / name));
        std::vector<Coordinate> centers;
        json::array geofences;
        for (std::size_t i = 1; i <= kWatched; ++i) {
            const auto& center = points[points.size() * i / (kWatched + 1)];
            if (QuomiLocationUtils::calculateDistance(points.front(), center) < 300) continue;
            geofences.push_back(geofence(fmt::format("stop-{:02}", centers.size()), center, 0.1));
            centers.push_back(center);
        }
        ASSERT_GT(centers.size(), 9U);
        const auto played = follow(kTracks / name, geofences, true);
        EXPECT_EQ(played.status, 0);
        const auto crossings = crossingsOf(played);
        EXPECT_EQ(crossings, expectedCrossings(points, centers, 100));
        EXPECT_EQ(crossings.size(), centers.size()) << "each lies on the way";
        EXPECT_EQ(follow(kTracks / name, geofences, true).out, played.out) << "the same bytes on every run";
    }
}

constexpr std::size_t kVisited = 4;  // each position builds thousands of objects

TEST_F(GeofenceTracksTest, OfTwelveThousandPlacesThePhoneWatchesWhatItCan) {
    if (!std::filesystem::exists(kTracks) || !std::filesystem::exists(kPlaces)) GTEST_SKIP() << "they are not here";
    json::array geofences;
    std::vector<Coordinate> first;
    std::istringstream places(contentOf(kPlaces));
    std::string line;
    std::getline(places, line);
    while (std::getline(places, line)) {
        std::vector<std::string> fields;
        std::istringstream row(line);
        for (std::string field; std::getline(row, field, ',');) fields.push_back(field);
        if (fields.size() != 6 || line.find('"') != std::string::npos) continue;  // names with commas
        const Coordinate center{std::stod(fields[3]), std::stod(fields[4])};
        // Identifiers that begin with the first ones: these are what the phone watches.
        geofences.push_back(geofence(fmt::format("place-{:05}", geofences.size()), center, 0.1));
        if (first.size() < kWatched) first.push_back(center);
    }
    ASSERT_GT(geofences.size(), 10'000U);
    std::string track = "<gpx version='1.1'><trk><trkseg>";
    std::vector<Coordinate> points{{53.4808, -2.2426}};
    for (const auto& center : std::span(first).first(kVisited)) {
        points.push_back({center.latitude + 0.01, center.longitude});
        points.push_back(center);
    }
    for (std::size_t i = 0; i < points.size(); ++i) {
        track += fmt::format("<trkpt lat=\"{}\" lon=\"{}\"><time>2026-05-09T10:{:02}:00Z</time></trkpt>",
                             points[i].latitude, points[i].longitude, i);
    }
    const auto file = bench_.write("tour.gpx", track + "</trkseg></trk></gpx>");
    const auto played = follow(file, geofences, false);
    EXPECT_EQ(played.status, 0);
    std::set<std::string> watched;
    for (const auto& record : played.records) {
        if (record.contains("monitor")) watched.insert(std::string(record.at("monitor").as_string()));
    }
    const auto crossings = crossingsOf(played);
    EXPECT_GE(crossings.size(), kVisited);
    for (const auto& [id, series] : crossings) {
        EXPECT_TRUE(watched.contains(id)) << id;
        for (std::size_t i = 0; i < series.size(); ++i) EXPECT_EQ(series[i], i % 2 == 0 ? '+' : '-') << id;
    }
}

}  // namespace
}  // namespace quomi::test
