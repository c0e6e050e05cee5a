#include "tools/quomi/backoffice/backoffice.h"

#include "hosts/simulated/campaign/campaign_queries.h"
#include "hosts/simulated/campaign/device_report.h"
#include "hosts/simulated/json/json_writer.h"
#include "tools/quomi/backoffice/backoffice_page.h"
#include "tools/quomi/backoffice/loopback_server.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <span>
#include <strings.h>
#include <utility>
#include <vector>

#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi::tool {
namespace json = boost::json;
namespace {

constexpr const char* kJson = "application/json";
constexpr const char* kHtml = "text/html; charset=utf-8";
constexpr std::size_t kShownBytes = 200;

struct Reply {
    int status = 200;
    std::string content;
    const char* type = kJson;
    /// For a wrong method: the right ones.
    std::string allow;
};

Reply reply(int status, const json::object& answer) {
    return {status, simulated::jsonText(answer), kJson, {}};
}

Reply refusal(int status, const std::string& error) {
    return reply(status, {{"success", false}, {"error", error}});
}

/// "success" and then the object's own members.
Reply success(const json::object& object) {
    json::object answer{{"success", true}};
    for (const auto& member : object) answer.insert(member);
    return reply(200, answer);
}

Reply answerOf(const simulated::CampaignQueries::Answer& answer, const std::string& fault) {
    return answer ? reply(200, *answer) : refusal(400, fault);
}

constexpr std::string_view kNamespaceSlot = "{namespace}";

/// What stands in the pattern's slot (nothing when it has none), or empty when the path is not of the pattern.
std::optional<std::string_view> slotOf(std::string_view pattern, std::string_view path) {
    const std::size_t at = pattern.find(kNamespaceSlot);
    if (at == std::string_view::npos) return path == pattern ? std::optional(std::string_view()) : std::nullopt;
    const std::string_view before = pattern.substr(0, at);
    const std::string_view after = pattern.substr(at + kNamespaceSlot.size());
    if (path.size() <= before.size() + after.size()) return std::nullopt;
    if (!path.starts_with(before) || !path.ends_with(after)) return std::nullopt;
    return path.substr(at, path.size() - before.size() - after.size());
}

WallTime systemNow() {
    return std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
}

simulated::QueryParameter parametersOf(const httplib::Request& request) {
    return [&request](const char* name) {
        return request.has_param(name) ? std::optional(request.get_param_value(name)) : std::nullopt;
    };
}

/// The target of a request, without the middle of what it calls a push token or an advertising identifier.
std::string withoutSecrets(std::string target) {
    for (const std::string_view name : {"push_token=", "advertising_id="}) {
        for (std::size_t at = 0; (at = target.find(name, at)) != std::string::npos;) {
            at += name.size();
            const std::size_t length = std::min(target.find('&', at), target.size()) - at;
            target.replace(at, length, shortened(std::string_view(target).substr(at, length)));
        }
    }
    return target;
}

bool isLoopbackName(const std::string& host, int port) {
    return std::ranges::any_of(std::array{"127.0.0.1", "localhost", "[::1]"}, [&](const char* name) {
        return ::strcasecmp(host.c_str(), fmt::format("{}:{}", name, port).c_str()) == 0;
    });
}

/// A page of another site that a browser on this machine shows can send requests here, also under a name of its own
/// that it lets point to this machine.
bool comesFromThisMachine(const httplib::Request& request, int port) {
    constexpr std::string_view scheme = "http://";
    if (!isLoopbackName(request.get_header_value("Host"), port)) return false;
    if (!request.has_header("Origin")) return true;
    const auto origin = request.get_header_value("Origin");
    return origin.starts_with(scheme) && isLoopbackName(origin.substr(scheme.size()), port);
}

}  // namespace

class Backoffice::Server {
public:
    Server(simulated::Campaign campaign, OnRequest onRequest, std::unique_ptr<Inbox> inbox)
        : campaign_(std::move(campaign)),
          queries_(campaign_),
          onRequest_(std::move(onRequest)),
          inbox_(inbox ? std::move(inbox) : std::make_unique<Inbox>()) {}

