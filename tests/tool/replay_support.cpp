#include "tests/tool/replay_support.h"

#include "hosts/simulated/replay/trace_shapes.h"
#include "tools/quomi/replay/replay_command.h"

namespace quomi::test {

namespace json = boost::json;

namespace {

constexpr std::string_view kBase = "https://backoffice.test";
constexpr std::string_view kUUIDStart = "6B6E1B5A-0C0D-4A6E-9E62-0000000000";

std::string textOf(const json::value& value) {
    if (value.is_string()) return std::string(value.get_string());
    if (value.is_double()) return fmt::format("{}", value.get_double());
    return json::serialize(value);
}

std::string shortUrl(const json::value& value) {
    auto url = textOf(value);
    url = url.substr(0, url.find('?'));
    return url.starts_with(kBase) ? url.substr(kBase.size()) : url;
}

std::string shortBeacon(const json::value& value) {
    const auto name = textOf(value);
    return name.substr(name.find('/') + 1);
}

/// The one field of a kind of record that a test is likely to look at.
std::string detail(const json::object& record) {
    for (const auto& field : record) {
        if (field.key() == "url") return ' ' + shortUrl(field.value());
        if (field.key() == "beacon") return ' ' + shortBeacon(field.value());
        if (field.key() == "on") return field.value().as_bool() ? " on" : " off";
        const bool isShown = field.key() == "event" || field.key() == "result" || field.key() == "outcome" ||
                             field.key() == "uuid" || field.key() == "id" || field.key() == "value";
        if (isShown && !field.value().is_null()) return ' ' + textOf(field.value());
    }
    return {};
}

bool isError(const json::value& value) {
    const auto* error = value.if_object();
    return error != nullptr && error->size() == 3 && error->contains("domain") && error->contains("code") &&
           error->contains("description");
}

}  // namespace

std::string brief(const json::object& record) {
    static const auto withShortUUIDs = [](std::string line) {
        for (std::size_t at = 0; (at = line.find(kUUIDStart)) != std::string::npos;) line.erase(at, kUUIDStart.size());
        return line;
    };
    const auto& kind = *(record.begin() + 1);
    auto line = fmt::format("{} {} {}", textOf(record.at("t")), std::string_view(kind.key()), textOf(kind.value()));
    line += detail(record);
    if (const auto* error = record.if_contains("error"); error != nullptr && error->is_object()) {
        line += " error " + textOf(error->as_object().at("code"));
    }
    return withShortUUIDs(line);
}

std::string formFault(const json::object& record) {
    if (record.size() < 2 || record.begin()->key() != "t" || !record.at("t").is_number()) return "no time and kind";
    const auto& kind = *(record.begin() + 1);
    const auto name = fmt::format("{} {}", std::string_view(kind.key()), textOf(kind.value()));
    const auto shapes = simulated::recordShapes();
    const auto shape = std::ranges::find_if(shapes, [&](const auto& each) {
        return each.kind == kind.key() && (each.value.empty() || each.value == textOf(kind.value()));
    });
    if (shape == shapes.end()) return "unknown kind " + name;
    std::set<std::string, std::less<>> fields;
    for (auto field = record.begin() + 2; field != record.end(); ++field) fields.emplace(field->key());
    for (const auto& [field, mayBeMissing] : simulated::fieldsOf(*shape)) {
        if (fields.erase(std::string(field)) == 0 && !mayBeMissing)
            return fmt::format("missing field of {}: {}", name, field);
    }
    if (!fields.empty()) return "fields of " + name;
    if (const auto* error = record.if_contains("error"); error != nullptr && !error->is_null() && !isError(*error)) {
        return "form of the error";
    }
    return {};
}

std::vector<std::string> Replayed::lines(std::string_view kind) const {
    auto lines = allLines(kind);
    std::erase_if(lines, [](const std::string& line) {
        return line.find("/u_beacons/query.json") != line.npos || line.find(R"("permission_type")") != line.npos ||
               line.find(R"("bluetooth_state")") != line.npos || line.find("allNotificationStatus") != line.npos;
    });
    return lines;
}

std::vector<std::string> Replayed::allLines(std::string_view kind) const {
    std::vector<std::string> lines;
    for (const auto& record : records) {
        auto line = brief(record);
        if (std::string_view(line).substr(line.find(' ') + 1).starts_with(kind)) lines.push_back(std::move(line));
    }
    return lines;
}

json::value asJson(std::string_view text) {
    return json::parse({text.data(), text.size()});
}

/// Every text "B1" of the value, and those like it, becomes the whole UUID.
static void lengthenUUIDs(json::value& value) {
    if (auto* object = value.if_object()) {
        for (auto& member : *object) lengthenUUIDs(member.value());
    } else if (auto* array = value.if_array()) {
        for (auto& item : *array) lengthenUUIDs(item);
    } else if (value == "B1" || value == "B2" || value == "b1") {
        value = std::string(kUUIDStart) + value.as_string().c_str();
    }
}

json::object shopVisit(std::string_view timeline) {
    auto visit = asJson(R"({"visit": 1, "start": "2026-11-21T09:30:00+01:00",
        "app": {"namespace": "shop", "properties": {"geofencesEnabled": false},
            "settings": {"beaconServiceMonitorinEnabled": false}},
        "backoffice": {"answers": {
            "GET /u_applications/query.json": {"json": {"success": true, "namespace_uid": "shop",
                "normal_proximity_uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1",
                "secure_proximity_uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000A2",
                "service_proximity_uuid": "6B6E1B5A-0C0D-4A6E-9E62-0000000000A3", "anti_hacking_protocol": "none"}},
            "GET /u_applications/limits.json": {"json": {"success": true}},
            "GET /u_beacons/query.json": {"json": {"u_beacons": [], "query_params": {},
                "valid_until": "2026-12-01T00:00:00Z", "remove_ids": []}},
            "POST /u_app_users/find_or_create_by_udid.json": {"json": {"success": true}}}}})")
                     .as_object();
    visit["timeline"] = asJson(timeline);
    for (auto& step : visit["timeline"].as_array()) lengthenUUIDs(step);
    return visit;
}

