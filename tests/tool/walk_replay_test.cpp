#include "quomi/location/location_utils.h"
#include "tests/tool/replay_support.h"
#include "tools/quomi/replay/geojson.h"

namespace quomi::test {
namespace {

namespace json = boost::json;

json::array featuresOf(const std::filesystem::path& path) {
    const auto collection = json::parse(contentOf(path));
    EXPECT_EQ(collection.at("type"), "FeatureCollection");
    return collection.at("features").as_array();
}

/// The features' kinds, with what an event was, and how many there are of each.
std::map<std::string, int> kindsOf(const json::array& features) {
    std::map<std::string, int> kinds;
    for (const auto& feature : features) {
        EXPECT_EQ(feature.at("type"), "Feature");
        const auto& properties = feature.at("properties").as_object();
        std::string kind(properties.at("kind").as_string());
        if (kind == "event") {
            kind = std::string(properties.at("record").as_string());
            if (properties.at("value").is_string()) kind += ' ' + std::string(properties.at("value").as_string());
        }
        ++kinds[kind];
    }
    return kinds;
}

class WalkReplayTest : public testing::Test {
protected:
    static json::object visit(std::string_view timeline) {
        auto visit = shopVisit(timeline);
        visit["world"] = asJson(fmt::format(
            R"({{"beacons": [{{"uuid": "{}", "major": 1, "minor": 7, "lat": 0, "lng": 10}}]}})", kShopUUID));
        return visit;
    }

    ReplayBench bench_;
};

TEST_F(WalkReplayTest, ATrackThatCannotBePlayedIsRefusedWithItsPlace) {
    bench_.write("track.gpx", "<gpx version='1.1'>\n<trk><trkseg><trkpt lat='91' lon='0'/></trkseg></trk></gpx>");
    const auto file = bench_.write("v.json", json::serialize(visit(R"([{"at": 0, "walk": {"gpx": "track.gpx"}}])")));
    const auto run = bench_.run({file.string()});
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, fmt::format("{}: $.timeline[0].walk.gpx: {}:2: lat: expected degrees from -90 to 90, found "
                                   "\"91\"\n",
                                   file.string(), (bench_.folder() / "track.gpx").string()));
}

TEST_F(WalkReplayTest, GeoJsonTellsWhereTheDeviceWas) {
    const auto out = bench_.folder() / "out.geojson";
    auto told = visit(R"([{"at": 0, "call": "start"}, {"at": 1, "location": {"lat": -1, "lng": 179.5, "accuracy": 5}},
        {"at": 2, "clock": 3600}, {"at": 2, "call": "logEvent", "with": {"a": 1}},
        {"at": 3, "location": {"lat": -2, "lng": -179.5, "accuracy": 5}}])");
    answersOf(told).erase("POST /u_app_users/find_or_create_by_udid.json");
    EXPECT_EQ(bench_.play(told, {"--geojson", out.string()}).status, 0);
    const auto features = featuresOf(out);
    EXPECT_THAT(kindsOf(features),
                testing::IsSupersetOf({std::pair<const std::string, int>{"track", 1}, {"beacon", 1}, {"response", 2}}));
    EXPECT_EQ(features[0].at("geometry"), asJson(R"({"type": "MultiLineString", "coordinates": [
        [[179.5, -1], [180, -1.5]], [[-180, -1.5], [-179.5, -2]]]})"));
    EXPECT_EQ(features[0].at("properties").at("times"), asJson("[[1, 2], [2, 3]]"));
    for (const auto& feature : features) {
        const auto& properties = feature.at("properties").as_object();
        if (properties.contains("event") && properties.at("event").as_object().contains("a")) {
            EXPECT_EQ(feature.at("geometry"), asJson(R"({"type": "Point", "coordinates": [179.5, -1]})"));
            EXPECT_EQ(properties.at("time"), "2026-11-21T09:30:02.000Z");
        }
        if (properties.contains("value") && properties.at("value") == 404 &&
            properties.at("t").to_number<double>() < 1) {
            EXPECT_TRUE(feature.at("geometry").is_null());
        }
    }
}

TEST_F(WalkReplayTest, AGeoJsonFileThatCannotBeWrittenIsAFailureAndLeavesWhatWasThere) {
    const auto file = bench_.write("v.json", json::serialize(visit(R"([{"at": 0, "call": "start"}])"))).string();
    const auto old = bench_.write("old.geojson", "old");
    std::filesystem::create_symlink(old, bench_.folder() / "link");
    for (const std::string out : {"/nowhere/out.geojson", "/dev/full", "", "/"}) {
        const auto run = bench_.run({file, "--json", "--geojson", out});
        EXPECT_EQ(run.status, out == "/dev/full" ? 1 : 2) << out;
        EXPECT_THAT(run.err, HasSubstr("cannot be written"));
    }
    EXPECT_EQ(bench_.run({(bench_.folder() / "no.json").string(), "--geojson", old.string()}).status, 2);
    EXPECT_EQ(contentOf(old), "old");
    EXPECT_EQ(bench_.run({file, "--geojson", (bench_.folder() / "link").string()}).status, 0);
    EXPECT_THAT(contentOf(old), HasSubstr("FeatureCollection")) << "what the link names is replaced";
    EXPECT_TRUE(std::filesystem::is_symlink(bench_.folder() / "link"));
    EXPECT_FALSE(std::filesystem::exists(old.string() + ".tmp"));
}

TEST(GeoJsonTest, AGeofenceIsARingAtItsRadiusAndItsCenter) {
    for (const Coordinate center : {Coordinate{53.5, -2.25}, {0, 0}, {-69, 179.99}}) {
        for (const double metres : {1.0, 100.0, 5000.0}) {
            const auto ring = tool::ringAround(center, metres, 64);
            ASSERT_EQ(ring.size(), 65U);
            EXPECT_EQ(ring.front(), ring.back());
            double turns = 0;
            for (std::size_t i = 0; i < 64; ++i) {
                EXPECT_NEAR(QuomiLocationUtils::calculateDistance(center, ring[i]), metres, metres * 1e-4);
                turns += (ring[i].longitude - center.longitude) * (ring[i + 1].latitude - center.latitude) -
                         (ring[i + 1].longitude - center.longitude) * (ring[i].latitude - center.latitude);
            }
            EXPECT_GT(turns, 0) << "counter-clockwise";
        }
    }
    tool::GeoJson map(simulated::Visit{});
    const auto asked =
        asJson(R"({"t": 1, "monitor": "g", "region": {"identifier": "g", "lat": 1, "lng": 2, "radius": 9}})");
    map.record(asked.as_object(), {});
    map.record(asked.as_object(), {});
    map.record(asJson(R"({"t": 1, "monitor": "b", "region": {"identifier": "b", "uuid": "u"}})").as_object(), {});
    const auto whole = json::parse(map.text());
    const auto& features = whole.at("features").as_array();
    ASSERT_EQ(features.size(), 2U);
    EXPECT_EQ(features[0].at("geometry").at("coordinates").at(0).as_array().size(), 65U);
    EXPECT_EQ(features[1].at("geometry"), asJson(R"({"type": "Point", "coordinates": [2, 1]})"));
    EXPECT_EQ(features[1].at("properties").at("radius"), 9);
}

}  // namespace
}  // namespace quomi::test
