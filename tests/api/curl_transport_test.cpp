#include "quomi/api/curl_transport.h"

#include "tests/api/curl_client.h"
#include "tests/support/loopback_server.h"

#include <atomic>
#include <cstdlib>

namespace quomi {
namespace {

using quomi::testing::LoopbackServer;
using quomi::testing::RawServer;
using quomi::testing::ReceivedRequest;
using quomi::testing::unusedPort;

/// "banana " three hundred times over, in gzip.
std::string zippedBananas() {
    static constexpr unsigned char bytes[] = {0x1f, 0x8b, 0x08, 0x00, 0x00, 0x00, 0x00, 0x00, 0x02, 0x03, 0x4b,
                                              0x4a, 0xcc, 0x03, 0x42, 0x85, 0xa4, 0x51, 0x6a, 0x94, 0x1a, 0xa5,
                                              0x46, 0xa9, 0x51, 0x6a, 0x94, 0x1a, 0xa5, 0x46, 0x29, 0x7c, 0x14,
                                              0x00, 0x78, 0xbd, 0xf2, 0x21, 0x34, 0x08, 0x00, 0x00};
    return {std::begin(bytes), std::end(bytes)};
}

TEST(CurlTransport, HandsAnswersThroughWhateverTheirStatusAndBody) {
    const std::string binary("\x00\xff{not json", 11);
    LoopbackServer server([&](const ReceivedRequest& request) {
        const int status = std::stoi(request.target.substr(1));
        return HttpResponse{status, {{"X-Mixed-CASE", "Kept As Is"}}, status == 204 ? "" : binary};
    });
    CurlClient client;
    for (const int status : {200, 201, 204, 302, 400, 404, 500, 503}) {
        const HttpResult result = client.get(server.url(fmt::format("/{}", status)));
        ASSERT_EQ(outcome(result), status) << messageOf(result);
        EXPECT_EQ(bodyOf(result), status == 204 ? "" : binary) << status;
        EXPECT_THAT(std::get<HttpResponse>(result).headers, Contains(Pair("x-mixed-case", "Kept As Is"))) << status;
    }
}

TEST(CurlTransport, RequestsArriveAsGiven) {
    ReceivedRequest seen;
    LoopbackServer server([&](const ReceivedRequest& request) {
        seen = request;
        return HttpResponse{200, {}, "ok"};
    });
    CurlClient client;
    const std::string body = std::string(2 << 20, 'x') + std::string("\0end", 4);
    const HttpHeaders headers{{"Content-Type", "application/json"}, {"Content-Length", "3"}};
    EXPECT_EQ(outcome(client.fetch({"POST", server.url("/a%20b?q=%41&r=+"), headers, body})), 200);
    EXPECT_EQ(seen.method, "POST");
    EXPECT_EQ(seen.target, "/a%20b?q=%41&r=+");
    EXPECT_EQ(seen.header("content-type"), "application/json");
    EXPECT_EQ(seen.header("content-length"), std::to_string(body.size()));
    EXPECT_TRUE(seen.body == body);

    for (const char* method : {"GET", "POST", "PUT"}) {
        EXPECT_EQ(bodyOf(client.fetch({method, server.url(), {}, ""})), "ok") << method;
        EXPECT_EQ(seen.method, method);
        for (const char* unasked : {"content-type", "expect", "user-agent", "cookie"}) {
            EXPECT_EQ(seen.header(unasked), "") << method << " " << unasked;
        }
    }
    const HttpResult head = client.fetch({"HEAD", server.url(), {}, ""});
    EXPECT_EQ(outcome(head), 200);
    EXPECT_EQ(bodyOf(head), "");

    RawServer raw("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(outcome(client.fetch({"GET", raw.url(), {{"X-Empty", ""}, {"accept", "text/html"}}, ""})), 200);
    EXPECT_THAT(raw.lastRequest(), HasSubstr("\r\nX-Empty:\r\naccept: text/html\r\n"));
}

TEST(CurlTransport, RequestsThatCannotBeSentFailInALaterTurn) {
    CurlClient client;
    const std::string refused = fmt::format("http://127.0.0.1:{}/", unusedPort());
    const std::vector<HttpRequest> requests{
        {"GET", "", {}, ""},
        {"GET", "garbage", {}, ""},
        {"GET", "/relative", {}, ""},
        {"GET", "ftp://127.0.0.1/file", {}, ""},
        {"GET", "file:///etc/passwd", {}, ""},
        {"GET", "http://", {}, ""},
        {"GET", "http://127.0.0.1:99999/", {}, ""},
        {"GET", "http://127.0.0.1/with blank", {}, ""},
        {"GET", refused, {}, ""},
        {"GET /other", refused, {}, ""},
        {"GET", refused, {{"X-A", "1\r\nX-B: 2"}}, ""},
        {"GET", refused, {{"X A", "1"}}, ""},
    };
    for (const HttpRequest& request : requests) {
        const HttpResult result = client.fetch(request);
        EXPECT_EQ(outcome(result), kConnectionFailed) << request.method << " " << request.url;
        EXPECT_NE(messageOf(result), "") << request.url;
    }
}

TEST(CurlTransport, BrokenAnswersAreConnectionFailures) {
    const std::vector<std::pair<std::string, std::string>> answers{
        {"nothing", ""},
        {"truncated head", "HTTP/1.1 200 O"},
        {"truncated headers", "HTTP/1.1 200 OK\r\nContent-Type: appl"},
        {"truncated body", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{\"a\":"},
        {"truncated chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n"},
        {"no chunks", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\nhello\r\n0\r\n\r\n"},
        {"no HTTP", "220 mail.example ESMTP\r\n"},
        {"no gzip", "HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: 5\r\n\r\nhello"},
    };
    CurlClient client;
    for (const auto& [name, answer] : answers) {
        RawServer server(answer);
        const HttpResult result = client.get(server.url());
        EXPECT_EQ(outcome(result), kConnectionFailed) << name;
        EXPECT_NE(messageOf(result), "") << name;
    }
    RawServer unlimited("HTTP/1.1 200 OK\r\n\r\nuntil it closes");
    EXPECT_EQ(bodyOf(client.get(unlimited.url())), "until it closes");
}

TEST(CurlTransport, LongAnswersAreRefusedHoweverTheyArrive) {
    const std::string bananas = zippedBananas();
    RawServer announced("HTTP/1.1 200 OK\r\nContent-Length: 1001\r\n\r\n", RawServer::Afterwards::hold);
    RawServer endless("HTTP/1.1 200 OK\r\n\r\n" + std::string(1001, 'x'), RawServer::Afterwards::hold);
    RawServer zipped(fmt::format("HTTP/1.1 200 OK\r\nContent-Encoding: gzip\r\nContent-Length: {}\r\n\r\n{}",
                                 bananas.size(), bananas));
    RawServer fits("HTTP/1.1 200 OK\r\n\r\n" + std::string(1000, 'x'));
    CurlTransportOptions options;
    options.maxResponseBytes = 1000;
    CurlClient bounded(options);
    for (RawServer* server : {&announced, &endless, &zipped}) {
        const HttpResult result = bounded.get(server->url());
        EXPECT_EQ(outcome(result), kUnusable);
        EXPECT_EQ(messageOf(result), "The answer is longer than 1000 bytes");
        EXPECT_EQ(std::get<HttpFailure>(result).status, 200);
    }
    HttpRequest longer{"GET", zipped.url(), {}, ""};
    longer.maxResponseBytes = 2100;
    EXPECT_EQ(bodyOf(bounded.fetch(longer)).size(), 2100U) << "the request's own bound";
    EXPECT_EQ(bodyOf(bounded.get(fits.url())).size(), 1000U);
    EXPECT_EQ(bodyOf(CurlClient().get(zipped.url())).substr(2093), "banana ");
}

TEST(CurlTransport, SilenceEndsARequest) {
    RawServer silent("", RawServer::Afterwards::hold);
    RawServer stalls("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf", RawServer::Afterwards::hold);
    RawServer redirects(fmt::format("HTTP/1.1 302 Found\r\nLocation: {}\r\nContent-Length: 0\r\n\r\n", silent.url()));
    CurlClient client;
    for (RawServer* server : {&silent, &stalls, &redirects}) {
        const auto begin = std::chrono::steady_clock::now();
        HttpRequest request{"GET", server->url(), {}, ""};
        request.timeout = 60ms;
        EXPECT_EQ(outcome(client.fetch(request)), kTimedOut);
        const auto took = std::chrono::steady_clock::now() - begin;
        EXPECT_GE(took, 60ms);
        EXPECT_LT(took, 2s);
    }
    HttpRequest late{"GET", silent.url(), {}, ""};
    late.timeout = Duration::zero();
    EXPECT_EQ(outcome(client.fetch(late)), kTimedOut);
}

TEST(CurlTransport, FollowsRedirectsWithinBounds) {
    std::atomic<int> requests = 0;
    LoopbackServer server([&](const ReceivedRequest& request) {
        ++requests;
        const std::string& target = request.target;
        const auto to = [](const char* location) { return HttpResponse{302, {{"Location", location}}, "moved"}; };
        if (target == "/start/relative") return to("../end?a b");
        if (target == "/loop") return to("/loop");
        if (target == "/file") return to("file:///etc/passwd");
        if (target == "/ftp") return to("ftp://127.0.0.1/");
        if (target == "/unusable") return to("http://[nonsense/");
        if (target == "/nowhere") return HttpResponse{302, {}, "moved"};
        if (target == "/choice") return HttpResponse{300, {{"Location", "/end"}}, "moved"};
        return HttpResponse{200, {}, target};
    });
    CurlClient client;
    EXPECT_EQ(bodyOf(client.get(server.url("/start/relative"))), "/end?a+b");
    for (const auto& [path, status, count] : Table<const char*, int, int>{{"/loop", 302, 6},
                                                                          {"/file", 302, 1},
                                                                          {"/ftp", 302, 1},
                                                                          {"/unusable", 302, 1},
                                                                          {"/nowhere", 302, 1},
                                                                          {"/choice", 300, 1}}) {
        requests = 0;
        const HttpResult result = client.get(server.url(path));
        EXPECT_EQ(outcome(result), status) << path << messageOf(result);
        EXPECT_EQ(bodyOf(result), "moved") << path;
        EXPECT_EQ(requests, count) << path;
    }
}

TEST(CurlTransport, RedirectsCarryOnlyWhatTheyMay) {
    ReceivedRequest seen;
    const auto end = [&](const ReceivedRequest& request) {
        seen = request;
        return HttpResponse{200, {}, ""};
    };
    LoopbackServer other(end);
    LoopbackServer server([&](const ReceivedRequest& request) {
        if (request.target == "/end") return end(request);
        const int status = std::stoi(request.target.substr(request.target.size() - 3));
        const bool leaves = request.target.starts_with("/leave/");
        return HttpResponse{status, {{"Location", leaves ? other.url("/end") : "/end"}}, ""};
    });
    CurlClient client;
    const HttpHeaders headers{
        {"Content-Type", "text/plain"}, {"Accept", "text/html"}, {"X-Key", "secret"}, {"Authorization", "Basic QQ=="}};
    for (const auto& [method, path, nextMethod, keepsSecrets] :
         Table<std::string, const char*, std::string, bool>{{"POST", "/stay/301", "GET", true},
                                                            {"POST", "/stay/302", "GET", true},
                                                            {"POST", "/stay/303", "GET", true},
                                                            {"POST", "/stay/307", "POST", true},
                                                            {"PUT", "/stay/302", "PUT", true},
                                                            {"PUT", "/stay/303", "GET", true},
                                                            {"GET", "/leave/302", "GET", false},
                                                            {"GET", "/leave/308", "GET", false},
                                                            {"POST", "/leave/303", "GET", false}}) {
        const bool hasBody = nextMethod != "GET";
        const std::string body = method == "GET" ? "" : "body";
        EXPECT_EQ(outcome(client.fetch({method, server.url(path), headers, body})), 200);
        EXPECT_EQ(seen.method, nextMethod) << path;
        EXPECT_EQ(seen.body, hasBody ? "body" : "") << path;
        EXPECT_EQ(seen.header("accept"), "text/html") << path;
        EXPECT_EQ(seen.header("x-key"), keepsSecrets ? "secret" : "") << path;
        EXPECT_EQ(seen.header("authorization"), keepsSecrets ? "Basic QQ==" : "") << path;
    }
    seen = {};
    for (const auto& [method, path, status] : Table<std::string, const char*, int>{
             {"POST", "/leave/307", 307}, {"POST", "/leave/308", 308}, {"PUT", "/leave/302", 302}}) {
        EXPECT_EQ(outcome(client.fetch({method, server.url(path), headers, "token"})), status) << path;
        EXPECT_EQ(seen.method, "") << "a body stays with whom it was sent to";
    }
}

TEST(CurlTransport, UsesTheProxyOfTheOptionsAndNoOther) {
    RawServer proxy("HTTP/1.1 200 OK\r\nContent-Length: 7\r\n\r\nproxied");
    RawServer direct("HTTP/1.1 200 OK\r\nContent-Length: 6\r\n\r\ndirect");
    ::setenv("http_proxy", proxy.url().c_str(), 1);
    EXPECT_EQ(bodyOf(CurlClient().get(direct.url())), "direct");
    ::unsetenv("http_proxy");
    CurlTransportOptions options;
    options.proxy = proxy.url();
    EXPECT_EQ(bodyOf(CurlClient(options).get("http://shop.invalid/menu")), "proxied");
    EXPECT_THAT(proxy.lastRequest(), HasSubstr("GET http://shop.invalid/menu HTTP/1.1\r\n"));
}

}  // namespace
}  // namespace quomi
