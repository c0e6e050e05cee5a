#include "tools/quomi/testing/coverage.h"

#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/expect/known_names.h"
#include "tools/quomi/timeline/rule_words.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <algorithm>
#include <filesystem>
#include <variant>

#include <boost/json/value_from.hpp>

namespace quomi::tool {

namespace json = boost::json;
using simulated::KnownNames;

namespace {

/// The file that tells the rules: the campaign's, or the visit's own where its answers are scripted.
std::string nameOf(const simulated::Visit& visit) {
    const auto* served = std::get_if<simulated::CampaignBackoffice>(&visit.backoffice);
    return (served != nullptr ? served->campaign : std::filesystem::path(visit.file)).lexically_normal().string();
}

void addRules(const KnownNames& names, CampaignCoverage& campaign) {
    for (const auto& rule : names.rules()) {
        const auto isKnown = [&](const auto& known) { return known.rule == rule.id && known.owner == rule.owner; };
        if (rule.place == nullptr || std::ranges::any_of(campaign.rules, isKnown)) continue;
        auto& added = campaign.rules.emplace_back(RuleCoverage{rule.id, rule.owner, rule.owner});
        if (const auto name = textOf(*rule.place, "name"); !name.empty()) added.ownerName = name;
        for (auto& gate : gatesOf(rule, names.limits())) added.gates.emplace_back(std::move(gate), 0);
    }
}

template <class Objects, class ToJson>
json::array arrayOf(const Objects& objects, ToJson toJson) {
    json::array array;
    for (const auto& object : objects) array.push_back(toJson(object));
    return array;
}

json::object jsonOf(const RuleCoverage& rule) {
    json::object stopped;
    for (const auto& [gate, times] : rule.gates) {
        if (times > 0) stopped[gate.name] = times;
    }
    return {{"rule", rule.rule},
            {"owner", rule.owner},
            {"considered", rule.considered},
            {"acted", rule.acted},
            {"stoppedBy", std::move(stopped)},
            {"neverStoppedBy", json::value_from(rule.gatesSeen(false))}};
}

}  // namespace

void RuleCoverage::add(const std::map<std::string, std::size_t>& decisions) {
    for (const auto& [decision, times] : decisions) {
        const auto known = ruleDecisionNamed(decision);
        if (!known || !rowOf(*known).begins) considered += times;
        if (isAction(known)) acted += times;
        for (auto& [gate, seen] : gates) {
            if (std::ranges::find(gate.decisions, decision) != gate.decisions.end()) seen += times;
        }
    }
}

std::vector<std::string> RuleCoverage::gatesSeen(bool seen) const {
    std::vector<std::string> names;
    for (const auto& [gate, times] : gates) {
        if ((times > 0) == seen) names.push_back(gate.name);
    }
    return names;
}

std::size_t CampaignCoverage::acted() const {
    return static_cast<std::size_t>(std::ranges::count_if(rules, [](const auto& rule) { return rule.acted > 0; }));
}

std::size_t CampaignCoverage::percent() const {
    return rules.empty() ? 100 : acted() * 100 / rules.size();
}

CampaignCoverage& Coverage::campaignOf(const simulated::Visit& visit) {
    const auto [entry, isNew] = places_.try_emplace(nameOf(visit), campaigns_.size());
    const bool isScripted = !std::holds_alternative<simulated::CampaignBackoffice>(visit.backoffice);
    if (isNew) campaigns_.push_back({entry->first, {}});
    auto& campaign = campaigns_[entry->second];
    if (isScripted) {
        addRules(KnownNames(visit), campaign);  // a case may have other answers
    } else if (const auto served = isNew ? simulated::Campaign::load(entry->first) : std::nullopt) {
        addRules(KnownNames(*served), campaign);
    }
    return campaign;
}

void Coverage::add(const simulated::Visit& visit, const RuleDecisions& decisions) {
    for (auto& rule : campaignOf(visit).rules) {
        const auto made = decisions.find({rule.rule, rule.owner});
        if (made != decisions.end()) rule.add(made->second);
    }
}

json::array Coverage::json() const {
    return arrayOf(campaigns_, [](const CampaignCoverage& campaign) {
        return json::object{
            {"campaign", campaign.name}, {"percent", campaign.percent()}, {"rules", arrayOf(campaign.rules, jsonOf)}};
    });
}

}  // namespace quomi::tool
