#include "quomi/util/text.h"

#include "tests/support/prelude.h"

namespace quomi {
namespace {

using namespace QuomiUtils;
using Bytes = std::vector<std::uint8_t>;

TEST(Text, TrimRemovesWhiteSpaceAtTheEndsOnly) {
    const std::pair<const char*, const char*> cases[] = {
        {"", ""}, {" \t\r\n", ""}, {" a b\n", "a b"}, {"\u00a0\u2003x\u3000\u2028", "x"}, {"é", "é"}, {"\xc2", "\xc2"},
    };
    for (const auto& [text, expected] : cases) {
        EXPECT_EQ(trim(text), expected);
        EXPECT_EQ(isEmpty(text), *expected == 0);
    }
    EXPECT_EQ(trim(std::optional<std::string>()), "");
    EXPECT_TRUE(isEmpty(std::optional<std::string>()));
    EXPECT_FALSE(isEmpty(std::optional<std::string>("a")));
}

TEST(Text, HexPairsAreReadAsFarAsTheyAreHex) {
    const std::pair<const char*, Bytes> cases[] = {
        {"", {}},
        {"0a 1B f", {0x0a, 0x1b}},
        {"f f0 0", {0xff, 0x00}},
        {"1gg1zz", {0x01, 0x00, 0x00}},
        {"é1ab", {0x00, 0xab}},
        {"😀ab", {0x00, 0xab}},
        {"a", {}},
    };
    for (const auto& [text, expected] : cases) EXPECT_EQ(hexStringToData(text), expected) << text;
    EXPECT_EQ(dataToHexString(Bytes{0x00, 0x0a, 0xff}), "000aff");
    EXPECT_EQ(dataToHexString({}), "");
}

TEST(Text, AverageCutsTheEndToTheLastIndex) {
    const double values[] = {1, 2, 3};
    const std::int64_t far = std::numeric_limits<std::int64_t>::max();
    EXPECT_EQ(calculateAverage(values, 1, 10), 2.5);
    EXPECT_EQ(calculateAverage(values, 0, far), 2.0);
    EXPECT_EQ(calculateAverage(values, 1, 1), 2.0);
    EXPECT_EQ(calculateAverage(values, -1, 2), 0.0);
    EXPECT_EQ(calculateAverage(values, 0, -1), 0.0);
    EXPECT_EQ(calculateAverage(values, 2, 1), 0.0);
    EXPECT_EQ(calculateAverage(values, far, far), 0.0);
    EXPECT_EQ(calculateAverage({}, 0, 0), 0.0);
}

TEST(URLEncoder, EncodesLettersAndKeepsReservedCharacters) {
    const std::string reserved = ":/?#[]@!$ &'()*+,;=\"<>%{}|\\^~`";
    EXPECT_EQ(QuomiURLEncoder::URLEncodeString(reserved), reserved);
    EXPECT_EQ(QuomiURLEncoder::URLEncodeString("a b"), "%61 %62");
    EXPECT_EQ(QuomiURLEncoder::URLEncodeString("Z9-_."), "%5A%39%2D%5F%2E");
    EXPECT_EQ(QuomiURLEncoder::URLEncodeString("é\n"), "%C3%A9%0A");
    EXPECT_EQ(QuomiURLEncoder::URLEncodeString(std::string_view("\0", 1)), "%00");
    EXPECT_EQ(QuomiURLEncoder::URLEncodeString(std::optional<std::string>()), std::nullopt);
}

}  // namespace
}  // namespace quomi
