#include "tools/quomi/timeline/trace_words.h"

#include "quomi/location/location_utils.h"
#include "tools/quomi/timeline/rule_words.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

constexpr std::size_t kLongestAddress = 90;
constexpr std::size_t kLongestText = 160;
constexpr double kShownMove = 100;  // metres
/// What a line of the system log says when something failed.
constexpr std::string_view kComplaints[] = {"Error", "error", "Warning"};

std::int64_t proximityOf(const json::object& record) {
    const auto proximity = numberOf(objectOf(record, "userInfo"), "proximity", 0);
    return proximity >= 0 && proximity <= 7 ? static_cast<std::int64_t>(proximity) : 0;
}

std::string metres(double distance) {
    if (!(distance >= 0)) return "? m";
    return distance < 9999.95 ? fmt::format("{:.1f} m", distance) : "far off";
}

std::string quoted(const std::string& text) {
    return "“" + clipped(text, kLongestText) + "”";
}

/// Title, subtitle and body of a notification.
std::string notificationText(const json::object& fields) {
    std::string text;
    for (const auto* key : {"title", "subtitle", "body"}) {
        const auto part = textOf(fields, key);
        if (part.empty()) continue;
        if (!text.empty()) text += " ";
        text += quoted(part);
    }
    return text.empty() ? "without a text" : text;
}

std::string sourceText(const json::object& record) {
    const auto source = numberOf(record, "triggeredBy", 0);
    if (source == 1) return " for a geofence";
    return source == 2 ? " for a beacon" : "";
}

Tone ruleTone(std::optional<RuleDecision> decision) {
    if (decision == RuleDecision::executed || decision == RuleDecision::serverOrdered) return Tone::shown;
    return decision == RuleDecision::serverFailed || decision == RuleDecision::saveFailed ? Tone::bad : Tone::quiet;
}

}  // namespace

TraceWords::TraceWords(const BeaconNames& names, const LocalClock& clock) : names_(names), clock_(clock) {}

const std::map<std::string_view, TraceWords::Describer>& TraceWords::kinds() {
    static const std::map<std::string_view, Describer> table = {
        {"delegate", &TraceWords::delegate},
        {"rule", &TraceWords::rule},
        {"call", &TraceWords::call},
        {"callback", &TraceWords::callback},
        {"request", &TraceWords::request},
        {"response", &TraceWords::response},
        {"monitor", &TraceWords::watch},
        {"unmonitor", &TraceWords::watch},
        {"range", &TraceWords::watch},
        {"unrange", &TraceWords::watch},
        {"updates", &TraceWords::updates},
        {"notification", &TraceWords::notification},
        {"category", &TraceWords::category},
        {"webPage", &TraceWords::webPage},
        {"openURL", &TraceWords::openURL},
        {"alert", &TraceWords::alert},
        {"authorizationRequest", &TraceWords::permission},
        {"notificationRightsRequest", &TraceWords::permission},
        {"backgroundTask", &TraceWords::backgroundTask},
        {"console", &TraceWords::console},
        {"defaults", &TraceWords::defaults},
    };
    return table;
}

const std::map<std::string_view, TraceWords::Describer>& TraceWords::delegates() {
    static const std::map<std::string_view, Describer> table = {
        {"didFindNewBeacon", &TraceWords::found},
        {"didLoseBeaconSignal", &TraceWords::lost},
        {"didUpdateBeacon", &TraceWords::updated},
        {"didReceivePingFromBeacon", &TraceWords::hidden},
        {"didEnterBeaconRegion", &TraceWords::beaconRegion},
        {"didExitBeaconRegion", &TraceWords::beaconRegion},
        {"didReceiveEnterRegionNotification", &TraceWords::geofence},
        {"didReceiveExitRegionNotification", &TraceWords::geofence},
        {"didReceiveLocationChange", &TraceWords::location},
        {"didLogEvent", &TraceWords::loggedEvent},
        {"didReceiveErrorNotification", &TraceWords::reportedError},
    };
    return table;
}

