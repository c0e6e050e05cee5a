#include "quomi/util/regular_expression.h"

#include "tests/support/prelude.h"

namespace quomi {
namespace {

using QuomiRegularExpression::MatchingOptions;

std::string replace(std::string_view text, std::string_view pattern, std::string_view templateText,
                    TextRange range = {}, MatchingOptions options = MatchingOptions::none) {
    const auto expression = CompiledExpression::create(pattern).value();
    return QuomiRegularExpression::stringByReplacingMatchesInString(text, expression, options, range, templateText, {});
}

TEST(RegularExpression, FillsTheTemplate) {
    const Table<const char*, const char*, const char*, const char*> cases = {
        {"Hi {firstName}, {x}!", "\\{(.*?)\\}", "$1", "Hi firstName, x!"},
        {"{}{", "\\{(.*?)\\}", "<$1>", "<>{"},
        {"no match", "\\{(.*?)\\}", "$1", "no match"},
        {"", "x", "y", ""},
        {"ab", "(a)(b)", "$2$1$0", "baab"},
        {"ab", "(a)(b)", "$12|$3|\\$1|$|\\", "a2||$1|$|\\"},
        {"ac", "(a)(b)?", "[$2]", "[]c"},
        {"aab", "a*", "-", "--b-"},
        {"é€", "", ".", ".é.€."},
        {"größe {grün}", "\\{(.*?)\\}", "<$1>", "größe <grün>"},
    };
    for (const auto& [text, pattern, templateText, expected] : cases) {
        EXPECT_EQ(replace(text, pattern, templateText), expected) << text << " by " << pattern;
    }
}

TEST(RegularExpression, KeepsToTheRange) {
    EXPECT_EQ(replace("aaaa", "a", "b", {1, 2}), "abba");
    EXPECT_EQ(replace("aaaa", "^a", "b", {1, 2}), "abaa");
    EXPECT_EQ(replace("aaaa", "a$", "b", {1, 2}), "aaba");
    EXPECT_EQ(replace("aaaa", "a", "b", {4, 9}), "aaaa");
    EXPECT_EQ(replace("aaaa", "a", "b", {9, 9}), "aaaa");
    EXPECT_EQ(replace("aaaa", "a", "b", {0, 0}), "aaaa");
    EXPECT_EQ(replace("xaaa", "a", "b", {1, 3}, MatchingOptions::anchored), "xbaa");
    EXPECT_EQ(replace("xaaa", "a", "b", {0, 4}, MatchingOptions::anchored), "xaaa");
}

TEST(RegularExpression, TransformsEachReplacement) {
    const auto expression = CompiledExpression::create("\\{(.*?)\\}").value();
    const auto transform = [](const std::string& key) {
        return key == "a" ? std::string("much longer {b}") : key + key;
    };
    EXPECT_EQ(QuomiRegularExpression::stringByReplacingMatchesInString("{a}-{b}-{}", expression, MatchingOptions::none,
                                                                       {}, "$1", transform),
              "much longer {b}-bb-");
}

TEST(RegularExpression, RefusesABrokenPattern) {
    std::optional<Error> error;
    EXPECT_FALSE(CompiledExpression::create("(", &error));
    ASSERT_TRUE(error);
    EXPECT_TRUE(error->localizedDescription());
}

TEST(RegularExpression, TakesLongAndBrokenText) {
    const std::string open(1'000'000, '{');
    EXPECT_EQ(replace(open, "\\{(.*?)\\}", "$1"), open);
    EXPECT_EQ(replace("{\xff}{a}", "\\{(.*?)\\}", "$1").back(), 'a');
}

}  // namespace
}  // namespace quomi
