#include "quomi/data/records.h"
#include "quomi/util/dates.h"
#include "quomi/util/uuid.h"
#include "tests/api/api_client_fixture.h"

namespace quomi::test {
namespace {

constexpr const char* kGeofences = "GET /u_geofences/query.json";
constexpr const char* kBeacons = "GET /u_beacons/query.json";
constexpr const char* kUuidText = "6B6E1B5A-0C0D-4A6E-9E62-0000000000B1";

class Downloads : public ApiClientFixture {
protected:
    bool geofences(double lat, double lng, double radius, std::optional<Error>* error = nullptr) {
        return api->getGeofencesRulesWithNamespace({"shop", lat, lng, radius}, download("got"), error);
    }
    bool geofences(std::optional<Error>* error = nullptr) { return geofences(1, 2, 3, error); }
    void beacons(std::optional<int> major, const std::string& word = "got") {
        api->getBeaconsRulesWithNamespace({"shop", uuid, major}, download(word));
    }
    RulesDownload download(const std::string& word) {
        const auto take = [this](const boost::json::value& body, std::optional<Error>* error) {
            journal.push_back("took " + serialize(body));
            if (body == "useless") error->emplace(Error{"test", 1, {}});
        };
        return {take, [this](const Error& error) { runs.push_back(error.code); }, note(word), noteError(word)};
    }

    /// Seconds at which beacons were asked for in the next span, while there is always one who asks.
    std::vector<double> timesAsked(Duration span, Duration every = 1s) {
        std::vector<double> times;
        const double begin = now();
        for (const auto end = phone.loop().monotonicNow() + span; phone.loop().monotonicNow() < end;) {
            const std::size_t before = requests.size();
            for (int major = 0; major < 10; ++major) beacons(major);
            phone.advanceBy(every);
            for (std::size_t i = before; i < requests.size(); ++i) times.push_back(now() - begin);
        }
        return times;
    }

