#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

/// Starts and expects this error in the out-parameter and, once, at the delegate; the SDK does not run afterwards.
void expectFailure(SdkFixture& app, std::int64_t code, const std::string& description, bool runningWhenTold) {
    app.journal.clear();
    std::optional<Error> error;
    EXPECT_FALSE(app.sdk->start(&error));
    EXPECT_FALSE(app.sdk->isRunning());
    ASSERT_TRUE(error);
    EXPECT_EQ(error->domain, "QuomiErrorDomain");
    EXPECT_EQ(error->code, code);
    EXPECT_EQ(error->localizedDescription(), description);
    EXPECT_EQ(app.lastError, error);
    EXPECT_THAT(app.lines("error"),
                ElementsAre("error " + std::to_string(code) + (runningWhenTold ? ", running" : "")));
}

std::string twice(const std::string& text) {
    return text + ". " + text;
}

TEST(StartFailure, WithoutNamespace) {
    const char* const description =
        "The mandatory appNamespace property is not set. App namespace must be set before starting the SDK";
    for (const std::optional<std::string>& text :
         {std::optional<std::string>(), std::optional<std::string>(""), std::optional<std::string>(" \t\r\n"),
          std::optional<std::string>("\xC2\xA0\xE2\x80\x83")}) {
        SdkFixture app;
        app.sdk->setAppNamespace(text);
        EXPECT_EQ(app.sdk->appNamespace(), std::nullopt);
        expectFailure(app, 7, description, false);
        EXPECT_EQ(app.sdk->user(), nullptr) << "nothing was begun";
        EXPECT_FALSE(std::filesystem::exists(app.storeFile()));
        app.sdk->setAppNamespace("shop");
        EXPECT_TRUE(app.start());
    }
}

TEST(StartFailure, FileWhereTheStoreDirectoryBelongs) {
    SdkFixture app;
    write(app.storeFile().parent_path(), "a file");
    for (int attempt = 0; attempt < 2; ++attempt) {
        expectFailure(app, 604,
                      twice("Expected a directory and found a file during persistent storage directory creation"),
                      false);
        EXPECT_EQ(contentOf(app.storeFile().parent_path()), "a file");
        EXPECT_THAT(app.lines("request"), IsEmpty());
    }
    std::filesystem::remove(app.storeFile().parent_path());
    EXPECT_TRUE(app.start());
}

TEST(StartFailure, StoreThatIsNoneStaysAsItIs) {
    for (const std::string& garbage : {std::string("garbage"), std::string(20000, 'g')}) {
        SdkFixture app;
        write(app.storeFile(), garbage);
        expectFailure(app, 601,
                      twice("Could not migrate storage store. Calling removeAllData method should help but will cause "
                            "to destroy all stored data"),
                      false);
        EXPECT_EQ(contentOf(app.storeFile()), garbage);
        EXPECT_THAT(app.lines("request"), IsEmpty());
        std::filesystem::remove(app.storeFile());
        EXPECT_TRUE(app.start());
    }
}

struct Answer {
    const char* what;
    ScriptedAnswer answer;
    std::optional<std::int64_t> code;  // of the delegate's error
    const char* fault = nullptr;       // that the console names
};

ScriptedAnswer recordWith(const char* key, std::optional<boost::json::value> value) {
    auto record = applicationAnswer();
    record.erase(key);
    if (value) record[key] = *value;
    return ScriptedAnswer::json(record);
}

std::vector<Answer> badAnswers() {
    return {
        {"status 404", ScriptedAnswer::text("", 404), 404},
        {"status 500 with a record", ScriptedAnswer::json(applicationAnswer(), 500), 500},
        {"refused", ScriptedAnswer::failure(HttpFailureKind::connection), 1},
        {"timeout", ScriptedAnswer::failure(HttpFailureKind::timeout), 2},
        {"TLS", ScriptedAnswer::failure(HttpFailureKind::tls), 3},
        {"no JSON", ScriptedAnswer::text("<html>"), 4},
        {"empty", ScriptedAnswer::text(""), {}},
        {"array", ScriptedAnswer::json(boost::json::array{1}), {}},
        {"text", ScriptedAnswer::json("success"), {}},
        {"success false", recordWith("success", false), {}},
        {"no success", recordWith("success", {}), {}},
        {"no namespace", recordWith("namespace_uid", {}), {}, "\"namespace_uid\" is missing"},
        {"no normal UUID", recordWith("normal_proximity_uuid", {}), {}, "\"normal_proximity_uuid\" is missing"},
        {"no secure UUID", recordWith("secure_proximity_uuid", nullptr), {}, "\"secure_proximity_uuid\" is missing"},
        {"no service UUID", recordWith("service_proximity_uuid", {}), {}, "\"service_proximity_uuid\" is missing"},
        {"UUID that cannot be read",
         recordWith("normal_proximity_uuid", "6B6E1B5A-0C0D-4A6E-9E62"),
         {},
         "\"normal_proximity_uuid\" is no UUID"}};
}

/// What the journal has after the first response.
std::vector<std::string> endingOf(const SdkFixture& app) {
    const auto response =
        std::ranges::find_if(app.journal, [](const std::string& line) { return line.starts_with("response"); });
    return {response == app.journal.end() ? response : response + 1, app.journal.end()};
}

