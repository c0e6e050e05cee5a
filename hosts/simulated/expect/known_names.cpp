#include "hosts/simulated/expect/known_names.h"

#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/visit/visit.h"
#include "quomi/util/json_readers.h"

#include <iterator>
#include <optional>
#include <utility>
#include <variant>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

const json::value* memberOf(const json::value& value, json::string_view key) {
    const auto* object = value.if_object();
    return object != nullptr ? object->if_contains(key) : nullptr;
}

/// The text member, or nothing.
std::optional<std::string> textOf(const json::value& value, json::string_view key) {
    const auto* text = memberOf(value, key);
    if (text == nullptr || !text->is_string()) return std::nullopt;
    return std::string(text->get_string());
}

template <class List>
void append(List& list, List more) {
    list.insert(list.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

}  // namespace

KnownNames::KnownNames(const Campaign& campaign) : limits_(&campaign.limits()) {
    addPlaces(campaign.beacons(), true);
    addPlaces(campaign.geofences(), false);
}

KnownNames::KnownNames(const Visit& visit) {
    if (const auto* scripted = std::get_if<ScriptedBackoffice>(&visit.backoffice)) {
        for (const auto& [key, answers] : scripted->answers) {
            for (const auto& answer : answers) addAnswer(key, answer);
        }
    }
    for (const auto& step : visit.steps) {
        if (const auto* region = std::get_if<RegionStep>(&step.action)) geofences_.push_back(region->identifier);
        const auto* call = std::get_if<CallStep>(&step.action);
        if (call != nullptr && call->name == "logEvent") addEvent(call->with);
    }
}

void KnownNames::addAnswer(std::string_view key, const Answer& answer) {
    const auto* body = std::get_if<json::value>(&answer.body);
    if (const auto* text = std::get_if<std::string>(&answer.body)) {
        auto parsed = quomi::parseJson(*text);
        if (parsed) body = parsed_.emplace_back(std::make_shared<const json::value>(std::move(*parsed))).get();
    }
    if (body == nullptr) return;
    if (key == "GET /u_applications/limits.json") limits_ = body->if_object();
    for (const bool areBeacons : {true, false}) {
        const auto* places = memberOf(*body, areBeacons ? "u_beacons" : "u_geofences");
        if (places != nullptr && places->is_array()) addPlaces(places->get_array(), areBeacons);
    }
}

/// An event of the app's own may name what only the app knows.
void KnownNames::addEvent(const json::value& event) {
    if (const auto id = textOf(event, "beacon_id")) beacons_.push_back(*id);
    if (const auto id = textOf(event, "geofence_id")) geofences_.push_back(*id);
    if (const auto id = textOf(event, "rule_id")) rules_.push_back({*id, {}});
}

void KnownNames::addPlaces(const json::array& places, bool areBeacons) {
    for (const auto& place : places) {
        const auto owner = textOf(place, "id");
        if (!owner) continue;
        (areBeacons ? beacons_ : geofences_).push_back(*owner);
        const auto* rules = memberOf(place, "rules_actions");
        if (rules == nullptr || !rules->is_array()) continue;
        for (const auto& rule : rules->get_array()) {
            const auto id = textOf(rule, "id");
            if (id) rules_.push_back({*id, *owner, areBeacons, &place.get_object(), &rule.get_object()});
        }
    }
}

void KnownNames::add(KnownNames other) {
    append(rules_, std::move(other.rules_));
    append(beacons_, std::move(other.beacons_));
    append(geofences_, std::move(other.geofences_));
    if (limits_ == nullptr) limits_ = other.limits_;
    append(parsed_, std::move(other.parsed_));
}

}  // namespace quomi::simulated
