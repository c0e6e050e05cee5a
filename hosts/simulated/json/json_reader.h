#pragma once

#include "quomi/util/time.h"
#include "quomi/util/uuid.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <boost/json/value.hpp>

namespace quomi::simulated {

/// The longest time that a document may name, in seconds: three centuries, so that sums stay far inside a Duration.
inline constexpr double kLongestTime = 1e10;

/// What is wrong in a document: the JSON path of the value (`$.timeline[3].at`) and what was expected there.
struct JsonFault {
    std::string path;
    std::string message;
};

/// Collects what a reading finds. Only the first fault is kept, so that readers need not stop at one: after it, every
/// value they read is a default.
class JsonFaults {
public:
    void add(std::string path, std::string message);

    /// Whether a fault was found; readers of long arrays stop then.
    [[nodiscard]] bool any() const { return fault_.has_value(); }
    /// The first fault; empty for none.
    [[nodiscard]] const std::optional<JsonFault>& first() const { return fault_; }

private:
    std::optional<JsonFault> fault_;
};

/// A name that a document may use, and what it stands for.
template <class E>
struct Named {
    std::string_view name;
    E value;
};

/// A place in a document: a value, or the absence of one, together with its path. It refers to the document and to the
/// faults, which outlive it. A read that meets another type, a value out of range or no value at all notes a fault
/// ("expected …, found …") and gives a default.
class JsonNode {
public:
    JsonNode(const boost::json::value* value, std::string path, JsonFaults& faults)
        : value_(value), path_(std::move(path)), faults_(&faults) {}

    /// Whether a value stands here.
    explicit operator bool() const { return value_ != nullptr; }
    [[nodiscard]] const std::string& path() const { return path_; }
    [[nodiscard]] bool failed() const { return faults_->any(); }

    [[nodiscard]] bool isNull() const { return value_ != nullptr && value_->is_null(); }
    [[nodiscard]] bool isTrue() const { return value_ != nullptr && value_->is_bool() && value_->get_bool(); }
    [[nodiscard]] bool isText() const { return value_ != nullptr && value_->is_string(); }
    [[nodiscard]] bool isObject() const { return value_ != nullptr && value_->is_object(); }
    [[nodiscard]] bool isArray() const { return value_ != nullptr && value_->is_array(); }
    /// The value as it stands; null where there is none.
    [[nodiscard]] boost::json::value raw() const { return value_ != nullptr ? *value_ : boost::json::value(); }

    /// A member of an object; a place without a value when there is none, also where this is no object.
    [[nodiscard]] JsonNode operator[](std::string_view key) const;
    [[nodiscard]] bool has(std::string_view key) const;

    [[nodiscard]] bool boolean() const;
    /// `true`, the only value that some keys take.
    bool onlyTrue() const;
    [[nodiscard]] std::string text() const;
    [[nodiscard]] double number(double least = std::numeric_limits<double>::lowest(),
                                double most = std::numeric_limits<double>::max()) const;
    /// A whole number, however it is written (1.0 and 1e3 are whole).
    [[nodiscard]] std::int64_t integer(std::int64_t least = std::numeric_limits<std::int64_t>::min(),
                                       std::int64_t most = std::numeric_limits<std::int64_t>::max()) const;
    /// A span in seconds from `least` to `most`, rounded to microseconds.
    [[nodiscard]] Duration seconds(double least = 0, double most = kLongestTime) const;
    [[nodiscard]] Uuid uuid() const;
    /// A UUID's text as it stands.
    [[nodiscard]] std::string uuidText() const;
    /// One of a table of names; the table's first value after a fault.
    template <class E>
    [[nodiscard]] E oneOf(std::span<const Named<E>> names) const;

    /// Calls `use(node)` for the items of an array until a fault is met.
    template <class Use>
    void eachItem(std::string_view expected, Use use) const;
    /// Calls `use(key, node)` for the members of an object, in file order, until a fault is met.
    template <class Use>
    void eachMember(std::string_view expected, Use use) const;

