#include "hosts/posix/run_loop.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/api/api_client.h"
#include "quomi/api/curl_transport.h"
#include "quomi/core/settings.h"
#include "quomi/core/user.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/platform.h"
#include "tests/support/loopback_server.h"
#include "tests/support/prelude.h"

#include <atomic>

namespace quomi {
namespace {

using quomi::testing::LoopbackServer;
using quomi::testing::RawServer;
using quomi::testing::ReceivedRequest;

/// The client over real sockets, on a real run loop; everything else of the phone is simulated.
struct RealClient {
    /// "ok BODY", or domain and code.
    std::string ask(const std::string& baseURL) {
        QuomiAPI api(baseURL, platform, settings, debugLog);
        std::string outcome;
        api.getApplicationWithNamespace(
            "my shop/\xC3\xBC", [&](const boost::json::value& body) { outcome = "ok " + serialize(body); },
            [&](const Error& error) { outcome = fmt::format("{} {}", error.domain, error.code); });
        EXPECT_EQ(outcome, "") << "in a later turn";
        loop.runUntil([&] { return !outcome.empty(); }, 10s);
        return outcome;
    }

    posix::RunLoop loop;
    CurlTransport transport{loop};
    simulated::SimulatedPhone phone{{}, {}, &transport};
    Platform platform = phone.platform();
    QuomiSettings settings{{}, platform.location};
    DebugLog debugLog{platform.files, platform.clock, [] { return false; }};
};

std::string bytes(const std::string& statusLine, const std::string& body) {
    return fmt::format("HTTP/1.1 {}\r\nContent-Length: {}\r\n\r\n{}", statusLine, body.size(), body);
}

TEST(ApiOverHttp, OutcomesAsDomainAndCode) {
    RealClient client;
    client.settings.requestTimeout = 10;
    const std::string domain = "QuomiHTTPErrorDomain ";
    EXPECT_EQ(client.ask(RawServer(bytes("200 OK", R"({"success":true})")).url("")), R"(ok {"success":true})");
    EXPECT_EQ(client.ask(RawServer(bytes("200 OK", "")).url("/")), "ok null");
    EXPECT_EQ(client.ask(RawServer("HTTP/1.1 204 No Content\r\n\r\n").url("/")), "ok null");
    EXPECT_EQ(client.ask(RawServer(bytes("503 Busy", "{}")).url("/")), domain + "503");
    EXPECT_EQ(client.ask(RawServer(bytes("302 Found", "{}")).url("/")), domain + "302");
    EXPECT_EQ(client.ask(RawServer(bytes("304 Same", "")).url("/")), domain + "304");
    EXPECT_EQ(client.ask(RawServer(bytes("200 OK", "<html>")).url("/")), domain + "4");
    EXPECT_EQ(client.ask(RawServer("SMTP ready\r\n\r\n").url("/")), domain + "1");
    EXPECT_EQ(client.ask(RawServer("HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\n{}").url("/")), domain + "1")
        << "cut short";
    EXPECT_EQ(client.ask(fmt::format("http://127.0.0.1:{}", quomi::testing::unusedPort())), domain + "1");
    EXPECT_EQ(client.ask("no url"), domain + "1");
    client.settings.requestTimeout = 0.1;
    RawServer silent("", RawServer::Afterwards::hold);
    EXPECT_EQ(client.ask(silent.url("/")), domain + "2");
    EXPECT_TRUE(silent.waitForClientToLeave());
}

TEST(ApiOverHttp, WhatArrivesAtTheServer) {
    ReceivedRequest seen;
    LoopbackServer server([&](const ReceivedRequest& request) {
        seen = request;
        return HttpResponse{200, {}, "{}"};
    });
    RealClient client;
    EXPECT_EQ(client.ask(server.url("/api/")), "ok {}");
    EXPECT_EQ(seen.method + " " + seen.target, "GET /api/u_applications/query.json?namespace=my%20shop%2F%C3%BC");
    EXPECT_EQ(seen.header("accept"), "application/json");

    client.settings.namespace_ = "my shop";
    QuomiAPI api(server.url(""), client.platform, client.settings, client.debugLog);
    bool done = false;
    api.sendBatchOfLogEvents({{WallTime(1s), R"({"n":1})"}}, [&] { done = true; }, {});
    client.loop.runUntil([&] { return done; }, 10s);
    EXPECT_EQ(seen.method + " " + seen.target, "POST /u_applications/my%20shop/log_multi.json");
    EXPECT_EQ(seen.header("content-type"), "application/json");
    EXPECT_EQ(boost::json::parse(seen.body).at("logs").at(0).at("data").at("n"), 1);
}

}  // namespace
}  // namespace quomi
