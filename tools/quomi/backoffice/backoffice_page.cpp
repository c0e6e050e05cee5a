#include "tools/quomi/backoffice/backoffice_page.h"

#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/json/json_reader.h"
#include "hosts/simulated/json/json_writer.h"
#include "quomi/util/dates.h"
#include "quomi/util/utf8.h"
#include "quomi/util/uuid.h"
#include "tools/quomi/backoffice/inbox.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <initializer_list>
#include <iterator>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace quomi::tool {
namespace {

constexpr std::size_t kShownEntries = 50;
constexpr std::size_t kShownObjects = 100;
constexpr std::size_t kShownBodyBytes = 2000;

constexpr std::string_view kHead = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Quomi back office</title>
<style>
:root { color-scheme: light dark; }
body { font: 16px/1.5 system-ui, sans-serif; max-width: 64rem; margin: 2rem auto; padding: 0 1rem; }
h1, h2, h3 { line-height: 1.2; margin: 2rem 0 .5rem; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .25rem .75rem .25rem 0; border-bottom: 1px solid #8885; }
td { overflow-wrap: anywhere; }
th { font-weight: 600; }
code, pre { font: 14px/1.4 ui-monospace, monospace; overflow-wrap: anywhere; }
pre { background: #8881; padding: .5rem .75rem; white-space: pre-wrap; margin: .25rem 0 1rem; }
.note { opacity: .75; }
</style>
</head>
<body>
)html";

template <typename... Args>
void write(std::string& page, fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(page), format, std::forward<Args>(args)...);
}

/// Foreign text: nothing of it is markup, is invisible or changes the direction of what follows.
std::string shown(std::string_view text) {
    return escapedHtml(neutralised(text));
}

std::string shownText(const boost::json::value* value) {
    if (value == nullptr) return "–";
    if (value->is_string()) return shown(std::string_view(value->get_string()));
    return shown(simulated::jsonText(*value));
}

void row(std::string& page, std::string_view name, std::string_view value) {
    write(page, "<tr><th>{}</th><td>{}</td></tr>\n", shown(name), value);
}

void rows(std::string& page, const boost::json::object& object) {
    for (const auto& member : object) {
        row(page, member.key(), shownText(&member.value()));
    }
}

/// One row for each object, with these members of it and the number of its rules.
void objectTable(std::string& page, std::string_view title, const boost::json::array& objects,
                 std::span<const std::string_view> members) {
    write(page, "<h3>{}: {}</h3>\n", title, objects.size());
    if (objects.empty()) return;
    page += "<table>\n<tr>";
    for (const std::string_view member : members) write(page, "<th>{}</th>", member);
    page += "<th>rules</th></tr>\n";
    for (std::size_t i = 0; i < std::min(objects.size(), kShownObjects); ++i) {
        const boost::json::object& object = objects[i].get_object();
        page += "<tr>";
        for (const std::string_view member : members) write(page, "<td>{}</td>", shownText(object.if_contains(member)));
        const boost::json::value* rules = object.if_contains("rules_actions");
        write(page, "<td>{}</td></tr>\n", rules == nullptr ? 0 : rules->get_array().size());
    }
    page += "</table>\n";
    if (objects.size() > kShownObjects) {
        write(page, "<p class=\"note\">and {} more</p>\n", objects.size() - kShownObjects);
    }
}

void writeRemoved(std::string& page, std::string_view what, const boost::json::array& identifiers) {
    if (identifiers.empty()) return;
    write(page, "<p>Devices are told to forget {} {}.</p>\n", identifiers.size(), what);
}

void writeCampaign(std::string& page, const simulated::Campaign& campaign) {
    static constexpr std::string_view kBeacon[] = {"id",    "name", "proximity_uid", "major",
                                                   "minor", "lat",  "lng",           "end"};
    static constexpr std::string_view kGeofence[] = {"id", "name", "lat", "lng", "radius", "end"};
    page += "<h2>Served</h2>\n<table>\n";
    rows(page, campaign.application());
    rows(page, campaign.limits());
    row(page, "valid_for", fmt::format("{} s", campaign.validFor().count()));
    page += "</table>\n";
    objectTable(page, "Beacons", campaign.beacons(), kBeacon);
    writeRemoved(page, "beacons", campaign.removeBeaconIds());
    objectTable(page, "Geofences, their radius in kilometres", campaign.geofences(), kGeofence);
    writeRemoved(page, "geofences", campaign.removeGeofenceIds());
    if (campaign.answers().empty()) return;
    page += "<h3>Answers to rules that ask</h3>\n<table>\n";
    rows(page, campaign.answers());
    page += "</table>\n";
}

std::string beginning(const std::string& text) {
    if (text.size() <= kShownBodyBytes) return text;
    return std::string(utf8Beginning(text, kShownBodyBytes)) + " …";
}

/// The user's record without the middle of its advertising identifier; "…" when it cannot be told where that is.
std::string userRecord(const std::string& content) {
    simulated::JsonFaults faults;
    auto record = simulated::parseJson(content, faults);
    if (!record || !record->is_object()) return "…";
    auto* identifier = record->get_object().if_contains("advertising_id");
    if (identifier == nullptr || !identifier->is_string()) return content;
    *identifier = shortened(std::string_view(identifier->get_string()));
    return simulated::jsonText(*record);
}

std::string pushToken(const std::string& content) {
    simulated::JsonFaults faults;
    const auto record = simulated::parseJson(content, faults);
    const auto* token = record && record->is_object() ? record->get_object().if_contains("push_token") : nullptr;
    return token != nullptr && token->is_string() ? shortened(std::string_view(token->get_string())) : "…";
}

std::string shownContent(const Received& entry) {
    if (entry.kind == ReceivedKind::pushToken) return shown(pushToken(entry.content));
    if (entry.kind == ReceivedKind::user) return shown(beginning(userRecord(entry.content)));
    return shown(beginning(entry.content));
}

void writeInbox(std::string& page, const Inbox& inbox) {
    const Inbox::Counts counts = inbox.counts();
    write(page,
          "<h2>Received</h2>\n<p>User records: {}, events: {}, push tokens: {}, battery alerts: {}; no longer kept: "
          "{}.</p>\n",
          counts.users, counts.events, counts.pushTokens, counts.batteryAlerts, counts.dropped);
    const std::vector<Received> entries = inbox.newest(kShownEntries);
    if (entries.empty()) return;
    page += "<table>\n<tr><th>UTC</th><th>What</th><th>Device</th><th>Dated</th><th>Content</th></tr>\n";
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        write(page, "<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td><code>{}</code></td></tr>\n",
              QuomiUtils::descriptionOfDate(entry->at).substr(0, 19), nameOf(entry->kind),
              shown(beginning(entry->udid)), shown(beginning(entry->date)), shownContent(*entry));
    }
    page += "</table>\n";
}

