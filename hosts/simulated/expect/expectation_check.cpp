#include "hosts/simulated/expect/expectation_check.h"

#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/expect/known_names.h"
#include "hosts/simulated/expect/subject_match.h"
#include "hosts/simulated/json/did_you_mean.h"
#include "hosts/simulated/json/json_reader.h"
#include "hosts/simulated/replay/trace_shapes.h"
#include "quomi/model/rule_decision.h"

#include <algorithm>
#include <variant>

#include <fmt/format.h>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

using Names = std::vector<std::string_view>;

bool isKnown(std::string_view pattern, const Names& names) {
    return std::ranges::any_of(names, [&](std::string_view name) { return matches(pattern, name); });
}

/// What to write instead of an unknown name.
std::string hint(std::string_view unknown, const Names& names) {
    constexpr std::size_t fewEnough = 8;
    auto text = didYouMean(unknown, names);
    if (!text.empty() || names.empty() || names.size() > fewEnough) return text;
    for (const auto name : names) appendQuoted(text, name);
    return "; known: " + text;
}

Names delegateNames() {
    Names names;
    for (const auto& shape : recordShapes()) {
        if (shape.kind == "delegate") names.push_back(shape.value);
    }
    return names;
}

Names decisionNames() {
    Names names;
    for (int i = 0; i <= static_cast<int>(RuleDecision::executed); ++i) {
        names.push_back(nameOf(static_cast<RuleDecision>(i)));
    }
    return names;
}

/// Every key that a record can have.
Names recordKeys() {
    Names keys = {"t"};
    for (const auto& shape : recordShapes()) {
        keys.push_back(shape.kind);
        for (const auto& field : fieldsOf(shape)) keys.push_back(field.name);
    }
    return keys;
}

bool canHave(const RecordShape& shape, const json::object& members) {
    const auto fields = fieldsOf(shape);
    const auto* value = members.if_contains(shape.kind);
    const bool isThisKind = value == nullptr || shape.value.empty() ||
                            (value->is_string() && matches(std::string_view(value->get_string()), shape.value));
    return isThisKind && std::ranges::all_of(members, [&](const auto& member) {
               const std::string_view key = member.key();
               return key == "t" || key == shape.kind ||
                      std::ranges::find(fields, key, &RecordField::name) != fields.end();
           });
}

class Check {
public:
    Check(const Visit& visit, Duration end) : visit_(visit), end_(end), known_(visit) {
        const auto* served = std::get_if<CampaignBackoffice>(&visit.backoffice);
        if (served == nullptr) return;
        campaign_ = Campaign::load(served->campaign.string());
        if (campaign_) known_.add(KnownNames(*campaign_));
    }

    std::optional<VisitError> firstFault() {
        for (const auto& expectation : visit_.expectations) {
            look(expectation.subject);
            if (expectation.before) look(*expectation.before);
            lookAtWindow(expectation.path + ".from", expectation.from);
            lookAtWindow(expectation.path + ".until", expectation.until);
        }
        if (!faults_.any()) return std::nullopt;
        return visit_.errorAt(faults_.first()->path, faults_.first()->message);
    }

private:
    void look(const Subject& subject) {
        if (subject.key == "record") lookAtKeys(subject);
        for (const auto& mention : subject.mentions) lookAt(mention, subject);
    }

    void lookAtKeys(const Subject& subject) {
        const auto& members = subject.members;
        const auto shapes = recordShapes();
        if (std::ranges::any_of(shapes, [&](const auto& shape) { return canHave(shape, members); })) return;
        const auto keys = recordKeys();
        for (const auto& member : members) {
            if (isKnown(member.key(), keys)) continue;
            faults_.add(memberPath(subject.path, member.key()),
                        fmt::format("expected a key of a trace's records, found \"{}\"{}",
                                    std::string_view(member.key()), didYouMean(member.key(), keys)));
        }
        if (!isKnownDelegate(members)) return;  // told of by its name
        faults_.add(subject.path, "expected keys that one record of a trace can have together");
    }

    static bool isKnownDelegate(const json::object& members) {
        const auto* name = members.if_contains("delegate");
        return name == nullptr || !name->is_string() || isKnown(std::string_view(name->get_string()), delegateNames());
    }

    void lookAt(const Mention& mention, const Subject& subject) {
        switch (mention.kind) {
            case Mention::Kind::rule:
                return require("rule that the campaign or the visit knows", mention, namesOfRules());
            case Mention::Kind::owner:
                return require("beacon or geofence with that rule", mention, ownersOf(subject));
            case Mention::Kind::beacon:
                return require("beacon that the campaign or the visit knows", mention, all(known_.beacons()));
            case Mention::Kind::geofence:
                return require("geofence that the campaign or the visit knows", mention, all(known_.geofences()));
            case Mention::Kind::decision:
                return require("decision about rules", mention, decisionNames());
            case Mention::Kind::delegate:
                return require("operation of the host's delegate", mention, delegateNames());
        }
    }

    void require(std::string_view what, const Mention& mention, const Names& names) {
        if (isKnown(mention.pattern, names)) return;
        faults_.add(mention.path,
                    fmt::format("expected a {}, found \"{}\"{}", what, mention.pattern, hint(mention.pattern, names)));
    }

    void lookAtWindow(std::string path, const std::optional<Duration>& moment) {
        if (!moment || *moment <= end_) return;
        faults_.add(std::move(path), fmt::format("expected a time of the visit, which ends at {} s, found {} s",
                                                 toSeconds(end_), toSeconds(*moment)));
    }

    static Names all(const std::vector<std::string>& names) { return {names.begin(), names.end()}; }

    [[nodiscard]] Names namesOfRules() const {
        Names names;
        for (const auto& rule : known_.rules()) names.push_back(rule.id);
        return names;
    }

    /// Of the rules that the subject speaks of.
    [[nodiscard]] Names ownersOf(const Subject& subject) const {
        const auto* id = subject.members.if_contains("rule");
        const auto pattern = id != nullptr && id->is_string() ? std::string_view(id->get_string()) : "*";
        Names owners;
        for (const auto& rule : known_.rules()) {
            if (matches(pattern, rule.id)) owners.push_back(rule.owner);
        }
        return owners;
    }

    const Visit& visit_;
    const Duration end_;
    KnownNames known_;
    std::optional<Campaign> campaign_;
    JsonFaults faults_;
};

}  // namespace

std::optional<VisitError> faultOfExpectations(const Visit& visit, Duration end) {
    if (visit.expectations.empty()) return std::nullopt;
    return Check(visit, end).firstFault();
}

}  // namespace quomi::simulated
