#include "quomi/api/http_session.h"

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/platform/platform.h"
#include "tests/support/prelude.h"

namespace quomi {
namespace {

using simulated::ScriptedAnswer;

const HttpSessionOptions kOptions{{{"Accept", "application/json"}, {"X-More", "1"}}, 25s, 1000};

/// A session whose requests are answered after one second each, with a journal of what was sent and told.
class HttpSessionTest : public testing::Test {
protected:
    void answer(const std::string& key, ScriptedAnswer given) {
        given.delay = 1s;
        phone.transport().answer(key, std::move(given));
    }
    /// A request to http://HOST.test/NUMBER, answered with 200 and null.
    void get(const std::string& host, int number, std::function<void()> inCallback = {}) {
        const auto url = fmt::format("http://{}.test/{}", host, number);
        answer("GET " + url, ScriptedAnswer::text(""));
        session->get(
            url,
            [this, number, inCallback](const boost::json::value&, int) {
                journal.push_back(fmt::format("got {}", number));
                if (inCallback) inCallback();
            },
            [this, number](const HttpSessionFailure&) { journal.push_back(fmt::format("failed {}", number)); });
    }
    std::vector<std::string> after(Duration span) {
        journal.clear();
        phone.advanceBy(span);
        return journal;
    }
    /// How a request ends whose answer this is: "STATUS BODY" or "DOMAIN CODE" and the status, if any.
    std::string outcomeOf(ScriptedAnswer given, const std::string& url = "http://a.test/x") {
        answer("GET " + url, std::move(given));
        std::string outcome = "none";
        session->get(
            url,
            [&](const boost::json::value& body, int status) {
                outcome = fmt::format("{} {}", status, boost::json::serialize(body));
            },
            [&](const HttpSessionFailure& failure) {
                EXPECT_NE(failure.error.localizedDescription().value_or(""), "");
                outcome = fmt::format("{} {} {}", failure.error.domain, failure.error.code, failure.status.value_or(0));
            });
        phone.advanceBy(1min);
        return outcome;
    }

