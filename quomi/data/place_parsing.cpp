#include "quomi/data/place_parsing.h"

#include "quomi/model/action_kind.h"
#include "quomi/util/json_readers.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <utility>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace quomi {

namespace {

constexpr std::size_t kLongestText = 65536;
constexpr Duration kDefaultValidity = std::chrono::seconds(2'678'400);  // 31 days
/// A day in 1970, where that of a geofence lies 31 days ahead: deliberate, a beacon without an end is over.
constexpr WallTime kDefaultEndOfBeacon{kDefaultValidity};

/// Typed readings of one dictionary.
class Reader {
public:
    explicit Reader(const boost::json::object& dictionary) : dictionary_(dictionary) {}

    [[nodiscard]] std::optional<std::string> text(std::string_view key) const {
        return QuomiUtils::stringForKey(dictionary_, key, std::nullopt);
    }
    [[nodiscard]] std::string textOrEmpty(std::string_view key) const {
        return QuomiUtils::stringForKey(dictionary_, key, "");
    }
    [[nodiscard]] std::optional<Number> number(std::string_view key) const {
        return QuomiUtils::numberForKey(dictionary_, key, std::optional<Number>());
    }
    [[nodiscard]] double real(std::string_view key) const { return number(key).value_or(Number(0)).doubleValue(); }
    template <class Integer = std::int32_t>
    [[nodiscard]] std::int32_t integer(std::string_view key, std::int32_t defaultValue = 0) const {
        const auto value = number(key);
        return value ? value->as<Integer>() : defaultValue;
    }
    [[nodiscard]] bool truth(std::string_view key, bool defaultValue) const {
        const auto value = number(key);
        return value ? value->boolValue() : defaultValue;
    }
    [[nodiscard]] std::optional<WallTime> date(std::string_view key, WallTime defaultValue) const {
        return QuomiUtils::isoDateForKey(dictionary_, key, defaultValue);
    }
    [[nodiscard]] const boost::json::object* dictionary(std::string_view key) const {
        return QuomiUtils::dictionaryForKey(dictionary_, key);
    }
    [[nodiscard]] bool flag(std::string_view key) const { return QuomiUtils::boolForKey(dictionary_, key, false); }

private:
    const boost::json::object& dictionary_;
};

/// A dictionary, or an empty one where there is none.
const boost::json::object& orEmpty(const boost::json::object* dictionary) {
    static const boost::json::object empty;
    return dictionary != nullptr ? *dictionary : empty;
}

void readCommon(RuleOwner& place, const Reader& reader, const PlaceContext& context, WallTime defaultEnd) {
    place.address = reader.textOrEmpty("address");
    place.group = reader.text("group_id");
    place.namespace_ = context.appNamespace;
    place.startDate = reader.date("start", context.now);
    place.endDate = reader.date("end", defaultEnd);
    place.updatedAt = reader.date("updated_at", context.now);
    if (const auto* hours = reader.dictionary("opening_hours")) {
        QuomiSchedule schedule;
        schedule.setFromDictionary(*hours);
        place.setScheduleObject(std::move(schedule));
    }
    if (const auto* dictionary = reader.dictionary("timezone")) {
        const Reader zone(*dictionary);
        place.timeZone_zone = zone.textOrEmpty("zone");
        place.timeZone_title = zone.textOrEmpty("title");
        place.timeZone_offset = zone.integer("offset");
        place.timeZone_utcOffset = zone.integer<std::int16_t>("utc_offset");
        place.timeZone_dst = zone.flag("dst");
    }
}

void readCommon(RuleWithActions& rule, const Reader& reader) {
    rule.trigger = reader.textOrEmpty("trigger");
    rule.minEvents = reader.integer("min_events");
    rule.minEventsPeriod = reader.integer("min_events_period");
    rule.maxEvents = reader.integer("max_events");
    rule.maxEventsPeriod = reader.integer("max_events_period");
    rule.minGroupEvents = reader.integer("min_group_events");
    rule.minGroupEventsPeriod = reader.integer("min_group_events_period");
    rule.maxGroupEvents = reader.integer("max_group_events");
    rule.maxGroupEventsPeriod = reader.integer("max_group_events_period");
    constexpr double longest = std::numeric_limits<std::int32_t>::max();
    rule.latchTime = std::clamp(reader.real("latch_time"), -longest, longest);
}

void readRule(QuomiGeofenceRuleWithActions& rule, const Reader& reader) {
    readCommon(rule, reader);
}

void readRule(QuomiBeaconRuleWithActions& rule, const Reader& reader) {
    readCommon(rule, reader);
    rule.proximity = reader.integer<std::int16_t>("proximity", -1);
    rule.proximityEnd = reader.integer<std::int16_t>("proximity_end", rule.proximity);
    rule.priority = reader.integer("priority", 1);
    rule.maxDistanceMediumFar = reader.integer<std::int16_t>("max_distance_medium_far", 10);
    rule.underGlobalCounter = reader.truth("under_global_counter", true);
    rule.useRuleMaxMediumFar = reader.truth("use_rule_max_medium_far", false);
}

std::vector<QuomiAction> actionsFrom(const boost::json::object& dictionary) {
    std::vector<QuomiAction> actions;
    for (const auto& kind : kActionKinds) {
        boost::json::value param(QuomiUtils::stringForKey(dictionary, kind.type, ""));
        if (!QuomiUtils::isEmpty(&param)) {
            actions.push_back(QuomiAction::createWithType(kind.type, std::string(param.get_string())));
        }
    }
    return actions;
}

template <class Rule>
void readRules(RuleOwner& place, const boost::json::object& dictionary, const QuomiErrors& errors) {
    const auto* elements = QuomiUtils::arrayForKey(dictionary, "rules_actions");
    if (elements == nullptr) return;
    for (const auto& element : *elements) {
        const auto* ruleAndActions = element.if_object();
        if (ruleAndActions == nullptr) continue;
        auto rule = std::make_shared<Rule>();
        rule->ruleId = QuomiUtils::stringForKey(*ruleAndActions, "id", std::nullopt);
        readRule(*rule, Reader(orEmpty(QuomiUtils::dictionaryForKey(*ruleAndActions, "rule"))));
        // A rule without any action stays, without actions.
        rule->serializeAndSetActions(actionsFrom(orEmpty(QuomiUtils::dictionaryForKey(*ruleAndActions, "action"))),
                                     errors);
        place.addActionObject(std::move(rule));
    }
}

}  // namespace

