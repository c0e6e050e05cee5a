#include "tests/support/temporary_directory.h"
#include "tools/quomi/replay/replay_command.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::tool {
namespace {

namespace json = boost::json;

constexpr std::int64_t kSecond = 1'000'000;  // all times here are in microseconds

const std::filesystem::path kRecording = QUOMI_SHARED_DATA_DIR "/beacons/mall_a_basement_visit.csv";

/// What a visitor's phone heard in a shopping mall: one row for each packet, "major-minor" as the beacon.
struct Heard {
    std::int64_t at;
    std::string uuid;
    std::string beacon;
    int power;
    int rssi;
};

int number(const std::string& text) {
    int value = 0;
    std::from_chars(text.data(), text.data() + text.size(), value);
    return value;
}

/// The recording's columns as they stand: t_ms, kind, floor, trace, uuid, major, minor, measured_power, rssi, …
std::vector<Heard> readRecording() {
    std::ifstream file(kRecording);
    std::vector<Heard> packets;
    std::optional<std::int64_t> first;
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::vector<std::string> row;
        for (std::string field; std::getline(fields, field, ',');) row.push_back(field);
        const std::int64_t at = std::stoll(row.at(0)) * 1000;
        if (!first) first = at;
        if (row.at(4).empty()) continue;
        std::transform(row[4].begin(), row[4].end(), row[4].begin(),
                       [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
        packets.push_back({at - *first, row[4], row.at(5) + "-" + row.at(6), number(row.at(7)), number(row.at(8))});
    }
    std::stable_sort(packets.begin(), packets.end(), [](const Heard& a, const Heard& b) { return a.at < b.at; });
    return packets;
}

/// What becomes of one UUID: per beacon its finds ("+") and losses ("-"), of the region its entries and exits; each
/// with its time in milliseconds.
struct Events {
    using Series = std::vector<std::pair<std::int64_t, char>>;
    std::map<std::string, Series> beacons;
    Series region;
    std::size_t updates = 0;
    std::size_t pings = 0;
};

/// One beacon, second by second from `began` to `end`: first what has been silent for more than 4 s is lost, then the
/// second's packets count, if any was measured and the beacon says how strong it is.
void followBeacon(const std::vector<Heard>& packets, std::int64_t began, std::int64_t end, Events::Series& series,
                  Events& events) {
    bool isNearby = false;
    std::int64_t lastSeen = 0;
    auto next = packets.begin();
    while (next != packets.end() && next->at < began) ++next;
    for (std::int64_t tick = began + kSecond; tick <= end; tick += kSecond) {
        if (isNearby && tick - lastSeen > 4 * kSecond) {
            series.emplace_back(tick / 1000, '-');
            isNearby = false;
        }
        bool isMeasured = false;
        int power = 0;
        for (; next != packets.end() && next->at < tick; ++next) {
            isMeasured |= next->rssi < 0;
            power = next->power;
        }
        if (!isMeasured || power < -100 || power > -20) continue;
        ++events.pings;
        if (isNearby) {
            ++events.updates;
        } else {
            series.emplace_back(tick / 1000, '+');
        }
        isNearby = true;
        lastSeen = tick;
    }
}

/// An entry with the first packet while outside, an exit after 30 s without one.
Events::Series followRegion(const std::vector<Heard>& packets, std::int64_t began) {
    Events::Series series;
    std::optional<std::int64_t> last;
    for (const auto& packet : packets) {
        if (packet.at < began) continue;
        if (last && packet.at - *last >= 30 * kSecond) {
            series.emplace_back((*last + 30 * kSecond) / 1000, '-');
            last.reset();
        }
        // The phone tells the state and then the entry, and the SDK takes each for an entry.
        if (!last) series.insert(series.end(), 2, {packet.at / 1000, '+'});
        last = packet.at;
    }
    if (last) series.emplace_back((*last + 30 * kSecond) / 1000, '-');
    return series;
}

Events expectedEvents(const std::vector<Heard>& recording, const std::string& uuid, int speed, std::int64_t began) {
    std::vector<Heard> own;
    std::map<std::string, std::vector<Heard>> perBeacon;
    for (auto packet : recording) {
        packet.at /= speed;
        if (packet.uuid != uuid) continue;
        own.push_back(packet);
        perBeacon[packet.beacon].push_back(packet);
    }
    Events events;
    events.region = followRegion(own, began);
    for (const auto& [beacon, packets] : perBeacon) {
        Events::Series series;
        followBeacon(packets, began, recording.back().at / speed + 60 * kSecond, series, events);
        if (!series.empty()) events.beacons[beacon] = series;
    }
    return events;
}

/// A replay's trace, line by line.
struct Played {
    std::string text;
    std::vector<json::object> records;
    /// When the region began to be ranged.
    std::int64_t began = -1;
};

std::int64_t millisecondsOf(const json::object& record) {
    return static_cast<std::int64_t>(record.at("t").to_number<double>() * 1000 + 0.5);
}

std::string textOf(const json::object& record, const char* key) {
    const auto* value = record.if_contains(key);
    return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

Events eventsOf(const Played& trace) {
    Events events;
    for (const auto& record : trace.records) {
        const std::string news = textOf(record, "delegate");
        const std::string beacon = textOf(record, "beacon");
        auto* series = beacon.empty() ? &events.region : nullptr;
        if (!beacon.empty()) series = &events.beacons[beacon.substr(beacon.find('/') + 1)];
        if (news == "didUpdateBeacon") ++events.updates;
        if (news == "didReceivePingFromBeacon") ++events.pings;
        if (news == "didFindNewBeacon" || news == "didEnterBeaconRegion") {
            series->emplace_back(millisecondsOf(record), '+');
        }
        if (news == "didLoseBeaconSignal" || news == "didExitBeaconRegion") {
            series->emplace_back(millisecondsOf(record), '-');
        }
    }
    return events;
}

class MallReplay : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(kRecording)) GTEST_SKIP() << "the recording is not here";
        recording_ = readRecording();
    }

