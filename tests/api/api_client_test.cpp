#include "quomi/api/api_client.h"

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/core/settings.h"
#include "quomi/core/user.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/platform/platform.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quomi {
namespace {

using namespace std::chrono_literals;
using simulated::ScriptedAnswer;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr const char* kUserRequest = "POST /u_app_users/find_or_create_by_udid.json";

simulated::PhoneConfig phoneConfig() {
    simulated::PhoneConfig config;
    config.udid = "U-1";
    config.systemName = "Sys";
    config.systemVersion = "9.8";
    config.model = "Model";
    config.languages = {"de-AT", "en"};
    config.timeZone = "Europe/Berlin";
    return config;
}

class ApiClient : public testing::Test {
protected:
    ApiClient() {
        settings.namespace_ = "shop";
        makeClient("https://a.test");
    }
    void makeClient(const std::string& baseURL) {
        phone.transport().setBaseURLs(std::vector{baseURL});
        api = std::make_unique<QuomiAPI>(baseURL, platform, settings, debugLog);
    }
    /// The body that is sent for the user.
    boost::json::value bodyFor(const QuomiUser& user) {
        api->setUserInformation(user, "shop", {}, {});
        phone.advanceBy(1min);
        return boost::json::parse(requests.back().body);
    }
    [[nodiscard]] QuomiAPI::Done noting(const std::string& word) {
        return [this, word] { told.push_back(word); };
    }
    [[nodiscard]] QuomiAPI::Failure notingError() {
        return [this](const Error& error) { told.push_back(error.domain + " " + std::to_string(error.code)); };
    }

