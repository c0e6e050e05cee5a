#include "tools/quomi/backoffice/backoffice.h"

#include "quomi/util/dates.h"
#include "tests/support/prelude.h"
#include "tools/quomi/backoffice/backoffice_page.h"

#include <atomic>
#include <sys/resource.h>

#include <httplib.h>

namespace quomi::tool {
namespace {

namespace json = boost::json;

constexpr const char* kJson = "application/json";
constexpr const char* kUserPath = "/u_app_users/find_or_create_by_udid.json";
constexpr const char* kLogPath = "/u_applications/shop/log.json";
constexpr const char* kBatchPath = "/u_applications/shop/log_multi.json";
constexpr const char* kTokenPath = "/u_app_users/register_push_token.json";
constexpr const char* kAlertPath = "/u_beacon_devices/battery_alert.json";
constexpr const char* kToken =
    R"({"namespace": "shop", "udid": "U", "push_token": "0123456789abcdef0123456789abcdef"})";
constexpr const char* kAlert = R"({"namespace": "shop", "uuid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B92",
    "battery_service_id": "70001"})";
constexpr const char* kEvent = R"({"udid": "U", "date": "2031-05-04 09:30:00 +0000", "data": {"type": "view"}})";

simulated::Campaign campaignOf(const std::string& text) {
    std::optional<Error> error;
    auto campaign = simulated::Campaign::parse(text, "test", &error);
    if (!campaign) throw std::invalid_argument(describe(*error));
    return *campaign;
}

simulated::Campaign shop() {
    return campaignOf(R"({"application": {"namespace_uid": "shop", "anti_hacking_protocol": "none",
        "max_distance_medium_far": 12.5}, "limits": {"max_events": 3, "min_interval": 20},
        "beacons": [{"id": "b", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90"}],
        "geofences": [{"id": "g", "lat": 52.5, "lng": 13.25, "radius": 0.5}],
        "remove_beacon_ids": ["old"], "remove_geofence_ids": ["x", "y"], "valid_for": 90,
        "answers": {"/visits/b": {"decision": "notify", "notify_user": "Hi"}}})");
}

json::object user() {
    return json::parse(R"({"udid": "U", "properties": {"ext_id": "ann"}, "u_application_uid": "shop",
        "advertising_tracking_mode_enabled": false, "system_name": "iOS", "system_version": "17.1", "sdk_name": "sdk",
        "sdk_version": "1", "model": "iPhone", "language": null})")
        .as_object();
}

std::string userBody(const json::object& record) {
    return json::serialize(json::object{{"u_app_user", record}});
}

std::string replaced(std::string text, std::string_view from, std::string_view to) {
    return text.replace(text.find(from), from.size(), to);
}

int connectedTo(int port, int receiveBuffer = 65536) {
    const int socket = ::socket(AF_INET, SOCK_STREAM, 0);
    ::setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof(receiveBuffer));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(::connect(socket, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    return socket;
}

/// Sends bytes as they are, and reads until the server closes.
std::string exchanged(int port, const std::string& request) {
    const int socket = connectedTo(port);
    EXPECT_EQ(::send(socket, request.data(), request.size(), 0), static_cast<ssize_t>(request.size()));
    ::shutdown(socket, SHUT_WR);
    std::string answer;
    std::array<char, 4096> block{};
    for (ssize_t number = 0; (number = ::recv(socket, block.data(), block.size(), 0)) > 0;) {
        answer.append(block.data(), static_cast<std::size_t>(number));
    }
    ::close(socket);
    return answer;
}

/// A started back office and a client that keeps its connection.
class BackofficeTest : public testing::Test {
protected:
    BackofficeTest() {
        client_.set_keep_alive(true);
        client_.set_tcp_nodelay(true);
    }

    /// The header as it stands in a request.
    std::string host() const { return fmt::format("Host: 127.0.0.1:{}\r\n", backoffice_.port()); }

    static int started(Backoffice& backoffice) { return backoffice.start() ? backoffice.port() : 0; }

    void expectRefusal(const httplib::Result& result, int status, const std::string& error) {
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, status) << result->body;
        EXPECT_EQ(result->get_header_value("Content-Type"), kJson);
        const json::value body = json::parse(result->body);
        EXPECT_EQ(body.at("success"), false);
        EXPECT_THAT(std::string(std::string_view(body.at("error").as_string())), HasSubstr(error));
    }

    void expectAnswer(const httplib::Result& result, const json::value& body) {
        ASSERT_TRUE(result);
        EXPECT_EQ(result->status, 200) << result->body;
        EXPECT_EQ(result->get_header_value("Content-Type"), kJson);
        EXPECT_EQ(json::parse(result->body), body);
    }

    Backoffice backoffice_{shop()};
    httplib::Client client_{"127.0.0.1", started(backoffice_)};
};