std::optional<TraceLine> TraceWords::describe(const Record& record, double seconds) {
    now_ = seconds;
    const auto kind = kindOf(record);
    const auto describer = kinds().find(kind);
    if (describer != kinds().end()) return (this->*describer->second)(record);
    const auto text = fmt::format("{} {}  {}", neutralised(kind), textOf(record, kind), otherFields(record, kind));
    return TraceLine{"·", "other", Tone::quiet, clipped(text, kLongestText), Depth::phone};
}

TraceWords::Line TraceWords::delegate(const Record& record) {
    const auto describer = delegates().find(textOf(record, "delegate"));
    return describer != delegates().end() ? (this->*describer->second)(record) : otherDelegate(record);
}

TraceWords::Line TraceWords::otherDelegate(const Record& record) {
    const auto name = textOf(record, "delegate");
    const bool performs = name.starts_with("execute") || name.starts_with("should");
    if (!performs)
        return TraceLine{"◂", "app", Tone::plain, name + "  " + clipped(otherFields(record, "delegate"), kLongestText),
                         Depth::traffic};
    auto text = name;
    if (record.contains("notification")) text += "  " + notificationText(objectOf(record, "notification"));
    if (record.contains("url")) text += "  " + clipped(textOf(record, "url"), kLongestAddress);
    text += sourceText(record);
    if (record.contains("answer")) text += fieldOf(record, "answer") == true ? ", answers yes" : ", answers no";
    return TraceLine{"◂", name.starts_with("should") ? "asked" : "performs", Tone::shown, text};
}

std::string TraceWords::beaconText(const Record& record) const {
    const auto& info = objectOf(record, "userInfo");
    return fmt::format(
        "{}  {:<9}  {:>8}  {:>4.0f} dBm",
        names_.fullName(fieldOf(record, "beacon").is_string() ? textOf(record, "beacon") : std::string("?")),
        proximityWord(proximityOf(record)), metres(numberOf(info, "accuracy", -1)), numberOf(info, "rssi", 0));
}

/// The beacon and its class: distances and strengths are never the same twice.
std::string TraceWords::classText(const Record& record) const {
    return fmt::format("{}  {}", names_.fullName(textOf(record, "beacon")), proximityWord(proximityOf(record)));
}

TraceWords::Line TraceWords::found(const Record& record) {
    visible_[textOf(record, "beacon")] = {now_, proximityOf(record)};
    return TraceLine{"●", "found", Tone::arrived, beaconText(record), Depth::story, classText(record)};
}

TraceWords::Line TraceWords::lost(const Record& record) {
    const auto beacon = textOf(record, "beacon");
    auto text = fmt::format("{}  last {}", names_.fullName(beacon), proximityWord(proximityOf(record)));
    const auto gist = text;
    if (const auto seen = visible_.extract(beacon)) text += ", after " + spanText(now_ - seen.mapped().since);
    return TraceLine{"○", "lost", Tone::gone, text, Depth::story, gist};
}

TraceWords::Line TraceWords::updated(const Record& record) {
    const auto [entry, isNew] = visible_.try_emplace(textOf(record, "beacon"), Visible{now_, 0});
    const auto before = std::exchange(entry->second.proximity, proximityOf(record));
    if (before == entry->second.proximity) return std::nullopt;
    auto text = beaconText(record);
    if (!isNew) text += fmt::format("  was {}", proximityWord(before));
    return TraceLine{
        entry->second.proximity < before ? "▲" : "▼", "updated", Tone::plain, text, Depth::story, classText(record)};
}

TraceWords::Line TraceWords::hidden(const Record&) {
    return std::nullopt;
}

TraceWords::Line TraceWords::beaconRegion(const Record& record) {
    const bool entered = textOf(record, "delegate") == "didEnterBeaconRegion";
    const auto uuid = names_.shortName(textOf(record, "uuid"));
    return entered ? TraceLine{"◉", "region", Tone::arrived, "entered beacon region " + uuid}
                   : TraceLine{"◎", "region", Tone::gone, "left beacon region " + uuid};
}

