#include "hosts/simulated/packet_file.h"

#include "tests/support/prelude.h"

namespace quomi::simulated {
namespace {

constexpr const char* kUuid = "6b6e1b5a-0c0d-4a6e-9e62-0000000000a1";
const std::string kHeader = "t_ms,uuid,major,minor,measured_power,rssi\n";

std::string row(const std::string& time, const std::string& rest = "1,2,-59,-70") {
    return time + "," + kUuid + "," + rest + "\n";
}

std::vector<TimedPacket> packetsOf(const std::string& text) {
    std::optional<Error> error;
    const auto packets = parsePackets(text, "p.csv", &error);
    EXPECT_TRUE(packets) << (error ? describe(*error) : "");
    return packets.value_or(std::vector<TimedPacket>{});
}

TEST(PacketFile, ReadsTheSamePacketInEveryDress) {
    const std::vector<std::string> files = {
        kHeader + row("1000"),
        "\xEF\xBB\xBF" + kHeader + row("1000"),
        "t_ms,uuid,major,minor,measured_power,rssi\r\n1000," + std::string(kUuid) + ",1,2,-59,-70\r\n",
        "rssi,device,minor,uuid,t_ms,major,measured_power\n-70,\"a, \"\"b\"\"\nc\",2,\"" + std::string(kUuid) +
            "\",1000,1,-59",
        "\n" + kHeader + "\n\n" + row(" 1000 ", " 1 ,2.0,-59.0,-70"),
        kHeader + row("t_ms").replace(5, 36, "uuid") + row("1000"),
    };
    for (const auto& file : files) {
        const auto packets = packetsOf(file);
        ASSERT_EQ(packets.size(), 1U) << file;
        EXPECT_EQ(packets[0], (TimedPacket{Duration(0), {*Uuid::parse(kUuid), 1, 2, -59, -70}})) << file;
    }
}

TEST(PacketFile, CountsTimeFromTheFirstRowEvenWhenItIsIgnored) {
    const auto packets = packetsOf(kHeader + "1000,,,,,\n" + "1100,not a uuid,x,y,z,\n" + row("1500.25", "1,1,-59,-1") +
                                   row("1200", "1,2,-59,-2") + row("1200", "1,3,-59,-3") + row("900", "1,4,-59,-4"));
    std::vector<std::pair<std::int64_t, int>> heard;
    for (const auto& packet : packets) heard.emplace_back(packet.offset.count(), packet.packet.minor);
    EXPECT_EQ(heard, (std::vector<std::pair<std::int64_t, int>>{{0, 4}, {200000, 2}, {200000, 3}, {500250, 1}}));
}

TEST(PacketFile, ErrorsNameFileAndLine) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"", "p.csv:1: no header"},
        {"t_ms,uuid,major,minor,rssi\n", "p.csv:1: column measured_power is missing"},
        {kHeader + row("1") + row("2", "65536,2,-59,-70"), "p.csv:3: major: expected a whole number from 0 to 65535"},
        {kHeader + row("1", "1,-1,-59,-70"), "p.csv:2: minor:"},
        {kHeader + row("1", "1,2,,-70"), "p.csv:2: measured_power:"},
        {kHeader + row("1", "1,2,-59,nan"), "p.csv:2: rssi:"},
        {kHeader + row("1", "1,2,-59"), "p.csv:2: rssi:"},
        {kHeader + row("1e99"), "p.csv:2: t_ms:"},
        {kHeader + "\"1\",\"a\nb\"\n" + row("soon"), "p.csv:4: t_ms:"},
    };
    for (const auto& [file, expected] : cases) {
        std::optional<Error> error;
        EXPECT_FALSE(parsePackets(file, "p.csv", &error)) << file;
        ASSERT_TRUE(error) << file;
        EXPECT_EQ(error->localizedDescription()->substr(0, expected.size()), expected);
    }
    std::optional<Error> error;
    EXPECT_FALSE(readPacketFile("/nowhere/p.csv", &error));
    EXPECT_EQ(error->localizedDescription(), "/nowhere/p.csv: no such file");
    EXPECT_FALSE(readPacketFile("/", &error)) << "a folder";
}

}  // namespace
}  // namespace quomi::simulated