    bool start(int port);
    void stop();
    void setNow(Now now);
    [[nodiscard]] int port() const { return port_; }
    [[nodiscard]] std::string baseUrl() const;
    [[nodiscard]] const simulated::Campaign& campaign() const { return campaign_; }
    [[nodiscard]] const Inbox& inbox() const { return *inbox_; }

private:
    struct Call {
        const httplib::Request& request;
        std::string_view slot;
    };

    struct Route {
        std::string_view method;
        std::string_view pattern;
        Reply (Server::*answer)(const Call& call);
        std::string_view purpose;
        std::string_view query = {};
        std::string_view body = {};
    };

    static std::span<const Route> routes();

    void answer(const httplib::Request& request, httplib::Response& response);
    Reply dispatch(const httplib::Request& request);
    void report(const httplib::Request& request, const httplib::Response& response);

    Reply showPage(const Call& call);
    Reply giveApplication(const Call& call);
    Reply giveLimits(const Call& call);
    Reply takeUser(const Call& call);
    Reply takeEvent(const Call& call);
    Reply takeEvents(const Call& call);
    Reply takePushToken(const Call& call);
    Reply takeBatteryAlert(const Call& call);
    Reply giveBeacons(const Call& call);
    Reply giveGeofences(const Call& call);

    std::optional<Reply> refuseNamespace(std::string_view name) const;
    std::optional<Reply> refuseNamespaceOf(const Call& call) const;
    Reply take(const Call& call, simulated::ReadBody readBody);
    [[nodiscard]] WallTime now();

    const simulated::Campaign campaign_;
    const simulated::CampaignQueries queries_;
    const OnRequest onRequest_;
    std::mutex reportMutex_;
    const std::unique_ptr<Inbox> inbox_;
    std::mutex nowMutex_;
    Now now_ = systemNow;
    std::atomic<int> port_{0};
    std::unique_ptr<LoopbackServer> http_;
};

/// Every endpoint, in the order of the start page. The examples are real requests: the page's reader sends them.
std::span<const Backoffice::Server::Route> Backoffice::Server::routes() {
    static constexpr std::string_view exampleUser =
        R"({"u_app_user": {"udid": "00000000-0000-0000-0000-000000000001", "properties": {"ext_id": "ann"}, )"
        R"("u_application_uid": "{namespace}", "advertising_tracking_mode_enabled": false, "system_name": "iOS", )"
        R"("system_version": "17.1", "sdk_name": "curl", "sdk_version": "1.0", "model": "iPhone", "language": "en"}})";
    static constexpr std::string_view exampleEvent =
        R"({"udid": "00000000-0000-0000-0000-000000000001", "date": "2031-05-04 09:30:00 +0000", )"
        R"("data": {"type": "view", "trigger": "on_entry"}})";
    static constexpr std::string_view exampleEvents =
        R"({"udid": "00000000-0000-0000-0000-000000000001", "logs": [)"
        R"({"date": "2031-05-04 09:30:00 +0000", "data": {"type": "view", "trigger": "on_entry"}}, )"
        R"({"date": "2031-05-04 09:31:00 +0000", "data": {"type": "view", "trigger": "on_exit"}}]})";
    static constexpr std::string_view exampleToken =
        R"({"namespace": "{namespace}", "udid": "00000000-0000-0000-0000-000000000001", )"
        R"("push_token": "00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff"})";
    static constexpr std::string_view exampleAlert =
        R"({"namespace": "{namespace}", "uuid": "{uuid}", "battery_service_id": "70001"})";
    static constexpr Route table[] = {
        {"GET", "/", &Server::showPage, "This page."},
        {"GET", "/u_applications/query.json", &Server::giveApplication, "The application record.",
         "namespace={namespace}"},
        {"GET", "/u_applications/limits.json", &Server::giveLimits, "The limits of all rules together.",
         "namespace={namespace}"},
        {"GET", "/u_beacons/query.json", &Server::giveBeacons,
         "The beacons of a UUID with their rules. Also major, minor; updated_at for those that changed after it.",
         "namespace={namespace}&proximity_uid={uuid}"},
        {"GET", "/u_geofences/query.json", &Server::giveGeofences,
         "The geofences around a position with their rules; the radius is in kilometres. Also updated_at.",
         "namespace={namespace}&lat={lat}&lng={lng}&radius=100"},
        {"POST", "/u_app_users/find_or_create_by_udid.json", &Server::takeUser, "Takes the record of a device's user.",
         "", exampleUser},
        {"POST", "/u_applications/{namespace}/log.json", &Server::takeEvent, "Takes one event.", "", exampleEvent},
        {"POST", "/u_applications/{namespace}/log_multi.json", &Server::takeEvents, "Takes a batch of events.", "",
         exampleEvents},
        {"POST", "/u_app_users/register_push_token.json", &Server::takePushToken, "Takes a device's push token.", "",
         exampleToken},
        {"POST", "/u_beacon_devices/battery_alert.json", &Server::takeBatteryAlert, "Takes a beacon's battery alert.",
         "", exampleAlert},
    };
    return table;
}