TEST_F(BackofficeTest, ServesBeaconsAndGeofencesOfItsTime) {
    backoffice_.setNow([] { return *QuomiUtils::isoDate("2031-05-04T23:59:00Z"); });
    expectAnswer(client_.Get("/u_beacons/query.json?api_version=3&proximity_uid=5d1b2c7e-30a4-4f5b-9e0d-8c6a2f714b90"
                             "&udid=U&namespace=shop"),
                 json::parse(R"({"u_beacons": [{"id": "b", "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90"}],
                     "query_params": {"proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B90", "namespace": "shop",
                     "api_version": 3}, "valid_until": "2031-05-05T00:00:30.000Z", "remove_ids": ["old"]})"));
    expectAnswer(client_.Get("/u_geofences/query.json?api_version=3&lat=52.500000&lng=13.250000&radius=100.000000"
                             "&udid=U&namespace=shop&updated_at=2031-05-01T00:00:00.000Z"),
                 json::parse(R"({"u_geofences": [{"id": "g", "lat": 52.5, "lng": 13.25, "radius": 0.5}],
                     "query_params": {"lat": 52.5, "lng": 13.25, "radius": 100, "namespace": "shop",
                     "api_version": 3, "updated_at": "2031-05-01T00:00:00.000Z"},
                     "valid_until": "2031-05-05T00:00:30.000Z", "remove_ids": ["x", "y"]})"));
    expectRefusal(client_.Get("/u_beacons/query.json?namespace=shop&proximity_uid=1"), 400, "\"proximity_uid\"");
    expectRefusal(client_.Get("/u_geofences/query.json?namespace=shop&lat=1&lng=1&radius=%ff"), 400, "\"radius\"");
}

TEST_F(BackofficeTest, RefusesWhatItDoesNotServe) {
    for (const std::string path : {"/u_applications/query.json", "/u_applications/limits.json", "/u_beacons/query.json",
                                   "/u_geofences/query.json"}) {
        expectRefusal(client_.Get(path + "?namespace=other"), 404, "\"other\" is unknown");
        expectRefusal(client_.Get(path + "?namespace=%ff%1b"), 404, "is unknown");
        expectRefusal(client_.Get(path), 400, "namespace");
        expectRefusal(client_.Post(path + "?namespace=shop", "{}", kJson), 405, "GET only");
    }
    expectRefusal(client_.Get("/favicon.ico"), 404, "no such endpoint");
    expectRefusal(client_.Get("/" + std::string(8000, 'a')), 404, "no such endpoint");
    expectRefusal(client_.Post("/u_applications//log.json", kEvent, kJson), 404, "no such endpoint");
    expectRefusal(client_.Delete(kLogPath), 405, "POST only");
    EXPECT_EQ(client_.Get(kLogPath)->get_header_value("Allow"), "POST");
}

