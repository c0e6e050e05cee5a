#include "tools/quomi/testing/test_command.h"

#include "hosts/simulated/json/json_writer.h"
#include "tools/quomi/replay/geojson.h"
#include "tools/quomi/replay/playing.h"
#include "tools/quomi/testing/coverage.h"
#include "tools/quomi/testing/junit_report.h"
#include "tools/quomi/testing/test_report.h"
#include "tools/quomi/testing/visit_files.h"
#include "tools/quomi/testing/worker_pool.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <ostream>
#include <thread>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace {

constexpr int kAllHold = 0;
constexpr int kFailed = 1;
constexpr int kNotValid = 2;
constexpr int kInterrupted = 128;  // and the signal's number

struct Arguments {
    std::vector<std::string> paths;
    std::string filter;
    std::string junit;
    unsigned jobs = std::max(std::thread::hardware_concurrency(), 1U);
    bool list = false;
    bool json = false;
    bool coverage = false;
    std::optional<unsigned> minCoverage;
};

int complain(std::ostream& err, const std::string& what, int status) {
    err << "quomi test: " << neutralised(what) << '\n';
    return status;
}

/// The exit status with which there is nothing left to do; nothing when all is well.
std::optional<int> parse(std::vector<std::string> args, Arguments& parsed, std::ostream& out, std::ostream& err) {
    CLI::App app("Plays visits and tells whether what they expect came about.", "quomi test");
    app.add_option("path", parsed.paths, "Visits, or folders with visits")->required()->type_name("PATH");
    app.add_option("--filter", parsed.filter, "Only cases with this text in their file or name")->type_name("TEXT");
    app.add_option("--jobs", parsed.jobs, "How many cases are played at once; as many as there are cores")
        ->check(CLI::Range(1U, 1024U))
        ->type_name("N");
    app.add_option("--junit", parsed.junit, "Also write a JUnit report to this file")->type_name("FILE");
    app.add_flag("--list", parsed.list, "List the cases and play none");
    app.add_flag("--json", parsed.json, "Write the results as JSON lines and nothing else");
    app.add_flag("--coverage", parsed.coverage, "Also tell which rules acted, and what never stopped them");
    app.add_option("--min-coverage", parsed.minCoverage, "Fail when fewer percent of a campaign's rules acted")
        ->check(CLI::Range(0U, 100U))
        ->type_name("N");
    try {
        std::ranges::reverse(args);
        app.parse(std::move(args));
    } catch (const CLI::Success&) {
        out << app.help();
        return kAllHold;
    } catch (const CLI::ParseError& error) {
        return complain(err, error.what(), kNotValid);
    }
    return std::nullopt;
}

/// The cases of the visits, and the files that are none.
std::vector<TestCase> casesOf(const std::vector<FoundVisit>& found) {
    std::vector<TestCase> cases;
    for (const auto& each : found) {
        if (!each.visit) {
            cases.push_back({each.file, "", nullptr, {Outcome::invalid, each.error}});
        } else if (each.visit->cases.empty()) {
            cases.push_back({each.file, each.visit->name, &*each.visit, {}});
        } else {
            for (const auto& part : each.visit->cases) {
                cases.push_back({each.file, part.name + ": " + part.caseName, &part, {}});
            }
        }
    }
    return cases;
}

/// One run of the command.
class TestRun {
public:
    TestRun(const Arguments& arguments, bool colour, std::ostream& out, std::ostream& err)
        : arguments_(arguments),
          colour_(colour && !arguments.json),
          out_(out),
          err_(err),
          report_(out, arguments.json ? TestReport::Form::json
                       : colour       ? TestReport::Form::colours
                                      : TestReport::Form::people),
          found_(findVisits(arguments.paths)),
          cases_(casesOf(found_)) {
        std::erase_if(cases_, [&](const TestCase& each) {
            return (each.file + "  " + each.name).find(arguments.filter) == std::string::npos;
        });
    }

    int run() {
        if (cases_.empty()) return complain(err_, "no case with expectations found", kNotValid);
        if (arguments_.list) return list();
        std::optional<NewFile> junit;
        if (!arguments_.junit.empty()) junit.emplace(arguments_.junit);
        if (junit && !junit->canBeWritten()) return complain(err_, arguments_.junit + " cannot be written", kNotValid);
        play();
        if (const int signal = Playing::signal(); signal != 0) return kInterrupted + signal;
        if (arguments_.coverage || arguments_.minCoverage) tellCoverage();
        if (junit && !junit->complete(junitReport(cases_))) {
            return complain(err_, arguments_.junit + " cannot be written", kFailed);
        }
        out_.flush();
        return status();
    }

private:
    int list() {
        for (const auto& each : cases_) {
            if (each.visit == nullptr) {
                err_ << each.result.error << '\n';
            } else {
                out_ << neutralised(each.file + "  " + each.name) << '\n';
            }
        }
        const auto isInvalid = [](const TestCase& each) { return each.visit == nullptr; };
        return std::ranges::any_of(cases_, isInvalid) ? kNotValid : kAllHold;
    }

    void play() {
        const Playing playing(err_, false);
        const auto begun = std::chrono::steady_clock::now();
        const auto runOne = [this](std::size_t i) {
            if (cases_[i].visit != nullptr && Playing::signal() == 0) cases_[i].result = runCase(*cases_[i].visit);
        };
        inOrder(cases_.size(), arguments_.jobs, runOne, [this](std::size_t i) { tell(cases_[i]); });
        report_.finish(std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count());
    }

    void tell(const TestCase& each) {
        if (Playing::signal() != 0) return;
        report_.print(each);
        out_.flush();
        if (each.result.outcome == Outcome::invalid) err_ << each.result.error << '\n';
        if (each.visit != nullptr) coverage_.add(*each.visit, each.result.rules);
    }

    void tellCoverage() {
        if (arguments_.json) {
            out_ << simulated::jsonText(boost::json::object{{"coverage", coverage_.json()}}) << '\n';
        } else {
            coverage_.print(out_, colour_);
        }
        for (const auto& campaign : coverage_.campaigns()) {
            if (campaign.percent() >= arguments_.minCoverage.value_or(0)) continue;
            lacksCoverage_ = true;
            complain(err_,
                     fmt::format("{}: {} % of the rules acted, expected {} %", campaign.name, campaign.percent(),
                                 *arguments_.minCoverage),
                     kFailed);
        }
    }

    [[nodiscard]] int status() const {
        if (report_.invalid() > 0) return kNotValid;
        return report_.failed() > 0 || lacksCoverage_ || !out_ ? kFailed : kAllHold;
    }

    const Arguments& arguments_;
    const bool colour_;
    std::ostream& out_;
    std::ostream& err_;
    TestReport report_;
    const std::vector<FoundVisit> found_;
    std::vector<TestCase> cases_;
    Coverage coverage_;
    bool lacksCoverage_ = false;
};

}  // namespace

int TestCommand::run(std::vector<std::string> args, std::ostream& out, std::ostream& err) const {
    Arguments arguments;
    if (const auto status = parse(std::move(args), arguments, out, err)) return *status;
    return TestRun(arguments, colour_, out, err).run();
}

}  // namespace quomi::tool
