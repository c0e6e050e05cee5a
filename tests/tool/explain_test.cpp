#include "tools/quomi/explain/explain_command.h"

#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// One rule's story of the shop example, whose back office is real.
namespace quomi::tool {
namespace {

using testing::HasSubstr;
using testing::Not;

const std::string kShop = QUOMI_SOURCE_DIR "/examples/shop/visit.json";

std::string told(std::vector<std::string> args, int status = 0) {
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runExplain(std::move(args), out, err), status) << err.str();
    return out.str() + err.str();
}

TEST(Explain, TellsWhatBecameOfARuleAndWhenItCanActNext) {
    const auto wine = told({kShop, "--rule", "rule-wine", "--at", "830"});
    EXPECT_THAT(wine, HasSubstr("At 11:43:29 (809 s), entry of Wine: executed: open_deep_link.\n"
                                "At 11:43:35 (815 s), entry of Wine: too soon after the last one: 6.0 s of 30 s, until "
                                "2025-05-09T10:43:59.001Z.\n"));
    EXPECT_THAT(wine, HasSubstr("\nUntil 11:43:50 (830 s) rule rule-wine was judged 3 times and ran once.\n"
                                "It can act next from 11:43:59 (839.001 s) on (Friday 2025-05-09), as far as "));
    EXPECT_THAT(wine, Not(HasSubstr("1038 s")));
    EXPECT_THAT(told({kShop, "--rule", "rule-bakery", "--at", "455"}),
                HasSubstr("was judged 4 times and ran never.\nIt can act next at 11:37:39 (459 s), if it still holds"));
    EXPECT_THAT(told({kShop, "--rule", "rule-bakery"}),
                HasSubstr("(459 s), entry of Bakery, after the wait: executed: notify_user, open_url.\n"));
    EXPECT_THAT(told({kShop, "--rule", "rule-checkout"}),
                HasSubstr("\nIt can act next from 12:51:28 (4888.001 s) on "));
    EXPECT_THAT(told({kShop, "--rule", "no\nrule"}), HasSubstr("no event reached rule no␊rule"));
    EXPECT_THAT(told({kShop}, 2), HasSubstr("--rule is required"));
}

}  // namespace
}  // namespace quomi::tool