bool Backoffice::Server::start(int port) {
    if (http_) return false;
    auto http = std::make_unique<LoopbackServer>();
    http->set_payload_max_length(kMaxBody);
    http->set_default_headers({{"Cache-Control", "no-store"},
                               {"X-Content-Type-Options", "nosniff"},
                               {"Content-Security-Policy", "default-src 'none'; style-src 'unsafe-inline'"}});
    http->answerWith([this](const auto& request, auto& response) { answer(request, response); },
                     [this](const auto& request, const auto& response) { report(request, response); });
    if (!http->bind(port)) return false;
    port_ = http->port();
    http->run();
    http_ = std::move(http);
    return true;
}

void Backoffice::Server::stop() {
    http_.reset();
    port_ = 0;
}

void Backoffice::Server::setNow(Now now) {
    const std::lock_guard lock(nowMutex_);
    now_ = now ? std::move(now) : Now(systemNow);
}

WallTime Backoffice::Server::now() {
    const std::lock_guard lock(nowMutex_);
    return now_();
}

std::string Backoffice::Server::baseUrl() const {
    const int port = port_;
    return port == 0 ? std::string() : fmt::format("http://127.0.0.1:{}", port);
}

void Backoffice::Server::answer(const httplib::Request& request, httplib::Response& response) {
    Reply reply;
    try {
        reply = dispatch(request);
    } catch (const std::exception&) {
        reply = refusal(500, "the back office failed to answer");
    }
    response.status = reply.status;
    response.set_content(reply.content, reply.type);
    if (!reply.allow.empty()) response.set_header("Allow", reply.allow);
}

Reply Backoffice::Server::dispatch(const httplib::Request& request) {
    if (!comesFromThisMachine(request, port_)) {
        return refusal(403,
                       fmt::format("this back office answers to 127.0.0.1:{0} and localhost:{0} only", port_.load()));
    }
    const std::string_view method = request.method == "HEAD" ? std::string_view("GET") : request.method;
    std::string_view allowed;
    for (const Route& route : routes()) {
        const auto slot = slotOf(route.pattern, request.path);
        if (!slot) continue;
        if (route.method == method) return (this->*route.answer)(Call{request, *slot});
        allowed = route.method;
    }
    if (const auto* own = allowed.empty() ? campaign_.answers().if_contains(request.path) : nullptr) {
        if (method == "GET") return reply(200, own->get_object());
        allowed = "GET";
    }
    if (allowed.empty()) return refusal(404, "there is no such endpoint; GET / lists them");
    Reply reply = refusal(405, fmt::format("this endpoint answers {} only", allowed));
    reply.allow = allowed == "GET" ? "GET, HEAD" : allowed;
    return reply;
}