/// One word of a POSIX shell's command line, whatever it contains.
std::string shellWord(std::string_view word) {
    std::string result = "'";
    for (const char c : word) {
        if (c == '\'') {
            result += "'\\''";
        } else {
            result += c;
        }
    }
    return result + "'";
}

std::string curl(const EndpointHelp& endpoint, std::string_view baseUrl) {
    const std::string_view separator = endpoint.query.empty() ? "" : "?";
    std::string command =
        "curl " + shellWord(fmt::format("{}{}{}{}", baseUrl, endpoint.path, separator, endpoint.query));
    if (!endpoint.body.empty()) {
        command += " \\\n  -H 'Content-Type: application/json' \\\n  -d " + shellWord(endpoint.body);
    }
    return command;
}

void writeEndpoints(std::string& page, std::string_view baseUrl, std::span<const EndpointHelp> endpoints) {
    page += "<h2>Endpoints</h2>\n";
    for (const EndpointHelp& endpoint : endpoints) {
        write(page, "<p><code>{} {}</code><br>{}</p>\n<pre>{}</pre>\n", endpoint.method, escapedHtml(endpoint.path),
              escapedHtml(endpoint.purpose), escapedHtml(curl(endpoint, baseUrl)));
    }
}

/// The text of the first of the values that is there.
std::string firstOf(std::initializer_list<const boost::json::value*> values, std::string otherwise) {
    for (const auto* value : values) {
        if (value == nullptr) continue;
        return value->is_string() ? std::string(std::string_view(value->get_string()))
                                  : fmt::format("{}", value->to_number<double>());
    }
    return otherwise;
}

const boost::json::value* inFirst(const boost::json::array& objects, std::string_view member) {
    return objects.empty() ? nullptr : objects.front().get_object().if_contains(member);
}

}  // namespace

std::string escapedHtml(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            case '\0':
                result += "\uFFFD";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string shortened(std::string_view secret) {
    constexpr std::size_t kMost = 8;
    return std::string(secret.substr(0, std::min(kMost, secret.size() / 4))) + "…";
}

ExampleValues::ExampleValues(const simulated::Campaign& campaign) {
    const auto& geofences = campaign.geofences();
    const auto& beacons = campaign.beacons();
    values_ = {{"{namespace}", campaign.namespaceUid()},
               {"{uuid}", firstOf({inFirst(beacons, "proximity_uid"),
                                   campaign.application().if_contains("normal_proximity_uuid")},
                                  Uuid().string())},
               {"{lat}", firstOf({inFirst(geofences, "lat"), inFirst(beacons, "lat")}, "0")},
               {"{lng}", firstOf({inFirst(geofences, "lng"), inFirst(beacons, "lng")}, "0")}};
}

std::string ExampleValues::in(std::string_view text) const {
    std::string result(text);
    for (const auto& [slot, value] : values_) {
        const std::size_t at = result.find(slot);
        if (at != std::string::npos) result.replace(at, slot.size(), value);
    }
    return result;
}

std::string startPage(const simulated::Campaign& campaign, const Inbox& inbox, std::string_view baseUrl,
                      std::span<const EndpointHelp> endpoints) {
    std::string page(kHead);
    write(page, "<h1>Quomi back office</h1>\n<p>Base URL for the SDK: <code>{}</code>, namespace <code>{}</code></p>\n",
          escapedHtml(baseUrl), escapedHtml(campaign.namespaceUid()));
    writeCampaign(page, campaign);
    writeInbox(page, inbox);
    writeEndpoints(page, baseUrl, endpoints);
    return page + "</body>\n</html>\n";
}

}  // namespace quomi::tool
