#include "quomi/rules/history.h"

#include "quomi/rules/action.h"

#include <chrono>

#include <boost/json/object.hpp>
#include <gtest/gtest.h>

namespace quomi {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr WallTime kNow{seconds(1'000'000)};

History agesInSeconds(const std::vector<double>& ages) {
    History history;
    for (const double age : ages) history.push_back(kNow - toDuration(Seconds(age)));
    return history;
}

TEST(History, CountsFromTheFirstDateInsideThePeriodToTheEnd) {
    struct Case {
        std::vector<double> ages;
        std::size_t expected;
    };
    for (const auto& [ages, expected] : {
             Case{{}, 0}, Case{{30, 20, 10}, 3}, Case{{60, 10}, 2},  // exactly at the cut-off counts
             Case{{60.001, 10}, 1},                                  // a millisecond earlier does not
             Case{{100, 90}, 0},
             Case{{100, 10, 500, 5}, 3},  // what follows the first one inside counts, whatever it is
         }) {
        const auto history = agesInSeconds(ages);
        const auto cutOff = kNow - seconds(60);
        EXPECT_EQ(QuomiHistoryUtils::eventsCountInHistory(history, cutOff), expected);
        EXPECT_EQ(QuomiHistoryUtils::getTrimmedHistory(history, cutOff).size(), expected);
    }
}

TEST(History, IsTrimmedToTheLongestPeriodThatAnybodyAsksAbout) {
    struct Case {
        RulePeriods periods;
        std::vector<double> kept;
    };
    const std::vector<double> ages{500, 50, 5};
    for (const auto& [periods, kept] : {
             Case{{.minEvents = 10, .maxEvents = 100}, {50, 5}},
             Case{{.minEvents = 100, .maxEvents = 10}, {50, 5}},
             Case{{.maxEvents = 1000}, {500, 50, 5}},
             Case{{.minEvents = 6}, {5}},
             Case{{.minEvents = 0, .maxEvents = 0}, {}},
             Case{{.minEvents = -5}, {}},
             Case{{.minGroupEvents = 1000}, {}},
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
    struct Case {
        std::int64_t count;
        std::size_t left;
    };
    for (const auto& [count, left] : {Case{1, 2}, Case{3, 0}, Case{4, 3}, Case{0, 3}, Case{-1, 3}}) {
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