    std::vector<HttpRequest> requests;
    std::vector<std::string> told;
    simulated::SimulatedPhone phone{phoneConfig(),
                                    {.request = [this](const HttpRequest& request) { requests.push_back(request); }}};
    Platform platform = phone.platform();
    QuomiSettings settings{{}, platform.location};
    bool logs = true;
    DebugLog debugLog{platform.files, platform.clock, [this] { return logs; }};
    std::unique_ptr<QuomiAPI> api;
};

TEST_F(ApiClient, QueriesOfApplicationAndLimits) {
    for (const auto& [appNamespace, encoded] : std::vector<std::pair<std::string, std::string>>{
             {"shop", "shop"}, {"my shop/\xC3\xBC&x=1", "my%20shop%2F%C3%BC%26x%3D1"}, {"", ""}}) {
        for (const std::string base : {"https://a.test", "http://a.test:8080/api/", "http://[::1]:80/v1"}) {
            makeClient(base);
            requests.clear();
            const auto answer = [this](const boost::json::value& body) { told.push_back(serialize(body)); };
            phone.transport().answer("GET /u_applications/query.json", ScriptedAnswer::json({1}));
            api->getApplicationWithNamespace(appNamespace, answer, notingError());
            api->getApplicationEventLimits(appNamespace, answer, notingError());
            EXPECT_EQ(requests.size(), 1U) << "one at a time";
            phone.advanceBy(1s);
            ASSERT_EQ(requests.size(), 2U);
            const auto root = base.ends_with('/') ? base : base + "/";
            EXPECT_EQ(requests[0].url, root + "u_applications/query.json?namespace=" + encoded);
            EXPECT_EQ(requests[1].url, root + "u_applications/limits.json?namespace=" + encoded);
            EXPECT_EQ(requests[0].headers,
                      (HttpHeaders{{"Content-Type", "application/json"}, {"Accept", "application/json"}}));
            EXPECT_EQ(requests[0].timeout, 25s);
        }
    }
    EXPECT_THAT(told, testing::Contains("QuomiHTTPErrorDomain 404"));
}

TEST_F(ApiClient, UserInformationKeyByKey) {
    QuomiUser user;
    EXPECT_EQ(serialize(bodyFor(user)),
              R"({"u_app_user":{"udid":"U-1","properties":{},"u_application_uid":"shop",)"
              R"("advertising_tracking_mode_enabled":false,"system_name":"Sys","system_version":"9.8",)"
              R"("sdk_name":"Vellora SDK","sdk_version":"1.25.1","model":"Model","language":"de-AT"}})");
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
    auto config = phoneConfig();
    config.advertisingId = "AD-1";
    config.languages.clear();
    std::string sent;
    simulated::SimulatedPhone other(config, {.request = [&](const HttpRequest& request) { sent = request.body; }});
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
    for (int i = 0; i < 2; ++i) api->setUserInformation({}, "shop", noting("done"), notingError());
    EXPECT_EQ(api->getRequestQueueCount(), 2U);
    phone.advanceBy(1s);
    EXPECT_THAT(told, ElementsAre("done", "QuomiHTTPErrorDomain 503"));
    const auto log = debugLog.file().getFileLogContent().value_or("");
    EXPECT_THAT(log, HasSubstr("SUCCESS Send user information: {\"ok\":1,\"user\":{}}\n"));
    EXPECT_THAT(log, HasSubstr("ERROR Send user information: Error Domain=QuomiHTTPErrorDomain Code=503"));
}

TEST_F(ApiClient, BatchOfEvents) {
    const WallTime day = WallTime(1'700'000'000s);
    const std::vector<QuomiDLog> records{
        {day, R"({"b":1,"a":[]})"}, {day + 1s, "no JSON"}, {std::nullopt, "{}"}, {day, "{}"}};
    const auto sent = [this](const std::vector<QuomiDLog>& batch) {
        api->sendBatchOfLogEvents(batch, noting("done"), notingError());
        phone.advanceBy(1s);
        return requests.back().method + " " + requests.back().url + " " + requests.back().body;
    };
    phone.transport().answer("POST /u_applications/shop/log_multi.json", ScriptedAnswer::text(""));
    EXPECT_EQ(sent(records),
              "POST https://a.test/u_applications/shop/log_multi.json "
              R"({"udid":"U-1","logs":[{"data":{"b":1,"a":[]},"date":"2023-11-14 23:13:20 +0100"},)"
              R"({"date":"2023-11-14 23:13:21 +0100"}]})");
    EXPECT_THAT(sent({{day, std::nullopt}, {day, "{}"}}), testing::EndsWith(R"({"udid":"U-1","logs":[]})"));
    EXPECT_THAT(told, ElementsAre("done", "done"));
    for (const auto& [appNamespace, path] : std::vector<std::pair<std::optional<std::string>, std::string>>{
             {"a/b", "a/b"}, {"50%25", "50%25"}, {"my \xC3\xBC", "my%20%C3%BC"}, {std::nullopt, "(null)"}}) {
        settings.namespace_ = appNamespace;
        EXPECT_THAT(sent({}), HasSubstr("/u_applications/" + path + "/log_multi.json")) << "unescaped";
    }
    EXPECT_EQ(told.back(), "QuomiHTTPErrorDomain 404");
}

TEST_F(ApiClient, RequestsWaitForTheNetwork) {
    phone.transport().answer(kUserRequest, ScriptedAnswer::text(""));
    phone.network(false);
    phone.runTurns();
    api->setUserInformation({}, "shop", noting("done"), notingError());
    phone.advanceBy(1h);
    EXPECT_THAT(requests, IsEmpty());
    phone.setNetworkStatus(NetworkStatus::unknown);
    phone.advanceBy(1s);
    EXPECT_THAT(told, ElementsAre("done"));

    phone.network(false);
    phone.runTurns();
    makeClient("https://a.test");  // made without network
    api->setUserInformation({}, "shop", noting("later"), notingError());
    phone.advanceBy(1h);
    EXPECT_EQ(requests.size(), 1U);
    phone.setNetworkStatus(NetworkStatus::reachableViaWWAN);
    phone.advanceBy(1s);
    EXPECT_EQ(told.back(), "later");
}

TEST_F(ApiClient, EndedFromInsideACallback) {
    phone.transport().answer(kUserRequest, ScriptedAnswer::text(""));
    api->setUserInformation(
        {}, "shop", [this] { api.reset(); }, notingError());
    api->setUserInformation({}, "shop", noting("done"), notingError());
    phone.advanceBy(1min);
    EXPECT_THAT(told, IsEmpty());
    EXPECT_EQ(requests.size(), 1U);
    makeClient("https://a.test");
    api->setUserInformation({}, "shop", noting("done"), notingError());
    api->cancelAllRequests();
    phone.network(false);
    phone.network(true);
    phone.advanceBy(1min);
    EXPECT_THAT(told, IsEmpty());
}

}  // namespace
}  // namespace quomi