TEST_F(BackofficeTest, KeepsUsersAndEvents) {
    const json::object success{{"success", true}};
    expectAnswer(client_.Post(kUserPath, userBody(user()), kJson), success);
    expectAnswer(client_.Post(kLogPath, kEvent, kJson), success);
    expectAnswer(client_.Post(kLogPath, R"({"udid": "V", "date": 1.5})", kJson), success);
    expectAnswer(
        client_.Post(kBatchPath, R"({"udid": "W", "logs": [{"date": "d1", "data": {"n": 1}}, {"date": "d2"}]})", kJson),
        success);
    expectAnswer(client_.Post(kBatchPath, R"({"udid": "W", "logs": []})", kJson), success);

    const std::vector<Received> all = backoffice_.inbox().all();
    ASSERT_EQ(all.size(), 5U);
    EXPECT_EQ(all[0].kind, ReceivedKind::user);
    EXPECT_EQ(all[0].udid, "U");
    EXPECT_EQ(json::parse(all[0].content), json::value(user()));
    std::vector<std::string> events;
    for (std::size_t i = 1; i < all.size(); ++i)
        events.push_back(all[i].udid + "|" + all[i].date + "|" + all[i].content);
    EXPECT_THAT(events, ElementsAre("U|2031-05-04 09:30:00 +0000|{\"type\":\"view\"}", "V|1.5|null", "W|d1|{\"n\":1}",
                                    "W|d2|null"));
    EXPECT_EQ(backoffice_.inbox().counts().events, 4U);
}

TEST_F(BackofficeTest, KeepsPushTokensBatteryAlertsAndAdvertisingIdentifiersThatThePageShortens) {
    auto advertised = user();
    advertised["advertising_id"] = "A1B2C3D4-0000-4000-8000-00000000BEEF";
    expectAnswer(client_.Post(kTokenPath, kToken, kJson), {{"success", true}});
    expectAnswer(client_.Post(kAlertPath, kAlert, "Application/JSON; charset=utf-8"), {{"success", true}});
    expectAnswer(client_.Post(kUserPath, userBody(advertised), kJson), {{"success", true}});
    const std::vector<Received> all = backoffice_.inbox().all();
    ASSERT_EQ(all.size(), 3U);
    EXPECT_EQ(json::parse(all[2].content), json::value(advertised));
    EXPECT_EQ(all[0].kind, ReceivedKind::pushToken);
    EXPECT_EQ(all[0].udid, "U");
    EXPECT_EQ(all[0].content, R"({"push_token":"0123456789abcdef0123456789abcdef"})");
    EXPECT_EQ(all[1].kind, ReceivedKind::batteryAlert);
    EXPECT_EQ(all[1].content, R"({"uuid":"5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B92","battery_service_id":"70001"})");
    const std::string page = client_.Get("/")->body;
    EXPECT_THAT(page, HasSubstr("<code>01234567…</code>"));
    EXPECT_THAT(page, Not(HasSubstr("0123456789abcdef")));
    EXPECT_THAT(page, HasSubstr("push tokens: 1, battery alerts: 1;"));
    EXPECT_THAT(page, HasSubstr("&quot;advertising_id&quot;:&quot;A1B2C3D4…&quot;"));
    EXPECT_THAT(page, Not(HasSubstr("BEEF")));
}

TEST_F(BackofficeTest, AnswersOnlyWhatThisMachineAsksAndTakesJsonOnly) {
    const auto port = std::to_string(backoffice_.port());
    const Table<std::string, std::string, const char*, int> cases = {
        {"127.0.0.1:" + port, "", kJson, 200},
        {"LocalHost:" + port, "http://localhost:" + port, kJson, 200},
        {"[::1]:" + port, "http://127.0.0.1:" + port, kJson, 200},
        {"127.0.0.1:1", "", kJson, 403},
        {"127.0.0.1", "", kJson, 403},
        {"rebound.test:" + port, "", kJson, 403},
        {"127.0.0.1:" + port, "http://evil.test", kJson, 403},
        {"127.0.0.1:" + port, "https://127.0.0.1:" + port, kJson, 403},
        {"127.0.0.1:" + port, "null", kJson, 403},
        {"127.0.0.1:" + port, "", "text/plain", 415},
        {"127.0.0.1:" + port, "", "application/jsonp", 415},
        {"127.0.0.1:" + port, "", "application/x-www-form-urlencoded", 415},
        {"127.0.0.1:" + port, "", "multipart/form-data; boundary=b", 415},
    };
    std::size_t kept = 0;
    for (const auto& [host, origin, type, status] : cases) {
        SCOPED_TRACE(host + " " + origin + " " + type);
        httplib::Headers headers{{"Host", host}};
        if (!origin.empty()) headers.emplace("Origin", origin);
        EXPECT_EQ(client_.Post(kLogPath, headers, kEvent, type)->status, status);
        kept += status == 200 ? 1 : 0;
        EXPECT_EQ(backoffice_.inbox().counts().events, kept);
        EXPECT_EQ(client_.Get("/", headers)->status, status == 403 ? 403 : 200);
    }
    EXPECT_THAT(exchanged(backoffice_.port(), "GET / HTTP/1.1\r\n\r\n"), StartsWith("HTTP/1.1 403 "));
}