    std::vector<std::string> journal;
    std::vector<HttpRequest> requests;
    simulated::SimulatedPhone phone{{}, {.request = [this](const HttpRequest& request) {
                                        requests.push_back(request);
                                        journal.push_back("send " + request.url.substr(7));
                                    }}};
    std::unique_ptr<HttpSession> session = std::make_unique<HttpSession>(phone.platform(), kOptions);
};

TEST_F(HttpSessionTest, OneAtATimeToEachHostInOrder) {
    for (const int number : {1, 2, 3}) get("a", number);
    for (const int number : {4, 5}) get("b", number);
    EXPECT_THAT(journal, ElementsAre("send a.test/1", "send b.test/4"));
    EXPECT_EQ(session->requestCount(), 5U);
    EXPECT_THAT(after(1s), ElementsAre("got 1", "send a.test/2", "got 4", "send b.test/5"));
    EXPECT_EQ(session->requestCount(), 3U);
    EXPECT_THAT(after(1s), ElementsAre("got 2", "send a.test/3", "got 5"));
    EXPECT_THAT(after(1s), ElementsAre("got 3"));
    EXPECT_EQ(session->requestCount(), 0U);
}

TEST_F(HttpSessionTest, SuspendedRequestsWaitAndThoseOnTheWireGoOn) {
    get("a", 1);
    get("a", 2);
    session->setSuspended(true);
    session->setSuspended(true);
    EXPECT_THAT(after(1s), ElementsAre("got 1"));
    get("a", 3);
    get("b", 4);
    EXPECT_THAT(after(1h), IsEmpty());
    EXPECT_EQ(session->requestCount(), 3U);
    session->setSuspended(false);
    EXPECT_THAT(journal, ElementsAre("send a.test/2", "send b.test/4"));
    session->setSuspended(false);
    EXPECT_THAT(after(2s), ElementsAre("got 2", "send a.test/3", "got 4", "got 3"));
}

TEST_F(HttpSessionTest, Outcomes) {
    EXPECT_EQ(outcomeOf(ScriptedAnswer::json({{"a", 1}})), R"(200 {"a":1})");
    EXPECT_EQ(outcomeOf(ScriptedAnswer::text("3", 299)), "299 3");
    EXPECT_EQ(outcomeOf(ScriptedAnswer::text("", 204)), "204 null");
    EXPECT_EQ(outcomeOf(ScriptedAnswer::text(" \r\n", 200)), "200 null");
    EXPECT_EQ(outcomeOf(ScriptedAnswer::text(std::string(1001, '1'))), "QuomiHTTPErrorDomain 4 200");
    for (const char* body : {"<html>", "{", "{} {}", "nul", "\xFF", "[1e999]"}) {
        EXPECT_EQ(outcomeOf(ScriptedAnswer::text(body)), "QuomiHTTPErrorDomain 4 200") << body;
    }
    for (const int status : {199, 300, 302, 304, 400, 401, 404, 500, 503}) {
        EXPECT_EQ(outcomeOf(ScriptedAnswer::json({{"a", 1}}, status)),
                  fmt::format("QuomiHTTPErrorDomain {0} {0}", status));
    }
    EXPECT_EQ(outcomeOf(ScriptedAnswer::failure(HttpFailureKind::connection)), "QuomiHTTPErrorDomain 1 0");
    EXPECT_EQ(outcomeOf(ScriptedAnswer::failure(HttpFailureKind::timeout)), "QuomiHTTPErrorDomain 2 0");
    EXPECT_EQ(outcomeOf(ScriptedAnswer::failure(HttpFailureKind::tls)), "QuomiHTTPErrorDomain 3 0");
    for (const char* url : {"", "/x", "ftp://a.test/x"}) {
        EXPECT_EQ(outcomeOf(ScriptedAnswer::text(""), url), "QuomiHTTPErrorDomain 1 0") << url;
    }
}

TEST_F(HttpSessionTest, CancelAllDropsWhatIsOnTheWireAndWhatWaits) {
    const auto held = std::make_shared<int>(0);
    get("a", 1, [held] {});
    get("a", 2, [held] {});
    session->cancelAll();
    EXPECT_EQ(held.use_count(), 1) << "callbacks are forgotten at once";
    EXPECT_EQ(session->requestCount(), 0U);
    EXPECT_THAT(after(1min), IsEmpty());
    get("a", 3);
    EXPECT_THAT(after(1s), ElementsAre("got 3"));
}

TEST_F(HttpSessionTest, CallbacksMayCallEverything) {
    const auto getThree = [this] { get("a", 3); };
    for (const auto& [what, act, expected] : Table<const char*, std::function<void()>, const char*>{
             {"cancels", [&] { session->cancelAll(); }, "got 1"},
             {"ends the session", [&] { session.reset(); }, "got 1"},
             {"asks", getThree, "got 1 | send a.test/2 | got 2 | send a.test/3 | got 3"},
             {"cancels and asks", [&] { session->cancelAll(), getThree(); }, "got 1 | send a.test/3 | got 3"},
             {"suspends", [&] { session->setSuspended(true); }, "got 1"},
             {"suspends and resumes", [&] { session->setSuspended(true), session->setSuspended(false); },
              "got 1 | send a.test/2 | got 2"}}) {
        SCOPED_TRACE(what);
        session = std::make_unique<HttpSession>(phone.platform(), kOptions);
        get("a", 1, [this, &run = act] {
            EXPECT_EQ(session->requestCount(), 1U) << "the one that waits";
            run();
        });
        get("a", 2);
        EXPECT_EQ(after(1min), parts(expected));
    }
}

TEST_F(HttpSessionTest, RequestFromInsideTheFirstCallbackDoesNotOvertake) {
    answer("GET http://a.test/1", ScriptedAnswer::text("", 500));
    session->get("http://a.test/1", {}, [this](const HttpSessionFailure&) { get("a", 2); });
    EXPECT_THAT(after(2s), ElementsAre("send a.test/2", "got 2"));
    answer("GET http://a.test/1", ScriptedAnswer::text(""));
    session->get("http://a.test/1", {}, {});
    session->get("http://a.test/1", {}, {});
    EXPECT_THAT(after(2s), ElementsAre("send a.test/1")) << "nobody has to listen";
}

}  // namespace
}  // namespace quomi
