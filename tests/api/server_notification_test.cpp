#include "quomi/api/server_notification.h"

#include "quomi/model/action.h"
#include "quomi/model/errors.h"
#include "quomi/model/notify_server_response.h"
#include "tests/api/api_client_fixture.h"

#include <cmath>

namespace quomi::test {
namespace {

constexpr const char* kUrl = "https://hook.test/x?rule=1";
constexpr const char* kKey = "GET https://hook.test/x";

class ServerNotificationTest : public ApiClientFixture {
protected:
    void send(const std::string& url = kUrl) {
        api->sendServerNotificationToURL(
            {url, note("success"), noteError(), note("enable"), [this](const QuomiAction& action) {
                 journal.push_back(action.type + " " + action.param);
                 if (inPerform) inPerform();
             }});
    }
    void answer(std::vector<ScriptedAnswer> answers) { phone.transport().answer(kKey, std::move(answers)); }
    void answer(const char* json) { answer({ScriptedAnswer::text(json)}); }
    /// Seconds that each later try began after the answer to the one before.
    std::vector<double> waits() {
        std::vector<double> times;
        send();
        for (std::size_t tries = requests.size(); phone.loop().nextEvent();) {
            const double before = now();  // the moment of the last answer, when the next event is a retry
            phone.advanceTo(*phone.loop().nextEvent());
            if (requests.size() > tries) times.push_back(now() - before);
            tries = requests.size();
        }
        return times;
    }

