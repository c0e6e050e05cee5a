#include "tools/quomi/backoffice.h"

#include "tools/quomi/backoffice_body.h"
#include "tools/quomi/backoffice_page.h"
#include "tools/quomi/loopback_server.h"
#include "tools/quomi/terminal_text.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <span>
#include <utility>
#include <vector>

#include <boost/json/serialize.hpp>
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
    return {status, json::serialize(answer), kJson, {}};
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

std::string withNamespace(std::string_view pattern, const std::string& name) {
    std::string text(pattern);
    const std::size_t at = text.find(kNamespaceSlot);
    return at == std::string::npos ? text : text.replace(at, kNamespaceSlot.size(), name);
}

WallTime now() {
    return std::chrono::time_point_cast<Duration>(std::chrono::system_clock::now());
}

}  // namespace

class Backoffice::Server {
public:
    Server(Campaign campaign, OnRequest onRequest) : campaign_(std::move(campaign)), onRequest_(std::move(onRequest)) {}

    bool start(int port);
    void stop();
    [[nodiscard]] int port() const { return port_; }
    [[nodiscard]] std::string baseUrl() const;
    [[nodiscard]] const Campaign& campaign() const { return campaign_; }
    [[nodiscard]] const Inbox& inbox() const { return inbox_; }

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
    Reply notServed(const Call& call);

    std::optional<Reply> refuseNamespace(std::string_view name) const;
    Reply ifNamespaceGiven(const Call& call, const json::object& object) const;
    Reply take(const Call& call, ReadBody readBody);

    const Campaign campaign_;
    const OnRequest onRequest_;
    std::mutex reportMutex_;
    Inbox inbox_;
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
    static constexpr Route table[] = {
        {"GET", "/", &Server::showPage, "This page."},
        {"GET", "/u_applications/query.json", &Server::giveApplication, "The application record.",
         "namespace={namespace}"},
        {"GET", "/u_applications/limits.json", &Server::giveLimits, "The limits of the application's notifications.",
         "namespace={namespace}"},
        {"POST", "/u_app_users/find_or_create_by_udid.json", &Server::takeUser, "Takes the record of a device's user.",
         "", exampleUser},
        {"POST", "/u_applications/{namespace}/log.json", &Server::takeEvent, "Takes one event.", "", exampleEvent},
        {"POST", "/u_applications/{namespace}/log_multi.json", &Server::takeEvents, "Takes a batch of events.", "",
         exampleEvents},
        {"GET", "/u_beacons/query.json", &Server::notServed, "Beacons and their rules."},
        {"GET", "/u_geofences/query.json", &Server::notServed, "Geofences and their rules."},
        {"POST", "/u_app_users/register_push_token.json", &Server::notServed, "Takes a push token."},
        {"POST", "/u_beacon_devices/battery_alert.json", &Server::notServed, "Takes a beacon's battery alert."},
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
    const std::string_view method = request.method == "HEAD" ? std::string_view("GET") : request.method;
    std::string_view allowed;
    for (const Route& route : routes()) {
        const auto slot = slotOf(route.pattern, request.path);
        if (!slot) continue;
        if (route.method == method) return (this->*route.answer)(Call{request, *slot});
        allowed = route.method;
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
        onRequest_(RequestLine{request.method, request.target, response.status});
    } catch (...) {  // it counts as one that is not there
    }
}

Reply Backoffice::Server::showPage(const Call&) {
    std::vector<EndpointHelp> endpoints;
    for (const Route& route : routes()) {
        const auto filled = [&](std::string_view text) { return withNamespace(text, campaign_.namespaceUid()); };
        endpoints.push_back({route.method, filled(route.pattern), route.purpose, filled(route.query),
                             filled(route.body), route.answer != &Server::notServed});
    }
    return {200, startPage(campaign_, inbox_, baseUrl(), endpoints), kHtml, {}};
}

std::optional<Reply> Backoffice::Server::refuseNamespace(std::string_view name) const {
    if (name == campaign_.namespaceUid()) return std::nullopt;
    return refusal(404, fmt::format("namespace \"{}\" is unknown", neutralised(name.substr(0, kShownBytes))));
}

Reply Backoffice::Server::ifNamespaceGiven(const Call& call, const json::object& object) const {
    if (!call.request.has_param("namespace")) return refusal(400, "the query parameter \"namespace\" is missing");
    const auto refused = refuseNamespace(call.request.get_param_value("namespace"));
    return refused ? *refused : success(object);
}

Reply Backoffice::Server::giveApplication(const Call& call) {
    return ifNamespaceGiven(call, campaign_.application());
}

Reply Backoffice::Server::giveLimits(const Call& call) {
    return ifNamespaceGiven(call, campaign_.limits());
}

Reply Backoffice::Server::take(const Call& call, ReadBody readBody) {
    std::string fault;
    auto body = readBody(call.request.body, now(), fault);
    if (!body) return refusal(400, fault);
    const std::string name = body->namespaceUid.value_or(std::string(call.slot));
    if (auto refused = refuseNamespace(name)) return *refused;
    inbox_.add(std::move(body->entries));
    return success({});
}

Reply Backoffice::Server::takeUser(const Call& call) {
    return take(call, readUserBody);
}

Reply Backoffice::Server::takeEvent(const Call& call) {
    return take(call, readEventBody);
}

Reply Backoffice::Server::takeEvents(const Call& call) {
    return take(call, readEventsBody);
}

Reply Backoffice::Server::notServed(const Call&) {
    return refusal(404, "this endpoint is not served by this version of the back office");
}

Backoffice::Backoffice(Campaign campaign, OnRequest onRequest)
    : server_(std::make_unique<Server>(std::move(campaign), std::move(onRequest))) {}

Backoffice::~Backoffice() = default;

bool Backoffice::start(int port) {
    return server_->start(port);
}

void Backoffice::stop() {
    server_->stop();
}

int Backoffice::port() const {
    return server_->port();
}

std::string Backoffice::baseUrl() const {
    return server_->baseUrl();
}

const Campaign& Backoffice::campaign() const {
    return server_->campaign();
}

const Inbox& Backoffice::inbox() const {
    return server_->inbox();
}

}  // namespace quomi::tool
