#include "tests/tool/replay_support.h"
#include "tools/quomi/backoffice/backoffice.h"

// The server side of a visit: scripted answers, a campaign over real HTTP, a running server.
namespace quomi::test {
namespace {

const std::string kUserRequest = "POST /u_app_users/find_or_create_by_udid.json";

class ReplayBackofficeTest : public testing::Test {
protected:
    ReplayBench bench;
};

TEST_F(ReplayBackofficeTest, AScriptedAnswerEndsAsItSays) {
    // Sent at 1, with a timeout of 25 s.
    const Table<const char*, const char*, const char*> cases = {
        {R"({"json": {}})", "1.05 response 200", "success"},
        {R"({})", "1.05 response 200", "success"},
        {R"({"delay": 0, "text": " "})", "1 response 200", "success"},
        {R"({"status": 299, "text": "[]"})", "1.05 response 299", "success"},
        {R"({"text": "<html>"})", "1.05 response invalid", "failure error 4"},
        {R"({"status": 500, "text": "<html>"})", "1.05 response 500", "failure error 500"},
        {R"({"delay": 25, "json": {}})", "26 response 200", "success"},
        {R"({"delay": 25.001, "json": {}})", "26 response timeout", "failure error 2"},
        {R"({"fail": "timeout", "delay": 1})", "26 response timeout", "failure error 2"},
        {R"({"fail": "connection"})", "1.05 response connection", "failure error 1"},
        {R"({"fail": "tls", "delay": 2})", "3 response tls", "failure error 3"},
        {R"({"fail": "tls", "delay": 26})", "26 response timeout", "failure error 2"},
        {"[]", "1.05 response 404", "failure error 404"},
    };
    for (const auto& [answer, response, callback] : cases) {
        SCOPED_TRACE(answer);
        auto visit = shopVisit(R"([{"at": 0, "call": "start"}, {"at": 1, "call": "updateUserInformation"}])");
        auto& answers = answersOf(visit);
        if (answer == std::string("[]")) {
            answers.erase(kUserRequest);
        } else {
            answers[kUserRequest] = boost::json::array{boost::json::object{}, asJson(answer)};
        }
        visit["end"] = 30;
        const auto replayed = bench.play(visit);
        EXPECT_THAT(replayed.lines("callback"),
                    ElementsAre(std::string(response).substr(0, std::string(response).find(' ')) +
                                " callback updateUserInformation " + callback));
        EXPECT_EQ(replayed.lines("response").back(),
                  response + std::string(" /u_app_users/find_or_create_by_udid.json"));
    }
}

TEST_F(ReplayBackofficeTest, AnswersAreUsedUpInOrderAndTheLastOneRepeatsOneRequestAtATime) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"},
        {"at": 1, "call": "updateUserInformation"}, {"at": 1, "call": "updateUserInformation"},
        {"at": 1, "call": "updateUserInformation"}])");
    answersOf(visit)[kUserRequest] = asJson(R"([{}, {"status": 500, "delay": 0.5}, {"status": 201, "delay": 0.25}])");
    visit["end"] = 30;
    auto lines = bench.play(visit).lines();
    std::erase_if(lines, [](const std::string& line) { return line[0] == '0' || line.find("callback") != line.npos; });
    const std::string url = " /u_app_users/find_or_create_by_udid.json";
    EXPECT_THAT(lines,
                ElementsAre("1 request POST" + url, "1 call updateUserInformation", "1 call updateUserInformation",
                            "1 call updateUserInformation", "1.5 response 500" + url, "1.5 request POST" + url,
                            "1.75 response 201" + url, "1.75 request POST" + url, "2 response 201" + url));
}

TEST_F(ReplayBackofficeTest, KeysArePathsUnderTheBaseUrlsAndWholeUrlsElsewhere) {
    const Table<const char*, const char*, const char*> cases = {
        {"https://own.test/api/", R"([{"at": 0, "call": "start"}])", "GET /api/u_applications/query.json"},
        {"https://own.test", R"([{"at": 0, "call": "setBaseURL", "with": "https://two.test"},
                                 {"at": 0, "call": "start"}])",
         "GET /u_applications/query.json"},
        {"https://own.test", R"([{"at": 0, "call": "setSetting",
                                  "with": {"name": "baseAPIUrl", "value": "https://two.test"}},
                                 {"at": 0, "call": "start"}])",
         "GET /u_applications/query.json"},
        // A nil base URL makes requests that go nowhere, not even to a key that looks like them.
        {"https://own.test", R"([{"at": 0, "call": "setSetting", "with": {"name": "baseAPIUrl", "value": null}},
                                 {"at": 0, "call": "start"}])",
         nullptr},
    };
    for (const auto& [baseURL, timeline, key] : cases) {
        SCOPED_TRACE(timeline);
        auto visit = shopVisit(timeline);
        visit["app"].as_object()["baseURL"] = baseURL;
        auto& answers = answersOf(visit);
        answers = boost::json::object{{"GET /u_applications/query.json", asJson(R"({"status": 402})")}};
        if (key != nullptr) answers[key] = asJson(R"({"status": 403})");
        visit["end"] = 30;
        const auto responses = bench.play(visit).lines("response");
        ASSERT_EQ(responses.size(), 1U);
        EXPECT_THAT(responses[0], StartsWith(key != nullptr ? "0.05 response 403" : "0.05 response connection"));
    }
}

