#pragma once

#include "tools/quomi/testing/campaign_gates.h"
#include "tools/quomi/testing/case_run.h"

#include <iosfwd>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/array.hpp>

namespace quomi::tool {

/// A rule, and what the cases have shown of it.
struct RuleCoverage {
    std::string rule;
    std::string owner;           ///< identifier of the beacon or geofence
    std::string ownerName;       ///< what people call it
    std::size_t considered = 0;  ///< outcomes
    std::size_t acted = 0;       ///< of these, those in which it, its server or the app did something
    /// What can stop it, in the order in which it is asked, and how often it did.
    std::vector<std::pair<RuleGate, std::size_t>> gates{};

    /// Counts one case.
    void add(const std::map<std::string, std::size_t>& decisions);
    /// Names of the gates that have stopped it, or of those that never have.
    [[nodiscard]] std::vector<std::string> gatesSeen(bool seen) const;
};

/// The rules of one campaign.
struct CampaignCoverage {
    std::string name;  ///< the campaign's file, or that of a visit with scripted answers
    std::vector<RuleCoverage> rules;

    [[nodiscard]] std::size_t acted() const;
    /// Percent of the rules that have acted, rounded down; 100 without rules.
    [[nodiscard]] std::size_t percent() const;
};

/// Which rules of the campaigns the cases have reached, and which gates they have seen closed.
class Coverage {
public:
    /// Adds what a case has shown.
    void add(const simulated::Visit& visit, const RuleDecisions& decisions);

    /// In the order in which they were first played.
    [[nodiscard]] const std::vector<CampaignCoverage>& campaigns() const { return campaigns_; }

    /// A table for each campaign, for people.
    void print(std::ostream& out, bool colour) const;
    [[nodiscard]] boost::json::array json() const;

private:
    CampaignCoverage& campaignOf(const simulated::Visit& visit);

    std::vector<CampaignCoverage> campaigns_;
    std::map<std::string, std::size_t> places_;  // of the campaigns, by name
};

}  // namespace quomi::tool
