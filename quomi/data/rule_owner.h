#pragma once

#include "quomi/beacons/proximity.h"
#include "quomi/data/rule.h"
#include "quomi/model/schedule.h"

#include <string_view>

namespace quomi {

class Clock;

/// What carries rules and can stand for a group of its kind: what beacons and geofences share.
struct RuleOwner : ManagedObject {
    std::optional<std::string> address;
    std::optional<std::string> group;  ///< identifier of the beacon or geofence that stands for the group
    std::optional<std::string> namespace_;
    bool enabled = true;
    std::int32_t groupTriggersCount = 0;  ///< events counted for the group that this one stands for, ever
    History groupHistory;
    std::optional<WallTime> startDate;  ///< valid from and until; no limit without
    std::optional<WallTime> endDate;
    std::optional<std::string> schedule;  ///< opening hours as JSON
    std::optional<WallTime> updatedAt;
    std::optional<std::string> timeZone_zone;
    std::optional<std::string> timeZone_title;
    std::optional<std::int32_t> timeZone_offset;
    std::optional<std::int32_t> timeZone_utcOffset;
    std::optional<bool> timeZone_dst;

    /// What the server calls it.
    [[nodiscard]] virtual const std::string& identifier() const = 0;
    /// The rules in the order in which they were added. Empty, with an error, when they cannot be read.
    [[nodiscard]] std::vector<std::shared_ptr<RuleWithActions>> rules(std::optional<Error>* error = nullptr);
    /// The first rule with the identifier; null for none.
    [[nodiscard]] std::shared_ptr<RuleWithActions> ruleWithId(const std::string& id);
    /// Adds a rule that belongs to nothing yet; false for any other, and when the store cannot be read.
    bool addActionObject(std::shared_ptr<RuleWithActions> rule, std::optional<Error>* error = nullptr) {
        return addMember(std::move(rule), error);
    }
    [[nodiscard]] boost::json::array getActionsAsArrayOfDictionaries();

    /// Takes over the counters of the stored object that this one replaces, and those of each of its rules for the rule
    /// with the same identifier here. False, with an error and nothing taken over, when the rules cannot be read.
    bool copyCounters(RuleOwner& replaced, WallTime now, std::optional<Error>* error = nullptr);
    /// False, with an error and nothing reset, when the rules cannot be read.
    bool resetAllCounters(std::optional<Error>* error = nullptr);

    /// The opening hours, read anew from `schedule`; a text that cannot be read leaves those read before.
    [[nodiscard]] QuomiSchedule& getScheduleObject();
    /// Sets the opening hours and their text.
    void setScheduleObject(QuomiSchedule schedule);
    /// Whether it counts now: fails with 202 before its start, 203 after its end, 204 outside its opening hours (in
    /// the phone's time zone).
    [[nodiscard]] bool isActive(const Clock& clock, const QuomiErrors& errors, std::optional<Error>* error = nullptr);

protected:
    virtual void copyOwnCounters(const RuleOwner& replaced) = 0;
    virtual void resetOwnCounters() = 0;

    /// The rules that fulfil the condition, in their order. Empty, with an error, when they cannot be read.
    template <class Rule, class Condition>
    [[nodiscard]] std::vector<std::shared_ptr<Rule>> rulesWhere(const Condition& condition,
                                                                std::optional<Error>* error = nullptr) {
        std::vector<std::shared_ptr<Rule>> rules;
        const auto* all = members(error);
        if (all == nullptr) return rules;
        for (const auto& member : *all) {
            auto rule = std::static_pointer_cast<Rule>(member.object());
            if (condition(*rule)) rules.push_back(std::move(rule));
        }
        return rules;
    }

private:
    QuomiSchedule scheduleObject_;
};

struct QuomiGeofence : RuleOwner {
    std::string geofenceId;
    std::optional<std::string> name;
    double latitude = 0;
    double longitude = 0;
    double radius = 0;            ///< kilometres
    std::int32_t entryCount = 0;  ///< entries, ever
    WallTime lastEnteredAt{};

    [[nodiscard]] std::vector<std::shared_ptr<QuomiGeofenceRuleWithActions>> getActionsAndRulesSuitableForTrigger(
        std::string_view trigger);
    [[nodiscard]] boost::json::object dictionary();
    [[nodiscard]] const std::string& identifier() const override { return geofenceId; }
    [[nodiscard]] const EntityType& entityType() const override;

protected:
    void copyOwnCounters(const RuleOwner& replaced) override;
    void resetOwnCounters() override;
};

struct QuomiBeaconData : RuleOwner {
    std::string beaconId;
    std::string name;
    std::string proximityUUID;  ///< upper case
    std::optional<std::int32_t> major;
    std::optional<std::int32_t> minor;
    std::optional<std::string> serialNumber;  ///< of a secure beacon, hexadecimal
    std::optional<std::string> sharedSecret;
    std::optional<double> latitude;
    std::optional<double> longitude;
    std::int32_t seenCount = 0;
    WallTime lastSeenAt{};

    [[nodiscard]] std::vector<std::shared_ptr<QuomiBeaconRuleWithActions>> getActionsAndRulesSuitableForTrigger(
        std::string_view trigger);
    /// Of the rules of the trigger those whose range the move enters ("on_entry") or leaves ("on_exit"); none for any
    /// other trigger. Without an end a rule's range is its one proximity.
    [[nodiscard]] std::vector<std::shared_ptr<QuomiBeaconRuleWithActions>> getActionsAndRulesSuitableForTrigger(
        std::string_view trigger, QuomiProximity previousProximity, QuomiProximity newProximity);
    [[nodiscard]] boost::json::object dictionary();
    [[nodiscard]] const std::string& identifier() const override { return beaconId; }
    [[nodiscard]] const EntityType& entityType() const override;

protected:
    void copyOwnCounters(const RuleOwner& replaced) override;
    void resetOwnCounters() override;
};

}  // namespace quomi
