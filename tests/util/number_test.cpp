#include "quomi/util/number.h"

#include "tests/support/prelude.h"

#include <cmath>

namespace quomi {
namespace {

TEST(Saturate, KeepsWhatFitsAndCutsTheRestToTheBounds) {
    EXPECT_EQ(saturate<std::int16_t>(-12.9), -12);
    EXPECT_EQ(saturate<std::int16_t>(40'000.0), 32'767);
    EXPECT_EQ(saturate<std::int32_t>(-1e300), std::numeric_limits<std::int32_t>::min());
    EXPECT_EQ(saturate<std::int64_t>(9.3e18), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(saturate<std::int64_t>(-9.3e18), std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(saturate<std::int32_t>(std::nan("")), 0);
    EXPECT_EQ(saturate<std::uint16_t>(-1), 0);
    EXPECT_EQ(saturate<std::int32_t>(std::uint64_t{1} << 40), std::numeric_limits<std::int32_t>::max());
}

TEST(DoubleOfText, ReadsTheNumberAtTheBeginning) {
    const double largest = std::numeric_limits<double>::max();
    for (const auto& [expected, texts] : Table<double, Strings>{
             {12.5, {"12.5"}},
             {-3, {"  \t-3"}},
             {700, {"+7e2x"}},
             {0.5, {".5"}},
             {5, {"5."}},
             {12, {"12abc"}},
             {1, {"1e", "1e+", "1,5"}},
             {0, {"abc", "", "-", ".", "+-1", "nan", "inf", "0x10", "1e-999", "0e999", "1e-99999999999999999999"}},
             {0, {"0." + std::string(400, '0') + "1e10"}},
             {-largest, {"-1e999"}},
             {largest, {"1e999", "1e99999999999999999999", "0.0001e400", std::string(400, '9') + ".5"}}}) {
        for (const auto& text : texts) EXPECT_EQ(doubleOfText(text), expected) << text;
    }
}

TEST(IntegerOfText, ReadsTheIntegerAtTheBeginning) {
    EXPECT_EQ(integerOfText(" 17beta"), 17);
    EXPECT_EQ(integerOfText("+4"), 4);
    EXPECT_EQ(integerOfText("-4"), -4);
    EXPECT_EQ(integerOfText("+-4"), 0);
    EXPECT_EQ(integerOfText("x"), 0);
    EXPECT_EQ(integerOfText("99999999999999999999"), std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(integerOfText("-99999999999999999999"), std::numeric_limits<std::int64_t>::min());
}

TEST(Number, PrintsAsThePlatformDoes) {
    EXPECT_EQ(Number(-7).text(), "-7");
    EXPECT_EQ(Number(true).text(), "1");
    EXPECT_EQ(Number(3.0).text(), "3");
    EXPECT_EQ(Number(0.1).text(), "0.1");
    EXPECT_EQ(Number(52.229676).text(), "52.229676");
    EXPECT_EQ(Number(std::numeric_limits<std::uint64_t>::max()).text(), "18446744073709551615");
}

TEST(Number, ComparesByValueAndNarrowsBySaturation) {
    EXPECT_EQ(Number(1), Number(1.0));
    EXPECT_EQ(Number(1), Number(std::uint64_t{1}));
    EXPECT_FALSE(Number(1) == Number(1.5));
    EXPECT_TRUE(Number(0.5).boolValue());
    EXPECT_EQ(Number(std::numeric_limits<std::uint64_t>::max()).as<std::int64_t>(),
              std::numeric_limits<std::int64_t>::max());
    EXPECT_EQ(Number(70'000).as<std::int16_t>(), 32'767);
}

}  // namespace
}  // namespace quomi
