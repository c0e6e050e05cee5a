#include "quomi/rules/rule_gates.h"

#include "tests/rules/rule_support.h"

namespace quomi::test {
namespace {

using Rule = QuomiBeaconRuleWithActions;
using Status = QuomiStatusInfo;
using D = RuleDecision;

/// Sets limits: a count and its period.
struct J {
    void max(int count, int period = 0) const { r.maxEvents = count, r.maxEventsPeriod = period; }
    void min(int count, int period = 0) const { r.minEvents = count, r.minEventsPeriod = period; }
    void groupMax(int count, int period = 0) const { r.maxGroupEvents = count, r.maxGroupEventsPeriod = period; }
    void globalMax(int count, int period = 0) const { s.globalMaxEvents = count, s.globalMaxEventsPeriod = period; }
    Rule& r;
    Status& s;
};

/// What was counted before, `ago` in seconds, and what the gates make of one more event.
struct Case {
    const char* what;
    std::function<void(J)> limits;
    std::vector<double> ago;
    std::optional<D> stop;
    double observed = 0;
    /// Seconds from now, and a microsecond; none: never.
    std::optional<double> until{};
};

const std::vector<Case> kCases = {
    {"no limit", [](J) {}, {1, 0}, {}},
    {"negative limits", [](J j) { j.max(-1), j.min(-5); }, {1}, {}},
    {"one below the maximum", [](J j) { j.max(3); }, {9, 8}, {}},
    {"lifetime maximum", [](J j) { j.max(3); }, {9, 8, 7}, D::ruleMax, 3},
    {"negative period", [](J j) { j.max(1, -9); }, {90}, D::ruleMax, 1},
    {"maximum in a period", [](J j) { j.max(2, 60); }, {70, 50, 20, 10}, D::ruleMax, 3, 40},
    {"at the period's start", [](J j) { j.max(1, 60); }, {60}, D::ruleMax, 1, 0},
    {"before the period", [](J j) { j.max(1, 60); }, {60.000001}, {}},
    {"unsorted", [](J j) { j.max(2, 60); }, {30, 90}, D::ruleMax, 2, 30},
    {"minimum not reached", [](J j) { j.min(3); }, {5}, D::ruleMin, 2},
    {"minimum reached now", [](J j) { j.min(3); }, {6, 5}, {}},
    {"minimum in a period", [](J j) { j.min(2, 60); }, {61}, D::ruleMin, 1},
    {"group maximum", [](J j) { j.groupMax(2); }, {6, 5}, D::groupMax, 2},
    {"group maximum in a period", [](J j) { j.groupMax(2, 60); }, {70, 6, 5}, D::groupMax, 2, 54},
    {"group minimum", [](J j) { j.r.minGroupEvents = 4; }, {6, 5}, D::groupMin, 3},
    {"rule before group", [](J j) { j.groupMax(1), j.max(1); }, {6}, D::ruleMax, 1},
    {"device-wide interval", [](J j) { j.s.globalMinInterval = 5; }, {5}, D::minInterval, 5, 0},
    {"interval passed", [](J j) { j.s.globalMinInterval = 5; }, {5.000001}, {}},
    {"negative interval", [](J j) { j.s.globalMinInterval = -5; }, {0}, {}},
    {"device-wide before the rule's", [](J j) { j.globalMax(1), j.max(1); }, {5}, D::globalMax, 1},
    {"device-wide maximum in a period", [](J j) { j.globalMax(1, 10); }, {5}, D::globalMax, 1, 5},
    {"not under the device-wide one", [](J j) { j.globalMax(1), j.r.underGlobalCounter = false; }, {5}, {}},
};

History historyOf(const Case& each, WallTime now) {
    History history;
    for (const double ago : each.ago) history.push_back(now - toDuration(Seconds(ago)));
    return history;
}

RuleRun runOf(const auto& rule, const RuleOwner& owner) {
    return RuleRun::of(*rule, owner, rule->trigger);
}

TEST_F(RuleTest, GatesForOneEventOfABeaconAndWhenTheyWillLetItPass) {
    for (const auto& each : kCases) {
        SCOPED_TRACE(each.what);
        const auto judged = rule("r", {});
        const auto group = beacon("group", std::vector<std::shared_ptr<Rule>>());
        const auto owner = beacon("b", std::vector{judged}, "group");
        const auto status = data_->getSDKStatusInfo();
        const auto history = historyOf(each, now());
        judged->history = group->groupHistory = status->globalHistory = history;
        const auto count = static_cast<std::int32_t>(history.size());
        judged->triggersCount = group->groupTriggersCount = status->globalTriggersCount = count;
        status->lastEventDate = history.back();
        each.limits({*judged, *status});
        const bool isUnderGlobalCounter = judged->underGlobalCounter;

        const auto mayAct = QuomiRuleHelper::maxEventsConditionsFulfilledForRule(*judged, group.get(), now());
        const auto stop = countEvent(context(), RuleArea::beacon, runOf(judged, *owner), judged);
        ASSERT_EQ(stop ? std::optional(stop->decision) : std::nullopt, each.stop);
        if (stop) {
            EXPECT_EQ(stop->observed, each.observed);
            const auto until =
                stop->until ? std::optional(toSeconds(*stop->until - now() - Duration(1))) : std::nullopt;
            EXPECT_EQ(until, each.until);
        }
        EXPECT_TRUE(each.stop == D::globalMax || mayAct == (each.stop != D::ruleMax && each.stop != D::groupMax));
        // The minimum stops what was counted; everything else stops before.
        const bool isCounted = !stop || stop->decision == D::ruleMin || stop->decision == D::groupMin;
        EXPECT_EQ(judged->triggersCount, count + isCounted);
        EXPECT_EQ(group->groupTriggersCount, count + isCounted);
        EXPECT_EQ(status->globalTriggersCount, count + (isCounted && isUnderGlobalCounter));
        EXPECT_EQ(status->lastEventDate, isCounted ? now() : history.back());
        EXPECT_EQ(judged->lastTriggerDate, isCounted ? now() : WallTime());
        const bool isEnough = QuomiRuleHelper::minEventsConditionsFulfilledForRule(*judged, group.get(), now());
        EXPECT_TRUE(!isCounted || isEnough == !stop);
        data_->removeAllBeacons();
        data_->removeSDKStatusInfo();
    }
}

TEST_F(RuleTest, GatesOfGeofencesKnowNoIntervalAndAnUnknownGroupHasNone) {
    const auto judged = rule<GeofenceRule>("r", {}, [](auto& r) { r.maxGroupEvents = 1; });
    const auto place = geofence("g", std::vector{judged}, "nobody");
    const auto status = data_->getSDKStatusInfo();
    status->globalMinInterval = 100;
    status->lastEventDate = now() - seconds(1);
    for (int i = 0; i < 3; ++i) EXPECT_FALSE(countEvent(context(), RuleArea::geofence, runOf(judged, *place), judged));
    EXPECT_EQ(status->lastEventDate, now() - seconds(1));
    EXPECT_EQ(judged->triggersCount, 3);
    EXPECT_TRUE(judged->history.empty()) << "no period asks for it";
}

}  // namespace
}  // namespace quomi::test