    /// Notes "expected EXPECTED, found …" here.
    void fail(std::string_view expected) const;
    /// Notes a fault here in words of its own, which say what was expected.
    void refuse(std::string message) const;
    /// Notes a fault at another place.
    void refuseAt(std::string path, std::string message) const;
    /// Notes "expected one of WHAT "NAME", …, found …" here, with the name that was probably meant by `misspelt`.
    void failName(std::string_view what, std::string_view misspelt, const std::vector<std::string_view>& names) const;

private:
    const boost::json::value* value_;
    std::string path_;
    JsonFaults* faults_;
};

/// One key of an object and the operation that reads its value into a T. A required key is read also where it is
/// missing, so that the read itself says what was expected.
template <class T>
struct Field {
    std::string_view key;
    void (*read)(const JsonNode& node, T& out);
    bool required = false;
};

/// The fields of both tables.
template <class T, std::size_t n, std::size_t m>
constexpr std::array<Field<T>, n + m> joined(const Field<T> (&first)[n], const Field<T> (&second)[m]) {
    std::array<Field<T>, n + m> all{};
    std::copy(std::begin(second), std::end(second), std::copy(std::begin(first), std::end(first), all.begin()));
    return all;
}

/// Reads an object whose keys are exactly those of the table, in the table's order. Any other key is a fault.
template <class T>
void readObject(const JsonNode& node, std::span<const Field<T>> fields, T& out);

/// Reads a whole JSON text; empty, with a fault, when it is none. Refused beside what JSON forbids: more than 64
/// levels, numbers beyond a double, and a key that an object has twice (which parsers read differently). The fault's
/// path is the place that was reached, and its message names line and column.
[[nodiscard]] std::optional<boost::json::value> parseJson(std::string_view text, JsonFaults& faults);

/// `PATH.key`, or `PATH["odd key"]` for a key that is no plain name.
[[nodiscard]] std::string memberPath(std::string_view path, std::string_view key);
[[nodiscard]] std::string itemPath(std::string_view path, std::size_t index);
/// Adds `, "name"` to a list of alternatives.
void appendQuoted(std::string& list, std::string_view name);

// ---- templates

template <class E>
E JsonNode::oneOf(std::span<const Named<E>> names) const {
    if (isText()) {
        const auto match = std::ranges::find(names, std::string_view(value_->get_string()), &Named<E>::name);
        if (match != names.end()) return match->value;
    }
    std::vector<std::string_view> known;
    for (const auto& name : names) known.push_back(name.name);
    failName("one of ", isText() ? text() : "", known);
    return names.front().value;
}

template <class Use>
void JsonNode::eachItem(std::string_view expected, Use use) const {
    if (!isArray()) return fail(expected);
    const auto& array = value_->get_array();
    for (std::size_t i = 0; i < array.size() && !failed(); ++i) use(JsonNode(&array[i], itemPath(path_, i), *faults_));
}

template <class Use>
void JsonNode::eachMember(std::string_view expected, Use use) const {
    if (!isObject()) return fail(expected);
    for (const auto& [name, value] : value_->get_object()) {
        if (failed()) return;
        const std::string_view key(name);
        use(key, JsonNode(&value, memberPath(path_, key), *faults_));
    }
}

template <class T>
void readObject(const JsonNode& node, std::span<const Field<T>> fields, T& out) {
    node.eachMember("an object", [&](std::string_view key, const JsonNode& member) {
        if (std::ranges::find(fields, key, &Field<T>::key) != fields.end()) return;
        std::vector<std::string_view> known;
        for (const auto& each : fields) known.push_back(each.key);
        member.failName("one of the keys ", key, known);
    });
    for (const auto& field : fields) {
        if (node.failed()) return;
        if (field.required || node.has(field.key)) field.read(node[field.key], out);
    }
}

}  // namespace quomi::simulated
