#include "hosts/simulated/visit/visit.h"

#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

#include <random>

namespace quomi::simulated {
namespace {

constexpr const char* kUuid = "6b6e1b5a-0c0d-4a6e-9e62-0000000000a1";

/// A folder with a file for each kind that a visit names.
class VisitTest : public testing::Test {
protected:
    VisitTest() {
        std::filesystem::create_directories(folder_ / "data");
        for (const char* name : {"data/mall.csv", "campaign.json", "tour.gpx"}) std::ofstream(folder_ / name) << "x";
    }
    std::optional<Visit> parse(const std::string& text) {
        error_ = {};
        return Visit::parse(text, "v.json", folder_, &error_);
    }

    test::TemporaryDirectory directory_;
    const std::filesystem::path folder_ = directory_.path();
    VisitError error_;
};

std::string root(const std::string& members) {
    return R"({"visit": 1, "start": "2026-11-21T09:30:00+01:00", "timeline": [])" + members + "}";
}
std::string steps(const std::string& array) {
    return R"({"visit": 1, "start": "2026-11-21T09:30:00+01:00", "timeline": [)" + array + "]}";
}
std::string step(const std::string& members) {
    return steps(R"({"at": 1, )" + members + "}");
}
std::string call(const std::string& name, const std::string& with) {
    return step(fmt::format(R"("call": "{}", "with": {})", name, with));
}
std::string range(const std::string& change) {
    return step(R"("range": [{"uuid": "6b6e1b5a-0c0d-4a6e-9e62-0000000000a1", "minor": 2, "proximity": "near",)"
                R"( "rssi": -60, )" +
                change + "}]");
}

std::string answer(const std::string& json) {
    return root(R"(,"backoffice": {"answers": {"GET /x": )" + json + "}}");
}

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) result += text;
    return result;
}

/// Visit, path and message. In a path "~" is the first step, "^" the answer to "GET /x".
using BadVisits = Table<std::string, std::string, std::string>;

