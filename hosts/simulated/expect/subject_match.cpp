#include "hosts/simulated/expect/subject_match.h"

#include <algorithm>
#include <cstddef>

#include <boost/json/array.hpp>
#include <boost/json/value.hpp>

namespace quomi::simulated {

namespace json = boost::json;

namespace {

std::string_view textOf(const json::value& value) {
    return value.get_string();
}

/// The path of an absolute URL, without query and fragment.
std::string_view pathOf(std::string_view url) {
    const auto scheme = url.find("://");
    const auto path = url.find('/', scheme == std::string_view::npos ? 0 : scheme + 3);
    if (path == std::string_view::npos) return "/";
    url.remove_prefix(path);
    return url.substr(0, url.find_first_of("?#"));
}

/// Of two texts: how much of them they begin with together.
double likeness(std::string_view pattern, std::string_view text) {
    if (matches(pattern, text)) return 1;
    const auto common = std::mismatch(pattern.begin(), pattern.end(), text.begin(), text.end()).first - pattern.begin();
    return 2 * static_cast<double>(common) / static_cast<double>(pattern.size() + text.size() + 1);
}

double likeness(const json::value& expected, const json::value& found);

double likeness(const json::object& expected, const json::object& found) {
    double sum = 0;
    for (const auto& member : expected) {
        const auto* value = found.if_contains(member.key());
        if (value != nullptr) sum += likeness(member.value(), *value);
    }
    return expected.empty() ? 1 : sum / static_cast<double>(expected.size());
}

double likeness(const json::array& expected, const json::array& found) {
    if (expected.size() != found.size()) return 0;
    double sum = 0;
    for (std::size_t i = 0; i < expected.size(); ++i) sum += likeness(expected[i], found[i]);
    return expected.empty() ? 1 : sum / static_cast<double>(expected.size());
}

/// 1 for what matches, and for nothing else.
double likeness(const json::value& expected, const json::value& found) {
    if (expected.is_object() && found.is_object()) return likeness(expected.get_object(), found.get_object());
    if (expected.is_array() && found.is_array()) return likeness(expected.get_array(), found.get_array());
    if (expected.is_string() && found.is_string()) return likeness(textOf(expected), textOf(found));
    if (expected.is_number() && found.is_number()) {
        return expected.to_number<double>() == found.to_number<double>() ? 1 : 0;
    }
    return expected == found ? 1 : 0;
}

const json::value* urlOf(const json::object& record) {
    const auto* url = record.if_contains("url");
    return url != nullptr && url->is_string() ? url : nullptr;
}

}  // namespace

bool matches(std::string_view pattern, std::string_view text) {
    std::size_t at = 0;
    std::size_t in = 0;
    auto star = std::string_view::npos;  // the last `*` that was met, and how far it reaches
    std::size_t starEnd = 0;
    while (in < text.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            starEnd = in;
        } else if (at < pattern.size() && pattern[at] == text[in]) {
            ++at;
            ++in;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            in = ++starEnd;
        } else {
            return false;
        }
    }
    return pattern.substr(at).find_first_not_of('*') == std::string_view::npos;
}

double likeness(const Subject& subject, const json::object& record) {
    if (!record.contains(subject.members.begin()->key())) return 0;
    const double members = likeness(subject.members, record);
    if (subject.urlPath.empty()) return members;
    const auto* url = urlOf(record);
    return (members + (url != nullptr ? likeness(subject.urlPath, pathOf(textOf(*url))) : 0)) / 2;
}

bool matches(const Subject& subject, const json::object& record) {
    return likeness(subject, record) == 1;
}

}  // namespace quomi::simulated