    std::function<void()> inPerform;
};

TEST_F(ServerNotificationTest, ScalesAndIntervalsOfManyRetries) {
    const auto most = std::numeric_limits<std::uint64_t>::max();
    EXPECT_NEAR(computeRetryScaleForNumberOfRetry(1'000'000, 30, 2) * 1'000'000, 1, 1e-4) << "nearly all are 30";
    EXPECT_GT(computeRetryScaleForNumberOfRetry(most, 40, 2), 0) << "and does not take for ever";
    EXPECT_EQ(computeRetryScaleForNumberOfRetry(4, 0, 2), 0);
    EXPECT_EQ(computeNextRetryIntervalForRetryNumber(most, 2), 30);
}

TEST_F(ServerNotificationTest, RetriesBeginAfterTheAnswerAndDouble) {
    const auto no = HttpFailureKind::connection;
    const auto late = HttpFailureKind::timeout;
    const auto status = [](int code) { return ScriptedAnswer::text("", code); };
    for (const auto& [what, retries, period, slot, given, expected, told] :
         Table<const char*, std::uint64_t, double, double, ScriptedAnswer, std::vector<double>, const char*>{
             {"no JSON", 4, 40, 2, ScriptedAnswer::text("<html>"), {2, 4, 8, 16}, "failed http 4"},
             {"302", 4, 40, 2, status(302), {2, 4, 8, 16}, "failed http 302"},
             {"399", 1, 40, 2, status(399), {2}, "failed http 399"},
             {"600", 1, 40, 2, status(600), {2}, "failed http 600"},
             {"400", 4, 40, 2, status(400), {}, "failed http 400"},
             {"503", 4, 40, 2, status(503), {}, "failed http 503"},
             {"599", 4, 40, 2, status(599), {}, "failed http 599"},
             {"no answer", 4, 40, 2, ScriptedAnswer::failure(no), {}, ""},
             {"too late", 4, 40, 2, ScriptedAnswer::failure(late), {}, ""},
             {"scaled", 3, 5, 2, status(302), {1, 20.0 / 14, 40.0 / 14}, "failed http 302"},
             {"capped", 2, 100, 20, status(302), {20, 30}, "failed http 302"},
             {"none wanted", 0, 40, 2, status(302), {}, "failed http 302"},
             {"no slot", 2, 40, 0, status(302), {1, 1}, "failed http 302"},
             {"a senseless slot", 2, 40, NAN, status(302), {1, 1}, "failed http 302"},
             {"refused as understood", 4, 40, 2, ScriptedAnswer::text("[]"), {}, "failed sdk 405"}}) {
        SCOPED_TRACE(what);
        settings.serverNotificationNumberOfRetry = retries;
        settings.serverNotificationMaxRetryPeriod = period;
        settings.serverNotificationRetrySlotDuration = slot;
        answer({given});
        EXPECT_THAT(waits(), Pointwise(DoubleNear(1e-5), expected));
        EXPECT_EQ(std::exchange(journal, {}), parts(told));
    }
}

TEST_F(ServerNotificationTest, RequestIsThatOfTheSession) {
    settings.serverNotificationRequestTimeout = 1;
    api->setServerNotificationRequestHeader("X-Key", "1");
    send("https://hook.test/a b");
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_EQ(requests[0].method + " " + requests[0].url + requests[0].body, "GET https://hook.test/a%20b");
    EXPECT_EQ(requests[0].timeout, 25s);
    EXPECT_EQ(requests[0].headers, (HttpHeaders{{"Content-Type", "application/json"}, {"Accept", "application/json"}}));
    send("https://hook.test/a b");
    EXPECT_EQ(api->getRequestQueueCount(), 2U) << "each notification is a request of its own";
}

TEST_F(ServerNotificationTest, CustomHeadersAreKept) {
    EXPECT_THAT(api->customHeadersForServerNotificationRequest(), IsEmpty());
    api->setServerNotificationRequestHeader("a", "1");
    api->setServerNotificationRequestHeader("b", "2");
    api->setServerNotificationRequestHeader("a", "3");
    EXPECT_EQ(api->customHeadersForServerNotificationRequest(), (QuomiAPI::Headers{{"a", "3"}, {"b", "2"}}));
    api->setServerNotificationRequestHeader("a", {});
    EXPECT_EQ(api->customHeadersForServerNotificationRequest(), (QuomiAPI::Headers{{"b", "2"}}));
    api->setCustomHeadersForServerNotificationRequest({{"c", ""}});
    EXPECT_EQ(api->customHeadersForServerNotificationRequest(), (QuomiAPI::Headers{{"c", ""}}));
}

TEST_F(ServerNotificationTest, Decisions) {
    const char* const refused = "failed sdk 405";
    for (const auto& [json, told] : Table<const char*, const char*>{
             {R"({"decision":"enable","notify_user":"n"})", "success | enable"},
             {R"({"decision":"disable","notify_user":"n"})", "success"},
             {R"({"open_deep_link":"l","open_url":"u","notify_user":"n","decision":"notify"})",
              "success | notify_user n | open_url u | open_deep_link l"},
             {R"({"decision":"notify","notify_user":"","open_url":" ","open_deep_link":"l"})",
              "success | open_deep_link l"},
             {R"({"decision":"notify","notify_user":{"alertBody":"b"}})", R"(success | notify_user {"alertBody":"b"})"},
             {R"({"decision":"notify","open_passbook":"p"})", refused},
             {R"({"decision":"notify"})", refused},
             {R"({"decision":"Enable"})", refused},
             {R"({"decision":0})", refused},
             {"{}", refused},
             {"", refused},
             {"3", refused}}) {
        answer(json);
        send();
        EXPECT_EQ(after(1min), parts(told)) << json;
    }
}

TEST_F(ServerNotificationTest, WithoutCallbacks) {
    for (const char* json : {R"({"decision":"notify","notify_user":"n"})", R"({"decision":"enable"})", "{}"}) {
        answer(json);
        api->sendServerNotificationToURL({kUrl});
        EXPECT_THAT(after(1s), IsEmpty());
    }
}

TEST_F(ServerNotificationTest, LaterTryMaySucceed) {
    answer(
        {ScriptedAnswer::text("", 302), ScriptedAnswer::text("no"), ScriptedAnswer::text(R"({"decision":"enable"})")});
    send();
    EXPECT_THAT(after(1min), ElementsAre("success", "enable"));
    EXPECT_THAT(
        debugLines(),
        ElementsAre("sendServerNotificationToURL https://hook.test/x?rule=1 tryNb = 0 nbOfRetryLeft = 4",
                    "Server notification failure, status code = 302", "Will retry server notification in 2.00 seconds",
                    "sendServerNotificationToURL https://hook.test/x?rule=1 tryNb = 1 nbOfRetryLeft = 3",
                    "Server notification failure, status code = 200", "Will retry server notification in 4.00 seconds",
                    "sendServerNotificationToURL https://hook.test/x?rule=1 tryNb = 2 nbOfRetryLeft = 2",
                    "Server notification success"));
}

TEST_F(ServerNotificationTest, EndOfRetriesIsLogged) {
    settings.serverNotificationNumberOfRetry = 0;
    answer({ScriptedAnswer::text("", 302)});
    send();
    EXPECT_THAT(after(1min), ElementsAre("failed http 302"));
    answer(R"({"decision":"disable"})");
    send();
    phone.advanceBy(1s);
    const auto lines = debugLines();
    EXPECT_EQ(lines.at(2), "Number of retry exceeded, notifying of server notification failure...");
    EXPECT_EQ(lines.back(), "Action disabled");
}

TEST_F(ServerNotificationTest, CancelEndsWhatWaitsForItsNextTry) {
    answer({ScriptedAnswer::text("", 302)});
    const auto held = std::make_shared<int>(0);
    for (const bool ends : {false, true}) {
        requests.clear();
        api->sendServerNotificationToURL({kUrl, [held] {}, noteError()});
        phone.advanceBy(1s);
        EXPECT_EQ(api->getRequestQueueCount(), 0U) << "between two tries there is no request";
        ends ? api.reset() : api->cancelAllRequests();
        EXPECT_EQ(held.use_count(), 1);
        EXPECT_THAT(after(1min), IsEmpty());
        EXPECT_EQ(requests.size(), 1U);
        EXPECT_EQ(phone.loop().pendingEvents(), 0U);
    }
}

TEST_F(ServerNotificationTest, CallbackMayEndEverything) {
    const std::vector<std::function<void()>> ways{[this] { api->cancelAllRequests(); }, [this] { api.reset(); }};
    for (const auto& end : ways) {
        makeClient("https://a.test");
        const auto noteAndEnd = [this, end] {
            journal.push_back("success");
            end();
        };
        for (const char* json : {R"({"decision":"enable"})", R"({"decision":"notify","notify_user":"n"})"}) {
            makeClient("https://a.test");
            answer(json);
            api->sendServerNotificationToURL({kUrl, noteAndEnd, noteError(), note("enable")});
            EXPECT_THAT(after(1min), ElementsAre("success"));
        }
        makeClient("https://a.test");
        answer(R"({"decision":"notify","notify_user":"n","open_url":"u"})");
        inPerform = end;
        send();
        EXPECT_THAT(after(1min), ElementsAre("success", "notify_user n"));
        inPerform = {};
        makeClient("https://a.test");
        answer({ScriptedAnswer::text("", 500)});
        api->sendServerNotificationToURL({kUrl, {}, [end](const Error&) { end(); }});
        EXPECT_THAT(after(1min), IsEmpty());
    }
}

TEST_F(ServerNotificationTest, RetryWaitsForTheNetwork) {
    answer({ScriptedAnswer::text("", 302), ScriptedAnswer::text(R"({"decision":"enable"})")});
    send();
    phone.advanceBy(1s);
    phone.network(false);
    EXPECT_THAT(after(1h), IsEmpty());
    EXPECT_EQ(requests.size(), 1U);
    phone.network(true);
    EXPECT_THAT(after(1s), ElementsAre("success", "enable"));
}

}  // namespace
}  // namespace quomi::test
