#include "tools/quomi/testing/test_report.h"

#include "hosts/simulated/json/json_writer.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <ostream>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value_from.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

constexpr std::string_view kGood = "\x1b[32m";
constexpr std::string_view kBad = "\x1b[1;31m";
constexpr std::string_view kQuiet = "\x1b[2m";

void appendLines(std::string& text, const char* word, const std::vector<std::string>& lines) {
    for (const auto& line : lines) {
        text += fmt::format("      {:<8}  {}\n", &line == &lines.front() ? word : "", line);
    }
}

const char* wordOf(Outcome outcome) {
    switch (outcome) {
        case Outcome::passed:
            return "passed";
        case Outcome::failed:
            return "failed";
        case Outcome::invalid:
            break;
    }
    return "invalid";
}

json::object jsonOf(const Failure& failure) {
    return {{"path", failure.path},
            {"expected", failure.expected},
            {"came", failure.came},
            {"records", json::value_from(failure.records)},
            {"nearest", json::value_from(failure.nearest)},
            {"explain", json::value_from(failure.story)}};
}

}  // namespace

std::string textOf(const Failure& failure) {
    std::string text;
    appendLines(text, "expected", {fmt::format("{}  ({})", failure.expected, failure.path)});
    appendLines(text, "came", {failure.came});
    appendLines(text, "records", failure.records);
    appendLines(text, "nearest", failure.nearest);
    appendLines(text, "explain", failure.story);
    return text;
}

void TestReport::print(const TestCase& each) {
    const auto outcome = each.result.outcome;
    ++(outcome == Outcome::passed ? passed_ : outcome == Outcome::failed ? failed_ : invalid_);
    if (form_ == Form::json) return printJson(each);
    printForPeople(each);
}

void TestReport::printForPeople(const TestCase& each) {
    const auto& result = each.result;
    if (result.outcome == Outcome::passed) {
        out_ << fmt::format("{}       {}  {}\n", painted("ok", kGood), neutralised(each.file),
                            painted(neutralised(each.name), kQuiet));
        return;
    }
    const auto label = each.name.empty() ? neutralised(each.file) : neutralised(each.file + "  " + each.name);
    out_ << fmt::format("{}  {}\n", painted(result.outcome == Outcome::failed ? "FAILED " : "INVALID", kBad), label);
    if (result.outcome == Outcome::failed && !result.error.empty()) out_ << "      " << result.error << '\n';
    for (const auto& failure : result.failures) out_ << textOf(failure);
}

void TestReport::printJson(const TestCase& each) {
    json::array failures;
    for (const auto& failure : each.result.failures) failures.push_back(jsonOf(failure));
    json::object line{{"file", each.file}, {"case", each.name}, {"outcome", wordOf(each.result.outcome)}};
    if (!each.result.error.empty()) line["error"] = each.result.error;
    if (!failures.empty()) line["failures"] = std::move(failures);
    line["seconds"] = each.result.seconds;
    out_ << simulated::jsonText(line) << '\n';
}

void TestReport::finish(double seconds) {
    if (form_ == Form::json) return;
    const auto all = passed_ + failed_ + invalid_;
    auto text = fmt::format("\n{} case{}: {} passed", all, all == 1 ? "" : "s", passed_);
    if (failed_ > 0) text += fmt::format(", {} failed", failed_);
    if (invalid_ > 0) text += fmt::format(", {} invalid", invalid_);
    out_ << painted(fmt::format("{} in {:.1f} s", text, seconds), failed_ + invalid_ > 0 ? kBad : kGood) << '\n';
}

std::string TestReport::painted(const std::string& text, std::string_view colour) const {
    return form_ == Form::colours && !text.empty() ? fmt::format("{}{}\x1b[0m", colour, text) : text;
}

}  // namespace quomi::tool
