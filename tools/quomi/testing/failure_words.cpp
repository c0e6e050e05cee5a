#include "tools/quomi/testing/failure_words.h"

#include "hosts/simulated/expect/subject_match.h"
#include "hosts/simulated/json/json_writer.h"
#include "tools/quomi/explain/rule_story.h"
#include "tools/quomi/replay/visit_labels.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"
#include "tools/quomi/timeline/trace_words.h"

#include <algorithm>
#include <cmath>
#include <sstream>

#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

using simulated::Expectation;
using simulated::ExpectationWatch;
using simulated::jsonText;
using simulated::Subject;

namespace {

constexpr std::size_t kLongestLine = 160;

std::string quotedMember(const json::object& members, const char* key) {
    return members.contains(key) ? fmt::format("\"{}\"", textOf(members, key)) : "at all";
}

std::string subjectText(const Subject& subject) {
    const auto& members = subject.members;
    if (subject.key == "rule") {
        const auto owner = members.contains("owner") ? " of " + textOf(members, "owner") : "";
        return fmt::format("rule {}{} {}", textOf(members, "rule"), owner, textOf(members, "decision"));
    }
    if (subject.key == "notification") return "notification " + quotedMember(members, "body");
    if (subject.key == "webPage") return "web page " + quotedMember(members, "webPage");
    if (subject.key == "openURL") return "opened URL " + quotedMember(members, "openURL");
    if (subject.key == "event") return "event " + textOf(members, "event");
    if (subject.key == "request") return fmt::format("request {} {}", textOf(members, "request"), subject.urlPath);
    if (subject.key == "delegate") return "call of the app's " + textOf(members, "delegate");
    if (subject.key == "error") return "error " + textOf(objectOf(members, "error"), "code");
    return "record " + neutralised(jsonText(members));
}

std::string times(std::int64_t count) {
    if (count == 1) return "once";
    return count == 2 ? "twice" : fmt::format("{} times", count);
}

std::string timesText(const Expectation& expectation) {
    const auto& [least, most] = std::tie(expectation.least, expectation.most);
    if (!most) return least == 1 ? "at least once" : fmt::format("at least {}", times(least));
    if (*most == 0) return "never";
    if (least == *most) return times(least);
    return least == 0 ? fmt::format("at most {}", times(*most)) : fmt::format("{} to {}", least, times(*most));
}

double secondsOf(const json::object& record) {
    return numberOf(record, "t", 0);
}

/// How far the moment lies outside of the window; 0 inside.
double distance(const Expectation& expectation, double seconds) {
    const double from = expectation.from ? toSeconds(*expectation.from) : seconds;
    const double until = expectation.until ? toSeconds(*expectation.until) : seconds;
    return std::max({from - seconds, seconds - until, 0.0});
}

/// Takes what was written so far, line by line.
std::vector<std::string> linesOf(std::ostringstream& out) {
    std::vector<std::string> lines;
    std::istringstream stream(out.str());
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty()) lines.push_back(line);
    }
    out.str("");
    return lines;
}

/// One outcome of a rule as `quomi explain` tells it.
struct Sentence {
    double distance = 0;  ///< from the window, in seconds
    std::size_t number = 0;
    std::string text;
};

/// The few that lie nearest to the window, in their order.
std::vector<std::string> nearestOf(std::vector<Sentence> sentences) {
    const auto all = sentences.size();
    std::ranges::stable_sort(sentences, {}, &Sentence::distance);
    sentences.resize(std::min(all, ExpectationWatch::kKept));
    std::ranges::sort(sentences, {}, &Sentence::number);
    std::vector<std::string> lines;
    lines.reserve(sentences.size() + 1);
    for (auto& sentence : sentences) lines.push_back(std::move(sentence.text));
    if (all > lines.size()) lines.push_back(fmt::format("(and {} more)", all - lines.size()));
    return lines;
}

}  // namespace

