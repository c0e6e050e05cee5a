#include "quomi/api/api_client.h"

#include "quomi/model/user.h"
#include "tests/api/api_client_fixture.h"

namespace quomi::test {
namespace {

constexpr const char* kUserRequest = "POST /u_app_users/find_or_create_by_udid.json";

class ApiClient : public ApiClientFixture {
protected:
    /// The body that is sent for the user.
    boost::json::value bodyFor(const QuomiUser& user) {
        api->setUserInformation(user, "shop", {}, {});
        phone.advanceBy(1min);
        return boost::json::parse(requests.back().body);
    }
};

TEST_F(ApiClient, UserInformationKeyByKey) {
    QuomiUser user;
    EXPECT_EQ(serialize(bodyFor(user)),
              R"({"u_app_user":{"udid":"U-1","properties":{},"u_application_uid":"shop",)"
              R"("advertising_tracking_mode_enabled":false,"system_name":"iOS","system_version":"17.1",)"
              R"("sdk_name":"Vellora SDK","sdk_version":"1.25.1","model":"iPhone","language":"en"}})");
    user.setUserID("me");
    user.setTags({{"b", "a"}});
    user.setProperties(
        boost::json::object{{"u_devices", 1}, {"z", 1}, {"ext_id", "x"}, {"y", nullptr}, {"tags", 2}, {"x", 3}});
    user.setAdvertisingTrackingModeEnabled(true);
    auto body = bodyFor(user).at("u_app_user");
    EXPECT_EQ(serialize(body.at("properties")), R"({"z":1,"y":null,"x":3,"ext_id":"me","tags":["b","a"]})");
    EXPECT_EQ(body.at("advertising_tracking_mode_enabled"), true);
    EXPECT_EQ(body.at("advertising_id"), "") << "the phone has none";
    EXPECT_EQ(user.properties()->size(), 6U);
    user.setUserID({});
    user.setTags({{}});
    auto longer = *user.properties();
    for (int i = 0; i < 40; ++i) longer.insert_or_assign("k" + std::to_string(i), i);
    user.setProperties(longer);
    const auto many = bodyFor(user).at("u_app_user").at("properties");
    EXPECT_EQ(many.as_object().size(), 43U);
    for (int i = 0; i < 40; ++i) EXPECT_EQ(many.at("k" + std::to_string(i)), i);
    user.setProperties(boost::json::object{{"tags", 2}, {"z", 1}});
    EXPECT_EQ(serialize(bodyFor(user).at("u_app_user").at("properties")), R"({"z":1})");
}

TEST_F(ApiClient, AdvertisingIdentifierOnlyWhenWanted) {
    std::string sent;
    simulated::SimulatedPhone other({.languages = {}, .advertisingId = "AD-1"},
                                    {.request = [&](const HttpRequest& request) { sent = request.body; }});
    const Platform otherPlatform = other.platform();
    QuomiAPI client("https://a.test", otherPlatform, settings, debugLog);
    QuomiUser user;
    client.setUserInformation(user, "shop", {}, {});
    EXPECT_THAT(sent, testing::Not(HasSubstr("AD-1")));
    EXPECT_EQ(boost::json::parse(sent).at("u_app_user").at("language"), "");
    other.advanceBy(1s);
    user.setAdvertisingTrackingModeEnabled(true);
    client.setUserInformation(user, "shop", {}, {});
    EXPECT_EQ(boost::json::parse(sent).at("u_app_user").at("advertising_id"), "AD-1");
}

TEST_F(ApiClient, UserInformationReportsAndLogs) {
    phone.transport().answer(kUserRequest, {ScriptedAnswer::json({{"ok", 1}, {"user", {{"advertising_id", "AD-1"}}}}),
                                            ScriptedAnswer::text("", 503)});
    for (int i = 0; i < 2; ++i) api->setUserInformation({}, "shop", note("done"), noteError(""));
    EXPECT_EQ(api->getRequestQueueCount(), 2U);
    phone.advanceBy(1s);
    EXPECT_THAT(journal, ElementsAre("done", " http 503"));
    const auto log = debugLog.file().getFileLogContent().value_or("");
    EXPECT_THAT(log, HasSubstr("SUCCESS Send user information: {\"ok\":1,\"user\":{}}\n"));
    EXPECT_THAT(log, HasSubstr("ERROR Send user information: Error Domain=QuomiHTTPErrorDomain Code=503"));
}

TEST_F(ApiClient, BatchOfEvents) {
    const WallTime day = WallTime(1'700'000'000s);
    const std::vector<QuomiDLog> records{
        {day, R"({"b":1,"a":[]})"}, {day + 1s, "no JSON"}, {std::nullopt, "{}"}, {day, "{}"}};
    const auto sent = [this](const std::vector<QuomiDLog>& batch) {
        api->sendBatchOfLogEvents(batch, note("done"), noteError(""));
        phone.advanceBy(1s);
        return requests.back().method + " " + requests.back().url + " " + requests.back().body;
    };
    phone.transport().answer("POST /u_applications/shop/log_multi.json", ScriptedAnswer::text(""));
    EXPECT_EQ(sent(records),
              "POST https://a.test/u_applications/shop/log_multi.json "
              R"({"udid":"U-1","logs":[{"data":{"b":1,"a":[]},"date":"2023-11-14 23:13:20 +0100"},)"
              R"({"date":"2023-11-14 23:13:21 +0100"}]})");
    EXPECT_THAT(sent({{day, std::nullopt}, {day, "{}"}}), testing::EndsWith(R"({"udid":"U-1","logs":[]})"));
    EXPECT_THAT(journal, ElementsAre("done", "done"));
    for (const auto& [appNamespace, path] : std::vector<std::pair<std::optional<std::string>, std::string>>{
             {"a/b", "a/b"}, {"50%25", "50%25"}, {"my \xC3\xBC", "my%20%C3%BC"}, {std::nullopt, "(null)"}}) {
        settings.namespace_ = appNamespace;
        EXPECT_THAT(sent({}), HasSubstr("/u_applications/" + path + "/log_multi.json")) << "unescaped";
    }
    EXPECT_EQ(journal.back(), " http 404");
}

TEST_F(ApiClient, EndedFromInsideACallback) {
    phone.transport().answer(kUserRequest, ScriptedAnswer::text(""));
    api->setUserInformation(
        {}, "shop", [this] { api.reset(); }, noteError(""));
    api->setUserInformation({}, "shop", note("done"), noteError(""));
    phone.advanceBy(1min);
    EXPECT_THAT(journal, IsEmpty());
    EXPECT_EQ(requests.size(), 1U);
    makeClient("https://a.test");
    api->setUserInformation({}, "shop", note("done"), noteError(""));
    api->cancelAllRequests();
    phone.network(false);
    phone.network(true);
    phone.advanceBy(1min);
    EXPECT_THAT(journal, IsEmpty());
}

}  // namespace
}  // namespace quomi::test
