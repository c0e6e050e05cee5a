#include "hosts/simulated/replay/wire_transport.h"

#include "hosts/simulated/observed_transport.h"
#include "quomi/api/curl_transport.h"
#include "tests/support/loopback_server.h"
#include "tests/support/prelude.h"

#include <condition_variable>
#include <mutex>

namespace quomi::simulated {
namespace {

/// A server that echoes the target as a JSON text; "/slow" is answered only after "/fast".
class WireTransportTest : public ::testing::Test {
protected:
    HttpResponse answer(const quomi::testing::ReceivedRequest& request) {
        std::unique_lock lock(mutex_);
        received_.push_back(request.method + " " + request.target);
        if (request.target == "/fast") fastIsServed_ = true;
        changed_.notify_all();
        if (request.target == "/slow")
            changed_.wait_for(lock, std::chrono::seconds(5), [this] { return fastIsServed_; });
        return {200, {}, request.target == "/nonsense" ? "<html>" : fmt::format("\"{}\"", request.target)};
    }

    std::unique_ptr<HttpTask> send(const std::string& url) {
        return observed_.send(
            {"GET", url, {{"Accept", "application/json"}}, {}, std::chrono::seconds(25)},
            [this, url](const HttpResult& result) {
                const auto* response = std::get_if<HttpResponse>(&result);
                log_.push_back("ended " +
                               (response != nullptr ? response->body : std::get<HttpFailure>(result).message));
            });
    }

    PhoneObserver observer() {
        PhoneObserver observer;
        observer.request = [this](const HttpRequest& request) { log_.push_back("request " + request.url); };
        observer.response = [this](const std::string& url, const ResponseOutcome& outcome) {
            const auto* status = std::get_if<int>(&outcome);
            log_.push_back(fmt::format(
                "response {} {}", status != nullptr ? std::to_string(*status) : std::get<std::string>(outcome), url));
        };
        return observer;
    }

    std::mutex mutex_;
    std::condition_variable changed_;
    bool fastIsServed_ = false;
    std::vector<std::string> received_;
    std::vector<std::string> log_;
    std::vector<std::string> bases_{"https://own.test/api/", "https://default.test", ""};
    quomi::testing::LoopbackServer server_{[this](const auto& request) { return answer(request); }};
    VirtualLoop loop_;
    WireTransport wire_{loop_, server_.url(), [this] { return bases_; }, std::make_unique<CurlTransport>(loop_)};
    const PhoneObserver observer_ = observer();
    ObservedTransport observed_{wire_, observer_};
};

TEST_F(WireTransportTest, AnswersComeInTheOrderOfSendingAtTheInstantOfSending) {
    const auto slow = send("https://own.test/api/slow");
    const auto fast = send("https://own.test/api/fast");
    wire_.settle();
    EXPECT_THAT(log_, ElementsAre("request https://own.test/api/slow", "request https://own.test/api/fast",
                                  "response 200 https://own.test/api/slow", "ended \"/slow\"",
                                  "response 200 https://own.test/api/fast", "ended \"/fast\""));
    EXPECT_EQ(loop_.monotonicNow(), MonotonicTime{});
    EXPECT_FALSE(wire_.isWaiting());
}

TEST_F(WireTransportTest, OnlyTheBaseUrlsAndTheirHostsStandForTheServer) {
    const Table<const char*, const char*, std::vector<std::string>> cases = {
        {"https://own.test/api/a?b=c", "200", {"GET /a?b=c"}},
        {"https://own.test/other", "200", {"GET /other"}},
        {"HTTPS://Default.test/x", "200", {"GET /x"}},
        {"https://default.test/nonsense", "invalid", {"GET /nonsense"}},
        {"https://own.test.evil/api/a", "connection", {}},
        {"http://own.test/api/a", "connection", {}},
        {"https://elsewhere.test/a", "connection", {}},
        {"/a", "connection", {}},
        {"", "connection", {}},
    };
    for (const auto& [url, outcome, received] : cases) {
        SCOPED_TRACE(url);
        log_.clear();
        received_.clear();
        const auto task = send(url);
        EXPECT_THAT(log_, ElementsAre(std::string("request ") + url));
        wire_.settle();
        ASSERT_EQ(log_.size(), 3U);
        EXPECT_EQ(log_[1], fmt::format("response {} {}", outcome, url));
        EXPECT_EQ(received_, received);
    }
}

TEST_F(WireTransportTest, AFailureIsToldInTheSameWordsWhereverItComesFrom) {
    const auto unsent = send("https://elsewhere.test/a");
    wire_.settle();
    const std::string nowhere = fmt::format("http://127.0.0.1:{}", quomi::testing::unusedPort());
    WireTransport toNobody(
        loop_, nowhere, [this] { return bases_; }, std::make_unique<CurlTransport>(loop_));
    const auto refused = toNobody.send({"GET", "https://own.test/api/a", {}, {}, {}}, [this](const HttpResult& result) {
        log_.push_back("ended " + std::get<HttpFailure>(result).message);
    });
    toNobody.settle();
    ASSERT_EQ(log_.size(), 4U);
    EXPECT_EQ(log_[2], "ended The connection to the server failed.");
    EXPECT_EQ(log_[3], log_[2]);
}

TEST_F(WireTransportTest, ADroppedRequestIsCancelledAndHoldsUpNobody) {
    auto slow = send("https://own.test/api/slow");
    const auto fast = send("https://own.test/api/fast");
    log_.clear();
    slow.reset();
    wire_.settle();
    EXPECT_THAT(log_, ElementsAre("response cancelled https://own.test/api/slow",
                                  "response 200 https://own.test/api/fast", "ended \"/fast\""));
}

TEST_F(WireTransportTest, WhileTheAppIsSuspendedNothingIsHandedOver) {
    const auto task = send("https://own.test/api/a");
    log_.clear();
    loop_.suspend();
    wire_.settle();
    EXPECT_THAT(log_, IsEmpty());
    loop_.advanceBy(std::chrono::seconds(30));
    loop_.resume();
    wire_.settle();
    EXPECT_THAT(log_, ElementsAre("response 200 https://own.test/api/a", "ended \"/a\""));
}

}  // namespace
}  // namespace quomi::simulated