TEST_F(BackofficeTest, RefusesBadBodiesAndKeepsNothing) {
    auto without = user();
    without.erase("model");
    auto mistyped = user();
    mistyped["advertising_tracking_mode_enabled"] = 1;
    auto foreign = user();
    foreign["u_application_uid"] = "other";
    const Table<std::string, std::string, int, const char*> cases = {
        {kLogPath, "", 400, "JSON"},
        {kLogPath, "{\"udid\": \"\xff\"}", 400, "JSON"},
        {kLogPath, "[]", 400, "$: expected an object"},
        {kLogPath, R"({"date": "d"})", 400, "$.udid: "},
        {kLogPath, R"({"udid": "", "date": "d"})", 400, "$.udid: "},
        {kLogPath, R"({"udid": "U", "date": null})", 400, "$.date: "},
        {kLogPath, R"({"udid": "U", "date": "d", "data": "text"})", 400, "$.data: expected an object"},
        {kLogPath, R"({"udid": "U", "date": "d", "logs": []})", 400, "$.logs: "},
        {"/u_applications/other/log.json", kEvent, 404, "\"other\" is unknown"},
        {"/u_applications/a/b/log.json", kEvent, 404, "\"a/b\" is unknown"},
        {kBatchPath, kEvent, 400, "$.date: "},
        {kBatchPath, R"({"udid": "U", "logs": [{"date": "d"}, {"data": {}}]})", 400, "$.logs[1].date: "},
        {kBatchPath, R"({"udid": "U", "logs": {}})", 400, "$.logs: expected an array"},
        {kUserPath, R"({"udid": "U"})", 400, "$.udid: "},
        {kUserPath, userBody(without), 400, "$.u_app_user.model: "},
        {kUserPath, userBody(mistyped), 400, "$.u_app_user.advertising_tracking_mode_enabled: "},
        {kUserPath, userBody(foreign), 404, "\"other\" is unknown"},
        {kTokenPath, R"({"namespace": "shop", "udid": "U"})", 400, "$.push_token: "},
        {kTokenPath, R"({"namespace": "shop", "udid": "U", "push_token": ""})", 400, "$.push_token: "},
        {kTokenPath, R"({"namespace": "shop", "udid": "U", "push_token": "<01 23>"})", 400, "hexadecimal digits"},
        {kTokenPath, R"({"namespace": "shop", "udid": "", "push_token": "01"})", 400, "$.udid: "},
        {kTokenPath, R"({"namespace": null, "udid": "U", "push_token": "01"})", 400, "$.namespace: "},
        {kTokenPath, R"({"namespace": "other", "udid": "U", "push_token": "01"})", 404, "\"other\" is unknown"},
        {kAlertPath, kToken, 400, "$.udid: "},
        {kAlertPath, R"({"namespace": "shop", "uuid": "5D1B", "battery_service_id": "1"})", 400, "$.uuid: "},
        {kAlertPath, replaced(kAlert, "\"70001\"", "70001"), 400, "$.battery_service_id: "},
        {kAlertPath, replaced(kAlert, "shop", ""), 404, "\"\" is unknown"},
    };
    for (const auto& [path, body, status, error] : cases) {
        SCOPED_TRACE(path + " " + body);
        expectRefusal(client_.Post(path, body, kJson), status, error);
    }
    EXPECT_TRUE(backoffice_.inbox().all().empty());
}