    /// The UUIDs of most packets, the most frequent one first.
    [[nodiscard]] std::vector<std::string> twoMostFrequent() const {
        std::map<std::string, int> counts;
        for (const auto& packet : recording_) ++counts[packet.uuid];
        std::vector<std::pair<int, std::string>> order;
        for (const auto& [uuid, count] : counts) order.emplace_back(count, uuid);
        std::sort(order.rbegin(), order.rend());
        return {order.at(0).second, order.at(1).second};
    }

    [[nodiscard]] std::filesystem::path writeVisit(const std::string& uuid, int speed) const {
        const json::object application{{"success", true},
                                       {"namespace_uid", "mall"},
                                       {"normal_proximity_uuid", uuid},
                                       {"secure_proximity_uuid", "6B6E1B5A-0C0D-4A6E-9E62-0000000000A2"},
                                       {"service_proximity_uuid", "6B6E1B5A-0C0D-4A6E-9E62-0000000000A3"},
                                       {"anti_hacking_protocol", "none"}};
        const json::value visit{
            {"visit", 1},
            {"start", "2026-11-21T09:30:00+01:00"},
            {"app", {{"namespace", "mall"}, {"properties", {{"geofencesEnabled", false}}}}},
            {"backoffice", {{"answers", {{"GET /u_applications/query.json", {{"json", application}}}}}}},
            {"timeline",
             json::array{json::object{{"at", 0}, {"call", "start"}},
                         json::object{{"at", 0}, {"packets", {{"csv", kRecording.string()}, {"speed", speed}}}}}}};
        const auto path = folder_.path() / fmt::format("visit-{}.json", speed);
        std::ofstream(path) << json::serialize(visit);
        return path;
    }

    [[nodiscard]] Played play(const std::string& uuid, int speed) const {
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(ReplayCommand(false).run({"--json", writeVisit(uuid, speed).string()}, out, err), 0);
        EXPECT_EQ(err.str(), "");
        Played trace;
        trace.text = out.str();
        std::istringstream lines(trace.text);
        for (std::string line; std::getline(lines, line);) {
            trace.records.push_back(json::parse(line).as_object());
            const bool begins = trace.began < 0 && trace.records.back().contains("range");
            if (begins) trace.began = millisecondsOf(trace.records.back()) * 1000;
        }
        return trace;
    }