const BadVisits kBadVisits = {
    // No JSON, or not JSON alone.
    {"", "$", "incomplete JSON (line 1, column 1)"},
    {"{\n  \"visit\": 1,\n  \"é\": ?}", "$[\"é\"]", "(line 3, column 8)"},
    {steps(R"({"at": 1, "call": "start"},)"), "$.timeline[1]", "expected JSON, found"},
    {root("") + " x", "$", "extra data"},
    {"\xEF\xBB\xBF" + root(""), "$", "line 1, column 1"},
    {root(",\"name\": \"\xff\""), "$.name", "expected JSON"},
    {root(R"(,"world": )" + repeated("[", 64) + repeated("]", 64)), "$.world" + repeated("[0]", 63),
     "at most 64 levels"},
    {root(R"(,"name": "a", "name": "b")"), "$.name", "each key of an object once"},
    {call("logEvent", R"({"a": [1, {"b": 1, "b": 2}]})"), "~.with.a[1].b", "once"},
    {root(R"(,"end": 1e999)"), "$.end", "a double holds"},
    {"[]", "$", "expected an object, found an array"},
    // The visit itself.
    {R"({"visit": 2, "other": 1})", "$.visit", "expected 1, found 2"},
    {R"({"start": "2026-11-21T09:30:00Z", "timeline": []})", "$.visit", "found nothing"},
    {R"({"visit": 1, "start": "2026-11-21T09:30:00Z"})", "$.timeline", "expected an array of steps, found nothing"},
    {R"({"visit": 1, "start": "2026-11-21T09:30:00", "timeline": []})", "$.start", "with its offset"},
    {R"({"visit": 1, "start": "2026-02-30T09:30:00Z", "timeline": []})", "$.start", "with its offset"},
    {root(R"(,"timezone": "UTC")"), "$.timezone", "one of the keys \"visit\", \"name\""},
    {root(R"(,"a b\n\"": 1)"), R"($["a b\n\""])", "one of the keys"},
    {root(R"(,"timeZone": "Mars/Base")"), "$.timeZone", "an IANA time zone"},
    {root(R"(,"name": null)"), "$.name", "expected a text, found null"},
    // The phone.
    {root(R"(,"device": {"udid": "abc"})"), "$.device.udid", "expected a UUID, found \"abc\""},
    {root(R"(,"device": {"bluetooth": "On"})"), "$.device.bluetooth", R"("unknown", "resetting")"},
    {root(R"(,"device": {"languages": ["en", 3]})"), "$.device.languages[1]", "expected a text, found 3"},
    {root(R"(,"device": {"badge": 1.5})"), "$.device.badge", "an integer from 0"},
    {root(R"(,"device": {"notificationRights": {"banner": true}})"), "$.device.notificationRights.banner", "alert"},
    // The app.
    {root(R"(,"app": {"properties": {"beaconEnabled": true}})"), "$.app.properties.beaconEnabled", "beaconsEnabled"},
    {root(R"(,"app": {"settings": {"beaconsEnabled": true}})"), "$.app.settings.beaconsEnabled", "a field of the"},
    {root(R"(,"app": {"settings": {"requestTimeout": null}})"), "$.app.settings.requestTimeout", "a number"},
    {root(R"(,"app": {"settings": {"apiVersion": -1}})"), "$.app.settings.apiVersion", "an integer of at least 0"},
    {root(R"(,"app": {"delegate": {"didLogEvent": true}})"), "$.app.delegate.didLogEvent", "one of the keys"},
    {root(R"(,"app": {"delegate": {"executeOpenWebPageRequest": false}})"), "$.app.delegate.executeOpenWebPageRequest",
     "expected true, found false"},
    {root(R"(,"app": {"delegate": {"shouldExecuteNotificationRequest": {"async": true, "after": -1}}})"),
     "$.app.delegate.shouldExecuteNotificationRequest.after", "seconds from 0"},
    // The back office.
    {root(R"(,"backoffice": {})"), "$.backoffice", "either \"answers\" or \"campaign\""},
    {root(R"(,"backoffice": {"answers": {}, "campaign": "campaign.json"})"), "$.backoffice", "either"},
    {root(R"(,"backoffice": {"campaign": "none.json"})"), "$.backoffice.campaign", "a file that can be read"},
    {root(R"(,"backoffice": {"answers": {"GET/x": {}}})"), R"($.backoffice.answers["GET/x"])", "a method"},
    {root(R"(,"backoffice": {"answers": {"GET /x?a=1": {}}})"), R"($.backoffice.answers["GET /x?a=1"])",
     "without a query"},
    {answer(R"([])"), "^", "at least one"},
    {answer(R"({"json": null, "text": ""})"), "^.text", "not both"},
    {answer(R"({"fail": "dns"})"), "^.fail", R"("connection", "timeout", "tls", found "dns")"},
    // Steps as such.
    {steps("3"), "~", "expected a step, which is an object"},
    {steps(R"({"at": 0, "call": "start"}, {"at": 1})"), "$.timeline[1]", "found none"},
    {step(R"("app": "active", "call": "start")"), "~", R"(found "app" and "call")"},
    {step(R"("jump": 3)"), "~.jump", "one of the keys"},
    {step(R"("app": "active", "with": 1)"), "~.with", "only beside \"call\""},
    {steps(R"({"call": "start"})"), "~.at", "found nothing"},
    {steps(R"({"at": -1, "call": "start"})"), "~.at", "found -1"},
    {step(R"("every": 1, "call": "stop")"), "~.until", "found nothing"},
    {step(R"("until": 2, "call": "stop")"), "~.every", "found nothing"},
    {step(R"("every": 0, "until": 2, "call": "stop")"), "~.every", "found 0"},
    {step(R"("every": 1, "until": 0.5, "call": "stop")"), "~.until", "not before \"at\", found 0.5"},
    {step(R"("every": 1e5, "until": 315576001, "call": "stop")"), "~.until", "seconds from 0 to 315576000"},
    {root(R"(,"end": 315576001)"), "$.end", "seconds from 0 to 315576000"},
    {steps(R"({"at": 0, "call": "start"}, {"at": 1, "every": 1, "until": 10000000, "app": "active"})"), "$.timeline[1]",
     "at most 10000000 steps"},
    {step(R"("every": 1e-6, "until": 1e8, "call": "stop")"), "~", "at most 10000000 steps"},
    // What steps do.
    {range(R"("accuracy": 2, "major": 65536)"), "~.range[0].major", "expected an integer from 0 to 65535, found 65536"},
    {range(R"("major": 1)"), "~.range[0].accuracy", "expected a number, found nothing"},
    {step(R"("enterBeaconRegion": "6b6e1b5a0c0d4a6e9e620000000000a1")"), "~.enterBeaconRegion", "a UUID"},
    {step(R"("location": {"lat": 90.1, "lng": 0, "accuracy": 1})"), "~.location.lat", "-90 to 90"},
    {step(R"("expireBackgroundTasks": false)"), "~.expireBackgroundTasks", "expected true"},
    {step(R"("packets": {"csv": "data"})"), "~.packets.csv", "a file that can be read"},
    {step(R"("packets": {"csv": "data/mall.csv\u0000"})"), "~.packets.csv", "a file that can"},
    {step(R"("packets": {})"), "~.packets.csv", "a file's name, found nothing"},
    // Calls.
    {step(R"("call": "begin")"), "~.call", "one of \"start\""},
    {call("start", "null"), "~.with", "expected no argument, found null"},
    {step(R"("call": "setBeaconsEnabled")"), "~.with", "expected true or false, found nothing"},
    {call("setSetting", R"({"name": "beacons", "value": 1})"), "~.with.name", "a field of the settings"},
    {call("setSetting", R"({"name": "fileLogEnabled", "value": null})"), "~.with.value", "true or false"},
    {call("setSetting", R"({"name": "namespace"})"), "~.with.value", "found nothing"},
    {call("changeUser", "null"), "~.with", "an object"},
};

TEST_F(VisitTest, RefusesABadVisitAtTheOffendingValue) {
    for (const auto& [visit, path, message] : kBadVisits) {
        SCOPED_TRACE(visit);
        EXPECT_FALSE(parse(visit));
        EXPECT_EQ(error_.file, "v.json");
        const auto whole = path.starts_with('~')   ? "$.timeline[0]" + path.substr(1)
                           : path.starts_with('^') ? "$.backoffice.answers[\"GET /x\"]" + path.substr(1)
                                                   : path;
        EXPECT_EQ(error_.path, whole);
        EXPECT_THAT(error_.message, HasSubstr(message));
        EXPECT_EQ(error_.text().find('\n'), std::string::npos);
    }
}

std::string everyKindOfStep() {
    const std::string uuid = fmt::format("\"{}\"", kUuid);
    return steps(R"({"at": 0, "call": "start"}, {"at": 1, "range": []}, {"at": 1, "enterBeaconRegion": )" + uuid +
                 R"(}, {"at": 1, "exitBeaconRegion": )" + uuid +
                 R"(}, {"at": 1, "beaconRegionState": {"state": "inside", "uuid": )" + uuid + R"(}},
        {"at": 1, "range": [{"uuid": )" +
                 uuid + R"(, "major": 0, "minor": 7, "proximity": "far", "accuracy": -1,
          "rssi": 0}]},
        {"at": 2, "monitoringFails": {"region": "g1", "code": 5}},
        {"at": 2, "rangingFails": {"region": "x", "code": -3}}, {"at": 2, "locationFails": {"code": 1}},
        {"at": 3, "authorization": "denied"}, {"at": 3, "bluetooth": "on"}, {"at": 3, "backgroundRefresh": "denied"},
        {"at": 3, "notificationRights": {"status": "provisional"}}, {"at": 3, "locationServices": false},
        {"at": 4, "app": "suspend"}, {"at": 4, "network": "reachable"}, {"at": 4, "expireBackgroundTasks": true},
        {"at": 5, "clock": -3600.5}, {"at": 5, "timeZone": "America/New_York"},
        {"at": 6, "packets": {"csv": "data/mall.csv", "speed": 2}},
        {"at": 7, "every": 0.1, "until": 7.3, "call": "setSetting", "with": {"name": "namespace", "value": null}},
        {"at": 8, "call": "setAppNamespace", "with": "shop"}, {"at": 8, "call": "logEvent", "with": {"a": [1]}},
        {"at": 8, "call": "getDebugFileContent"}, {"at": 8, "call": "updateUserInformation"})");
}

