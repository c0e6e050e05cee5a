#include "tools/quomi/testing/junit_report.h"

#include "tools/quomi/testing/test_report.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <sstream>

#include <fmt/format.h>
#include <pugixml.hpp>

namespace quomi::tool {

namespace {

void set(pugi::xml_node node, const char* attribute, const std::string& text) {
    node.append_attribute(attribute).set_value(text.c_str());
}

/// Cases of one file lie together.
std::span<const TestCase> suiteAt(std::span<const TestCase> cases) {
    const auto isOther = [&](const TestCase& each) { return each.file != cases.front().file; };
    const auto end = std::ranges::find_if(cases, isOther);
    return cases.first(static_cast<std::size_t>(end - cases.begin()));
}

void setCounts(pugi::xml_node node, std::span<const TestCase> cases) {
    std::size_t failures = 0;
    std::size_t errors = 0;
    double seconds = 0;
    for (const auto& each : cases) {
        if (each.result.outcome == Outcome::failed) ++failures;
        if (each.result.outcome == Outcome::invalid) ++errors;
        seconds += each.result.seconds;
    }
    set(node, "tests", std::to_string(cases.size()));
    set(node, "failures", std::to_string(failures));
    set(node, "errors", std::to_string(errors));
    set(node, "time", fmt::format("{:.3f}", seconds));
}

void addProblem(pugi::xml_node node, const char* kind, const std::string& message, const std::string& text) {
    auto problem = node.append_child(kind);
    set(problem, "message", message);
    problem.text().set(text.c_str());
}

void addCase(pugi::xml_node suite, const TestCase& each) {
    auto node = suite.append_child("testcase");
    set(node, "name", neutralised(each.name.empty() ? each.file : each.name));
    set(node, "classname", neutralised(each.file));
    set(node, "time", fmt::format("{:.3f}", each.result.seconds));
    const auto& result = each.result;
    if (result.outcome == Outcome::invalid) addProblem(node, "error", result.error, result.error);
    if (result.outcome == Outcome::failed && !result.error.empty()) addProblem(node, "failure", result.error, "");
    // One element each: most readers show only the first.
    std::string text;
    for (const auto& failure : result.failures) text += textOf(failure) + '\n';
    if (!result.failures.empty()) addProblem(node, "failure", result.failures.front().expected, text);
}

}  // namespace

std::string junitReport(std::span<const TestCase> cases) {
    pugi::xml_document document;
    auto declaration = document.append_child(pugi::node_declaration);
    set(declaration, "version", "1.0");
    set(declaration, "encoding", "UTF-8");
    auto root = document.append_child("testsuites");
    set(root, "name", "quomi test");
    setCounts(root, cases);
    while (!cases.empty()) {
        const auto inFile = suiteAt(cases);
        auto suite = root.append_child("testsuite");
        set(suite, "name", neutralised(inFile.front().file));
        set(suite, "file", neutralised(inFile.front().file));
        setCounts(suite, inFile);
        for (const auto& each : inFile) addCase(suite, each);
        cases = cases.subspan(inFile.size());
    }
    std::ostringstream text;
    document.save(text, "  ");
    return text.str();
}

}  // namespace quomi::tool
