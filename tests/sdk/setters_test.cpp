#include "tests/support/sdk_fixture.h"

namespace quomi::test {
namespace {

constexpr const char* kGeofencesWhileWhenInUse =
    "console Quomi SDK Warning: Setting geofencesEnabled to YES but requestWhenInUseAuthorization value is YES as "
    "well. "
    "Geofencing features won't work. Set geofencesEnabled to NO if you don't plan on using geofence rules in your app, "
    "or use 'Always' location authorization by setting requestWhenInUseAuthorization to NO.";
constexpr const char* kWhenInUseWhileGeofences =
    "console Quomi SDK Warning: Setting requestWhenInUseAuthorization to YES but geofencesEnabled value is YES as "
    "well. "
    "Geofencing features won't work. Set geofencesEnabled to NO if you don't plan on using geofence rules in your app.";

TEST(Setters, NamespaceAndBaseURLAreFixedWhileRunning) {
    SdkFixture app;
    app.sdk->start();
    for (const bool completed : {false, true}) {
        if (completed) app.settle();
        app.sdk->setAppNamespace("other");
        EXPECT_EQ(app.lastError->code, 3);
        EXPECT_EQ(app.lastError->localizedDescription(),
                  "SDK already started. Cannot set appNamespace when SDK is started");
        app.sdk->setBaseURL("https://other.test");
        EXPECT_EQ(app.lastError->localizedDescription(), "SDK already started. Cannot set baseURL when SDK is started");
        app.sdk->setBaseURL("");
        EXPECT_EQ(app.lastError->code, 3) << "not even looked at";
        EXPECT_EQ(app.sdk->appNamespace(), "shop");
        EXPECT_EQ(app.sdk->baseURL(), "https://api.quomi.test");
    }
    EXPECT_EQ(app.lines("error 3, running").size(), 6U);
    app.sdk->stop();
    app.sdk->setAppNamespace("other");
    app.sdk->setBaseURL("https://other.test");
    EXPECT_EQ(app.settings.namespace_, "other");
    EXPECT_EQ(app.settings.baseAPIUrl, "https://other.test");
    EXPECT_EQ(app.lines("error").size(), 6U);
}

TEST(Setters, BaseURLMustBeOne) {
    SdkFixture app;
    for (const char* url : {"http://a.test", "https://a.test:8443/api/", "HTTPS://A.test"}) {
        app.sdk->setBaseURL(url);
        EXPECT_EQ(app.sdk->baseURL(), url);
    }
    EXPECT_THAT(app.journal, IsEmpty());
    app.sdk->setBaseURL("https://kept.test");
    for (const char* url : {"", " ", "not a url", "a.test", "/path", "http://", "ht tp://a.test", "http://[::1",
                            "http://a.test:port", "file:///etc/passwd", "ftp://a.test", "https://a.test/?x=1",
                            "https://a.test/#top", "https://a.test/a b", "https://a.test "}) {
        app.lastError.reset();
        app.sdk->setBaseURL(url);
        ASSERT_TRUE(app.lastError) << url;
        EXPECT_EQ(app.lastError->code, 1);
        EXPECT_EQ(app.lastError->localizedDescription(), "Unknown error. Invalid baseURL provided");
        EXPECT_EQ(app.sdk->baseURL(), "https://kept.test");
    }
}

TEST(Setters, WhatThePhoneLacksCannotBeSwitchedOn) {
    SdkFixture app({.supportsBeacons = false, .supportsGeofences = false});
    EXPECT_FALSE(app.sdk->deviceSupportsBeacons());
    EXPECT_FALSE(app.sdk->deviceSupportsGeofences());
    for (const bool running : {false, true}) {
        ASSERT_TRUE(!running || app.start());
        app.journal.clear();
        app.settings.requestWhenInUseAuthorization = true;
        app.sdk->setBeaconsEnabled(true);
        app.sdk->setGeofencesEnabled(true);
        EXPECT_FALSE(app.sdk->beaconsEnabled());
        EXPECT_FALSE(app.sdk->geofencesEnabled());
        EXPECT_THAT(
            app.journal,
            ElementsAre("console Quomi SDK Error: can't turn beaconsEnabled property to YES because device does "
                        "not support beacons",
                        "console Quomi SDK Error: can't turn geofencesEnabled property to YES because device "
                        "does not support geofences"));
        app.settings.beaconEnabled = app.settings.geofencingEnabled = true;
        app.sdk->setBeaconsEnabled(false);
        app.sdk->setGeofencesEnabled(false);
        EXPECT_FALSE(app.sdk->beaconsEnabled());
        EXPECT_FALSE(app.sdk->geofencesEnabled());
        EXPECT_EQ(app.journal.size(), 2U);
    }
}

TEST(Setters, GeofencesAndWhenInUseWarnOfEachOther) {
    for (const bool running : {false, true}) {
        SdkFixture app({.supportsBeacons = false});
        ASSERT_TRUE(!running || app.start());
        app.journal.clear();
        app.sdk->setRequestWhenInUseAuthorization(true);
        EXPECT_TRUE(app.sdk->requestWhenInUseAuthorization());
        app.sdk->setGeofencesEnabled(true);
        app.sdk->setGeofencesEnabled(false);
        app.sdk->setRequestWhenInUseAuthorization(true);
        app.sdk->setRequestWhenInUseAuthorization(false);
        EXPECT_FALSE(app.sdk->requestWhenInUseAuthorization());
        app.sdk->setGeofencesEnabled(true);
        EXPECT_TRUE(app.sdk->geofencesEnabled());
        EXPECT_THAT(app.lines("console"), ElementsAre(kWhenInUseWhileGeofences, kGeofencesWhileWhenInUse));
    }
}

TEST(Setters, BeaconsAreSwitchedWhileRunning) {
    SdkFixture app;
    app.sdk->setBeaconsEnabled(false);
    ASSERT_TRUE(app.start());
    EXPECT_THAT(app.lines("range"), IsEmpty());
    app.journal.clear();
    app.sdk->setBeaconsEnabled(true);
    app.sdk->setBeaconsEnabled(true);
    app.sdk->setBeaconsEnabled(false);
    app.sdk->setBeaconsEnabled(false);
    EXPECT_THAT(app.journal,
                ElementsAre("monitor Quomi beacon service", "monitor Quomi beacon", "range Quomi beacon",
                            "unmonitor Quomi beacon service", "unrange Quomi beacon", "unmonitor Quomi beacon"));
    app.journal.clear();
    app.sdk->setBeaconsEnabled(true);
    app.hear(1, -60);
    EXPECT_EQ(app.lines("found").size(), 1U);
}

TEST(Setters, BeaconsThatCannotStartWhileRunningAreReported) {
    SdkFixture app;
    app.sdk->setFileLogEnabled(true);
    app.sdk->setBeaconsEnabled(false);
    ASSERT_TRUE(app.start());
    app.settings.beaconSecurityMode = 9;
    app.journal.clear();
    app.sdk->clearDebugFile();
    app.sdk->setBeaconsEnabled(true);
    EXPECT_THAT(app.journal, ElementsAre("console Quomi SDK Error: Unsupported beacon security mode (9)",
                                         "monitor Quomi beacon service"));
    EXPECT_THAT(app.debugLines(), ElementsAre("Quomi SDK Error: (null)"));
    EXPECT_TRUE(app.sdk->isRunning());
    EXPECT_TRUE(app.sdk->beaconsEnabled());
}

TEST(Setters, AuthorizationIsAskedForAtTheNextStartOfBeacons) {
    for (const bool whenInUse : {false, true}) {
        SdkFixture app({.authorization = AuthorizationStatus::notDetermined});
        app.sdk->setGeofencesEnabled(false);
        app.sdk->setBeaconsEnabled(false);
        ASSERT_TRUE(app.start());
        app.sdk->setRequestWhenInUseAuthorization(whenInUse);
        app.sdk->setBeaconsEnabled(true);
        app.settle();
        EXPECT_EQ(app.phone.platform().location.authorizationStatus(),
                  whenInUse ? AuthorizationStatus::authorizedWhenInUse : AuthorizationStatus::authorizedAlways);
        EXPECT_EQ(app.lines("monitor Quomi beacon").size(), whenInUse ? 1U : 2U) << "that of service beacons always";
        EXPECT_EQ(app.lines("range").size(), 1U);
    }
}

}  // namespace
}  // namespace quomi::test