TEST_F(ReplayBackofficeTest, WithoutABackOfficeEveryRequestIsNotFound) {
    auto visit = shopVisit(R"([{"at": 0, "call": "start"}])");
    visit.erase("backoffice");
    visit["end"] = 30;
    EXPECT_THAT(bench.play(visit).lines(),
                ElementsAre("0 request GET /u_applications/query.json", "0 call start true", "0 category QuomiYesNo",
                            "0.05 response 404 /u_applications/query.json",
                            "0.05 delegate didReceiveErrorNotification error 404",
                            "0.05 console Quomi SDK Error: Failed to retrieve Quomi application data"));
}

/// A visit to the shop of the examples with the campaign's file in the visit's folder.
boost::json::object campaignVisit(const ReplayBench& bench, const char* timeline) {
    const std::filesystem::path campaign = QUOMI_SOURCE_DIR "/examples/shop/campaign.json";
    std::filesystem::copy_file(campaign, bench.folder() / "c.json", std::filesystem::copy_options::skip_existing);
    auto visit = shopVisit(timeline);
    visit["app"].as_object()["namespace"] = "corner-and-oak";
    visit["backoffice"] = asJson(R"({"campaign": "c.json"})");
    return visit;
}

constexpr const char* kStartAndLog = R"([{"at": 0, "call": "start"}, {"at": 1, "call": "logEvent", "with": {"n": 1}}])";

TEST_F(ReplayBackofficeTest, ACampaignIsServedOverRealHttpWhileTheClockStandsStill) {
    const auto replayed = bench.play(campaignVisit(bench, kStartAndLog));
    EXPECT_THAT(replayed.lines("request"),
                ElementsAre("0 request GET /u_applications/query.json",   //
                            "0 request GET /u_applications/limits.json",  //
                            "0 " + ("request " + kUserRequest),
                            "40 request POST /u_applications/corner-and-oak/log_multi.json"));
    EXPECT_THAT(replayed.lines("response"),
                ElementsAre("0 response 200 /u_applications/query.json", "0 response 200 /u_applications/limits.json",
                            "0 response 200 /u_app_users/find_or_create_by_udid.json",
                            "40 response 200 /u_applications/corner-and-oak/log_multi.json"));
    EXPECT_EQ(replayed.lines().at(1), "0 call start true");
    EXPECT_EQ(replayed.out, bench.play(campaignVisit(bench, kStartAndLog)).out);
    EXPECT_THAT(replayed.out, Not(HasSubstr("127.0.0.1")));
}

TEST_F(ReplayBackofficeTest, RequestsToTheDefaultHostGoToTheCampaignToo) {
    auto visit = campaignVisit(bench, R"([{"at": 0, "call": "setBaseURL", "with": "https://api.quomi.test"},
                                          {"at": 0, "call": "start"}])");
    EXPECT_THAT(bench.play(visit).lines("response"),
                Contains("0 response 200 https://api.quomi.test/u_applications/query.json"));
}

TEST_F(ReplayBackofficeTest, ARunningServerTakesThePlaceOfTheVisitsOwn) {
    auto campaign = simulated::Campaign::load(QUOMI_SOURCE_DIR "/examples/shop/campaign.json");
    ASSERT_TRUE(campaign);
    tool::Backoffice server(std::move(*campaign));
    ASSERT_TRUE(server.start());
    auto scripted = shopVisit(kStartAndLog);
    scripted["app"].as_object()["namespace"] = "corner-and-oak";
    const auto fromScript = bench.play(scripted, {"--backoffice", server.baseUrl()});
    EXPECT_EQ(server.inbox().counts().users, 1U);
    EXPECT_EQ(server.inbox().counts().events, 4U) << "three of them the user's permissions";
    const auto fromCampaign = bench.play(campaignVisit(bench, kStartAndLog), {"--backoffice", server.baseUrl() + "/"});
    EXPECT_EQ(server.inbox().counts().users, 2U);
    EXPECT_THAT(fromScript.lines("response"), ElementsAreArray(fromCampaign.lines("response")));
    server.stop();
    const auto fromNobody = bench.play(scripted, {"--backoffice", "http://127.0.0.1:1"});
    EXPECT_EQ(fromNobody.status, 0);
    EXPECT_EQ(fromNobody.lines("response").front(), "0 response connection /u_applications/query.json");
}

}  // namespace
}  // namespace quomi::test