bool holdsLongText(const boost::json::value& record) {
    if (const auto* text = record.if_string()) return text->size() > kLongestText;
    if (const auto* array = record.if_array()) return std::ranges::any_of(*array, holdsLongText);
    if (const auto* object = record.if_object()) {
        return std::ranges::any_of(*object, [](const auto& entry) { return holdsLongText(entry.value()); });
    }
    return false;
}

std::shared_ptr<QuomiGeofence> geofenceFrom(const boost::json::object& dictionary, const PlaceContext& context) {
    const Reader reader(dictionary);
    auto id = reader.text("id");
    if (!id) return nullptr;
    auto geofence = std::make_shared<QuomiGeofence>();
    geofence->geofenceId = std::move(*id);
    geofence->name = reader.textOrEmpty("name");
    geofence->latitude = reader.real("lat");
    geofence->longitude = reader.real("lng");
    geofence->radius = reader.real("radius");
    readCommon(*geofence, reader, context, context.now + kDefaultValidity);
    readRules<QuomiGeofenceRuleWithActions>(*geofence, dictionary, context.errors);
    return geofence;
}

std::shared_ptr<QuomiBeaconData> beaconFrom(const boost::json::object& dictionary, const PlaceContext& context) {
    const Reader reader(dictionary);
    const auto integer = [&reader](std::string_view key) {
        const auto value = reader.number(key);
        return value ? std::optional(value->as<std::int32_t>()) : std::nullopt;
    };
    const auto real = [&reader](std::string_view key) {
        const auto value = reader.number(key);
        return value ? std::optional(value->doubleValue()) : std::nullopt;
    };
    auto beacon = std::make_shared<QuomiBeaconData>();
    beacon->beaconId = reader.textOrEmpty("id");
    beacon->name = reader.textOrEmpty("name");
    beacon->proximityUUID = reader.textOrEmpty("proximity_uid");  // the key's spelling is the server's
    beacon->major = integer("major");
    beacon->minor = integer("minor");
    beacon->serialNumber = reader.text("serial_number");
    beacon->sharedSecret = reader.text("shared_secret");
    beacon->latitude = real("lat");
    beacon->longitude = real("lng");
    readCommon(*beacon, reader, context, kDefaultEndOfBeacon);
    readRules<QuomiBeaconRuleWithActions>(*beacon, dictionary, context.errors);
    return beacon;
}

}  // namespace quomi
