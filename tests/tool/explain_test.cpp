#include "tests/support/prelude.h"
#include "tools/quomi/explain/explain_command.h"

// One rule's story of the shop example, whose back office is real.
namespace quomi::tool {
namespace {

const std::string kShop = QUOMI_SOURCE_DIR "/examples/shop/visit.json";

std::string told(std::vector<std::string> args, int status = 0, const Terminal& terminal = {}) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runExplain(std::move(args), terminal, out, err), status) << err.str();
    return out.str() + err.str();
}

TEST(Explain, TellsWhatBecameOfARuleAndWhenItCanActNext) {
    const auto wine = told({kShop, "--rule", "rule-wine", "--at", "815"});
    EXPECT_THAT(wine,
                HasSubstr("At 11:43:29 (809 s), entry of Wine: waits 2.0 s.\n"
                          "At 11:43:31 (811 s), entry of Wine, after the wait: no longer held after the wait.\n"));
    EXPECT_THAT(wine, HasSubstr("\nUntil 11:43:35 (815 s) rule rule-wine was judged once and ran 0 times.\n"
                                "It can act next at 11:43:37 (817 s), if it still holds"));
    EXPECT_THAT(wine, Not(HasSubstr("open_deep_link")));
    EXPECT_THAT(
        told({kShop, "--rule", "rule-bakery"}),
        HasSubstr("At 11:49:38 (1178 s), entry of Bakery, after the wait: stopped by its group's limit: 2 of 2 in "
                  "1 h 0 min, until 12:37:39 (4059.001 s).\n"));
    EXPECT_THAT(told({kShop, "--rule", "rule-bakery"}),
                HasSubstr("(459 s), entry of Bakery, after the wait: executed: notify_user, open_url.\n"));
    EXPECT_THAT(told({kShop, "--rule", "rule-goodbye"}),
                HasSubstr("moved from medium to near, which does not leave its "));
    EXPECT_THAT(told({kShop, "--rule", "rule-checkout"}), HasSubstr("its server ordered instead: notify_user.\n"));
    EXPECT_THAT(told({kShop, "--rule", "rule-checkout"}),
                HasSubstr("\nIt can act next from 12:51:33 (4893.001 s) on "));
    EXPECT_THAT(told({kShop, "--rule", "no\nrule"}), HasSubstr("no event reached rule no␊rule"));
    EXPECT_THAT(
        told({kShop, "--rule", "rule-wine", "--at", "815"}, 0, {.columns = 40}),
        HasSubstr("At 11:43:31 (811 s), entry of Wine,\n  after the wait: no longer held after\n  the wait.\n"));
    EXPECT_THAT(told({kShop}, 2), HasSubstr("--rule is required"));
}

}  // namespace
}  // namespace quomi::tool