TEST_F(BackofficeTest, BoundsBodiesAndDoesNotUnpackThem) {
    expectRefusal(client_.Post(kLogPath, std::string(Backoffice::kMaxBody + 1, ' '), kJson), 413, "too large");
    expectRefusal(client_.Post(kLogPath, std::string(Backoffice::kMaxBody, ' '), kJson), 400, "JSON");
    static constexpr char gzipped[] =
        "\037\213\010\000\000\000\000\000\002\003\253\126\052\115\311\114\121\262\122\012\125\322\121\112\111\054\111"
        "\005\062\123\224\152\001\000\307\145\132\027\000\000\000";
    expectRefusal(client_.Post(kLogPath, {{"Content-Encoding", "gzip"}}, gzipped, sizeof(gzipped) - 1, kJson), 400,
                  "JSON");
    EXPECT_EQ(client_.Get("/u_applications/query.json?namespace=shop", {{"Range", "bytes=0-3"}})->status, 200);
}

TEST_F(BackofficeTest, AnswersWhatIsNoRequestAndRequestsSentInOneGo) {
    const std::string refusal = exchanged(backoffice_.port(), "garbage\r\n\r\n");
    EXPECT_THAT(refusal, StartsWith("HTTP/1.1 400 "));
    EXPECT_THAT(refusal, HasSubstr(R"({"success":false)"));
    const std::string two =
        exchanged(backoffice_.port(), "POST /u_applications/shop/log.json HTTP/1.1\r\n" + host() +
                                          "\r\n"
                                          "POST /u_applications/shop/log.json HTTP/1.1\r\n" +
                                          host() +
                                          "Content-Length: 2\r\n\r\n{}"
                                          "GET /u_applications/limits.json?namespace=shop HTTP/1.1\r\n" +
                                          host() + "\r\n");
    EXPECT_THAT(two, StartsWith("HTTP/1.1 415 "));
    EXPECT_THAT(two, HasSubstr("\"max_events\":3"));
    const std::string last =
        exchanged(backoffice_.port(), "GET / HTTP/1.1\r\n" + host() + "Content-Length: 2\r\n\r\n{}");
    EXPECT_THAT(last, StartsWith("HTTP/1.1 200 "));
    EXPECT_THAT(last, AllOf(HasSubstr("Connection: close"), Not(HasSubstr("HTTP/1.1 400"))));
}

TEST_F(BackofficeTest, AnswersManyClientsAtOnce) {
    constexpr int kClients = 8;
    constexpr int kRequests = 50;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < kClients; ++i) {
        threads.emplace_back([&, i] {
            httplib::Client client("127.0.0.1", backoffice_.port());
            client.set_keep_alive(true);
            client.set_tcp_nodelay(true);
            const std::string body =
                R"({"udid": ")" + std::to_string(i) + R"(", "logs": [{"date": "a"}, {"date": "b"}]})";
            for (int n = 0; n < kRequests; ++n) {
                const auto result = client.Post(kBatchPath, body, kJson);
                if (!result || result->status != 200) ++failures;
                const auto found = client.Get("/u_geofences/query.json?namespace=shop&lat=52.5&lng=13.2&radius=5");
                if (!found || !json::parse(found->body).as_object().contains("valid_until")) ++failures;
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures, 0);
    const std::vector<Received> all = backoffice_.inbox().all();
    ASSERT_EQ(all.size(), std::size_t{kClients} * kRequests * 2);
    for (std::size_t i = 0; i < all.size(); i += 2) {
        EXPECT_EQ(all[i].udid, all[i + 1].udid) << "a batch was torn apart at " << i;
        EXPECT_EQ(all[i].date + all[i + 1].date, "ab");
    }
}

/// Connections that say nothing, and others that send a request byte by byte for as long as they live.
class SlowClients {
public:
    SlowClients(int port, int number) {
        for (int i = 0; i < number; ++i) sockets_.push_back(connectedTo(port));
        trickle_ = std::thread([this] {
            while (!ended_) {
                for (std::size_t i = 0; i < sockets_.size(); i += 2) ::send(sockets_[i], "A", 1, MSG_NOSIGNAL);
                std::this_thread::sleep_for(std::chrono::milliseconds(10));
            }
        });
    }
    ~SlowClients() {
        ended_ = true;
        trickle_.join();
        for (const int socket : sockets_) ::close(socket);
    }

private:
    std::vector<int> sockets_;
    std::atomic<bool> ended_{false};
    std::thread trickle_;
};

TEST_F(BackofficeTest, ClientsThatAreSilentOrTrickleKeepNobodyFromBeingServed) {
    rlimit files{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &files), 0);
    files.rlim_cur = std::min<rlim_t>(files.rlim_max, 4096);
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &files), 0);
    for (const int number : {40, 1000}) {
        const SlowClients slow(backoffice_.port(), number);
        for (int i = 0; i < 3; ++i) {
            const auto before = std::chrono::steady_clock::now();
            httplib::Client client("127.0.0.1", backoffice_.port());
            const auto result = client.Get("/u_applications/limits.json?namespace=shop");
            ASSERT_TRUE(result) << number;
            EXPECT_EQ(result->status, 200);
            EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(4500)) << number;
        }
    }
}

