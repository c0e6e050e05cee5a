#include "hosts/simulated/visit/visit_readers.h"
#include "quomi/util/ascii.h"

namespace quomi::simulated {
namespace {

constexpr Named<Answer::Failure> kFailures[] = {
    {"connection", Answer::Failure::connection},
    {"timeout", Answer::Failure::timeout},
    {"tls", Answer::Failure::tls},
};

void readText(const JsonNode& node, Answer& answer) {
    if (answer.body.index() != 0) return node.refuse("expected \"text\" or \"json\", not both");
    answer.body = node.text();
}

void readHeaders(const JsonNode& node, Answer& answer) {
    node.eachMember("an object of header names and texts", [&](std::string_view key, const JsonNode& value) {
        if (key.empty()) return value.refuse("expected a header's name as the key");
        answer.headers.emplace_back(key, value.text());
    });
}

constexpr Field<Answer> kAnswerFields[] = {
    {"status", [](const JsonNode& n, Answer& a) { a.status = static_cast<int>(n.integer(100, 599)); }},
    {"json", [](const JsonNode& n, Answer& a) { a.body = n.raw(); }},
    {"text", readText},
    {"headers", readHeaders},
    {"delay", [](const JsonNode& n, Answer& a) { a.delay = n.seconds(); }},
    {"fail", [](const JsonNode& n, Answer& a) { a.fail = n.oneOf<Answer::Failure>(kFailures); }},
};

bool isMethod(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, isUpperCase);
}

/// A method, a blank and a path or an absolute URL. One with a query could never be met.
bool isAnswerKey(std::string_view key) {
    const auto blank = key.find(' ');
    if (blank == std::string_view::npos || !isMethod(key.substr(0, blank))) return false;
    const auto url = key.substr(blank + 1);
    const bool isLocated = url.starts_with('/') || url.find("://") != std::string_view::npos;
    return isLocated && url.find_first_of("? ") == std::string_view::npos;
}

std::vector<Answer> readAnswerList(const JsonNode& node) {
    std::vector<Answer> list;
    const auto readOne = [&](const JsonNode& item) { readObject<Answer>(item, kAnswerFields, list.emplace_back()); };
    if (node.isObject()) {
        readOne(node);
    } else {
        node.eachItem("an answer or an array of answers", readOne);
        if (list.empty()) node.refuse("expected an answer or an array of at least one");
    }
    return list;
}

void readAnswers(const JsonNode& node, ScriptedBackoffice& backoffice) {
    node.eachMember("an object of answers", [&](std::string_view key, const JsonNode& value) {
        if (!isAnswerKey(key)) {
            return value.refuse("expected a method, a blank and a path or URL without a query as the key");
        }
        backoffice.answers.emplace(key, readAnswerList(value));
    });
}

}  // namespace

void readBackoffice(const JsonNode& node, const std::filesystem::path& folder, BackofficeConfig& backoffice) {
    struct Keys {};
    static constexpr Field<Keys> kKeys[] = {
        {"answers", [](const JsonNode&, Keys&) {}},
        {"campaign", [](const JsonNode&, Keys&) {}},
    };
    Keys keys;
    readObject<Keys>(node, kKeys, keys);
    if (node.failed()) return;
    if (node.has("answers") == node.has("campaign")) return node.refuse("expected either \"answers\" or \"campaign\"");
    if (node.has("answers")) {
        readAnswers(node["answers"], backoffice.emplace<ScriptedBackoffice>());
    } else {
        backoffice = CampaignBackoffice{readFileName(node["campaign"], folder)};
    }
}

}  // namespace quomi::simulated