FailureWords::FailureWords(const simulated::Visit& visit)
    : clock_(visit.start, visit.timeZone), names_(labelsOf(visit)) {}

Failure FailureWords::describe(const ExpectationWatch& watch, std::span<const json::object> rules) const {
    const auto& expectation = watch.expectation();
    Failure failure{expectation.path, expected(expectation), came(watch), {}, {}, {}};
    const auto rule = textOf(expectation.subject.members, "rule");
    if (!rule.empty() && rule.find('*') == std::string::npos) {
        failure.story = story(expectation, rules);
        return failure;
    }
    for (const auto* came : {&watch.matches(), &watch.outside()}) {
        for (const auto& record : *came) failure.records.push_back(line(record));
    }
    if (!failure.records.empty()) return failure;
    for (const auto& record : watch.nearest()) failure.nearest.push_back(line(record));
    return failure;
}

std::string FailureWords::moment(double seconds) const {
    return fmt::format("{} ({:.10g} s)", clock_.clock(seconds), seconds);
}

std::string FailureWords::expected(const Expectation& expectation) const {
    auto text = fmt::format("{}, {}", subjectText(expectation.subject), timesText(expectation));
    if (expectation.from) text += ", from " + moment(toSeconds(*expectation.from));
    if (expectation.until) text += ", until " + moment(toSeconds(*expectation.until));
    if (expectation.before) text += ", before " + subjectText(*expectation.before);
    return text;
}

std::string FailureWords::came(const ExpectationWatch& watch) const {
    if (watch.timesHold()) return order(watch);
    std::string text = watch.count() == 0 ? "never" : times(watch.count()) + ": " + moments(watch.matches());
    if (!watch.outside().empty()) text += "; outside of that time: " + moments(watch.outside());
    return text;
}

/// Why the order does not hold.
std::string FailureWords::order(const ExpectationWatch& watch) const {
    const auto other = subjectText(*watch.expectation().before);
    if (!watch.other()) return fmt::format("{}, but {} never", moments(watch.matches()), other);
    const auto otherFirst = fmt::format("{} at {}", other, moment(secondsOf(*watch.other())));
    if (watch.matches().empty()) return "never, but " + otherFirst;
    return fmt::format("first at {}, after {}", moment(secondsOf(watch.matches().front())), otherFirst);
}

std::string FailureWords::moments(const std::vector<json::object>& records) const {
    std::string text;
    for (const auto& record : records) text += (text.empty() ? "" : ", ") + moment(secondsOf(record));
    return records.size() < ExpectationWatch::kKept ? text : text + ", …";
}

std::string FailureWords::line(const json::object& record) const {
    const auto seconds = secondsOf(record);
    const auto words = TraceWords(names_, clock_).describe(record, seconds);
    const auto text = words ? fmt::format("{} {}", words->word, words->text) : neutralised(jsonText(record));
    return fmt::format("{}  {}", moment(seconds), clipped(text, kLongestLine));
}

/// The sentences about its outcomes that lie nearest to the window, and how it ends.
std::vector<std::string> FailureWords::story(const Expectation& expectation,
                                             std::span<const json::object> rules) const {
    std::ostringstream out;
    const auto& members = expectation.subject.members;
    RuleStory story(out, clock_, names_, textOf(members, "rule"), std::nullopt);
    std::vector<Sentence> sentences;
    for (const auto& record : rules) {
        const bool isOfOther =
            members.contains("owner") && !simulated::matches(textOf(members, "owner"), textOf(record, "owner"));
        if (isOfOther) continue;
        story.record(record);
        for (auto& line : linesOf(out)) {
            sentences.push_back({distance(expectation, secondsOf(record)), sentences.size(), std::move(line)});
        }
    }
    auto told = nearestOf(std::move(sentences));
    story.finish();
    for (auto& line : linesOf(out)) told.push_back(std::move(line));
    return told;
}

}  // namespace quomi::tool