TEST(StartFailure, RecordThatCannotBeHad) {
    for (const auto& [what, answer, code, fault] : badAnswers()) {
        SCOPED_TRACE(what);
        SdkFixture app;
        app.phone.transport().answer(kApplicationRequest, {answer, ScriptedAnswer::json(applicationAnswer())});
        std::optional<Error> error = Error{"left over", 1, {}};
        EXPECT_TRUE(app.sdk->start(&error));
        EXPECT_EQ(error, std::nullopt);
        app.settle(std::chrono::seconds(30));
        EXPECT_FALSE(app.sdk->isRunning());
        const std::vector ending = endingOf(app);
        if (code) {
            EXPECT_THAT(ending, ElementsAre("error " + std::to_string(*code) + ", running",
                                            "console Quomi SDK Error: Failed to retrieve Quomi application data"));
            EXPECT_EQ(app.lastError->domain, "QuomiHTTPErrorDomain");
        } else {
            std::vector<std::string> console{"console Quomi SDK Error: Failed to parse Quomi application data"};
            if (fault != nullptr) {
                console.insert(console.begin(),
                               std::string("console Quomi SDK Error: The application record cannot be used: ") + fault);
            }
            EXPECT_EQ(ending, console) << "the delegate is not told";
        }
        app.journal.clear();
        EXPECT_TRUE(app.start()) << "once the server answers properly";
        EXPECT_THAT(app.lines("error"), IsEmpty());
        app.hear(1, -60);
        EXPECT_EQ(app.lines("found").size(), 1U);
    }
}

TEST(StartFailure, PhoneLacksWhatIsEnabled) {
    for (const auto& [beacons, code, message] : Table<bool, std::int64_t, const char*>{
             {false, 5, "The device does not support region monitoring or significant location change monitoring"},
             {true, 6, "The device does not support iBeacons. Support has been added with iOS 7.0"}}) {
        SdkFixture app({.supportsBeacons = !beacons, .supportsGeofences = beacons});
        bool& enabled = beacons ? app.settings.beaconEnabled : app.settings.geofencingEnabled;
        EXPECT_FALSE(enabled);
        enabled = true;
        EXPECT_TRUE(app.sdk->start()) << "the record is not there yet";
        app.settle();
        EXPECT_FALSE(app.sdk->isRunning());
        EXPECT_THAT(app.lines("error"), ElementsAre("error " + std::to_string(code) + ", running"));
        EXPECT_THAT(app.lines("console"), IsEmpty());
        expectFailure(app, code, twice(message), true);
        app.settle();
        EXPECT_THAT(app.lines("monitor"), IsEmpty());
        EXPECT_EQ(app.phone.transport().requests(kUserRequest), 0U);
        EXPECT_EQ(app.phone.transport().requests(kLimitsRequest), 2U) << "asked for before";
        enabled = false;
        EXPECT_TRUE(app.start());
    }
}

TEST(StartFailure, UnknownSecurityModeHasNoErrorObject) {
    SdkFixture app;
    auto record = applicationAnswer();
    record["anti_hacking_protocol"] = "quantum";
    app.phone.transport().answer(kApplicationRequest, ScriptedAnswer::json(record));
    app.sdk->setFileLogEnabled(true);
    app.settings.beaconSecurityMode = 2;
    EXPECT_TRUE(app.sdk->start());
    app.settle();
    EXPECT_FALSE(app.sdk->isRunning()) << "the asynchronous way";
    std::optional<Error> error = Error{"left over", 1, {}};
    EXPECT_FALSE(app.sdk->start(&error));
    EXPECT_EQ(error, std::nullopt);
    EXPECT_FALSE(app.sdk->isRunning());
    const char* const console = "console Quomi SDK Error: Unsupported beacon security mode (2)";
    EXPECT_THAT(app.lines("console"), ElementsAre(console, console));
    EXPECT_THAT(app.lines("error"), IsEmpty());
    EXPECT_THAT(app.debugLines(), ElementsAre("Quomi SDK Error: (null)", "Quomi SDK Error: (null)"));
    app.settings.beaconSecurityMode = 0;
    EXPECT_TRUE(app.start());
}

TEST(StartFailure, HostMayStopAndStartWhenItHearsOfIt) {
    SdkFixture app;
    app.phone.transport().answer(kApplicationRequest,
                                 {ScriptedAnswer::text("", 500), ScriptedAnswer::json(applicationAnswer())});
    app.inCallback = [&app](const std::string& line) {
        if (!line.starts_with("error")) return;
        app.inCallback = {};
        app.sdk->stop();
        EXPECT_TRUE(app.sdk->start());
    };
    app.sdk->start();
    app.settle();
    EXPECT_TRUE(app.sdk->isRunning()) << "the first start's failure does not touch the second";
    EXPECT_THAT(app.lines("console"),
                ElementsAre("console Quomi SDK Error: Failed to retrieve Quomi application data"));
    app.hear(1, -60);
    EXPECT_EQ(app.lines("found").size(), 1U);
}

TEST(StartFailure, HostMayMendItAndStartAnewFromInsideTheFailingStart) {
    SdkFixture app({.supportsGeofences = false});
    ASSERT_TRUE(app.start());
    app.sdk->stop();
    app.settings.geofencingEnabled = true;
    app.inCallback = [&app](const std::string&) {
        app.inCallback = {};
        app.sdk->stop();
        app.sdk->setGeofencesEnabled(false);
        EXPECT_TRUE(app.sdk->start());
    };
    std::optional<Error> error;
    EXPECT_FALSE(app.sdk->start(&error)) << "this one failed";
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code, 5);
    EXPECT_TRUE(app.sdk->isRunning()) << "the one within did not";
}

}  // namespace
}  // namespace quomi::test