std::string near(double at, int minor) {
    return fmt::format(R"({{"at": {}, "range": [{{"uuid": "{}", "major": 1, "minor": {}, "proximity": "near",
                           "accuracy": 1.5, "rssi": -60}}]}})",
                       at, kShopUUID, minor);
}

json::object& answersOf(json::object& visit) {
    return visit["backoffice"].as_object()["answers"].as_object();
}

std::filesystem::path ReplayBench::write(const std::string& name, std::string_view text) const {
    std::ofstream(folder() / name, std::ios::binary) << text;
    return folder() / name;
}

Replayed ReplayBench::play(const json::object& visit, std::vector<std::string> options) const {
    options.insert(options.begin(), {write("visit.json", json::serialize(visit)).string(), "--json"});
    auto replayed = run(options);
    std::istringstream lines(replayed.out);
    for (std::string line; std::getline(lines, line);) {
        replayed.records.push_back(json::parse(line).as_object());
        const auto fault = formFault(replayed.records.back());
        EXPECT_EQ(fault, "") << line;
        if (!fault.empty()) replayed.records.pop_back();
    }
    EXPECT_EQ(replayed.err, "");
    EXPECT_TRUE(replayed.out.empty() || replayed.out.back() == '\n');
    return replayed;
}

Replayed ReplayBench::run(const std::vector<std::string>& args) const {
    std::ostringstream out;
    std::ostringstream err;
    Replayed replayed;
    replayed.status = tool::ReplayCommand().run(args, out, err);
    replayed.out = out.str();
    replayed.err = err.str();
    return replayed;
}

int ReplayBench::runInto(const std::filesystem::path& out, const std::vector<std::string>& args) const {
    std::ofstream file(out);
    std::ostringstream err;
    return tool::ReplayCommand().run(args, file, err);
}

}  // namespace quomi::test
