#include "hosts/simulated/visit/visit_readers.h"

#include <date/tz.h>
#include <fmt/format.h>

// `expect`: what a visit expects of its trace.
namespace quomi::simulated {

namespace json = boost::json;

namespace {

constexpr std::int64_t kMostTimes = 1'000'000'000;

/// What the keys of one expectation are read into. A subject behind `before` is read in the same way.
struct ExpectationReading {
    const Visit& visit;
    Expectation& expectation;
    Subject& subject;
};

using Read = void (*)(const JsonNode& node, ExpectationReading& reading);
using Key = Field<ExpectationReading>;

/// The subject that a key names; there is one.
Subject& begin(const JsonNode& node, std::string_view key, ExpectationReading& reading) {
    auto& subject = reading.subject;
    if (!subject.key.empty()) {
        node.refuse(fmt::format("expected one subject, found \"{}\" and \"{}\"", subject.key, key));
    }
    subject.path = node.path();
    subject.key = key;
    return subject;
}

void mention(const JsonNode& node, Mention::Kind kind, Subject& subject) {
    if (node.isText()) subject.mentions.push_back({node.path(), kind, node.text()});
}

void mentionInEvent(const JsonNode& event, Subject& subject) {
    mention(event["rule_id"], Mention::Kind::rule, subject);
    mention(event["beacon_id"], Mention::Kind::beacon, subject);
    mention(event["geofence_id"], Mention::Kind::geofence, subject);
}

void readRule(const JsonNode& node, ExpectationReading& reading) {
    auto& subject = begin(node, "rule", reading);
    subject.members = {{"rule", node.text()}, {"decision", "executed"}};
    mention(node, Mention::Kind::rule, subject);
}

/// A notification need not have a body, so "*" asks for none.
void readNotification(const JsonNode& node, ExpectationReading& reading) {
    auto& subject = begin(node, "notification", reading);
    subject.members = {{"notification", "*"}};
    if (const auto body = node.text(); body != "*") subject.members["body"] = body;
}

void readEvent(const JsonNode& node, ExpectationReading& reading) {
    auto& subject = begin(node, "event", reading);
    if (!node.isObject()) return node.fail("an object");
    subject.members = {{"delegate", "didLogEvent"}, {"event", node.raw()}};
    mentionInEvent(node, subject);
}

void readRequest(const JsonNode& node, ExpectationReading& reading) {
    auto& subject = begin(node, "request", reading);
    const auto text = node.text() == "*" ? "* *" : node.text();
    const auto blank = text.find(' ');
    const auto path = blank == std::string::npos ? std::string() : text.substr(blank + 1);
    const bool isPath = path.starts_with('/') || path.starts_with('*');
    if (blank == 0 || !isPath || path.find_first_of(" ?#") != std::string::npos) {
        return node.fail("a method, a blank and a path without a query, such as \"POST /u_app_users/*\"");
    }
    subject.members = {{"request", text.substr(0, blank)}};
    subject.urlPath = path;
}

void readDelegate(const JsonNode& node, ExpectationReading& reading) {
    auto& subject = begin(node, "delegate", reading);
    subject.members = {{"delegate", node.text()}};
    mention(node, Mention::Kind::delegate, subject);
}

void readError(const JsonNode& node, ExpectationReading& reading) {
    begin(node, "error", reading).members = {{"error", json::object{{"code", node.integer()}}}};
}

void readRecord(const JsonNode& node, ExpectationReading& reading) {
    auto& subject = begin(node, "record", reading);
    const auto members = node.raw();
    if (!members.is_object() || members.get_object().empty()) return node.fail("an object that is not empty");
    subject.members = members.get_object();
    mention(node["rule"], Mention::Kind::rule, subject);
    mention(node["owner"], Mention::Kind::owner, subject);
    mention(node["decision"], Mention::Kind::decision, subject);
    mention(node["delegate"], Mention::Kind::delegate, subject);
    if (node.has("delegate")) mention(node["region"]["identifier"], Mention::Kind::geofence, subject);
    mentionInEvent(node["event"], subject);
}

void readDecision(const JsonNode& node, ExpectationReading& reading) {
    if (reading.subject.key != "rule") return node.refuse("expected \"decision\" only beside \"rule\"");
    reading.subject.members["decision"] = node.text();
    mention(node, Mention::Kind::decision, reading.subject);
}

void readOwner(const JsonNode& node, ExpectationReading& reading) {
    if (reading.subject.key != "rule") return node.refuse("expected \"of\" only beside \"rule\"");
    reading.subject.members["owner"] = node.text();
    mention(node, Mention::Kind::owner, reading.subject);
}

// ---- conditions

void readTimes(const JsonNode& node, ExpectationReading& reading) {
    auto& expectation = reading.expectation;
    if (!node.isObject()) {
        expectation.least = node.integer(0, kMostTimes);
        expectation.most = expectation.least;
        return;
    }
    static constexpr Field<Expectation> kBounds[] = {
        {"min", [](const JsonNode& n, Expectation& e) { e.least = n.integer(0, kMostTimes); }},
        {"max", [](const JsonNode& n, Expectation& e) { e.most = n.integer(e.least, kMostTimes); }},
    };
    expectation.least = 0;
    readObject<Expectation>(node, kBounds, expectation);
    if (!node.has("min") && !node.has("max")) node.refuse("expected \"min\", \"max\" or both");
}

void readNever(const JsonNode& node, ExpectationReading& reading) {
    node.onlyTrue();
    reading.expectation.least = 0;
    reading.expectation.most = 0;
}

/// "HH:MM" or "HH:MM:SS".
std::optional<std::chrono::seconds> timeOfDay(std::string_view text) {
    if (text.size() != 5 && text.size() != 8) return std::nullopt;
    int values[3] = {};
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isColon = i % 3 == 2;
        if (isColon ? text[i] != ':' : text[i] < '0' || text[i] > '9') return std::nullopt;
        if (!isColon) values[i / 3] = values[i / 3] * 10 + (text[i] - '0');
    }
    if (values[0] > 23 || values[1] > 59 || values[2] > 59) return std::nullopt;
    return std::chrono::hours(values[0]) + std::chrono::minutes(values[1]) + std::chrono::seconds(values[2]);
}

/// When the clocks of the visit's zone show that time, at a moment of the visit or later.
Duration nextAt(std::chrono::seconds time, const Visit& visit, Duration moment) {
    const auto* zone = date::locate_zone(visit.timeZone);
    const WallTime earliest = visit.start + moment;
    auto day = date::floor<date::days>(zone->to_local(earliest));
    auto found = zone->to_sys(day + time, date::choose::earliest);
    if (found < earliest) found = zone->to_sys(day + date::days(1) + time, date::choose::earliest);
    return found - visit.start;
}

Duration readMoment(const JsonNode& node, const Visit& visit, Duration earliest) {
    if (!node.isText()) return node.seconds();
    if (const auto time = timeOfDay(node.text())) return nextAt(*time, visit, earliest);
    node.fail("seconds, or a time of the visit's zone such as \"11:30\" or \"11:30:15\"");
    return {};
}

void readFrom(const JsonNode& node, ExpectationReading& reading) {
    reading.expectation.from = readMoment(node, reading.visit, Duration::zero());
}

void readUntil(const JsonNode& node, ExpectationReading& reading) {
    const auto from = reading.expectation.from.value_or(Duration::zero());
    reading.expectation.until = readMoment(node, reading.visit, from);
    if (*reading.expectation.until < from) node.fail("a time not before \"from\"");
}

// ---- whole expectations

constexpr Key kSubjectKeys[] = {
    {"rule", readRule},
    {"notification", readNotification},
    {"webPage",
     [](const JsonNode& n, ExpectationReading& r) {
         begin(n, "webPage", r).members = {{"webPage", n.text()}};
     }},
    {"openURL",
     [](const JsonNode& n, ExpectationReading& r) {
         begin(n, "openURL", r).members = {{"openURL", n.text()}};
     }},
    {"event", readEvent},
    {"request", readRequest},
    {"delegate", readDelegate},
    {"error", readError},
    {"record", readRecord},
    {"decision", readDecision},
    {"of", readOwner},
};

void requireSubject(const JsonNode& node, const Subject& subject) {
    if (!subject.key.empty()) return;
    std::string list;
    for (const auto& key : std::span(kSubjectKeys).first<9>()) appendQuoted(list, key.key);
    node.refuse(fmt::format("expected one of the subjects {}, found none", list));
}

void readBefore(const JsonNode& node, ExpectationReading& reading) {
    ExpectationReading other{reading.visit, reading.expectation, reading.expectation.before.emplace()};
    readObject<ExpectationReading>(node, kSubjectKeys, other);
    requireSubject(node, other.subject);
}

constexpr Key kConditions[] = {
    {"times", readTimes}, {"never", readNever}, {"from", readFrom}, {"until", readUntil}, {"before", readBefore},
};

constexpr auto kKeys = joined(kSubjectKeys, kConditions);

void readExpectation(const JsonNode& node, const Visit& visit, Expectation& expectation) {
    expectation.path = node.path();
    ExpectationReading reading{visit, expectation, expectation.subject};
    readObject<ExpectationReading>(node, kKeys, reading);
    requireSubject(node, expectation.subject);
    for (const char* other : {"times", "before"}) {
        if (node.has("never") && node.has(other)) {
            node[other].refuse(fmt::format("expected either \"never\" or \"{}\"", other));
        }
    }
}

}  // namespace

void readExpectations(const JsonNode& node, Visit& visit) {
    node.eachItem("an array of expectations", [&](const JsonNode& item) {
        Expectation expectation;
        readExpectation(item, visit, expectation);
        visit.expectations.push_back(std::move(expectation));
    });
}

}  // namespace quomi::simulated