TraceWords::Line TraceWords::geofence(const Record& record) {
    const bool entered = textOf(record, "delegate") == "didReceiveEnterRegionNotification";
    const auto& region = objectOf(record, "region");
    const auto text = fmt::format("{} geofence {}  at {:.5f}, {:.5f}, radius {:.0f} m", entered ? "entered" : "left",
                                  names_.label(textOf(region, "identifier")), numberOf(region, "lat", 0),
                                  numberOf(region, "lng", 0), numberOf(region, "radius", 0));
    return TraceLine{entered ? "◉" : "◎", "geofence", entered ? Tone::arrived : Tone::gone, text};
}

TraceWords::Line TraceWords::location(const Record& record) {
    const auto place = placeOf(record);
    if (shownPlace_ && QuomiLocationUtils::calculateDistance(*shownPlace_, place) < kShownMove) return std::nullopt;
    shownPlace_ = place;
    return TraceLine{"⌖", "location", Tone::plain, fmt::format("{:.5f}, {:.5f}", place.latitude, place.longitude)};
}

TraceWords::Line TraceWords::loggedEvent(const Record& record) {
    const auto& event = objectOf(record, "event");
    const auto type = textOf(event, "type");
    if (type == "view" || type == "region") return std::nullopt;
    return TraceLine{"·", "event", Tone::quiet, clipped(pairsText(event), kLongestText), Depth::traffic};
}

TraceWords::Line TraceWords::reportedError(const Record& record) {
    return TraceLine{"✗", "error", Tone::bad, errorText(fieldOf(record, "error"))};
}

TraceWords::Line TraceWords::call(const Record& record) {
    const auto name = textOf(record, "call");
    if (name == "stop") visible_.clear();
    const auto& error = fieldOf(record, "error");
    if (!error.is_null())
        return TraceLine{"✗", "call", Tone::bad, fmt::format("{} failed: {}", name, errorText(error))};
    const auto result = textOf(record, "result");
    return TraceLine{"▸", "call", Tone::plain, result.empty() ? name : name + " → " + clipped(result, kLongestText),
                     Depth::traffic};
}

TraceWords::Line TraceWords::callback(const Record& record) {
    const auto& error = fieldOf(record, "error");
    auto text = fmt::format("{} → {}", textOf(record, "callback"), textOf(record, "outcome"));
    if (error.is_null()) return TraceLine{"◂", "callback", Tone::plain, text, Depth::traffic};
    return TraceLine{"✗", "callback", Tone::bad, text + ": " + errorText(error)};
}

std::string TraceWords::shortURL(const std::string& url) {
    const auto scheme = url.find("://");
    const auto path = scheme == std::string::npos ? scheme : url.find('/', scheme + 3);
    if (path == std::string::npos) return clipped(url, kLongestAddress);
    if (home_.empty())
        home_ = url.substr(0, path);
    else if (url.starts_with(home_) && home_.size() == path)
        return clipped(url.substr(path), kLongestAddress);
    return clipped(url, kLongestAddress);
}

TraceWords::Line TraceWords::request(const Record& record) {
    const auto method = textOf(record, "request");
    const auto url = textOf(record, "url");
    sent_.push_back({url, method, now_});
    auto text = fmt::format("{:<4} {}", method, shortURL(url));
    const auto* logs = objectOf(record, "body").if_contains("logs");
    if (logs != nullptr && logs->is_array()) {
        const auto count = logs->get_array().size();
        text += fmt::format("  {} event{}", count, count == 1 ? "" : "s");
    }
    return TraceLine{"→", "request", Tone::network, text, Depth::traffic};
}

TraceWords::Line TraceWords::response(const Record& record) {
    const auto url = textOf(record, "url");
    const auto status = numberOf(record, "response", 0);
    const bool good = status >= 200 && status < 300;
    auto text = fmt::format("{:<4} {}", textOf(record, "response"), shortURL(url));
    const auto sent = std::ranges::find_if(sent_, [&](const Sent& each) { return each.url == url; });
    if (sent != sent_.end()) {
        text += fmt::format("  after {:.2f} s", now_ - sent->at);
        sent_.erase(sent);
    }
    return TraceLine{good ? "←" : "✗", "response", good ? Tone::network : Tone::bad, text,
                     good ? Depth::traffic : Depth::story};
}