TEST_F(BackofficeTest, StopsAtOnceWithOpenConnectionsAndStartsAgain) {
    std::vector<std::unique_ptr<httplib::Client>> idle;
    for (int i = 0; i < 4; ++i) {
        auto& client = idle.emplace_back(std::make_unique<httplib::Client>("127.0.0.1", backoffice_.port()));
        client->set_keep_alive(true);
        ASSERT_EQ(client->Get("/")->status, 200);
    }
    const int halfSent = connectedTo(backoffice_.port());
    ASSERT_GT(::send(halfSent, "POST / HTTP/1.1\r\nContent-Le", 27, 0), 0);
    ASSERT_EQ(client_.Post(kLogPath, kEvent, kJson)->status, 200);

    const int port = backoffice_.port();
    const auto before = std::chrono::steady_clock::now();
    backoffice_.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    ::close(halfSent);
    EXPECT_EQ(backoffice_.port(), 0);
    EXPECT_FALSE(idle.front()->Get("/"));
    backoffice_.stop();

    ASSERT_TRUE(backoffice_.start(port)) << "the port is free again at once";
    EXPECT_FALSE(backoffice_.start());
    EXPECT_EQ(backoffice_.port(), port);
    EXPECT_EQ(client_.Get("/u_applications/limits.json?namespace=shop")->status, 200);
    EXPECT_EQ(backoffice_.inbox().all().size(), 1U);
}

