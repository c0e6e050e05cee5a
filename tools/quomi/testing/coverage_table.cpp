#include "tools/quomi/testing/coverage.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <ostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

// How coverage looks on a terminal.
namespace quomi::tool {

namespace {

constexpr std::string_view kSeen = "\x1b[32m";
constexpr std::string_view kPartly = "\x1b[33m";
constexpr std::string_view kNeverSeen = "\x1b[31m";
constexpr std::string_view kHeading = "\x1b[2m";
constexpr std::string_view kBold = "\x1b[1m";

class Table {
public:
    Table(std::ostream& out, bool colour) : out_(out), colour_(colour) {}

    void print(const CampaignCoverage& campaign) {
        std::size_t gates = 0;
        std::size_t seen = 0;
        for (const auto& rule : campaign.rules) {
            gates += rule.gates.size();
            seen += rule.gatesSeen(true).size();
        }
        out_ << '\n' << painted(neutralised(campaign.name), kBold) << '\n';
        printShare("rules acted", campaign.acted(), campaign.rules.size());
        printShare("gates seen to stop them", seen, gates);
        out_ << '\n';
        measure(campaign);
        printRow(" ", "rule", "of", "considered", "acted", "never seen to stop it", kHeading);
        for (const auto& rule : campaign.rules) printRule(rule);
    }

private:
    [[nodiscard]] std::string painted(const std::string& text, std::string_view colour) const {
        return colour_ ? fmt::format("{}{}\x1b[0m", colour, text) : text;
    }

    /// A bar of twenty, full only when all is there and empty only when nothing is.
    void printShare(const char* what, std::size_t part, std::size_t whole) {
        constexpr std::size_t width = 20;
        std::size_t full = whole == 0 ? width : part * width / whole;
        if (part > 0) full = std::max<std::size_t>(full, 1);
        std::string bar;
        for (std::size_t i = 0; i < width; ++i) bar += i < full ? "█" : "░";
        const auto colour = part == whole ? kSeen : part == 0 ? kNeverSeen : kPartly;
        out_ << fmt::format("  {}  {} {:>3} %  {} of {}\n", leftAligned(what, 23), painted(bar, colour),
                            whole == 0 ? 100 : part * 100 / whole, part, whole);
    }

    void measure(const CampaignCoverage& campaign) {
        ruleColumns_ = columnsOf("rule");
        ownerColumns_ = columnsOf("of");
        for (const auto& rule : campaign.rules) {
            ruleColumns_ = std::max(ruleColumns_, columnsOf(neutralised(rule.rule)));
            ownerColumns_ = std::max(ownerColumns_, columnsOf(neutralised(rule.ownerName)));
        }
    }

    void printRule(const RuleCoverage& rule) {
        const auto missing = rule.gatesSeen(false);
        const bool isReached = rule.considered > 0;
        const auto gates = missing.empty() ? std::string("-") : fmt::format("{}", fmt::join(missing, ", "));
        const auto colour = rule.acted > 0 ? kSeen : isReached ? kPartly : kNeverSeen;
        const char* sign = rule.acted > 0 ? "●" : isReached ? "◐" : "○";
        printRow(painted(sign, colour), neutralised(rule.rule), neutralised(rule.ownerName),
                 fmt::format("{}", rule.considered), fmt::format("{}", rule.acted), isReached ? gates : "never reached",
                 isReached ? "" : kNeverSeen);
    }

    void printRow(const std::string& sign, std::string rule, std::string owner, const std::string& considered,
                  const std::string& acted, const std::string& gates, std::string_view colour) {
        const auto row = fmt::format("{}  {}  {}  {}  {}", leftAligned(std::move(rule), ruleColumns_),
                                     leftAligned(std::move(owner), ownerColumns_), rightAligned(considered, 10),
                                     rightAligned(acted, 5), gates);
        out_ << fmt::format("  {} {}\n", sign, colour.empty() ? row : painted(row, colour));
    }

    std::ostream& out_;
    const bool colour_;
    std::size_t ruleColumns_ = 0;
    std::size_t ownerColumns_ = 0;
};

}  // namespace

void Coverage::print(std::ostream& out, bool colour) const {
    for (const auto& campaign : campaigns_) Table(out, colour).print(campaign);
}

}  // namespace quomi::tool
