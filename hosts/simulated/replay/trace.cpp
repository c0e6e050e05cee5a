#include "hosts/simulated/replay/trace.h"

#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"

#include <boost/json/string.hpp>
#include <fmt/format.h>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

double milliseconds(Duration span) {
    return static_cast<double>(std::chrono::floor<std::chrono::milliseconds>(span).count()) / 1000.0;
}

/// Bodies stand decoded when they are JSON.
json::value decoded(const std::string& body) {
    if (body.empty()) return nullptr;
    auto value = quomi::parseJson(body);
    return value ? std::move(*value) : json::value(body);
}

json::object headersOf(const HttpHeaders& headers) {
    json::object object;
    for (const auto& [name, value] : headers) object[name] = value;
    return object;
}

json::object requestFields(const HttpRequest& request) {
    json::object fields{{"url", request.url}, {"headers", headersOf(request.headers)}};
    if (!request.body.empty()) fields["body"] = decoded(request.body);
    return fields;
}

json::array categoryActions(const NotificationCategory& category) {
    json::array actions;
    for (const auto& action : category.actions) {
        actions.push_back({{"identifier", action.identifier}, {"title", action.title}, {"options", action.options}});
    }
    return actions;
}

}  // namespace

void Trace::write(std::string_view record, json::value value, json::object fields) const {
    json::object line{{"t", milliseconds(clock_.monotonicNow().time_since_epoch())}};
    line.reserve(fields.size() + 2);
    line.emplace(record, std::move(value));
    for (auto& field : fields) line.emplace(field.key(), std::move(field.value()));
    sink_(line);
}

json::object traceRule(const RuleReport& report) {
    return {{"owner", report.owner},
            {"trigger", report.trigger},
            {"decision", nameOf(report.decision)},
            {"detail", report.detail}};
}

std::string traceDate(WallTime date) {
    return QuomiUtils::stringUTCForDate(date, "UTC");
}

json::value traceError(const std::optional<Error>& error) {
    if (!error) return nullptr;
    const auto description = error->localizedDescription();
    return json::object{{"domain", error->domain},
                        {"code", error->code},
                        {"description", description ? json::value(*description) : json::value(nullptr)}};
}

json::object traceRegion(const Region& region) {
    if (const auto* circle = std::get_if<CircularRegion>(&region)) {
        return {{"identifier", circle->identifier},
                {"lat", circle->center.latitude},
                {"lng", circle->center.longitude},
                {"radius", circle->radius}};
    }
    const auto& beacons = std::get<BeaconRegion>(region);
    return {{"identifier", beacons.identifier}, {"uuid", beacons.proximityUUID.string()}};
}

json::object traceNotification(const NotificationRequest& notification) {
    json::object fields;
    if (notification.title) fields["title"] = *notification.title;
    if (notification.subtitle) fields["subtitle"] = *notification.subtitle;
    if (notification.body) fields["body"] = *notification.body;
    if (notification.badge) fields["badge"] = *notification.badge;
    if (notification.sound) fields["sound"] = *notification.sound;
    if (notification.category) fields["category"] = *notification.category;
    fields["userInfo"] = notification.userInfo;
    json::array attachments;
    for (const auto& path : notification.attachments) {
        attachments.emplace_back(path.substr(path.find_last_of('/') + 1));
    }
    fields["attachments"] = std::move(attachments);
    return fields;
}

PhoneObserver Trace::observer(const std::function<const Trace&()>& trace) {
    PhoneObserver told;
    const auto regionRecord = [trace](const char* record) {
        return [trace, record](const Region& region) {
            trace().write(record, json::value(regionIdentifier(region)), {{"region", traceRegion(region)}});
        };
    };
    told.monitor = regionRecord("monitor");
    told.unmonitor = regionRecord("unmonitor");
    told.range = regionRecord("range");
    told.unrange = regionRecord("unrange");
    told.updates = [trace](std::string_view kind, bool on) {
        trace().write("updates", json::value(kind), {{"on", on}});
    };
    told.authorizationRequest = [trace](std::string_view level) {
        trace().write("authorizationRequest", json::value(level));
    };
    told.notificationRightsRequest = [trace](unsigned) { trace().write("notificationRightsRequest", true); };
    told.notification = [trace](const NotificationRequest& notification) {
        trace().write("notification", json::value(notification.identifier), traceNotification(notification));
    };
    told.categoryRegistered = [trace](const NotificationCategory& category) {
        trace().write("category", json::value(category.identifier), {{"actions", categoryActions(category)}});
    };
    told.webPage = [trace](const std::string& url) { trace().write("webPage", json::value(url)); };
    told.openURL = [trace](const std::string& url) { trace().write("openURL", json::value(url)); };
    told.alert = [trace](const std::string& title, const std::string& message) {
        trace().write("alert", json::value(title), {{"message", message}});
    };
    told.backgroundTask = [trace](std::string_view what, BackgroundTaskIdentifier task) {
        trace().write("backgroundTask", json::value(what), {{"id", task}});
    };
    told.console = [trace](std::string_view text) { trace().write("console", json::value(text)); };
    told.defaults = [trace](const std::string& key, bool value) {
        trace().write("defaults", json::value(key), {{"value", value}});
    };
    told.request = [trace](const HttpRequest& request) {
        trace().write("request", json::value(request.method), requestFields(request));
    };
    told.response = [trace](const std::string& url, const ResponseOutcome& outcome) {
        trace().write("response", std::visit([](const auto& word) { return json::value(word); }, outcome),
                      {{"url", url}});
    };
    return told;
}

}  // namespace quomi::simulated
