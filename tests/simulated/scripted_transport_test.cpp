#include "hosts/simulated/scripted_transport.h"

#include "hosts/simulated/observed_transport.h"

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi::simulated {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;

class ScriptedTransportTest : public testing::Test {
protected:
    ScriptedTransportTest() {
        scripted_.setBaseURLs(std::vector<std::string>{"https://backoffice.test", "https://other.test/api"});
        observer_.response = [this](const std::string& url, const ResponseOutcome& outcome) {
            const auto* status = std::get_if<int>(&outcome);
            log_.push_back(fmt::format("{} {} {}", loop_.monotonicNow().time_since_epoch() / 1ms, url,
                                       status != nullptr ? std::to_string(*status) : std::get<std::string>(outcome)));
        };
    }

    std::unique_ptr<HttpTask> send(const std::string& url, const std::string& method = "GET") {
        return http_.send({method, url, {}, {}, 25s}, [this](HttpResult result) { result_ = std::move(result); });
    }
    HttpResult fetch(const std::string& url) {
        const auto task = send(url);
        loop_.advanceBy(60s);
        return result_.value_or(HttpFailure{HttpFailureKind::connection, "nothing came"});
    }

    VirtualLoop loop_;
    PhoneObserver observer_;
    ScriptedTransport scripted_{loop_};
    ObservedTransport http_{scripted_, observer_};
    std::optional<HttpResult> result_;
    std::vector<std::string> log_;
};

TEST_F(ScriptedTransportTest, KeysAreMethodAndURLWithoutQuery) {
    struct Case {
        std::string method;
        std::string url;
        std::string key;
    };
    const std::vector<Case> cases = {
        {"GET", "https://backoffice.test/u_beacons/query.json?lat=1&b=/x", "GET /u_beacons/query.json"},
        {"POST", "https://backoffice.test", "POST /"},
        {"GET", "https://backoffice.test.evil/a", "GET https://backoffice.test.evil/a"},
        {"GET", "https://other.test/api/a#f", "GET /api/a"},
        {"GET", "https://other.test/apis/a?b", "GET https://other.test/apis/a"},
    };
    for (const auto& some : cases) EXPECT_EQ(scripted_.keyOf({some.method, some.url, {}, {}, 25s}), some.key);
}

TEST_F(ScriptedTransportTest, AnswersAreUsedUpInOrderAndTheLastRepeats) {
    scripted_.answer("GET /a", {ScriptedAnswer::text("one", 500), ScriptedAnswer::json({{"two", 2}})});
    EXPECT_EQ(std::get<HttpResponse>(fetch("https://backoffice.test/a")).body, "one");
    EXPECT_EQ(std::get<HttpResponse>(fetch("https://backoffice.test/a?x")).body, R"({"two":2})");
    const auto last = std::get<HttpResponse>(fetch("https://backoffice.test/a"));
    EXPECT_EQ(last.headers, (HttpHeaders{{"content-type", "application/json"}}));
    EXPECT_EQ(std::get<HttpResponse>(fetch("https://backoffice.test/b")).status, 404);
    EXPECT_EQ(scripted_.requests("GET /a"), 3u);
    EXPECT_THAT(log_, ElementsAre("50 https://backoffice.test/a 500", "60050 https://backoffice.test/a?x 200",
                                  "120050 https://backoffice.test/a 200", "180050 https://backoffice.test/b 404"));
}

TEST_F(ScriptedTransportTest, EveryWayToEndHasItsTimeAndWord) {
    struct Case {
        ScriptedAnswer answer;
        std::string end;
    };
    const std::vector<Case> cases = {
        {{.body = " \n"}, "50 http://u/ 200"},
        {{.body = "<html>"}, "50 http://u/ invalid"},
        {{.status = 500, .body = "<html>"}, "50 http://u/ 500"},
        {{.body = "[1]", .delay = 25s}, "25000 http://u/ 200"},
        {{.body = "[1]", .delay = 25001ms}, "25000 http://u/ timeout"},
        {{.delay = 1s, .fail = HttpFailureKind::timeout}, "25000 http://u/ timeout"},
        {{.delay = 1s, .fail = HttpFailureKind::connection}, "1000 http://u/ connection"},
        {{.delay = 30s, .fail = HttpFailureKind::tls}, "25000 http://u/ timeout"},
        {{.fail = HttpFailureKind::tls}, "50 http://u/ tls"},
    };
    for (const auto& some : cases) {
        VirtualLoop loop;
        ScriptedTransport scripted(loop);
        scripted.answer("GET http://u/", some.answer);
        std::vector<std::string> ends;
        PhoneObserver observer;
        observer.response = [&](const std::string& url, const ResponseOutcome& outcome) {
            const auto* status = std::get_if<int>(&outcome);
            ends.push_back(fmt::format("{} {} {}", loop.monotonicNow().time_since_epoch() / 1ms, url,
                                       status != nullptr ? std::to_string(*status) : std::get<std::string>(outcome)));
        };
        ObservedTransport http(scripted, observer);
        const auto task =
            http.send({"GET", "http://u/", {{"Accept", "application/json"}}, {}, 25s}, [](const HttpResult&) {});
        loop.advanceBy(60s);
        EXPECT_THAT(ends, ElementsAre(some.end));
    }
}

TEST_F(ScriptedTransportTest, ADroppedTaskIsCancelledAndNeverCompletes) {
    auto task = send("https://backoffice.test/a");
    loop_.advanceBy(10ms);
    task.reset();
    loop_.advanceBy(60s);
    EXPECT_FALSE(result_);
    EXPECT_THAT(log_, ElementsAre("10 https://backoffice.test/a cancelled"));
}

TEST_F(ScriptedTransportTest, ATaskMayBeDroppedInsideItsCompletion) {
    std::unique_ptr<HttpTask> task;
    int completions = 0;
    task = http_.send({"GET", "http://u/", {}, {}, 25s}, [&](const HttpResult&) {
        ++completions;
        task.reset();
        ++completions;
    });
    loop_.advanceBy(1s);
    EXPECT_EQ(completions, 2);
    EXPECT_THAT(log_, ElementsAre("50 http://u/ 404"));
}

}  // namespace
}  // namespace quomi::simulated