TraceWords::Line TraceWords::rule(const Record& record) {
    return TraceLine{"§", "rule", ruleTone(decisionOf(record)),
                     fmt::format("{} of {} ({}): {}", textOf(record, "rule"), names_.label(textOf(record, "owner")),
                                 triggerWord(textOf(record, "trigger")), ruleReason(record, clock_, now_))};
}

TraceWords::Line TraceWords::notification(const Record& record) {
    auto text = notificationText(record);
    if (const auto category = textOf(record, "category"); !category.empty()) text += "  category " + category;
    return TraceLine{"★", "notifies", Tone::shown, text};
}

TraceWords::Line TraceWords::category(const Record& record) {
    std::string actions;
    if (const auto* list = fieldOf(record, "actions").if_array()) {
        for (const auto& action : *list) {
            if (!action.is_object()) continue;
            actions += (actions.empty() ? "" : ", ") + textOf(action.get_object(), "title");
        }
    }
    return TraceLine{"·", "category", Tone::quiet,
                     textOf(record, "category") + (actions.empty() ? " without buttons" : " with " + actions),
                     Depth::phone};
}

TraceWords::Line TraceWords::webPage(const Record& record) {
    return TraceLine{"★", "web page", Tone::shown, clipped(textOf(record, "webPage"), kLongestText)};
}

TraceWords::Line TraceWords::openURL(const Record& record) {
    return TraceLine{"★", "opens", Tone::shown, clipped(textOf(record, "openURL"), kLongestText)};
}

TraceWords::Line TraceWords::alert(const Record& record) {
    return TraceLine{"★", "alert", Tone::shown,
                     quoted(textOf(record, "alert")) + " " + quoted(textOf(record, "message"))};
}

TraceWords::Line TraceWords::console(const Record& record) {
    const auto text = textOf(record, "console");
    const bool isComplaint = std::ranges::any_of(
        kComplaints, [&text](std::string_view word) { return text.find(word) != std::string::npos; });
    return isComplaint ? TraceLine{"✗", "console", Tone::bad, text}
                       : TraceLine{"·", "console", Tone::quiet, text, Depth::traffic};
}

TraceWords::Line TraceWords::watch(const Record& record) {
    const auto kind = kindOf(record);
    static const std::map<std::string_view, std::string_view> words = {{"monitor", "watches "},
                                                                       {"unmonitor", "no longer watches "},
                                                                       {"range", "ranges "},
                                                                       {"unrange", "no longer ranges "}};
    const auto& region = objectOf(record, "region");
    auto text = std::string(words.at(kind)) + textOf(record, kind);
    if (region.contains("uuid")) text += "  " + names_.shortName(textOf(region, "uuid"));
    if (region.contains("lat")) {
        text += fmt::format("  at {:.5f}, {:.5f}, radius {:.0f} m", numberOf(region, "lat", 0),
                            numberOf(region, "lng", 0), numberOf(region, "radius", 0));
    }
    return TraceLine{"·", "phone", Tone::quiet, text, Depth::phone};
}

TraceWords::Line TraceWords::updates(const Record& record) {
    return TraceLine{
        "·", "phone", Tone::quiet,
        fmt::format("{} location updates {}", textOf(record, "updates"), textOf(record, "on") == "true" ? "on" : "off"),
        Depth::phone};
}

TraceWords::Line TraceWords::permission(const Record& record) {
    const bool location = record.contains("authorizationRequest");
    return TraceLine{"?", "permission", Tone::plain,
                     location ? "asks for location, " + textOf(record, "authorizationRequest")
                              : std::string("asks for notifications")};
}

TraceWords::Line TraceWords::backgroundTask(const Record& record) {
    const bool begins = textOf(record, "backgroundTask") == "begin";
    return TraceLine{"·", "phone", Tone::quiet,
                     fmt::format("background task {} {}", textOf(record, "id"), begins ? "begins" : "ends"),
                     Depth::phone};
}

TraceWords::Line TraceWords::defaults(const Record& record) {
    return TraceLine{"·", "defaults", Tone::quiet,
                     clipped(textOf(record, "defaults") + " = " + textOf(record, "value"), kLongestText), Depth::phone};
}

}  // namespace quomi::tool
