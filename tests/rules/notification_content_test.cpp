#include "quomi/rules/notification_content.h"

#include "quomi/rules/bundle_page.h"
#include "tests/support/prelude.h"

namespace quomi::test {
namespace {

using boost::json::object;

const object kProperties = boost::json::parse(R"({"name": "Ann", "age": 31, "ratio": 0.5, "member": true, "none": null,
    "home": {"city": "Graz", "at": {"floor": 2}}, "tags": ["x"], "braces": "{name}"})")
                               .as_object();

NotificationContent contentOf(const std::string& param, std::int64_t badge = 3, const object& info = {}) {
    return notificationContent(param, info, badge, kProperties);
}

TEST(Placeholders, AreFilledFromKeyPathsOrBecomeTheBareKey) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"Hello {name}", "Hello Ann"},
        {"Hello {firstName}", "Hello firstName"},
        {"{age} {ratio} {member}", "31 0.5 1"},
        {"{home.city}, {home.at.floor}", "Graz, 2"},
        {"{home} {home.street} {name.first} {tags} {none}", "home home.street name.first tags none"},
        {"{} {{name}} {name", " {name} {name"},
        {"{braces} {a\nb}", "{name} {a\nb}"},
        {"", ""},
    };
    for (const auto& [message, text] : cases) {
        EXPECT_EQ(replacePlaceholdersInNotificationMessage(message, kProperties), text) << message;
    }
}

TEST(NotificationContent, TextThatIsNoObjectIsTheBody) {
    for (const std::string text : {"Hello {name}", "", "[1]", "3", "null", "{\"alertBody\": ", "{name} is back"}) {
        const auto content = contentOf(text);
        EXPECT_EQ(content.request.body, replacePlaceholdersInNotificationMessage(text, kProperties)) << text;
        EXPECT_EQ(content.request.badge, 4);
        EXPECT_EQ(content.request.sound, "default");
        EXPECT_EQ(content.request.identifier, "QuomiNotificationRequest");
        EXPECT_FALSE(content.category || content.request.category || content.request.title);
    }
}

TEST(NotificationContent, ReadsEveryKey) {
    const auto content = contentOf(R"({"alertTitle": "For {name}", "alertBody": "In {home.city}",
        "alertSubtitle": "{name}", "soundName": "bell.caf", "badgeNumber": 7, "iosImageUrl": "https://shop.test/a b.png",
        "payload": {"{name}": "{name}", "list": ["{age}", {"deep": "{nobody}"}, 5], "gone": null}})",
                                   3, {{"rule_id", "r1"}, {"name", nullptr}});
    EXPECT_EQ(content.request.title, "For Ann");
    EXPECT_EQ(content.request.body, "In Graz");
    EXPECT_EQ(content.request.subtitle, "{name}");
    EXPECT_EQ(content.request.sound, "bell.caf");
    EXPECT_EQ(content.request.badge, 7);
    EXPECT_EQ(content.imageUrl, "https://shop.test/a%20b.png");
    EXPECT_EQ(boost::json::value(content.request.userInfo), boost::json::parse(R"({"rule_id": "r1", "name": "",
        "payload": {"{name}": "Ann", "list": ["31", {"deep": "nobody"}, 5], "gone": ""}})"));
}

TEST(NotificationContent, BadgeSoundAndSubtitleFallBack) {
    const auto kMost = std::numeric_limits<std::int64_t>::max();
    const std::vector<std::pair<std::string, std::int64_t>> badges = {
        {R"({})", 4},
        {R"({"badgeNumber": 0, "badgeNumberIncr": 2})", 0},
        {R"({"badgeNumber": -1, "badgeNumberIncr": 2})", 6},
        {R"({"badgeNumberIncr": 0})", 4},
        {R"({"badgeNumber": -1, "badgeNumberIncr": -5})", 4},
        {R"({"badgeNumber": null, "badgeNumberIncr": "2"})", 6},
        {R"({"badgeNumberIncr": 9223372036854775807})", kMost},
        {R"({"badgeNumber": 1e300})", kMost},
    };
    for (const auto& [param, badge] : badges) EXPECT_EQ(contentOf(param).request.badge, badge) << param;
    EXPECT_EQ(contentOf("", kMost).request.badge, kMost);
    for (const char* param : {R"({"soundName": ""})", R"({"soundName": 3})", R"({"soundName": null})"}) {
        EXPECT_EQ(contentOf(param).request.sound, "default") << param;
    }
    EXPECT_EQ(contentOf(R"({"alertSubtitle": 3})").request.subtitle, std::nullopt);
    EXPECT_EQ(contentOf(R"({"alertTitle": null})").request.title, std::nullopt);
}

TEST(NotificationContent, CategoryHasTheActionsOrTheSingleOk) {
    using Actions = std::vector<NotificationAction>;
    const Actions ok = {{"quomi_ok_action_identifier", "ok", 1}};
    const std::vector<std::pair<std::string, Actions>> cases = {
        {R"({})", ok},
        {R"({"iosNotificationActions": {"actionIdentifier": "a"}})", ok},
        {R"({"iosNotificationActions": []})", {}},
        {R"({"iosNotificationActions": [
            {"actionIdentifier": "a", "actionTitle": "A", "options": ["authentication_required", "destructive", "shiny"]},
            7, {"actionIdentifier": "b", "actionTitle": "B", "options": ["foreground", "foreground", 3]},
            {"options": "foreground"}]})",
         {{"a", "A", 3}, {"b", "B", 4}, {"", "", 0}}},
    };
    for (const auto& [param, actions] : cases) {
        const auto content = contentOf(param);
        EXPECT_EQ(content.request.category, "QuomiCategoryIdentifier");
        ASSERT_TRUE(content.category) << param;
        EXPECT_EQ(*content.category, (NotificationCategory{"QuomiCategoryIdentifier", actions})) << param;
    }
}

TEST(NotificationContent, OnlyAnUrlOfTheWebIsAnImage) {
    for (const char* url : {R"("file:///etc/passwd")", R"("/a.png")", R"("")", R"(3)", R"("ftp://a.test/x")", "null"}) {
        EXPECT_EQ(contentOf(std::string(R"({"iosImageUrl": )") + url + "}").imageUrl, std::nullopt) << url;
    }
}

TEST(BundleResource, IsWhatFollowsTheSchemeOfAFileUrl) {
    const Table<std::string, std::optional<std::string>, std::string, std::string> cases = {
        {"file://help.html", std::nullopt, "help.html", "help.html"},
        {"FILE:help.html", std::nullopt, "help.html", "help.html"},
        {"file://pages/en/help.html", "pages/en", "help.html", "pages/en/help.html"},
        {"file:///help.html", "", "help.html", "help.html"},
        {"file:///pages/help", "/pages", "help", "pages/help"},
        {"file://", std::nullopt, "", ""},
    };
    for (const auto& [url, folder, file, path] : cases) {
        const auto resource = bundleResourceOf(url);
        ASSERT_TRUE(resource) << url;
        EXPECT_EQ(resource->folder, folder) << url;
        EXPECT_EQ(resource->file, file) << url;
        EXPECT_EQ(resource->path(), path) << url;
    }
    for (const char* url : {"https://a.test/file:", "files://x", "help.html", ""}) EXPECT_FALSE(bundleResourceOf(url));
}

}  // namespace
}  // namespace quomi::test
