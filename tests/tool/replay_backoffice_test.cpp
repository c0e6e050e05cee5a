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
