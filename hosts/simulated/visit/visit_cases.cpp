#include "hosts/simulated/visit/visit_readers.h"

#include <charconv>

#include <fmt/format.h>

// `cases`: the visit with parts of it replaced. Each is a document of its own, which is read like any other.
namespace quomi::simulated {

namespace json = boost::json;

namespace {

struct CaseReading {
    json::value document;
    Visit visit;
};

/// What stands behind the slashes of a JSON pointer.
std::vector<std::string> tokensOf(std::string_view pointer) {
    std::vector<std::string> tokens;
    for (std::size_t i = 0; i < pointer.size(); ++i) {
        if (pointer[i] == '/') {
            tokens.emplace_back();
        } else if (pointer[i] == '~' && i + 1 < pointer.size()) {
            tokens.back() += pointer[++i] == '0' ? '~' : '/';
        } else {
            tokens.back() += pointer[i];
        }
    }
    return tokens;
}

/// An element of an array; "-" is a new one at its end.
json::value* elementOf(json::array& array, const std::string& token, std::string& path) {
    std::size_t index = array.size();
    const auto [end, fault] = std::from_chars(token.data(), token.data() + token.size(), index);
    const bool isNumber = fault == std::errc() && end == token.data() + token.size();
    if (token == "-") array.emplace_back(nullptr);
    path = itemPath(path, index);
    return (isNumber || token == "-") && index < array.size() ? &array[index] : nullptr;
}

/// What a JSON pointer points to, made where it is not there; null where nothing can be. `path` becomes its JSON path.
json::value* placeOf(std::string_view pointer, json::value& document, std::string& path) {
    auto* value = &document;
    path = "$";
    for (const auto& token : tokensOf(pointer)) {
        if (value->is_null()) value->emplace_object();
        if (auto* object = value->if_object()) {
            path = memberPath(path, token);
            value = &(*object)[token];
        } else if (auto* array = value->if_array()) {
            value = elementOf(*array, token, path);
        } else {
            return nullptr;
        }
        if (value == nullptr) return nullptr;
    }
    return value;
}

void replace(const JsonNode& node, std::string_view pointer, CaseReading& reading) {
    std::string path;
    const bool isPlayed = pointer.starts_with('/') && !pointer.starts_with("/expect") && !pointer.starts_with("/cases");
    auto* place = isPlayed ? placeOf(pointer, reading.document, path) : nullptr;
    if (place == nullptr) {
        return node.refuse(
            fmt::format("expected the JSON pointer of a place in the visit as the key, found \"{}\"", pointer));
    }
    *place = node.raw();
    reading.visit.replaced.emplace_back(path, node.path());
}

constexpr Field<CaseReading> kCaseFields[] = {
    {"name",
     [](const JsonNode& n, CaseReading& r) {
         r.visit.caseName = n.text();
         if (r.visit.caseName.empty()) n.fail("a text that is not empty");
     },
     true},
    {"start", [](const JsonNode& n, CaseReading& r) { replace(n, "/start", r); }},
    {"set",
     [](const JsonNode& n, CaseReading& r) {
         n.eachMember("an object of JSON pointers and values",
                      [&](std::string_view pointer, const JsonNode& value) { replace(value, pointer, r); });
     }},
    {"expect", [](const JsonNode&, CaseReading&) {}},
};

/// Faults go to the case's node; what is wrong because of a replaced part goes to that part.
Visit readCase(const JsonNode& node, const json::value& document, const std::filesystem::path& folder,
               const std::string& file) {
    CaseReading reading{document, {}};
    reading.visit.file = file;
    reading.document.get_object().erase("cases");
    readObject<CaseReading>(node, kCaseFields, reading);
    if (node.failed()) return {};
    auto& visit = reading.visit;
    JsonFaults faults;
    readVisit(JsonNode(&reading.document, "$", faults), folder, visit);
    if (const auto& fault = faults.first()) {
        const auto error = visit.errorAt(fault->path, fault->message);
        node.refuseAt(error.path, error.message);
    }
    if (!node.failed() && node.has("expect")) readExpectations(node["expect"], visit);
    if (!node.failed() && visit.expectations.empty()) {
        node.refuse("expected \"expect\" here or in the visit, found neither");
    }
    return std::move(visit);
}

}  // namespace

void readCases(const JsonNode& node, const json::value& document, const std::filesystem::path& folder, Visit& visit) {
    node.eachItem("an array of cases", [&](const JsonNode& item) {
        auto& read = visit.cases.emplace_back(readCase(item, document, folder, visit.file));
        const auto isNamed = [&](const Visit& other) { return other.caseName == read.caseName; };
        if (std::ranges::count_if(visit.cases, isNamed) > 1) item["name"].fail("a name that no other case has");
    });
}

}  // namespace quomi::simulated
