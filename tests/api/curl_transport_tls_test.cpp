#include "quomi/api/curl_transport.h"
#include "tests/api/curl_client.h"
#include "tests/support/loopback_server.h"

#include <cstdlib>

namespace quomi {
namespace {

using quomi::testing::LoopbackServer;
using quomi::testing::RawServer;
using quomi::testing::ReceivedRequest;
using quomi::testing::TlsIdentity;

class CurlTls : public ::testing::Test {
protected:
    CurlTls() {
        std::string pattern = ::testing::TempDir() + "quomi_tls_XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        identity_.writeCertificate(folder_ / "trusted.pem");
        stranger_.writeCertificate(folder_ / "stranger.pem");
    }
    ~CurlTls() override { std::filesystem::remove_all(folder_); }

    CurlTransportOptions trusting(const std::string& file, std::vector<std::string> pins = {}) const {
        CurlTransportOptions options;
        options.caBundlePath = (folder_ / file).string();
        options.pinnedPublicKeys = std::move(pins);
        return options;
    }

    TlsIdentity identity_{"IP:127.0.0.1"};
    TlsIdentity stranger_{"IP:127.0.0.1"};
    std::filesystem::path folder_;
    LoopbackServer server_{identity_, [](const ReceivedRequest& request) {
                               if (request.target == "/end") return HttpResponse{200, {}, "end"};
                               return HttpResponse{302, {{"Location", request.target.substr(1)}}, "moved"};
                           }};
};

TEST_F(CurlTls, TalksOnlyToServersThatAreTrustedNamedAndPinned) {
    const std::string pin = identity_.pin();
    const std::string otherPin = stranger_.pin();
    struct Case {
        const char* name;
        CurlTransportOptions options;
        int outcome;
    };
    const std::vector<Case> cases{
        {"system's certificates", {}, kTlsFailed},
        {"trusted", trusting("trusted.pem"), 200},
        {"another trusted", trusting("stranger.pem"), kTlsFailed},
        {"no such bundle", trusting("missing.pem"), kTlsFailed},
        {"right pin", trusting("trusted.pem", {pin}), 200},
        {"one right pin of two", trusting("trusted.pem", {otherPin, pin}), 200},
        {"wrong pin", trusting("trusted.pem", {otherPin}), kTlsFailed},
        {"right pin, not trusted", trusting("stranger.pem", {pin}), kTlsFailed},
        {"pin without prefix", trusting("trusted.pem", {pin.substr(8)}), kTlsFailed},
        {"pin that is a file", trusting("trusted.pem", {(folder_ / "trusted.pem").string()}), kTlsFailed},
        {"one unusable pin of two", trusting("trusted.pem", {pin, "sha256//short"}), kTlsFailed},
    };
    for (const Case& expected : cases) {
        const HttpResult result = CurlClient(expected.options).get(server_.url("/end"));
        EXPECT_EQ(outcome(result), expected.outcome) << expected.name << ": " << messageOf(result);
    }
    const HttpResult wrongName = CurlClient(trusting("trusted.pem")).get(server_.url("/end", "localhost"));
    EXPECT_EQ(outcome(wrongName), kTlsFailed) << messageOf(wrongName);
}

TEST_F(CurlTls, PlainServersDoNotPassForSecureOnes) {
    RawServer plain("HTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok");
    CurlClient client(trusting("trusted.pem", {stranger_.pin()}));
    EXPECT_EQ(outcome(client.get(plain.url())), 200) << "pins are the business of https alone";
    LoopbackServer reachable([](const ReceivedRequest&) { return HttpResponse{200, {}, ""}; });
    const std::string asSecure = "https" + reachable.url().substr(4);
    EXPECT_EQ(outcome(client.get(asSecure)), kTlsFailed);
}

TEST_F(CurlTls, RedirectsNeverLeadFromSecureToPlain) {
    LoopbackServer plain([](const ReceivedRequest&) { return HttpResponse{200, {}, "plain"}; });
    LoopbackServer upgrading([this](const ReceivedRequest&) {
        return HttpResponse{302, {{"Location", server_.url("/end")}}, ""};
    });
    CurlClient client(trusting("trusted.pem"));
    const HttpResult downgraded = client.get(server_.url("/" + plain.url()));
    EXPECT_EQ(outcome(downgraded), 302);
    EXPECT_EQ(bodyOf(downgraded), "moved");
    EXPECT_EQ(bodyOf(client.get(upgrading.url())), "end");
    EXPECT_EQ(bodyOf(client.get(server_.url("/" + server_.url("/end")))), "end");
}

}  // namespace
}  // namespace quomi