TEST_F(VisitTest, ReadsThePhone) {
    const auto visit = parse(root(R"(, "device": {"authorization": "whenInUse", "bluetooth": "off", "badge": 3,
        "state": "background", "backgroundRefresh": "denied", "maxMonitoredRegions": 7, "supportsGeofences": false,
        "notificationRights": {"status": "denied", "alert": false}})"));
    ASSERT_TRUE(visit) << error_.text();
    const auto& device = visit->device;
    EXPECT_EQ(device.authorization, AuthorizationStatus::authorizedWhenInUse);
    EXPECT_EQ(device.bluetooth, BluetoothState::poweredOff);
    EXPECT_EQ(device.state, ApplicationState::background);
    EXPECT_EQ(device.backgroundRefresh, BackgroundRefreshStatus::denied);
    EXPECT_EQ(device.badge, 3);
    EXPECT_EQ(device.maxMonitoredRegions, 7U);
    EXPECT_FALSE(device.supportsGeofences);
    EXPECT_EQ(device.notificationRights.status, NotificationAuthorization::denied);
    EXPECT_TRUE(!device.notificationRights.alert && device.notificationRights.sound);
}

TEST_F(VisitTest, RefusesFilesThatAreNone) {
    EXPECT_FALSE(Visit::load(folder_ / "no\nthing", &error_));
    EXPECT_EQ(error_.message, "no such file");
    EXPECT_EQ(error_.text().find('\n'), std::string::npos);
    EXPECT_FALSE(Visit::load(folder_ / "data", &error_));
    EXPECT_THAT(error_.message, HasSubstr("a folder"));
    EXPECT_FALSE(Visit::load(folder_ / "nothing", nullptr));
}

