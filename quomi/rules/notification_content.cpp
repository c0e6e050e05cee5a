#include "quomi/rules/notification_content.h"

#include "quomi/api/url.h"
#include "quomi/util/json_readers.h"
#include "quomi/util/number.h"
#include "quomi/util/regular_expression.h"
#include "quomi/util/text.h"

#include <limits>
#include <utility>

#include <boost/json/array.hpp>

namespace quomi {

namespace {

namespace json = boost::json;

const std::optional<CompiledExpression>& placeholderExpression() {
    static const auto expression = CompiledExpression::create("\\{(.*?)\\}");
    return expression;
}

const json::value* valueAtKeyPath(const json::object& properties, std::string_view keyPath) {
    const auto keys = componentsSeparatedBy(keyPath, '.');
    const json::object* dictionary = &properties;
    for (std::size_t i = 0; i + 1 < keys.size(); ++i) {
        const auto* inner = dictionary->if_contains(keys[i]);
        dictionary = inner != nullptr ? inner->if_object() : nullptr;
        if (dictionary == nullptr) return nullptr;
    }
    return dictionary->if_contains(keys.back());
}

std::string placeholderText(const json::object& properties, const std::string& key) {
    const auto* value = valueAtKeyPath(properties, key);
    if (value != nullptr && value->is_string()) return std::string(value->get_string());
    if (const auto number = numberOf(value)) return number->text();
    return key;
}

json::value replacedIn(const json::value& value, const json::object& properties) {
    if (const auto* text = value.if_string()) {
        return json::string(replacePlaceholdersInNotificationMessage(*text, properties));
    }
    if (const auto* dictionary = value.if_object()) return replacePlaceholdersInDictionary(*dictionary, properties);
    if (const auto* array = value.if_array()) return replacePlaceholdersInArray(*array, properties);
    return value;
}

std::int64_t saturatingSum(std::int64_t badge, std::int64_t increment) {
    constexpr auto kLargest = std::numeric_limits<std::int64_t>::max();
    return increment > 0 && badge > kLargest - increment ? kLargest : badge + increment;
}

unsigned optionOf(const json::value& word) {
    const auto* text = word.if_string();
    if (text == nullptr) return 0;
    if (*text == "authentication_required") return authenticationRequiredAction;
    if (*text == "destructive") return destructiveAction;
    if (*text == "foreground") return foregroundAction;
    return 0;
}

NotificationAction actionOf(const json::object& entry) {
    NotificationAction action{QuomiUtils::stringForKey(entry, "actionIdentifier", ""),
                              QuomiUtils::stringForKey(entry, "actionTitle", ""), 0};
    if (const auto* options = QuomiUtils::arrayForKey(entry, "options")) {
        for (const auto& word : *options) action.options |= optionOf(word);
    }
    return action;
}

NotificationCategory categoryOf(const json::object& payload) {
    NotificationCategory category{kNotificationCategoryIdentifier, {}};
    const auto* entries = QuomiUtils::arrayForKey(payload, "iosNotificationActions");
    if (entries == nullptr) {
        category.actions.push_back({"quomi_ok_action_identifier", "ok", authenticationRequiredAction});
        return category;
    }
    for (const auto& entry : *entries) {
        if (const auto* action = entry.if_object()) category.actions.push_back(actionOf(*action));
    }
    return category;
}

std::optional<std::string> replacedText(const json::object& param, std::string_view key,
                                        const json::object& properties) {
    const auto text = QuomiUtils::stringForKey(param, key, std::nullopt);
    if (!text) return std::nullopt;
    return replacePlaceholdersInNotificationMessage(*text, properties);
}

/// The number when it is there and at least 0.
std::optional<std::int64_t> badgeValue(const json::object& param, std::string_view key) {
    const auto number = QuomiUtils::numberForKey(param, key, std::nullopt);
    if (!number || number->as<std::int64_t>() < 0) return std::nullopt;
    return number->as<std::int64_t>();
}

void readParam(const json::object& param, const json::object& properties, NotificationContent& content) {
    auto& request = content.request;
    if (const auto* payload = QuomiUtils::dictionaryForKey(param, "payload")) {
        request.userInfo["payload"] = replacePlaceholdersInDictionary(*payload, properties);
    }
    request.title = replacedText(param, "alertTitle", properties);
    request.body = replacedText(param, "alertBody", properties);
    const auto* sound = param.if_contains("soundName");
    if (!QuomiUtils::isEmpty(sound)) request.sound = std::string(sound->get_string());
    if (const auto badge = badgeValue(param, "badgeNumber")) {
        request.badge = badge;
    } else if (const auto increment = badgeValue(param, "badgeNumberIncr")) {
        // On top of the one more: deliberate, an increment of 0 raises the badge too.
        request.badge = saturatingSum(*request.badge, *increment);
    }
    const auto* subtitle = param.if_contains("alertSubtitle");
    if (subtitle != nullptr && subtitle->is_string()) request.subtitle = std::string(subtitle->get_string());
    content.category = categoryOf(param);
    request.category = kNotificationCategoryIdentifier;
    const auto* image = param.if_contains("iosImageUrl");
    if (image != nullptr && image->is_string()) content.imageUrl = normalizedHttpUrl(image->get_string());
}

}  // namespace

std::string replacePlaceholdersInNotificationMessage(std::string_view message,
                                                     const boost::json::object& withProperties) {
    const auto& expression = placeholderExpression();
    if (!expression) return std::string(message);
    return QuomiRegularExpression::stringByReplacingMatchesInString(
        message, *expression, QuomiRegularExpression::MatchingOptions::none, {}, "$1",
        [&withProperties](const std::string& key) { return placeholderText(withProperties, key); });
}

boost::json::object replacePlaceholdersInDictionary(const boost::json::object& dictionary,
                                                    const boost::json::object& withProperties) {
    json::object replaced;
    for (const auto& [key, value] : dictionary) replaced.emplace(key, replacedIn(value, withProperties));
    return replaced;
}

boost::json::array replacePlaceholdersInArray(const boost::json::array& array,
                                              const boost::json::object& withProperties) {
    json::array replaced;
    for (const auto& value : array) replaced.push_back(replacedIn(value, withProperties));
    return replaced;
}

NotificationContent notificationContent(const std::string& param, const boost::json::object& userInfo,
                                        std::int64_t applicationBadge, const boost::json::object& properties) {
    NotificationContent content;
    auto& request = content.request;
    request.identifier = kNotificationRequestIdentifier;
    request.badge = saturatingSum(applicationBadge, 1);
    request.sound = kDefaultNotificationSound;
    request.userInfo = userInfo;
    const auto parsed = parseJson(param);
    if (const auto* dictionary = parsed ? parsed->if_object() : nullptr) {
        readParam(*dictionary, properties, content);
    } else {
        request.body = replacePlaceholdersInNotificationMessage(param, properties);
    }
    request.userInfo = QuomiUtils::replaceNSNullFromDictionnary(request.userInfo, json::value(""));
    return content;
}

}  // namespace quomi
