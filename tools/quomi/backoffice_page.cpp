#include "tools/quomi/backoffice_page.h"

#include "quomi/util/dates.h"
#include "tools/quomi/campaign.h"
#include "tools/quomi/inbox.h"

#include <iterator>
#include <utility>
#include <vector>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi::tool {
namespace {

constexpr std::size_t kShownEntries = 50;
constexpr std::size_t kShownBytes = 2000;

constexpr std::string_view kHead = R"html(<!DOCTYPE html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width">
<title>Quomi back office</title>
<style>
body { font: 16px/1.5 system-ui, sans-serif; max-width: 60rem; margin: 2rem auto; padding: 0 1rem; color: #222; }
h1, h2 { line-height: 1.2; }
table { border-collapse: collapse; width: 100%; }
th, td { text-align: left; vertical-align: top; padding: .25rem .75rem .25rem 0; border-bottom: 1px solid #ddd; }
code, pre { font: 14px/1.4 ui-monospace, monospace; overflow-wrap: anywhere; }
pre { background: #f4f4f2; padding: .5rem .75rem; white-space: pre-wrap; margin: .25rem 0 1rem; }
</style>
</head>
<body>
)html";

template <typename... Args>
void write(std::string& page, fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(page), format, std::forward<Args>(args)...);
}

void row(std::string& page, std::string_view name, std::string_view value) {
    write(page, "<tr><th>{}</th><td>{}</td></tr>\n", escapedHtml(name), escapedHtml(value));
}

void rows(std::string& page, const boost::json::object& object) {
    for (const auto& member : object) {
        const bool isText = member.value().is_string();
        row(page, member.key(),
            isText ? std::string(std::string_view(member.value().get_string())) : serialize(member.value()));
    }
}

void writeCampaign(std::string& page, const Campaign& campaign) {
    page += "<h2>Served</h2>\n<table>\n";
    rows(page, campaign.application());
    rows(page, campaign.limits());
    page += "</table>\n";
    write(page, "<p>The campaign also has {} beacons and {} geofences. This version does not serve them yet.</p>\n",
          campaign.beacons().size(), campaign.geofences().size());
}

/// The beginning of a long text, cut between characters.
std::string beginning(const std::string& text) {
    if (text.size() <= kShownBytes) return text;
    std::size_t end = kShownBytes;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
    return text.substr(0, end) + " …";
}

void writeInbox(std::string& page, const Inbox& inbox) {
    const Inbox::Counts counts = inbox.counts();
    write(page, "<h2>Received</h2>\n<p>{} user records and {} events; {} are no longer kept.</p>\n", counts.users,
          counts.events, counts.dropped);
    const std::vector<Received> entries = inbox.newest(kShownEntries);
    if (entries.empty()) return;
    page += "<table>\n<tr><th>UTC</th><th>What</th><th>Device</th><th>Dated</th><th>Content</th></tr>\n";
    for (auto entry = entries.rbegin(); entry != entries.rend(); ++entry) {
        write(page, "<tr><td>{}</td><td>{}</td><td>{}</td><td>{}</td><td><code>{}</code></td></tr>\n",
              QuomiUtils::descriptionOfDate(entry->at).substr(0, 19),
              entry->kind == ReceivedKind::user ? "user" : "event", escapedHtml(entry->udid), escapedHtml(entry->date),
              escapedHtml(beginning(entry->content)));
    }
    page += "</table>\n";
}

/// One word of a POSIX shell's command line, whatever it contains.
std::string quoted(std::string_view word) {
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
    std::string command = "curl " + quoted(fmt::format("{}{}{}{}", baseUrl, endpoint.path, separator, endpoint.query));
    if (!endpoint.body.empty()) {
        command += " \\\n  -H 'Content-Type: application/json' \\\n  -d " + quoted(endpoint.body);
    }
    return command;
}

void writeEndpoints(std::string& page, std::string_view baseUrl, std::span<const EndpointHelp> endpoints) {
    page += "<h2>Endpoints</h2>\n";
    for (const EndpointHelp& endpoint : endpoints) {
        write(page, "<p><code>{} {}</code><br>{}{}</p>\n", endpoint.method, escapedHtml(endpoint.path),
              escapedHtml(endpoint.purpose), endpoint.isServed ? "" : " Not served by this version.");
        if (endpoint.isServed) write(page, "<pre>{}</pre>\n", escapedHtml(curl(endpoint, baseUrl)));
    }
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

std::string startPage(const Campaign& campaign, const Inbox& inbox, std::string_view baseUrl,
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
