#pragma once

#include "quomi/util/error.h"
#include "quomi/util/export.h"
#include "quomi/util/number.h"
#include "quomi/util/time.h"

#include <concepts>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/value.hpp>

namespace quomi {

/// Domain and code of a text that is no JSON.
inline constexpr const char* kJSONErrorDomain = "NSCocoaErrorDomain";
inline constexpr int kJSONErrorCode = 3840;
/// Code of a text whose value would take too much memory.
inline constexpr int kJSONErrorTooLarge = 3841;

/// Reads a JSON text, a single value such as `3` included. Empty for anything that is not exactly one JSON value in
/// valid UTF-8: trailing text, more than 64 levels of arrays and objects, a number beyond a double's range. Never
/// throws.
[[nodiscard]] QUOMI_EXPORT std::optional<boost::json::value> parseJson(std::string_view text,
                                                                       std::optional<Error>* error = nullptr);

/// Like `parseJson`, for the text of a stranger: reading it takes at most four times the text's length, and 1 MiB, of
/// memory. The value's memory goes all at once, with the last value that was taken out of it.
[[nodiscard]] QUOMI_EXPORT std::optional<boost::json::value> parseForeignJson(std::string_view text,
                                                                              std::optional<Error>* error = nullptr);

/// The number that a value is: a JSON number, or a boolean as 0 or 1. Empty for anything else and for null pointers.
[[nodiscard]] QUOMI_EXPORT std::optional<Number> numberOf(const boost::json::value* value);
[[nodiscard]] boost::json::value toJson(const Number& number);

/// Whether the values are equal, with numbers compared by value: 1 equals 1.0. Dictionaries are equal in any order.
[[nodiscard]] bool areEqual(const boost::json::value& a, const boost::json::value& b);

/// Tolerant readers of a dictionary. A missing key gives the default, and so does a value of a type that the reader
/// does not take. Where the default may be absent, `std::nullopt` is passed; with a default at hand the result is
/// plain.
namespace QuomiUtils {

/// A number's or boolean's truth. Texts, even "true", give the default.
[[nodiscard]] QUOMI_EXPORT bool boolForKey(const boost::json::object& dictionary, std::string_view key,
                                           bool defaultValue);

/// A number, or the number at the beginning of a text (`doubleOfText`: 0 when there is none). A text of blanks gives
/// the default.
[[nodiscard]] std::optional<Number> numberForKey(const boost::json::object& dictionary, std::string_view key,
                                                 const std::optional<Number>& defaultValue);
template <std::convertible_to<Number> Default>
[[nodiscard]] Number numberForKey(const boost::json::object& dictionary, std::string_view key,
                                  const Default& defaultValue) {
    return *numberForKey(dictionary, key, std::optional<Number>(defaultValue));
}

/// A text; a number's text; an array or object as JSON. Null gives the default.
[[nodiscard]] QUOMI_EXPORT std::optional<std::string> stringForKey(const boost::json::object& dictionary,
                                                                   std::string_view key,
                                                                   const std::optional<std::string>& defaultValue);
template <std::convertible_to<std::string_view> Default>
[[nodiscard]] std::string stringForKey(const boost::json::object& dictionary, std::string_view key,
                                       const Default& defaultValue) {
    return *stringForKey(dictionary, key, std::optional<std::string>(std::string_view(defaultValue)));
}

/// The array or dictionary inside `dictionary`, as long as that lives.
[[nodiscard]] QUOMI_EXPORT const boost::json::array* arrayForKey(const boost::json::object& dictionary,
                                                                 std::string_view key,
                                                                 const boost::json::array* defaultValue = nullptr);
[[nodiscard]] const boost::json::object* dictionaryForKey(const boost::json::object& dictionary, std::string_view key,
                                                          const boost::json::object* defaultValue = nullptr);

/// The date that a text names. A text that is no date gives nothing, not the default: deliberate, the parser tells a
/// bad date from a missing one.
[[nodiscard]] std::optional<WallTime> isoDateForKey(const boost::json::object& dictionary, std::string_view key,
                                                    std::optional<WallTime> defaultValue);

/// True for null pointers, for values that are no text (the number 0 too), and for a text of blanks.
[[nodiscard]] bool isEmpty(const boost::json::value* value);

[[nodiscard]] inline Number zeroNumberIfNil(const std::optional<Number>& number) {
    return number.value_or(Number(0));
}
[[nodiscard]] boost::json::object emptyDictionaryIfNil(std::optional<boost::json::object> dictionary);

/// A copy in which the nulls of the dictionary and of the dictionaries in it are replaced, or removed when there is no
/// replacement. Arrays are not entered. The doubled "nn" of the name is deliberate: callers know it by that name.
[[nodiscard]] boost::json::object replaceNSNullFromDictionnary(const boost::json::object& dictionary,
                                                               const std::optional<boost::json::value>& replacement);

}  // namespace QuomiUtils

}  // namespace quomi
