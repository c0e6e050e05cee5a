#include "tools/quomi/backoffice/backoffice.h"

#include "hosts/simulated/campaign/campaign_server.h"
#include "tools/quomi/backoffice/backoffice_page.h"
#include "tools/quomi/backoffice/loopback_server.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <optional>
#include <strings.h>
#include <utility>
#include <vector>

#include <fmt/format.h>

namespace quomi::tool {
namespace {

constexpr const char* kJson = "application/json";
constexpr const char* kHtml = "text/html; charset=utf-8";
struct Reply : simulated::CampaignReply {
    const char* type = kJson;
};

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
        : onRequest_(std::move(onRequest)),
          inbox_(inbox ? std::move(inbox) : std::make_unique<Inbox>()),
          server_(std::move(campaign), [this](const auto& entries) { return inbox_->add(entries); }) {}

    bool start(int port);
    void stop();
    void setNow(Now now);
    [[nodiscard]] int port() const { return port_; }
    [[nodiscard]] std::string baseUrl() const;
    [[nodiscard]] const simulated::Campaign& campaign() const { return server_.campaign(); }
    [[nodiscard]] const Inbox& inbox() const { return *inbox_; }

private:
    void answer(const httplib::Request& request, httplib::Response& response);
    Reply dispatch(const httplib::Request& request);
    void report(const httplib::Request& request, const httplib::Response& response);

    Reply showPage() const;
    [[nodiscard]] WallTime now();

    const OnRequest onRequest_;
    std::mutex reportMutex_;
    const std::unique_ptr<Inbox> inbox_;
    const simulated::CampaignServer server_;
    std::mutex nowMutex_;
    Now now_ = systemNow;
    std::atomic<int> port_{0};
    std::unique_ptr<LoopbackServer> http_;
};

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
        reply = {simulated::refusal(500, "the back office failed to answer")};
    }
    response.status = reply.status;
    response.set_content(reply.content, reply.type);
    if (!reply.allow.empty()) response.set_header("Allow", reply.allow);
}

Reply Backoffice::Server::dispatch(const httplib::Request& request) {
    if (!comesFromThisMachine(request, port_)) {
        return {simulated::refusal(
            403, fmt::format("this back office answers to 127.0.0.1:{0} and localhost:{0} only", port_.load()))};
    }
    if (request.path == "/") {
        const bool reads = request.method == "GET" || request.method == "HEAD";
        return reads ? showPage() : Reply{simulated::wrongMethod("GET")};
    }
    return {server_.answer(
        {request.method, request.path, parametersOf(request), request.body, request.has_header("Content-Type")},
        now())};
}

void Backoffice::Server::report(const httplib::Request& request, const httplib::Response& response) {
    if (!onRequest_) return;
    const std::lock_guard lock(reportMutex_);
    try {
        onRequest_(RequestLine{request.method, withoutSecrets(request.target), response.status});
    } catch (...) {  // it counts as one that is not there
    }
}

Reply Backoffice::Server::showPage() const {
    std::vector<EndpointHelp> endpoints{{"GET", "/", "This page.", {}, {}}};
    const ExampleValues values(campaign());
    for (const auto& each : simulated::CampaignServer::endpoints()) {
        endpoints.push_back(
            {each.method, values.in(each.path), each.purpose, values.in(each.query), values.in(each.body)});
    }
    return {{200, startPage(campaign(), *inbox_, baseUrl(), endpoints), {}}, kHtml};
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
