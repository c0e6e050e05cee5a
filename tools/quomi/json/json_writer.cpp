#include "tools/quomi/json/json_writer.h"

#include <cmath>

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

void appendJson(std::string& text, const json::value& value);

void appendObject(std::string& text, const json::object& object) {
    text += '{';
    bool first = true;
    for (const auto& member : object) {
        if (!first) text += ',';
        first = false;
        text += json::serialize(member.key());
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
    } else if (const auto* number = value.if_double()) {
        text += std::isfinite(*number) ? fmt::format("{}", *number) : "null";
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

}  // namespace quomi::tool
