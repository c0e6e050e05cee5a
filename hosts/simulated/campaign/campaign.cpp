#include "hosts/simulated/campaign/campaign.h"

#include "hosts/simulated/json/json_reader.h"
#include "quomi/model/action_kind.h"
#include "quomi/util/ascii.h"
#include "quomi/util/dates.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <set>
#include <utility>

#include <fmt/format.h>

namespace quomi::simulated {
namespace json = boost::json;
namespace {

/// A campaign keeps the file's objects as they are, so reading them is only a check and leaves nothing.
struct Nothing {};
using Check = void (*)(const JsonNode& node, Nothing& nothing);
using Key = Field<Nothing>;

constexpr std::size_t kMaxFileSize = std::size_t{64} * 1024 * 1024;
constexpr std::int64_t kMaxCount = std::numeric_limits<std::int32_t>::max();
constexpr std::int64_t kMaxMetres = std::numeric_limits<std::int16_t>::max();

void text(const JsonNode& node, Nothing&) {
    static_cast<void>(node.text());
}

void nonEmptyText(const JsonNode& node, Nothing&) {
    if (!node.isText() || node.text().empty()) node.fail("a text that is not empty");
}

void boolean(const JsonNode& node, Nothing&) {
    static_cast<void>(node.boolean());
}

void uuid(const JsonNode& node, Nothing&) {
    static_cast<void>(node.uuid());
}

void date(const JsonNode& node, Nothing&) {
    if (!node.isText() || !QuomiUtils::isoDate(node.text())) node.fail("a date such as 2031-05-04T09:30:00Z");
}

template <int least, int most>
void number(const JsonNode& node, Nothing&) {
    static_cast<void>(node.number(least, most));
}

void kilometres(const JsonNode& node, Nothing&) {
    static_cast<void>(node.number(0.001, 1000));
}

template <std::int64_t least, std::int64_t most>
void whole(const JsonNode& node, Nothing&) {
    static_cast<void>(node.integer(least, most));
}

constexpr Check count = whole<0, kMaxCount>;
constexpr Check shortCount = whole<0, 65535>;
constexpr Check flag = whole<0, 1>;

template <std::size_t n>
void oneOfWords(const JsonNode& node, const std::string_view (&words)[n]) {
    if (node.isText() && std::ranges::find(words, node.text()) != std::end(words)) return;
    std::string list;
    for (const std::string_view word : words) appendQuoted(list, word);
    node.fail("one of " + list);
}

bool isNamespace(std::string_view name) {
    const auto isWord = [](char c) { return isLetterOrDigit(c) || c == '_' || c == '-'; };
    return name.size() <= 128 && std::ranges::any_of(name, isWord) &&
           std::ranges::all_of(name, [&](char c) { return isWord(c) || c == '.' || c == '~'; });
}

void namespaceName(const JsonNode& node, Nothing&) {
    if (!node.isText() || !isNamespace(node.text())) node.fail("1 to 128 letters, digits, '-', '.', '_' or '~'");
}

void antiHackingProtocol(const JsonNode& node, Nothing&) {
    static constexpr std::string_view words[] = {"none", "rotating_advertisement"};
    oneOfWords(node, words);
}

void trigger(const JsonNode& node, Nothing&) {
    static constexpr std::string_view words[] = {"on_entry", "on_exit"};
    oneOfWords(node, words);
}

void decision(const JsonNode& node, Nothing&) {
    static constexpr std::string_view words[] = {"enable", "disable", "notify"};
    oneOfWords(node, words);
}

constexpr Key kApplication[] = {
    {"namespace_uid", namespaceName, true},
    {"normal_proximity_uuid", uuid},
    {"secure_proximity_uuid", uuid},
    {"service_proximity_uuid", uuid},
    {"anti_hacking_protocol", antiHackingProtocol},
    {"max_distance_medium_far", number<0, kMaxMetres>},
};

constexpr Key kLimits[] = {{"max_events", count}, {"max_events_period", count}, {"min_interval", count}};

constexpr Key kGeofenceRule[] = {
    {"trigger", trigger, true},         {"min_events", count},
    {"min_events_period", count},       {"max_events", count},
    {"max_events_period", count},       {"min_group_events", count},
    {"min_group_events_period", count}, {"max_group_events", count},
    {"max_group_events_period", count}, {"latch_time", number<0, kMaxCount>},
};

constexpr Key kOnlyBeaconRule[] = {
    {"proximity", whole<0, 5>},
    {"proximity_end", whole<0, 5>},
    {"priority", count},
    {"max_distance_medium_far", whole<0, kMaxMetres>},
    {"under_global_counter", flag},
    {"use_rule_max_medium_far", flag},
};

constexpr auto kBeaconRule = joined(kGeofenceRule, kOnlyBeaconRule);

constexpr bool isOrdered(const ActionKindRow& kind) {
    return kind.ordered != nullptr;
}

/// These keys and a text for each kind of action that is wanted.
template <bool (*isWanted)(const ActionKindRow&), std::size_t n = 0>
constexpr auto withActions(const std::array<Key, n>& first = {}) {
    std::array<Key, n + std::ranges::count_if(kActionKinds, isWanted)> keys{};
    auto* next = std::copy(first.begin(), first.end(), keys.begin());
    for (const auto& kind : kActionKinds) {
        if (isWanted(kind)) *next++ = {kind.type, text};
    }
    return keys;
}

constexpr auto kAction = withActions<[](const ActionKindRow&) { return true; }>();

constexpr Key kHours[] = {{"open", whole<0, 86400>, true}, {"close", whole<0, 86400>, true}};

/// A check of an object that has these keys and no other.
template <const auto& keys>
void object(const JsonNode& node, Nothing& nothing) {
    readObject<Nothing>(node, keys, nothing);
}

template <const auto& rule>
void rulesActions(const JsonNode& node, Nothing& nothing) {
    static constexpr Key keys[] = {
        {"id", nonEmptyText, true}, {"rule", object<rule>, true}, {"action", object<kAction>, true}};
    node.eachItem("an array", [&](const JsonNode& item) { readObject<Nothing>(item, keys, nothing); });
}

bool isWeekday(std::string_view key) {
    static constexpr std::string_view days[] = {"sun", "mon", "tue", "wed", "thu", "fri", "sat"};
    return std::ranges::find(days, key) != std::end(days);
}

bool isDay(std::string_view key) {
    return key.size() == 10 && QuomiUtils::isoDate(key).has_value();
}

template <bool (*isKey)(std::string_view)>
void hoursBy(const JsonNode& node, Nothing& nothing) {
    node.eachMember("an object", [&](std::string_view key, const JsonNode& member) {
        if (!isKey(key))
            return member.fail("a key such as \"mon\" in week and breaks, \"2031-12-25\" in specific_days");
        object<kHours>(member, nothing);
    });
}

constexpr Key kOpeningHours[] = {
    {"week", hoursBy<isWeekday>}, {"specific_days", hoursBy<isDay>}, {"breaks", hoursBy<isWeekday>}};

constexpr Key kTimeZone[] = {
    {"zone", text},   {"title", text}, {"offset", number<-86400, 86400>}, {"utc_offset", number<-86400, 86400>},
    {"dst", boolean},
};

constexpr Key kPlace[] = {
    {"id", nonEmptyText, true},
    {"name", text},
    {"lat", number<-90, 90>},
    {"lng", number<-180, 180>},
    {"address", text},
    {"group_id", text},
    {"start", date},
    {"end", date},
    {"updated_at", date},
    {"opening_hours", object<kOpeningHours>},
    {"timezone", object<kTimeZone>},
};

constexpr Key kOnlyBeacon[] = {
    {"proximity_uid", uuid, true},  // spelled "uid" on purpose, unlike the application's keys
    {"major", shortCount},
    {"minor", shortCount},
    {"serial_number", text},
    {"shared_secret", text},
    {"rules_actions", rulesActions<kBeaconRule>},
};

constexpr Key kOnlyGeofence[] = {
    {"radius", kilometres, true},
    {"rules_actions", rulesActions<kGeofenceRule>},
};

constexpr auto kBeacon = joined(kPlace, kOnlyBeacon);
constexpr auto kGeofence = joined(kPlace, kOnlyGeofence);

/// An array of such objects, whose "id"s all differ.
template <const auto& keys>
void distinctObjects(const JsonNode& node, Nothing& nothing) {
    std::set<std::string> seen;
    node.eachItem("an array", [&](const JsonNode& item) {
        object<keys>(item, nothing);
        if (!item.failed() && !seen.insert(item["id"].text()).second) item["id"].fail("an id that no other one has");
    });
}

constexpr auto kAnswer = withActions<isOrdered>(std::array{Key{"decision", decision, true}});

/// Paths that no endpoint has.
bool isOwnPath(std::string_view path) {
    return path.size() > 1 && path.starts_with('/') && !path.starts_with("/u_") &&
           path.find_first_of("?#") == std::string_view::npos;
}

void answersByPath(const JsonNode& node, Nothing& nothing) {
    node.eachMember("an object", [&](std::string_view path, const JsonNode& answer) {
        if (!isOwnPath(path)) return answer.fail("a path such as \"/visits\", none below /u_, without a query");
        object<kAnswer>(answer, nothing);
    });
}

void identifiers(const JsonNode& node, Nothing& nothing) {
    node.eachItem("an array", [&](const JsonNode& item) { nonEmptyText(item, nothing); });
}

constexpr Key kCampaign[] = {
    {"application", object<kApplication>, true}, {"limits", object<kLimits>},
    {"beacons", distinctObjects<kBeacon>},       {"geofences", distinctObjects<kGeofence>},
    {"remove_beacon_ids", identifiers},          {"remove_geofence_ids", identifiers},
    {"valid_for", whole<1, kMaxCount>},          {"answers", answersByPath},
};

void report(std::optional<Error>* slot, CampaignErrorCode code, std::string_view text) {
    json::object info;
    info[kLocalizedDescriptionKey] = json::string_view(text);
    assign(slot, Error{kCampaignErrorDomain, static_cast<std::int64_t>(code), std::move(info)});
}

/// The whole file, or nothing when it cannot be read or is larger than a campaign may be.
std::optional<std::string> contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::string content;
    std::array<char, 65536> block{};
    while (file && content.size() <= kMaxFileSize) {
        file.read(block.data(), block.size());
        content.append(block.data(), static_cast<std::size_t>(file.gcount()));
    }
    if (!file.eof() || file.bad()) return std::nullopt;
    return content;
}

}  // namespace

