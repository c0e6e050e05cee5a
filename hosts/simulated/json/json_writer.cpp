#include "hosts/simulated/json/json_writer.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <string_view>

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

/// Most texts need no escaping.
void appendText(std::string& text, std::string_view plain) {
    const auto special = std::ranges::count_if(
        plain, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == '"' || c == '\\'; });
    if (special > 0) {
        text += json::serialize(json::string_view(plain));
    } else {
        ((text += '"') += plain) += '"';
    }
}

void appendJson(std::string& text, const json::value& value);

void appendObject(std::string& text, const json::object& object) {
    text += '{';
    bool first = true;
    for (const auto& member : object) {
        if (!first) text += ',';
        first = false;
        appendText(text, member.key());
        text += ':';
        appendJson(text, member.value());
    }
    text += '}';
}

void appendArray(std::string& text, const json::array& array) {
    text += '[';
    bool first = true;
    for (const auto& element : array) {
        if (!first) text += ',';
        first = false;
        appendJson(text, element);
    }
    text += ']';
}

void appendJson(std::string& text, const json::value& value) {
    if (const auto* object = value.if_object()) {
        appendObject(text, *object);
    } else if (const auto* array = value.if_array()) {
        appendArray(text, *array);
    } else if (const auto* words = value.if_string()) {
        appendText(text, *words);
    } else if (const auto* number = value.if_double()) {
        text += std::isfinite(*number) ? fmt::format("{}", *number) : "null";
    } else if (const auto* integer = value.if_int64()) {
        fmt::format_to(std::back_inserter(text), "{}", *integer);
    } else {
        text += json::serialize(value);
    }
}

}  // namespace

std::string jsonText(const json::value& value) {
    std::string text;
    appendJson(text, value);
    return text;
}

std::string jsonText(const json::object& object) {
    std::string text;
    appendObject(text, object);
    return text;
}

}  // namespace quomi::simulated
