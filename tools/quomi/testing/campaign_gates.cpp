#include "tools/quomi/testing/campaign_gates.h"

#include "tools/quomi/timeline/trace_fields.h"

namespace quomi::tool {

namespace json = boost::json;

namespace {

bool isAbove(const json::object& object, std::string_view key, double least) {
    return numberOf(object, key, 0) > least;
}

/// A beacon without numbers stands for all of its UUID, and its rules' ranges do not matter.
bool hasRange(const simulated::KnownRule& rule) {
    return rule.isOfBeacon && (rule.place->contains("major") || rule.place->contains("minor"));
}

}  // namespace

std::vector<RuleGate> gatesOf(const simulated::KnownRule& rule, const json::object* limits) {
    if (rule.place == nullptr || rule.rule == nullptr) return {};
    static const json::object none;
    const auto& place = *rule.place;
    const auto& conditions = objectOf(*rule.rule, "rule");
    const auto& all = limits != nullptr ? *limits : none;
    const bool isGrouped = place.contains("group_id");
    const bool isLatched = isAbove(conditions, "latch_time", 0);
    const bool waits = rule.isOfBeacon || textOf(conditions, "trigger") == "on_entry";
    std::vector<RuleGate> gates;
    const auto add = [&](bool isThere, const char* name, std::vector<std::string_view> decisions = {}) {
        if (decisions.empty()) decisions = {name};
        if (isThere) gates.push_back({name, std::move(decisions)});
    };
    add(place.contains("start") || place.contains("end"), kOutsideDates);
    add(place.contains("opening_hours"), kOutsideHours);
    add(hasRange(rule), "outOfRange");
    add(isLatched && waits, "latchBroken", {"latchBroken", "latchCancelled"});
    add(rule.isOfBeacon && isAbove(all, "min_interval", 0), "minInterval");
    add(isAbove(all, "max_events", 0) && numberOf(conditions, "under_global_counter", 1) != 0, "globalMax");
    add(isAbove(conditions, "max_events", 0), "ruleMax");
    add(isGrouped && isAbove(conditions, "max_group_events", 0), "groupMax");
    add(isAbove(conditions, "min_events", 1), "ruleMin");
    add(isGrouped && isAbove(conditions, "min_group_events", 1), "groupMin");
    add(isLatched && !waits, "visitTooShort");
    add(objectOf(*rule.rule, "action").contains("notify_server"), "serverDeclined", {"serverDeclined", "serverFailed"});
    return gates;
}

}  // namespace quomi::tool