void Backoffice::Server::report(const httplib::Request& request, const httplib::Response& response) {
    if (!onRequest_) return;
    const std::lock_guard lock(reportMutex_);
    try {
        onRequest_(RequestLine{request.method, withoutSecrets(request.target), response.status});
    } catch (...) {  // it counts as one that is not there
    }
}

Reply Backoffice::Server::showPage(const Call&) {
    std::vector<EndpointHelp> endpoints;
    const ExampleValues values(campaign_);
    for (const Route& route : routes()) {
        endpoints.push_back(
            {route.method, values.in(route.pattern), route.purpose, values.in(route.query), values.in(route.body)});
    }
    return {200, startPage(campaign_, *inbox_, baseUrl(), endpoints), kHtml, {}};
}

std::optional<Reply> Backoffice::Server::refuseNamespace(std::string_view name) const {
    if (name == campaign_.namespaceUid()) return std::nullopt;
    return refusal(404, fmt::format("namespace \"{}\" is unknown", neutralised(name.substr(0, kShownBytes))));
}

std::optional<Reply> Backoffice::Server::refuseNamespaceOf(const Call& call) const {
    if (!call.request.has_param("namespace")) return refusal(400, "the query parameter \"namespace\" is missing");
    return refuseNamespace(call.request.get_param_value("namespace"));
}

Reply Backoffice::Server::giveApplication(const Call& call) {
    const auto refused = refuseNamespaceOf(call);
    return refused ? *refused : success(campaign_.application());
}

Reply Backoffice::Server::giveLimits(const Call& call) {
    const auto refused = refuseNamespaceOf(call);
    return refused ? *refused : success(campaign_.limits());
}

Reply Backoffice::Server::giveBeacons(const Call& call) {
    if (const auto refused = refuseNamespaceOf(call)) return *refused;
    std::string fault;
    return answerOf(queries_.beacons(parametersOf(call.request), now(), fault), fault);
}

Reply Backoffice::Server::giveGeofences(const Call& call) {
    if (const auto refused = refuseNamespaceOf(call)) return *refused;
    std::string fault;
    return answerOf(queries_.geofences(parametersOf(call.request), now(), fault), fault);
}

Reply Backoffice::Server::take(const Call& call, simulated::ReadBody readBody) {
    if (!call.request.has_header("Content-Type")) return refusal(415, "the body has to be of type application/json");
    std::string fault;
    auto body = readBody(call.request.body, now(), fault);
    if (!body) return refusal(400, fault);
    const std::string name = body->namespaceUid.value_or(std::string(call.slot));
    if (auto refused = refuseNamespace(name)) return *refused;
    if (!inbox_->add(body->entries)) return refusal(500, "it could not be kept");
    return success({});
}

Reply Backoffice::Server::takeUser(const Call& call) {
    return take(call, simulated::readUserBody);
}

Reply Backoffice::Server::takeEvent(const Call& call) {
    return take(call, simulated::readEventBody);
}

Reply Backoffice::Server::takeEvents(const Call& call) {
    return take(call, simulated::readEventsBody);
}

Reply Backoffice::Server::takePushToken(const Call& call) {
    return take(call, simulated::readPushTokenBody);
}

Reply Backoffice::Server::takeBatteryAlert(const Call& call) {
    return take(call, simulated::readBatteryAlertBody);
}

Backoffice::Backoffice(simulated::Campaign campaign, OnRequest onRequest, std::unique_ptr<Inbox> inbox)
    : server_(std::make_unique<Server>(std::move(campaign), std::move(onRequest), std::move(inbox))) {}

Backoffice::~Backoffice() = default;

bool Backoffice::start(int port) {
    return server_->start(port);
}

void Backoffice::stop() {
    server_->stop();
}

void Backoffice::setNow(Now now) {
    server_->setNow(std::move(now));
}

int Backoffice::port() const {
    return server_->port();
}

std::string Backoffice::baseUrl() const {
    return server_->baseUrl();
}

const simulated::Campaign& Backoffice::campaign() const {
    return server_->campaign();
}

const Inbox& Backoffice::inbox() const {
    return server_->inbox();
}

}  // namespace quomi::tool
