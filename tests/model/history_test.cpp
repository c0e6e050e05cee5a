#include "quomi/model/history.h"

#include "quomi/model/action.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

constexpr WallTime kNow{std::chrono::seconds(1'000'000)};

History agesInSeconds(const std::vector<double>& ages) {
    History history;
    for (const double age : ages) history.push_back(kNow - toDuration(Seconds(age)));
    return history;
}

TEST(History, IsTrimmedToTheLongestPeriodThatAnybodyAsksAbout) {
    const std::vector<double> ages{500, 50, 5};
    for (const auto& [periods, kept] : Table<RulePeriods, std::vector<double>>{
             {{.minEvents = 10, .maxEvents = 100}, {50, 5}},
             {{.minEvents = 100, .maxEvents = 10}, {50, 5}},
             {{.maxEvents = 1000}, {500, 50, 5}},
             {{.minEvents = 6}, {5}},
             {{.minEvents = 0, .maxEvents = 0}, {}},
             {{.minEvents = -5}, {}},
             {{.minGroupEvents = 1000}, {}},
         }) {
        auto history = agesInSeconds(ages);
        QuomiRuleHelper::trimOutdatedHistoryElementsOfRule(history, periods, kNow);
        EXPECT_EQ(history, agesInSeconds(kept));
    }

    auto group = agesInSeconds(ages);
    const std::vector<RulePeriods> members{{.minEvents = 9999, .minGroupEvents = 10}, {.maxGroupEvents = 100}, {}};
    QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(group, members, kNow);
    EXPECT_EQ(group, agesInSeconds({50, 5}));
    QuomiRuleHelper::trimOutdatedHistoryElementsOfGroup(group, {}, kNow);
    EXPECT_TRUE(group.empty());
}

TEST(History, LosesLastDatesOnlyWhenItHasAsMany) {
    for (const auto& [count, left] : Table<std::int64_t, std::size_t>{{1, 2}, {3, 0}, {4, 3}, {0, 3}, {-1, 3}}) {
        auto history = agesInSeconds({3, 2, 1});
        QuomiRuleHelper::removeLastDates(history, count);
        EXPECT_EQ(history.size(), left) << count;
    }
    History empty;
    QuomiRuleHelper::removeLastDateFromHistory(empty);
    EXPECT_TRUE(empty.empty());
    QuomiRuleHelper::addDateToHistory(empty, kNow);
    EXPECT_EQ(empty, History{kNow});
}

TEST(Action, ReadsAndWritesItsSerialisedForm) {
    const auto action = QuomiAction::createFromDictionary({{"action_type", "open_url"}, {"action_param", 7}, {"x", 1}});
    EXPECT_EQ(action, QuomiAction::createWithType(kActionOpenUrl, "7"));
    EXPECT_EQ(action.dictionary(), (boost::json::object{{"action_type", "open_url"}, {"action_param", "7"}}));
    EXPECT_EQ(QuomiAction::createFromDictionary({{"action_type", nullptr}}), QuomiAction());
}

}  // namespace
}  // namespace quomi