    std::vector<Heard> recording_;
    test::TemporaryDirectory folder_;
};

TEST_F(MallReplay, FindsAndLosesTheBeaconsThatAModelOfItsOwnFindsAndLoses) {
    for (const auto& uuid : twoMostFrequent()) {
        for (const int speed : {1, 2}) {
            SCOPED_TRACE(fmt::format("{} at speed {}", uuid, speed));
            const Played trace = play(uuid, speed);
            ASSERT_GE(trace.began, 0);
            const Events expected = expectedEvents(recording_, uuid, speed, trace.began);
            const Events events = eventsOf(trace);
            EXPECT_FALSE(events.beacons.empty());
            EXPECT_GT(events.updates, 0U);
            EXPECT_EQ(events.beacons, expected.beacons);
            EXPECT_EQ(events.region, expected.region);
            EXPECT_EQ(events.updates, expected.updates);
            EXPECT_EQ(events.pings, expected.pings);
        }
    }
}

TEST_F(MallReplay, FoundAndLostTakeTurnsUntilThirtySecondsOfSilenceEndTheVisit) {
    for (const auto& uuid : twoMostFrequent()) {
        std::int64_t last = 0;
        for (const auto& packet : recording_) last = packet.uuid == uuid ? packet.at : last;
        for (const int speed : {1, 2}) {
            SCOPED_TRACE(fmt::format("{} at speed {}", uuid, speed));
            const Events events = eventsOf(play(uuid, speed));
            for (const auto& [beacon, series] : events.beacons) {
                EXPECT_EQ(series.size() % 2, 0U) << beacon;
                for (std::size_t i = 0; i < series.size(); ++i) EXPECT_EQ(series[i].second, i % 2 == 0 ? '+' : '-');
            }
            ASSERT_FALSE(events.region.empty());
            EXPECT_EQ(events.region.back(), std::pair((last / speed + 30 * kSecond) / 1000, '-'));
        }
    }
}

TEST_F(MallReplay, EachEventIsLoggedRightAfterTheHostHasHeardOfIt) {
    const std::map<std::string, std::pair<std::string, std::string>> logged = {
        {"didEnterBeaconRegion", {"region", "on_entry"}},
        {"didExitBeaconRegion", {"region", "on_exit"}},
        {"didFindNewBeacon", {"view", "on_entry"}},
        {"didLoseBeaconSignal", {"view", "on_exit"}}};
    const Played trace = play(twoMostFrequent()[0], 1);
    for (std::size_t i = 0; i < trace.records.size(); ++i) {
        const auto& record = trace.records[i];
        const auto found = logged.find(textOf(record, "delegate"));
        if (found == logged.end()) continue;
        const std::string beacon = textOf(record, "beacon");
        const auto hyphen = beacon.rfind('-');
        const auto slash = beacon.find('/');
        json::object event{{"type", found->second.first},
                           {"trigger", found->second.second},
                           {"area_type", "beacon"},
                           {"proximity_uuid", beacon.empty() ? textOf(record, "uuid") : beacon.substr(0, slash)}};
        if (!beacon.empty()) {
            event["major"] = beacon.substr(slash + 1, hyphen - slash - 1);
            event["minor"] = beacon.substr(hyphen + 1);
        }
        ASSERT_LT(i + 1, trace.records.size());
        EXPECT_EQ(textOf(trace.records[i + 1], "delegate"), "didLogEvent");
        EXPECT_EQ(trace.records[i + 1].at("event"), event);
    }
}

TEST_F(MallReplay, GivesTheSameBytesOnEveryRun) {
    for (const auto& uuid : twoMostFrequent()) EXPECT_EQ(play(uuid, 1).text, play(uuid, 1).text);
}

}  // namespace
}  // namespace quomi::tool
