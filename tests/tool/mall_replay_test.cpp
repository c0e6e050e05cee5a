#include "quomi/util/ascii.h"
#include "tests/tool/replay_support.h"

// What a visitor's phone heard in a shopping mall, from the packets to the host and the event log.
namespace quomi::test {
namespace {

constexpr const char* kRecording = QUOMI_SHARED_DATA_DIR "/beacons/mall_a_basement_visit.csv";
constexpr const char* kUUID = "6B76E28A-6FA2-48C9-8502-C1DAA388AB2C";

/// The moment of the recording's last packet of the UUID, in milliseconds from its first row.
std::int64_t lastPacket() {
    std::ifstream file(kRecording);
    std::optional<std::int64_t> first;
    std::int64_t last = 0;
    std::string line;
    std::getline(file, line);
    while (std::getline(file, line)) {
        const auto at = std::stoll(line);
        if (!first) first = at;
        for (char& c : line) c = upperCase(c);
        if (line.find(kUUID) != std::string::npos) last = at - *first;
    }
    return last;
}

TEST(MallReplay, FoundAndLostTakeTurnsUntilThirtySecondsOfSilenceEndTheVisit) {
    if (!std::filesystem::exists(kRecording)) GTEST_SKIP() << "the recording is not here";
    const ReplayBench bench;
    for (const int speed : {1, 2}) {
        auto visit = shopVisit(
            fmt::format(R"([{{"at": 0, "call": "start"}}, {{"at": 0, "packets": {{"csv": "{}", "speed": {}}}}}])",
                        kRecording, speed));
        answersOf(visit)["GET /u_applications/query.json"].at("json").as_object()["normal_proximity_uuid"] = kUUID;
        const auto replayed = bench.play(visit);
        std::map<std::string, std::string> series;  // finds, losses and what comes between, by the beacon
        for (const auto& record : replayed.records) {
            const auto* beacon = record.if_contains("beacon");
            if (beacon == nullptr) continue;
            const auto& news = record.at("delegate");
            series[beacon->as_string().c_str()] += news == "didFindNewBeacon"      ? "+"
                                                   : news == "didLoseBeaconSignal" ? "-"
                                                   : news == "didUpdateBeacon"     ? "u"
                                                                                   : "p";
        }
        EXPECT_GT(series.size(), 4U);
        for (const auto& [beacon, news] : series) EXPECT_THAT(news, testing::MatchesRegex("(\\+p(up)*-)+")) << beacon;
        const auto exits = replayed.lines("delegate didExitBeaconRegion");
        ASSERT_FALSE(exits.empty());
        EXPECT_NEAR(std::stod(exits.back()) * 1000, static_cast<double>(lastPacket() / speed + 30'000), 1);
        EXPECT_GT(replayed.lines("delegate didLogEvent").size(), exits.size());
    }
}

}  // namespace
}  // namespace quomi::test
