#include "quomi/util/json_readers.h"

#include "quomi/util/dates.h"
#include "quomi/util/json_memory.h"
#include "quomi/util/text.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>

#include <boost/json/parse.hpp>
#include <boost/json/parser.hpp>
#include <boost/json/serialize.hpp>

namespace quomi {

namespace json = boost::json;

namespace {

constexpr std::size_t kMaximalDepth = 64;

bool isFinite(const json::value& value) {
    if (const auto* number = value.if_double()) return std::isfinite(*number);
    if (const auto* array = value.if_array()) return std::ranges::all_of(*array, isFinite);
    if (const auto* object = value.if_object()) {
        return std::ranges::all_of(*object, [](const auto& entry) { return isFinite(entry.value()); });
    }
    return true;
}

std::optional<json::value> fail(std::optional<Error>* error, std::string_view reason, int code = kJSONErrorCode) {
    assign(error, Error{kJSONErrorDomain, code, {{kLocalizedDescriptionKey, reason}}});
    return std::nullopt;
}

json::parse_options options() {
    json::parse_options options;
    options.max_depth = kMaximalDepth;
    return options;
}

std::string_view textOf(const json::string& string) {
    return {string.data(), string.size()};
}

}  // namespace

std::optional<json::value> parseJson(std::string_view text, std::optional<Error>* error) {
    try {
        json::error_code failure;
        json::value value = json::parse(text, failure, {}, options());
        if (failure) return fail(error, failure.message());
        if (!isFinite(value)) return fail(error, "number out of range");
        return value;
    } catch (const std::exception& exception) {
        return fail(error, exception.what());
    }
}

std::optional<json::value> parseForeignJson(std::string_view text, std::optional<Error>* error) {
    constexpr std::size_t kTimesTheText = 4;
    constexpr std::size_t kAlwaysAllowed = std::size_t{1} << 20;  // a list of short numbers takes nine times its text
    const std::size_t pieceSize = std::clamp<std::size_t>(text.size(), 1024, 65536);
    const auto memory = std::make_shared<JsonMemory>(kTimesTheText * text.size() + kAlwaysAllowed, pieceSize);
    try {
        std::array<unsigned char, 4096> buffer;
        json::parser parser(&memory->temporary(), options(), buffer.data(), buffer.size());
        parser.reset(json::make_shared_resource<SharedJsonMemory>(memory));
        json::error_code failure;
        parser.write(text.data(), text.size(), failure);
        if (failure) return fail(error, failure.message());
        json::value value = parser.release();
        if (!isFinite(value)) return fail(error, "number out of range");
        memory->liftBound();
        return value;
    } catch (const std::exception& exception) {
        if (!memory->isExceeded()) return fail(error, exception.what());
        return fail(error, "its value takes more than four times its length in memory", kJSONErrorTooLarge);
    }
}

bool areEqual(const json::value& a, const json::value& b) {
    if (a.is_number() && b.is_number()) return numberOf(&a) == numberOf(&b);
    if (a.is_array() && b.is_array()) return std::ranges::equal(a.get_array(), b.get_array(), areEqual);
    if (!a.is_object() || !b.is_object()) return a == b;
    const auto& members = b.get_object();
    return a.get_object().size() == members.size() && std::ranges::all_of(a.get_object(), [&](const auto& member) {
               const auto* other = members.if_contains(member.key());
               return other != nullptr && areEqual(member.value(), *other);
           });
}

std::optional<Number> numberOf(const json::value* value) {
    if (value == nullptr) return std::nullopt;
    switch (value->kind()) {
        case json::kind::bool_:
            return Number(value->get_bool());
        case json::kind::int64:
            return Number(value->get_int64());
        case json::kind::uint64:
            return Number(value->get_uint64());
        case json::kind::double_:
            return Number(value->get_double());
        default:
            return std::nullopt;
    }
}

json::value toJson(const Number& number) {
    return number.visit([](auto value) { return json::value(value); });
}

namespace QuomiUtils {

bool boolForKey(const json::object& dictionary, std::string_view key, bool defaultValue) {
    const auto number = numberOf(dictionary.if_contains(key));
    return number ? number->boolValue() : defaultValue;
}

std::optional<Number> numberForKey(const json::object& dictionary, std::string_view key,
                                   const std::optional<Number>& defaultValue) {
    const auto* value = dictionary.if_contains(key);
    if (!isEmpty(value)) return Number(doubleOfText(textOf(value->get_string())));
    const auto number = numberOf(value);
    return number ? number : defaultValue;
}

std::optional<std::string> stringForKey(const json::object& dictionary, std::string_view key,
                                        const std::optional<std::string>& defaultValue) {
    const auto* value = dictionary.if_contains(key);
    if (value == nullptr || value->is_null()) return defaultValue;
    if (const auto* string = value->if_string()) return std::string(textOf(*string));
    if (const auto number = numberOf(value)) return number->text();
    return json::serialize(*value);
}

const json::array* arrayForKey(const json::object& dictionary, std::string_view key, const json::array* defaultValue) {
    const auto* value = dictionary.if_contains(key);
    return value != nullptr && value->is_array() ? value->if_array() : defaultValue;
}

const json::object* dictionaryForKey(const json::object& dictionary, std::string_view key,
                                     const json::object* defaultValue) {
    const auto* value = dictionary.if_contains(key);
    return value != nullptr && value->is_object() ? value->if_object() : defaultValue;
}

std::optional<WallTime> isoDateForKey(const json::object& dictionary, std::string_view key,
                                      std::optional<WallTime> defaultValue) {
    const auto* value = dictionary.if_contains(key);
    if (value == nullptr || !value->is_string()) return defaultValue;
    return isoDate(textOf(value->get_string()));
}

bool isEmpty(const json::value* value) {
    return value == nullptr || !value->is_string() || isEmpty(textOf(value->get_string()));
}

json::object emptyDictionaryIfNil(std::optional<json::object> dictionary) {
    return dictionary ? *std::move(dictionary) : json::object();
}

json::object replaceNSNullFromDictionnary(const json::object& dictionary,
                                          const std::optional<json::value>& replacement) {
    json::object copy;
    copy.reserve(dictionary.size());
    for (const auto& [key, value] : dictionary) {
        if (const auto* inner = value.if_object()) {
            copy.emplace(key, replaceNSNullFromDictionnary(*inner, replacement));
        } else if (!value.is_null()) {
            copy.emplace(key, value);
        } else if (replacement) {
            copy.emplace(key, *replacement);
        }
    }
    return copy;
}

}  // namespace QuomiUtils

}  // namespace quomi