/// Every value of the document, the document itself included; children first, as replacing a value ends its own.
void collect(boost::json::value& value, std::vector<boost::json::value*>& all) {
    if (auto* object = value.if_object()) {
        for (auto& member : *object) collect(member.value(), all);
    } else if (auto* array = value.if_array()) {
        for (auto& item : *array) collect(item, all);
    }
    all.push_back(&value);
}

TEST_F(VisitTest, SurvivesAnyValueInAnyPlace) {
    ASSERT_TRUE(parse(everyKindOfStep())) << error_.text();
    const auto whole = boost::json::parse(everyKindOfStep());
    const auto replacements = boost::json::parse(
        R"([null, true, false, 0, -1, 1.5, 1e300, -1e300, 18446744073709551615, "", "x", "data/mall.csv", [], {},
            [[]], [{}], {"": 0}, {"at": 1}])");
    auto copy = whole;
    std::vector<boost::json::value*> places;
    collect(copy, places);
    for (auto* place : places) {
        const auto original = *place;
        for (const auto& replacement : replacements.as_array()) {
            *place = replacement;
            const bool isGood = parse(boost::json::serialize(copy)).has_value();
            EXPECT_TRUE(isGood || error_.path.starts_with('$'));
        }
        *place = original;
        ASSERT_EQ(copy, whole);
    }
}

TEST_F(VisitTest, SurvivesDamagedVisits) {
    const std::string whole = everyKindOfStep();
    for (std::size_t size = 0; size < whole.size(); ++size) {
        EXPECT_FALSE(parse(whole.substr(0, size)));
        EXPECT_FALSE(error_.message.empty());
    }
    std::mt19937 random(7);
    const std::string_view alphabet = "{}[]\",:0123456789-+.eE \\utfn\xff";
    for (int round = 0; round < 4000; ++round) {
        std::string damaged = whole;
        for (auto flips = 1 + random() % 3; flips > 0; --flips) {
            damaged[random() % damaged.size()] =
                random() % 2 == 0 ? static_cast<char>(random() % 256) : alphabet[random() % alphabet.size()];
        }
        if (!parse(damaged)) {
            EXPECT_EQ(error_.path.substr(0, 1), "$");
            EXPECT_EQ(error_.text().find('\n'), std::string::npos);
        }
    }
}

}  // namespace
}  // namespace quomi::simulated