    std::vector<std::int64_t> runs;  // codes of the first failures of runs
    const Uuid uuid = Uuid::parse(kUuidText).value();
    const std::optional<WallTime> day = QuomiUtils::isoDate("2026-11-21T23:30:00.25Z");
};

TEST_F(Downloads, GeofenceURLs) {
    const std::string start = "https://a.test/u_geofences/query.json?api_version=3";
    EXPECT_EQ(api->getURLForGeofencesWithNamespace({"shop", 48.25, -16.5, 100, day}),
              start + "&lat=48.250000&lng=-16.500000&radius=100.000000&udid=U-1&namespace=shop" +
                  "&updated_at=2026-11-21T23:30:00.250Z");
    EXPECT_EQ(api->getURLForGeofencesWithNamespace({"", 0, 0, 1}),
              start + "&lat=0.000000&lng=0.000000&radius=1.000000&udid=U-1");
    EXPECT_EQ(api->getURLForGeofencesWithNamespace({" ", -0.0, 180, 1e9}),
              start + "&lat=-0.000000&lng=180.000000&radius=1000000000.000000&udid=U-1");
    settings.apiVersion = 7;
    makeClient("http://h.test:81/api/");
    EXPECT_EQ(api->getURLForGeofencesWithNamespace({"a&b", 1, 2, 3}),
              "http://h.test:81/api/u_geofences/query.json?api_version=7&lat=1.000000&lng=2.000000&radius=3.000000"
              "&udid=U-1&namespace=a&b")
        << "the namespace stands as it is";
}

TEST_F(Downloads, BeaconURLs) {
    const auto start =
        fmt::format("https://a.test/u_beacons/query.json?api_version=3&proximity_uid={}&udid=U-1", kUuidText);
    EXPECT_EQ(api->getURLForBeaconsWithNamespace({"shop", uuid, 1, 65535, day}),
              start + "&namespace=shop&major=1&minor=65535&updated_at=2026-11-21T23:30:00.250Z");
    EXPECT_EQ(api->getURLForBeaconsWithNamespace({"", uuid, {}, 0}), start + "&minor=0");
    EXPECT_EQ(api->getURLForBeaconsWithNamespace({"", uuid, 0, {}, day}),
              start + "&major=0&updated_at=2026-11-21T23:30:00.250Z");
}

TEST_F(Downloads, CoordinatesAreOfSinglePrecision) {
    EXPECT_TRUE(geofences(48.2081743, 16.3738189, 123.456789));
    EXPECT_TRUE(requests[0].url.ends_with("&lat=48.208176&lng=16.373819&radius=123.456787&udid=U-1&namespace=shop"))
        << requests[0].url;
    api->cancelAllRequests();
    EXPECT_TRUE(geofences(0, 0, std::numeric_limits<double>::max()));
    EXPECT_NE(requests[1].url.find("&radius=340282346638528859811704183484516925440.000000&"), std::string::npos);
}

TEST_F(Downloads, NamespaceThatNoURLMayHoldIsEncoded) {
    api->getBeaconsRulesWithNamespace({"my \xC3\xBC shop", uuid}, {});
    EXPECT_TRUE(requests.at(0).url.ends_with("&namespace=my%20%C3%BC%20shop")) << requests[0].url;
}

TEST_F(Downloads, ParametersOfGeofences) {
    const char* const kRadius = "API request parameters error. Radius cannot be less than 1";
    const char* const kLatitude = "API request parameters error. Latitude cannot be outside of (-90,90) range";
    const char* const kLongitude = "API request parameters error. Longitude cannot be outside of (-180,180) range";
    const Table<double, double, double, const char*> cases = {
        {0, 0, 0.5, kRadius},          {0, 0, 0.9999999, kRadius}, {91, 181, 0, kRadius},
        {90.0000001, 0, 1, kLatitude}, {-90.5, 181, 1, kLatitude}, {0, 180.0000001, 1, kLongitude},
        {0, -181, 1, kLongitude},      {0, 0, 1.0, nullptr},       {90, -180, 1, nullptr},
        {-90, 180, 1, nullptr}};
    for (const auto& [lat, lng, radius, refusal] : cases) {
        std::optional<Error> error;
        EXPECT_EQ(geofences(lat, lng, radius, &error), refusal == nullptr);
        EXPECT_EQ(geofences(lat, lng, radius), false) << "refused without being asked why, or busy";
        ASSERT_EQ(error.has_value(), refusal != nullptr) << lat << " " << lng << " " << radius;
        if (error) {
            EXPECT_EQ(error->localizedDescription(), refusal);
            EXPECT_EQ(fmt::format("{} {}", error->domain, error->code), "QuomiErrorDomain 401");
        }
        const auto told = after(1s);
        EXPECT_EQ(told.size(), refusal == nullptr ? 1U : 0U) << "no callback for a refused one";
    }
    EXPECT_EQ(requests.size(), 3U) << "a refused one leaves no mark";
}

TEST_F(Downloads, OneOfGeofencesAtATime) {
    phone.transport().answer(kGeofences, {ScriptedAnswer::json({1}), ScriptedAnswer::text("", 503),
                                          ScriptedAnswer::text("", 204), ScriptedAnswer::text("<html>")});
    for (const char* outcome : {"took [1] | got", "got http 503", "got sdk 404", "got http 4"}) {
        std::optional<Error> error;
        EXPECT_TRUE(geofences());
        EXPECT_FALSE(geofences(0, 0, 0, &error));
        EXPECT_EQ(error.value().code, 403) << "comes before the parameters";
        EXPECT_EQ(error->localizedDescription().value().find(
                      "Tried to launch a second geofences download request while the previous one hadn't finished yet"),
                  0U);
        EXPECT_EQ(after(1s), parts(outcome));
    }
    EXPECT_THAT(runs, ElementsAre(503)) << "one line for failures in a row";
}

TEST_F(Downloads, CallbackMayDownloadAgain) {
    bool again = false;
    api->getGeofencesRulesWithNamespace({"shop", 1, 2, 3}, {{}, {}, {}, [&](const Error&) { again = geofences(); }});
    beacons(1);
    phone.advanceBy(60ms);
    EXPECT_TRUE(again) << "with another request in the queue";
}

TEST_F(Downloads, StaleFlagBlocksOnlyWhileSomethingElseWaits) {
    EXPECT_TRUE(geofences());
    api->cancelAllRequests();
    EXPECT_TRUE(geofences()) << "nothing in the queue";
    api->cancelAllRequests();
    beacons(1);
    std::optional<Error> error;
    EXPECT_FALSE(geofences(&error));
    EXPECT_EQ(error.value().code, 403);
    EXPECT_THAT(after(1s), ElementsAre("got http 404"));
    EXPECT_TRUE(geofences());
    EXPECT_THAT(after(1s), ElementsAre("got http 404"));
}

TEST_F(Downloads, DataAtURL) {
    const Table<ScriptedAnswer, const char*> cases = {
        {ScriptedAnswer::json({{"a", 1}}), R"(got {"a":1})"},
        {ScriptedAnswer::text(""), "got null"},
        {ScriptedAnswer::json({{"a", 1}}, 201), R"(QuomiErrorDomain 404 {"responseCode":201} 201 {"a":1})"},
        {ScriptedAnswer::text("", 204), R"(QuomiErrorDomain 404 {"responseCode":204} 204 null)"},
        {ScriptedAnswer::text("no", 204), "QuomiHTTPErrorDomain 4 - 204 null"},
        {ScriptedAnswer::text("", 302), "QuomiHTTPErrorDomain 302 - 302 null"},
        {ScriptedAnswer::failure(HttpFailureKind::tls), "QuomiHTTPErrorDomain 3 - 0 null"}};
    for (const auto& [answer, told] : cases) {
        phone.transport().answer("GET https://b.test/x", answer);
        api->forgetFailedDownloads();
        api->getDataAtURL(
            "https://b.test/x", noteAnswer(), [this](const DownloadResponse& response, const Error& error) {
                journal.push_back(fmt::format("{} {} {} {} {}", error.domain, error.code,
                                              error.domain == kHTTPErrorDomain ? "-" : serialize(error.userInfo),
                                              response.status.value_or(0), serialize(response.body)));
            });
        EXPECT_THAT(after(1s), ElementsAre(told));
        api->getDataAtURL("https://b.test/x", {}, {});
        EXPECT_THAT(after(1s), IsEmpty()) << "callbacks may be absent";
    }
}

TEST_F(Downloads, EqualOnesThatWaitAreOne) {
    phone.transport().answer(kBeacons, {ScriptedAnswer::json({1}), ScriptedAnswer::json({2}), ScriptedAnswer::json({3}),
                                        ScriptedAnswer::json({4})});
    beacons(1, "a");
    for (int i = 0; i < 1000; ++i) beacons(1, "b");
    beacons(2, "c");
    beacons(1, "d");
    EXPECT_EQ(api->getRequestQueueCount(), 3U) << "on the wire, the equal ones, the other one";
    const auto told = after(1s);
    ASSERT_EQ(told.size(), 1006U);
    EXPECT_THAT(Strings(told.begin(), told.begin() + 4), ElementsAre("took [1]", "a", "took [2]", "b"));
    EXPECT_THAT(Strings(told.end() - 4, told.end()), ElementsAre("b", "d", "took [3]", "c"));
    beacons(1, "e");
    EXPECT_THAT(after(1s), ElementsAre("took [4]", "e")) << "an ended one answers nobody";
}

TEST_F(Downloads, WithoutNetworkTheQueueDoesNotGrow) {
    phone.network(false);
    phone.runTurns();
    for (int i = 0; i < 10; ++i) {
        beacons(1);
        api->getApplicationWithNamespace("shop", {}, {});
    }
    EXPECT_EQ(api->getRequestQueueCount(), 11U) << "only downloads of rules join";
    phone.network(true);
    EXPECT_EQ(after(10s).size(), 10U);
}

TEST_F(Downloads, WhoJoinedIsDroppedWithTheOthers) {
    const std::array<std::function<void()>, 2> ways{[this] { api->cancelAllRequests(); }, [this] { api.reset(); }};
    for (const auto& end : ways) {
        makeClient("https://a.test");
        phone.network(false);
        phone.runTurns();
        beacons(1, "first");
        api->getBeaconsRulesWithNamespace({"shop", uuid, 1}, {{}, {}, {}, [end](const Error&) { end(); }});
        beacons(1, "third");
        phone.network(true);
        EXPECT_THAT(after(1min), ElementsAre("first http 404"));
    }
}

TEST_F(Downloads, CallbackThatThrowsHoldsNobodyUp) {
    api->getApplicationWithNamespace("shop", {}, [](const Error&) { throw 1; });
    beacons(1, "first");
    api->getBeaconsRulesWithNamespace({"shop", uuid, 1}, {{}, {}, {}, [](const Error&) { throw 2; }});
    beacons(1, "third");
    EXPECT_THAT(after(1min), ElementsAre("first http 404", "third http 404"));
}

TEST_F(Downloads, WithoutNetworkThePlaceWhereTheUserIsNowIsAskedFor) {
    phone.transport().answer(kGeofences, ScriptedAnswer::json({1}));
    phone.network(false);
    phone.runTurns();
    const auto ask = [this](double lat, std::optional<WallTime> since) {
        return api->getGeofencesRulesWithNamespace({"shop", lat, 2, 3, since}, download(fmt::format("{}", lat)));
    };
    EXPECT_TRUE(ask(1, {}));
    for (int lat = 2; lat <= 80; ++lat) EXPECT_TRUE(ask(lat, day));
    EXPECT_EQ(api->getRequestQueueCount(), 1U);
    phone.network(true);
    phone.runTurns();
    EXPECT_FALSE(ask(81, day)) << "now one is on the wire";
    const auto told = after(1s);
    ASSERT_EQ(told.size(), 81U) << "the answer once, and all who asked";
    EXPECT_THAT(Strings(told.begin(), told.begin() + 2), ElementsAre("took [1]", "1"));
    EXPECT_EQ(told.back(), "80");
    ASSERT_EQ(requests.size(), 1U);
    EXPECT_THAT(requests[0].url, AllOf(HasSubstr("lat=80."), Not(HasSubstr("updated_at"))))
        << "all, as the first asked";
    EXPECT_TRUE(ask(82, day));
    EXPECT_THAT(requests.back().url, HasSubstr("updated_at"));
}

TEST_F(Downloads, WhatFailsIsPaced) {
    const Table<const char*, ScriptedAnswer> failures = {
        {"down", ScriptedAnswer::text("", 503)},
        {"unreachable", ScriptedAnswer::failure(HttpFailureKind::connection)},
        {"silent", ScriptedAnswer::failure(HttpFailureKind::timeout)},
        {"no JSON", ScriptedAnswer::text("<html>")},
        {"of no use", ScriptedAnswer::json("useless")}};
    for (const auto& [name, answer] : failures) {
        SCOPED_TRACE(name);
        makeClient("https://a.test");
        phone.transport().answer(kBeacons, answer);
        runs.clear();
        const auto times = timesAsked(1h);
        EXPECT_LE(times.size(), 75U);
        EXPECT_GE(times.size(), 40U) << "it is tried all the time";
        EXPECT_EQ(runs.size(), 1U);
        EXPECT_EQ(api->getRequestQueueCount(), 0U) << "what is held back does not count";
        phone.transport().answer("POST /u_applications/shop/log_multi.json", ScriptedAnswer::text(""));
        api->sendBatchOfLogEvents({}, note("sent"), {});
        EXPECT_THAT(after(1s), Contains("sent")) << "nor does it hold others up";
    }
}

TEST_F(Downloads, ThePaceDoublesUntilSomethingOfUseComes) {
    phone.transport().answer(kBeacons, ScriptedAnswer::text("", 500));
    const auto times = timesAsked(220s, 50ms);
    std::vector<double> pauses;
    for (std::size_t i = 1; i < times.size(); ++i) pauses.push_back(std::round(times[i] - times[i - 1]));
    EXPECT_THAT(pauses, ElementsAre(0, 0, 0, 1, 2, 4, 8, 16, 32, 60, 60));
    const std::vector<std::function<void()>> resets{[this] {
                                                        phone.transport().answer(kBeacons, ScriptedAnswer::json({1}));
                                                        phone.advanceBy(2min);
                                                        phone.transport().answer(kBeacons,
                                                                                 ScriptedAnswer::text("", 500));
                                                    },
                                                    [this] { api->forgetFailedDownloads(); },
                                                    [this] {
                                                        phone.network(false);
                                                        phone.runTurns();
                                                        phone.network(true);
                                                    }};
    for (const auto& reset : resets) {
        reset();
        phone.runTurns();
        EXPECT_THAT(timesAsked(3s).size(), testing::AnyOf(4, 5)) << "three at once, or four, and one after a second";
    }
}

TEST_F(Downloads, AServerSaysWhenItWantsToBeAskedAgain) {
    const auto newYear = QuomiUtils::isoDate("2026-01-01T00:00:00Z").value();
    for (const auto& [wish, pause] : Table<const char*, double>{{"120", 120},
                                                                {" 90 ", 90},
                                                                {"0", 1},
                                                                {"-5", 1},
                                                                {"soon", 1},
                                                                {"999999999999", 1},
                                                                {"1000000", 86400},
                                                                {"Thu, 01 Jan 2026 00:05:00 GMT", 300},
                                                                {"Wed, 31 Dec 2025 00:05:00 GMT", 1}}) {
        makeClient("https://a.test");
        auto answer = ScriptedAnswer::text("", 503);
        answer.headers.emplace_back("Retry-After", wish);
        answer.delay = 0s;
        phone.transport().answer(kBeacons, answer);
        phone.jumpClock(newYear - phone.platform().clock.now());
        for (int major = 0; major < 4; ++major) {
            beacons(major);
            phone.advanceBy(0s);
        }
        const std::size_t before = requests.size();
        beacons(5);
        phone.advanceBy(toDuration(Seconds(pause - 0.5)));
        EXPECT_EQ(requests.size(), before) << wish;
        phone.advanceBy(1s);
        EXPECT_EQ(requests.size(), before + 1) << wish;
    }
}

TEST_F(Downloads, ASlowOneLetsOthersPass) {
    auto slow = ScriptedAnswer::json({1});
    slow.delay = 20s;
    phone.transport().answer(kBeacons, slow);
    phone.transport().answer(kGeofences, slow);
    phone.transport().answer("POST /u_applications/shop/log_multi.json", ScriptedAnswer::text(""));
    beacons(1);
    beacons(2);
    api->sendBatchOfLogEvents({}, note("sent"), {});
    EXPECT_THAT(after(3s), IsEmpty()) << "one request at a time";
    EXPECT_THAT(after(2s), ElementsAre("sent"));
    EXPECT_EQ(requests.size(), 2U) << "but no second download";
    EXPECT_THAT(after(40s), ElementsAre("took [1]", "got", "took [1]", "got"));
}

// Single records

class Records : public ApiClientFixture {
protected:
    /// "METHOD URL BODY" that the operation sends to the path; its first answer is a failure, its second one is not.
    std::string sent(const std::string& key, const std::function<void(QuomiAPI::Done, QuomiAPI::Failure)>& operation) {
        requests.clear();
        phone.transport().answer(key, {ScriptedAnswer::text("", 500), ScriptedAnswer::text("", 201)});
        operation(note("done"), noteError());
        operation(note("done"), noteError());
        EXPECT_THAT(after(1s), ElementsAre("failed http 500", "done"));
        EXPECT_EQ(requests.size(), 2U);
        return requests[0].method + " " + requests[0].url + " " + requests[0].body;
    }
};

TEST_F(Records, SingleEvents) {
    const WallTime time = QuomiUtils::isoDate("2027-01-01T12:00:00Z").value();
    const Table<std::optional<WallTime>, std::optional<std::string>, const char*> cases = {
        {time, R"({"b":1,"a":"x"})", R"({"udid":"U-1","date":"2026-01-01 13:00:00 +0100","data":{"b":1,"a":"x"}})"},
        {time, "{broken}", R"({"udid":"U-1","date":"2026-01-01 13:00:00 +0100"})"},
        {{}, "{}", R"({"udid":"U-1","data":{}})"},
        {{}, {}, R"({"udid":"U-1"})"}};
    for (const auto& [logTime, logData, body] : cases) {
        const auto expected = fmt::format("POST https://a.test/u_applications/shop/log.json {}", body);
        const QuomiDLog record{logTime, logData};
        QuomiDebugLog stored;
        stored.logTime = logTime;
        stored.logData = logData;
        const char* const key = "POST /u_applications/shop/log.json";
        EXPECT_EQ(sent(key, [&](auto success, auto failure) { api->sendDLogEvent(record, success, failure); }),
                  expected);
        EXPECT_EQ(sent(key, [&](auto success, auto failure) { api->sendEvent(stored, success, failure); }), expected);
    }
}

TEST_F(Records, BatteryAlert) {
    const BatteryAlert alert{WallTime(1s), "ns", kUuidText, "4711"};
    EXPECT_EQ(sent("POST /u_beacon_devices/battery_alert.json",
                   [&](auto success, auto failure) { api->sendBatteryAlert(alert, success, failure); }),
              fmt::format("POST https://a.test/u_beacon_devices/battery_alert.json "
                          R"({{"namespace":"ns","uuid":"{}","battery_service_id":"4711"}})",
                          kUuidText));
}

TEST_F(Records, PushTokenGoesToTheServiceItselfAndIntoNoLog) {
    const std::string token = "<000aff10 b1>";
    const std::string key = "POST https://push.test/u_app_users/register_push_token.json";
    settings.baseAPIUrl = "https://elsewhere.test";
    EXPECT_EQ(sent(key, [&](auto success, auto failure) { api->registerUdid("X", "ns", token, success, failure); }),
              key + R"( {"namespace":"ns","udid":"X","push_token":"000aff10b1"})");
    EXPECT_EQ(sent(key, [&](auto success, auto failure) { api->registerUdid("X", {}, {}, success, failure); }),
              key + R"( {"udid":"X","push_token":""})");
    EXPECT_THAT(debugLines(), testing::Each("Registering device token..."));
    EXPECT_EQ(debugLines().size(), 4U);
}

}  // namespace
}  // namespace quomi::test