std::optional<Campaign> Campaign::load(const std::string& path, std::optional<Error>* error) {
    const std::optional<std::string> content = contentOf(path);
    if (content) return parse(*content, path, error);
    const bool isThere = std::filesystem::exists(path);
    report(error, CampaignErrorCode::unreadable,
           fmt::format("{}: {}", path, isThere ? "expected a readable file of at most 64 MiB" : "no such file"));
    return std::nullopt;
}

std::optional<Campaign> Campaign::parse(std::string_view text, const std::string& name, std::optional<Error>* error) {
    JsonFaults faults;
    std::optional<json::value> document = parseJson(text, faults);
    Nothing nothing;
    if (document) object<kCampaign>(JsonNode(&*document, "$", faults), nothing);
    if (const auto& fault = faults.first()) {
        report(error, CampaignErrorCode::invalid, fmt::format("{}: {}: {}", name, fault->path, fault->message));
        return std::nullopt;
    }
    Campaign result;
    json::object& root = document->get_object();
    result.application_ = std::move(root.at("application").get_object());
    result.namespaceUid_ = std::string_view(result.application_.at("namespace_uid").get_string());
    if (json::value* limits = root.if_contains("limits")) result.limits_ = std::move(limits->get_object());
    const auto array = [&](const char* key) {
        json::value* found = root.if_contains(key);
        return found == nullptr ? json::array() : std::move(found->get_array());
    };
    result.beacons_ = array("beacons");
    result.geofences_ = array("geofences");
    result.removeBeaconIds_ = array("remove_beacon_ids");
    result.removeGeofenceIds_ = array("remove_geofence_ids");
    if (json::value* answers = root.if_contains("answers")) result.answers_ = std::move(answers->get_object());
    if (const json::value* seconds = root.if_contains("valid_for")) {
        result.validFor_ = std::chrono::seconds(seconds->to_number<std::int64_t>());
    }
    return result;
}

}  // namespace quomi::simulated
