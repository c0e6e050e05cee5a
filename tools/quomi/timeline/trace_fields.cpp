#include "tools/quomi/timeline/trace_fields.h"

#include "hosts/simulated/json/json_writer.h"
#include "quomi/util/error.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <array>

#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

// In this order, because a record of one kind may have a field of the name of another ("notification" of a delegate's).
constexpr std::array<std::string_view, 21> kKinds = {"delegate",
                                                     "rule",
                                                     "call",
                                                     "callback",
                                                     "request",
                                                     "response",
                                                     "monitor",
                                                     "unmonitor",
                                                     "range",
                                                     "unrange",
                                                     "updates",
                                                     "notification",
                                                     "category",
                                                     "webPage",
                                                     "openURL",
                                                     "alert",
                                                     "authorizationRequest",
                                                     "notificationRightsRequest",
                                                     "backgroundTask",
                                                     "console",
                                                     "defaults"};

std::string transportErrorText(std::int64_t code) {
    switch (code) {
        case 1:
            return "no connection to the server";
        case 2:
            return "request timed out";
        case 3:
            return "TLS failed with the server";
        case 4:
            return "server's answer is no JSON";
        default:
            return fmt::format("HTTP status {}", code);
    }
}

}  // namespace

const json::value& fieldOf(const json::object& record, std::string_view key) {
    static const json::value none;
    const auto* value = record.if_contains(key);
    return value != nullptr ? *value : none;
}

const json::object& objectOf(const json::object& record, std::string_view key) {
    static const json::object none;
    const auto* object = fieldOf(record, key).if_object();
    return object != nullptr ? *object : none;
}

double numberOf(const json::object& record, std::string_view key, double otherwise) {
    const auto& value = fieldOf(record, key);
    if (value.is_double()) return value.get_double();
    if (value.is_int64()) return static_cast<double>(value.get_int64());
    if (value.is_uint64()) return static_cast<double>(value.get_uint64());
    return otherwise;
}

std::string textOf(const json::value& value) {
    if (value.is_null()) return {};
    if (value.is_string()) return neutralised(value.get_string());
    if (value.is_array()) {
        std::string text;
        for (const auto& element : value.get_array()) {
            if (element.is_structured()) return neutralised(simulated::jsonText(value));
            text += (text.empty() ? "" : " ") + textOf(element);
        }
        return text;
    }
    return neutralised(simulated::jsonText(value));
}

std::string textOf(const json::object& record, std::string_view key) {
    return textOf(fieldOf(record, key));
}

Coordinate placeOf(const json::object& record) {
    const auto& at = objectOf(record, "location");
    return {numberOf(at, "lat", 0), numberOf(at, "lng", 0)};
}

std::string_view kindOf(const json::object& record) {
    const auto known = std::ranges::find_if(kKinds, [&](auto kind) { return record.contains(kind); });
    if (known != kKinds.end()) return *known;
    const auto other = std::ranges::find_if(record, [](const auto& field) { return field.key() != "t"; });
    return other != record.end() ? std::string_view(other->key()) : std::string_view();
}

std::string otherFields(const json::object& record, std::string_view kind) {
    json::object others;
    for (const auto& field : record) {
        if (field.key() != "t" && field.key() != kind) others.emplace(field.key(), field.value());
    }
    return pairsText(others);
}

std::string pairsText(const json::object& object) {
    std::string text;
    for (const auto& field : object) {
        if (!text.empty()) text += ", ";
        text += neutralised(field.key()) + ' ' + (field.value().is_null() ? "none" : textOf(field.value()));
    }
    return text;
}

std::string errorText(const json::value& error) {
    if (error.is_null()) return "no error";
    if (!error.is_object()) return textOf(error);
    const auto& object = error.get_object();
    const auto domain = textOf(object, "domain");
    const auto code = static_cast<std::int64_t>(std::clamp(numberOf(object, "code", 0), -1e15, 1e15));
    const auto description = textOf(object, "description");
    const auto name = domain == kHTTPErrorDomain ? transportErrorText(code) : fmt::format("{} {}", domain, code);
    return description.empty() ? name : fmt::format("{} ({})", description, name);
}

}  // namespace quomi::tool
