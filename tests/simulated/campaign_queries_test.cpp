#include "hosts/simulated/campaign/campaign_queries.h"

#include "hosts/simulated/campaign/campaign.h"
#include "quomi/location/location_utils.h"
#include "tests/support/prelude.h"

namespace quomi::simulated {
namespace {

using Query = std::map<std::string, std::string>;
using Ask = CampaignQueries::Answer (CampaignQueries::*)(const QueryParameter&, WallTime, std::string&) const;

constexpr const char* kUuid = "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90";

const Campaign& campaign() {
    static const auto parsed = Campaign::parse(R"({"application": {"namespace_uid": "shop"}, "beacons": [
        {"id": "old", "proximity_uid": "5d1b2c7e-30a4-4f5b-9e0d-8c6a2f714b90", "major": 1, "minor": 0,
         "updated_at": "2031-01-01T00:00:00Z"},
        {"id": "new", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90", "major": 1.0, "minor": 1,
         "updated_at": "2031-06-01T00:00:00+02:00"},
        {"id": "undated", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90", "major": 0, "minor": 1},
        {"id": "unnumbered", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90"},
        {"id": "foreign", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B91", "major": 1, "minor": 1}],
      "geofences": [
        {"id": "shop", "lat": 52.954, "lng": -1.15, "radius": 0.15, "updated_at": "2031-01-01T00:00:00Z"},
        {"id": "origin", "radius": 0.001},
        {"id": "east", "lat": 0, "lng": 179.99, "radius": 1},
        {"id": "pole", "lat": 90, "lng": 10, "radius": 1, "updated_at": "2031-06-01T00:00:00Z"}]})",
                                               "test");
    return parsed.value();
}

/// The identifiers that are served, or the fault.
std::string ask(Ask question, const char* key, const Query& query) {
    const CampaignQueries queries(campaign());
    const QueryParameter parameter = [&](const char* name) {
        const auto found = query.find(name);
        return found == query.end() ? std::nullopt : std::optional(found->second);
    };
    std::string fault;
    const auto answer = (queries.*question)(parameter, {}, fault);
    if (!answer) return fault;
    std::string ids;
    for (const auto& entry : answer->at(key).as_array()) {
        ids += (ids.empty() ? "" : " ") + std::string(std::string_view(entry.at("id").as_string()));
    }
    return ids;
}

std::string beacons(Query query) {
    query.emplace("proximity_uid", kUuid);
    return ask(&CampaignQueries::beacons, "u_beacons", query);
}

std::string geofences(const Query& query) {
    return ask(&CampaignQueries::geofences, "u_geofences", query);
}

std::string around(double latitude, double longitude, double radius) {
    return geofences({{"lat", fmt::format("{}", latitude)},
                      {"lng", fmt::format("{}", longitude)},
                      {"radius", fmt::format("{}", radius)}});
}

TEST(CampaignQueries, BeaconsByUuidNumbersAndChange) {
    const Table<Query, const char*> cases = {
        {Query{}, "old new undated unnumbered"},
        {{{"proximity_uid", "5d1b2c7e-30a4-4f5b-9e0d-8c6a2f714b91"}}, "foreign"},
        {{{"proximity_uid", "00000000-0000-0000-0000-000000000000"}}, ""},
        {{{"major", "1"}}, "old new"},
        {{{"major", "0"}}, "undated"},
        {{{"minor", "0"}}, "old"},
        {{{"minor", "1"}}, "new undated"},
        {{{"major", "1"}, {"minor", "0"}}, "old"},
        {{{"major", "0"}, {"minor", "0"}}, ""},
        {{{"major", "65535"}}, ""},
        {{{"updated_at", "2031-01-01T00:00:00.000Z"}}, "new undated unnumbered"},
        {{{"updated_at", "2030-12-31T23:59:59.999Z"}}, "old new undated unnumbered"},
        {{{"updated_at", "2031-05-31T21:59:59Z"}, {"major", "1"}}, "new"},
        {{{"updated_at", "2031-05-31T22:00:00Z"}}, "undated unnumbered"},
    };
    for (const auto& [query, found] : cases) EXPECT_EQ(beacons(query), found) << testing::PrintToString(query);
}

TEST(CampaignQueries, GeofencesWhoseCircleIsTouched) {
    const Table<double, double, double, const char*> cases = {
        {52.954, -1.15, 0, "shop"},
        {0, 0, 0, "origin"},
        {0, 1e-5, 0, ""},     // 1.1 m beside a circle of one metre
        {1, 0, 110.573, ""},  // a degree of latitude at the equator is 110.5744 km
        {1, 0, 110.5735, "origin"},
        {0, 1, 111.318, ""},  // and one of longitude 111.3195 km
        {0, 1, 111.3186, "origin"},
        {0, -179.99, 1.2, ""},  // 2.2264 km across the antimeridian
        {0, -179.99, 1.23, "east"},
        {0, -180, 0.2, "east"},
        {0, 180, 0.2, "east"},
        {89.99, -170, 0.11, ""},  // 1.1169 km from the pole, whatever the longitude
        {89.99, -170, 0.12, "pole"},
        {90, -180, 0, "pole"},
        {-90, 10, 0, ""},
        {-90, 10, 100'000, "shop origin east pole"},
    };
    for (const auto& [latitude, longitude, radius, found] : cases) {
        EXPECT_EQ(around(latitude, longitude, radius), found) << latitude << ", " << longitude << ": " << radius;
    }
}

TEST(CampaignQueries, GeofencesByChange) {
    const Query everywhere{{"lat", "0"}, {"lng", "0"}, {"radius", "100000"}};
    for (const auto& [date, found] :
         {std::pair("2030-01-01", "shop origin east pole"), std::pair("2031-01-01", "origin east pole"),
          std::pair("2032-01-01", "origin east")}) {
        Query query = everywhere;
        query["updated_at"] = date;
        EXPECT_EQ(geofences(query), found) << date;
    }
}

TEST(CampaignQueries, FaultsNameTheParameter) {
    const Query here{{"lat", "1"}, {"lng", "1"}, {"radius", "1"}};
    for (const auto& [ofBeacons, name, values] : Table<bool, std::string, Strings>{
             {true, "proximity_uid", {"", "1", "5D1B2C7E30A44F5B9E0D8C6A2F714B90"}},
             {true, "major", {"", "-1", "65536", "1.0", "1 ", "0x1", "99999999999999999999"}},
             {true, "minor", {"-1", "+1", "\xff"}},
             {true, "updated_at", {"", "today", "2031-13-01"}},
             {true, "api_version", {"three", "-1"}},
             {false, "lat", {"", "90.000001", "-91", "nan", "1,5", "1e999"}},
             {false, "lng", {"180.5", "-180.000001", "inf", "1m"}},
             {false, "radius", {"", "-0.001", "-inf", "100001"}},
             {false, "updated_at", {"yesterday"}}}) {
        for (const auto& value : values) {
            Query query = ofBeacons ? Query() : here;
            query[name] = value;
            EXPECT_THAT(ofBeacons ? beacons(query) : geofences(query), HasSubstr('"' + name + '"')) << value;
        }
    }
    EXPECT_THAT(ask(&CampaignQueries::beacons, "u_beacons", {}), HasSubstr("\"proximity_uid\" is missing"));
    EXPECT_THAT(geofences({{"lat", "1"}, {"lng", "1"}}), HasSubstr("\"radius\" is missing"));
}

}  // namespace
}  // namespace quomi::simulated
