#include "hosts/simulated/json/json_reader.h"

#include "hosts/simulated/json/did_you_mean.h"
#include "quomi/util/ascii.h"
#include "quomi/util/utf8.h"

#include <cmath>

#include <boost/json/serialize.hpp>
#include <fmt/format.h>

namespace quomi::simulated {
namespace {

constexpr std::size_t kLongestShown = 40;

std::string shortened(std::string text) {
    if (text.size() <= kLongestShown) return text;
    return std::string(utf8Beginning(text, kLongestShown)) + "…";
}

std::string shown(const boost::json::value* value) {
    if (value == nullptr) return "nothing";
    if (value->is_object()) return "an object";
    if (value->is_array()) return "an array";
    if (value->is_double()) return fmt::format("{}", value->get_double());
    return shortened(boost::json::serialize(*value));
}

/// Only names that need no quotes stand in a path as they are.
bool isPlainName(std::string_view key) {
    return !key.empty() && !isDigit(key.front()) &&
           std::ranges::all_of(key, [](char c) { return isLetterOrDigit(c) || c == '_'; });
}

std::optional<double> asNumber(const boost::json::value* value) {
    if (value == nullptr || !value->is_number()) return std::nullopt;
    if (value->is_int64()) return static_cast<double>(value->get_int64());
    if (value->is_uint64()) return static_cast<double>(value->get_uint64());
    return value->get_double();
}

std::optional<std::int64_t> asInteger(const boost::json::value* value) {
    if (value == nullptr) return std::nullopt;
    if (value->is_int64()) return value->get_int64();
    if (!value->is_double()) return std::nullopt;
    const double number = value->get_double();
    if (std::trunc(number) != number || std::abs(number) >= 0x1p63) return std::nullopt;
    return static_cast<std::int64_t>(number);
}

std::string range(std::string_view kind, double least, double most) {
    const bool below = least > std::numeric_limits<double>::lowest();
    const bool above = most < std::numeric_limits<double>::max();
    if (below && above) return fmt::format("{} from {} to {}", kind, least, most);
    if (below) return fmt::format("{} of at least {}", kind, least);
    return std::string(kind);
}

}  // namespace

void JsonFaults::add(std::string path, std::string message) {
    if (!fault_) fault_ = JsonFault{std::move(path), std::move(message)};
}

JsonNode JsonNode::operator[](std::string_view key) const {
    const auto* member = isObject() ? value_->get_object().if_contains(key) : nullptr;
    return {member, memberPath(path_, key), *faults_};
}

bool JsonNode::has(std::string_view key) const {
    return isObject() && value_->get_object().contains(key);
}

bool JsonNode::boolean() const {
    if (value_ != nullptr && value_->is_bool()) return value_->get_bool();
    fail("true or false");
    return false;
}

bool JsonNode::onlyTrue() const {
    if (!isTrue()) fail("true");
    return isTrue();
}

std::string JsonNode::text() const {
    if (isText()) return std::string(std::string_view(value_->get_string()));
    fail("a text");
    return {};
}

double JsonNode::number(double least, double most) const {
    const auto number = asNumber(value_);
    if (number && std::isfinite(*number) && *number >= least && *number <= most) return *number;
    fail(range("a number", least, most));
    return 0;
}

std::int64_t JsonNode::integer(std::int64_t least, std::int64_t most) const {
    const auto number = asInteger(value_);
    if (number && *number >= least && *number <= most) return *number;
    const bool below = least > std::numeric_limits<std::int64_t>::min();
    const bool above = most < std::numeric_limits<std::int64_t>::max();
    fail(least == most    ? fmt::format("{}", least)
         : below && above ? fmt::format("an integer from {} to {}", least, most)
         : below          ? fmt::format("an integer of at least {}", least)
                          : "an integer");
    return 0;
}

Duration JsonNode::seconds(double least, double most) const {
    const auto number = asNumber(value_);
    if (number && *number >= least && *number <= most) return toDuration(Seconds(*number));
    fail(fmt::format("seconds from {} to {:.10g}", least, most));
    return Duration::zero();
}

Uuid JsonNode::uuid() const {
    if (isText()) {
        if (const auto uuid = Uuid::parse(std::string_view(value_->get_string()))) return *uuid;
    }
    fail("a UUID");
    return {};
}

std::string JsonNode::uuidText() const {
    static_cast<void>(uuid());
    return isText() ? text() : std::string();
}

void JsonNode::fail(std::string_view expected) const {
    faults_->add(path_, fmt::format("expected {}, found {}", expected, shown(value_)));
}

void JsonNode::refuseAt(std::string path, std::string message) const {
    faults_->add(std::move(path), std::move(message));
}

void JsonNode::failName(std::string_view what, std::string_view misspelt,
                        const std::vector<std::string_view>& names) const {
    std::string list;
    for (const auto name : names) appendQuoted(list, name);
    refuse(fmt::format("expected {}{}, found {}{}", what, list, shown(value_), didYouMean(misspelt, names)));
}

void JsonNode::refuse(std::string message) const {
    faults_->add(path_, std::move(message));
}

std::string memberPath(std::string_view path, std::string_view key) {
    if (isPlainName(key)) return fmt::format("{}.{}", path, key);
    return fmt::format("{}[{}]", path, boost::json::serialize(boost::json::value(boost::json::string_view(key))));
}

std::string itemPath(std::string_view path, std::size_t index) {
    return fmt::format("{}[{}]", path, index);
}

void appendQuoted(std::string& list, std::string_view name) {
    fmt::format_to(std::back_inserter(list), "{}\"{}\"", list.empty() ? "" : ", ", name);
}

}  // namespace quomi::simulated