TEST(Backoffice, StopsAtOnceWhenAClientDoesNotTakeItsAnswers) {
    constexpr int kRequests = 5000;
    std::atomic<int> answered{0};
    Backoffice backoffice(shop(), [&](const RequestLine&) { ++answered; });
    ASSERT_TRUE(backoffice.start());
    const int client = connectedTo(backoffice.port(), 4096);
    std::string requests;
    const auto request = fmt::format("GET / HTTP/1.1\r\nHost: localhost:{}\r\n\r\n", backoffice.port());
    for (int i = 0; i < kRequests; ++i) requests += request;
    ASSERT_GT(::send(client, requests.data(), requests.size(), 0), 0);
    for (int before = -1; before != answered || before == 0;) {  // until the connection is full
        before = answered;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    ASSERT_LT(answered, kRequests);
    const auto before = std::chrono::steady_clock::now();
    backoffice.stop();
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
    ::close(client);
}

TEST(Backoffice, ReportsEveryAnswerAndSurvivesAReporterThatThrows) {
    std::vector<std::string> lines;
    Backoffice backoffice(shop(), [&](const RequestLine& request) {
        lines.push_back(request.method + " " + request.path + " " + std::to_string(request.status));
        throw std::runtime_error("reporter");
    });
    ASSERT_TRUE(backoffice.start());
    httplib::Client client("127.0.0.1", backoffice.port());
    client.Get("/u_applications/limits.json?namespace=shop&x=%20");
    client.Post(kLogPath, "{", kJson);
    client.Put("/nowhere", "", kJson);
    client.Get("/x?push_token=0123456789abcdef&a=1&push_token=");
    client.Get("/x?advertising_id=0123456789abcdef");
    backoffice.stop();
    EXPECT_THAT(lines, ElementsAre("GET /u_applications/limits.json?namespace=shop&x=%20 200",
                                   "POST /u_applications/shop/log.json 400", "PUT /nowhere 404",
                                   "GET /x?push_token=0123…&a=1&push_token=… 404", "GET /x?advertising_id=0123… 404"));
}

TEST_F(BackofficeTest, PageEscapesWhatDevicesSend) {
    const std::string hostile = R"(</code><script>alert(\"1\")</script>&'\u0000)";
    const std::string body =
        R"({"udid": ")" + hostile + R"(", "date": ")" + hostile + R"(", "data": {")" + hostile + R"(": 1}})";
    ASSERT_EQ(client_.Post(kLogPath, body, kJson)->status, 200);
    const auto page = client_.Get("/");
    ASSERT_TRUE(page);
    EXPECT_THAT(page->get_header_value("Content-Type"), HasSubstr("text/html"));
    EXPECT_THAT(page->get_header_value("Content-Security-Policy"), HasSubstr("default-src 'none'"));
    EXPECT_THAT(page->body, HasSubstr("&lt;/code&gt;&lt;script&gt;alert(&quot;1&quot;)&lt;/script&gt;&amp;&#39;"));
    EXPECT_THAT(page->body, Not(HasSubstr("<script")));
    EXPECT_EQ(page->body.find('\0'), std::string::npos);
    EXPECT_EQ(client_.Head("/")->status, 200);
}

TEST(BackofficePage, QuotesCommandsForTheShellAndThenForHtml) {
    const EndpointHelp endpoint{"POST", "/x", "Purpose <b>", "", R"({"a": "it's"})"};
    const std::string page = startPage(shop(), Inbox(), "http://h", std::span(&endpoint, 1));
    EXPECT_THAT(page, HasSubstr("Purpose &lt;b&gt;"));
    EXPECT_THAT(page, HasSubstr(R"(-d &#39;{&quot;a&quot;: &quot;it&#39;\&#39;&#39;s&quot;}&#39;)"));
}

TEST(BackofficePage, EscapesTheCampaignAndCutsLongLists) {
    std::string beacons;
    for (int i = 0; i < 101; ++i) {
        beacons += fmt::format(R"({}{{"id": "b{}", "name": "<i>\u202e&", "minor": 0,
            "proximity_uid": "5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B9F"}})",
                               i == 0 ? "" : ",", i);
    }
    const simulated::Campaign campaign =
        campaignOf(R"({"application": {"namespace_uid": "shop"}, "beacons": [)" + beacons + "]}");
    const std::string page = startPage(campaign, Inbox(), "http://h", {});
    EXPECT_THAT(page, HasSubstr("<td>b99</td><td>&lt;i&gt;\uFFFD&amp;</td>"));
    EXPECT_THAT(page, HasSubstr("and 1 more"));
    EXPECT_THAT(page, Not(HasSubstr("<i>")));
    EXPECT_EQ(ExampleValues(campaign).in("{namespace} {uuid} {lat}"), "shop 5D1B2C7E-30A4-4F5B-9E0D-8C6A2F714B9F 0");
}

/// The page's examples are whole commands: each is sent as it stands there.
TEST_F(BackofficeTest, ExamplesOfThePageAreAnswered) {
    const std::string page = client_.Get("/")->body;
    int sent = 0;
    for (std::size_t at = 0; (at = page.find("<pre>curl &#39;", at)) != std::string::npos;) {
        at += std::string_view("<pre>curl &#39;").size();
        const std::string command = page.substr(at, page.find("</pre>", at) - at);
        std::string target = command.substr(0, command.find("&#39;"));
        target = target.substr(backoffice_.baseUrl().size());
        for (std::size_t i = 0; (i = target.find("&amp;")) != std::string::npos;) target.replace(i, 5, "&");
        const std::size_t data = command.find("-d &#39;");
        if (data == std::string::npos) {
            EXPECT_EQ(client_.Get(target)->status, 200) << target;
        } else {
            std::string body = command.substr(data + 8, command.rfind("&#39;") - data - 8);
            for (std::size_t i = 0; (i = body.find("&quot;")) != std::string::npos;) body.replace(i, 6, "\"");
            EXPECT_EQ(client_.Post(target, body, kJson)->status, 200) << target << ' ' << body;
        }
        ++sent;
    }
    EXPECT_EQ(sent, 10) << "nine endpoints and the page";
    EXPECT_EQ(backoffice_.inbox().counts(), (Inbox::Counts{1, 3, 1, 1, 0}));
}

}  // namespace
}  // namespace quomi::tool
