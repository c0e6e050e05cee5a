#include "tools/quomi/testing/case_run.h"

#include "hosts/simulated/expect/expectation_watch.h"
#include "hosts/simulated/gpx/gpx_file.h"
#include "hosts/simulated/replay/replay.h"
#include "tools/quomi/replay/playing.h"
#include "tools/quomi/replay/visit_labels.h"
#include "tools/quomi/testing/campaign_gates.h"
#include "tools/quomi/testing/failure_words.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>

#include <fmt/format.h>

namespace quomi::tool {

namespace json = boost::json;

namespace {

/// "inactive" is told apart by what its owner is outside of: its dates or its opening hours.
std::string gateOf(const json::object& record) {
    auto decision = textOf(record, "decision");
    if (decision != "inactive") return decision;
    return textOf(objectOf(record, "detail"), "code") == "204" ? kOutsideHours : kOutsideDates;
}

/// Whether records of the delegate may match: those of the other subjects are written by the phone and by the rules.
bool mayBeToldByDelegate(const simulated::Subject& subject) {
    static constexpr std::array kOthers = {"rule", "notification", "webPage", "openURL", "request"};
    return std::ranges::find(kOthers, subject.key) == kOthers.end();
}

bool needsDelegate(const simulated::Expectation& expectation) {
    return mayBeToldByDelegate(expectation.subject) || (expectation.before && mayBeToldByDelegate(*expectation.before));
}

/// A campaign is served inside of the replay: without sockets, many cases run at once and none waits for another.
simulated::ReplayOptions optionsOfCase(const simulated::Visit& visit) {
    simulated::ReplayOptions options;
    if (std::ranges::none_of(visit.expectations, needsDelegate)) options.traces = [](auto) { return false; };
    options.readTrack = simulated::readGpxFile;
    options.goesOn = [](Duration, Duration) { return Playing::signal() == 0; };
    return options;
}

class CaseRun {
public:
    explicit CaseRun(const simulated::Visit& visit) : visit_(visit) {
        for (const auto& expectation : visit.expectations) watches_.emplace_back(expectation);
    }

    CaseResult run() {
        simulated::VisitError error;
        const auto replay = simulated::Replay::prepare(
            visit_, optionsOfCase(visit_), [this](const json::object& record) { take(record); }, &error);
        if (replay == nullptr) return {Outcome::invalid, error.text()};
        if (!replay->play()) return {Outcome::failed, "the app did not come to rest"};
        return judged();
    }

private:
    void take(const json::object& record) {
        for (auto& watch : watches_) watch.record(record);
        if (!record.contains("rule")) return;
        ++result_.rules[{textOf(record, "rule"), textOf(record, "owner")}][gateOf(record)];
        ruleRecords_.push_back(record);
    }

    CaseResult judged() {
        for (const auto& watch : watches_) {
            if (watch.holds()) continue;
            if (!words_) words_.emplace(visit_);
            result_.failures.push_back(words_->describe(watch, ruleRecords_));
        }
        if (!result_.failures.empty()) result_.outcome = Outcome::failed;
        return std::move(result_);
    }

    const simulated::Visit& visit_;
    std::vector<simulated::ExpectationWatch> watches_;
    std::vector<json::object> ruleRecords_;
    std::optional<FailureWords> words_;
    CaseResult result_;
};

}  // namespace

CaseResult runCase(const simulated::Visit& visit) {
    const auto begun = std::chrono::steady_clock::now();
    CaseResult result;
    try {
        result = CaseRun(visit).run();
    } catch (const std::exception& failure) {
        result = {Outcome::failed, neutralised(failure.what())};
    }
    result.seconds = toSeconds(std::chrono::floor<Duration>(std::chrono::steady_clock::now() - begun));
    return result;
}

}  // namespace quomi::tool
