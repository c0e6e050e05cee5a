#include "tools/quomi/explain/explain_command.h"

#include "hosts/simulated/replay/replay.h"
#include "hosts/simulated/visit/visit.h"
#include "tools/quomi/explain/rule_story.h"
#include "tools/quomi/replay/playing.h"
#include "tools/quomi/replay/visit_labels.h"
#include "tools/quomi/replay/wire_replay.h"
#include "tools/quomi/timeline/terminal_text.h"

#include <algorithm>
#include <optional>
#include <ostream>

#include <CLI/CLI.hpp>

namespace quomi::tool {

namespace {

constexpr int kPlayed = 0;
constexpr int kFailed = 1;
constexpr int kNotValid = 2;
constexpr int kInterrupted = 128;  // and the signal's number

struct Arguments {
    std::string visit;
    std::string rule;
    double at = 0;
    bool hasAt = false;
};

/// The exit status with which there is nothing left to do; nothing when all is well.
std::optional<int> parse(std::vector<std::string> args, Arguments& parsed, std::ostream& out, std::ostream& err) {
    CLI::App app("Plays a visit and tells in sentences what became of one rule.", "quomi explain");
    app.add_option("visit", parsed.visit, "The visit's file")->required()->type_name("VISIT.json");
    app.add_option("--rule", parsed.rule, "The rule's identifier")->required()->type_name("ID");
    const auto* at = app.add_option("--at", parsed.at, "End the story at this time of the visit")
                         ->check(CLI::Range(0.0, 1e9))
                         ->type_name("SECONDS");
    try {
        std::ranges::reverse(args);
        app.parse(args);
    } catch (const CLI::Success&) {
        out << app.help();
        return kPlayed;
    } catch (const CLI::ParseError& error) {
        err << "quomi explain: " << neutralised(error.what()) << '\n';
        return kNotValid;
    }
    parsed.hasAt = at->count() != 0;
    return std::nullopt;
}

}  // namespace

int runExplain(std::vector<std::string> args, const Terminal& terminal, std::ostream& out, std::ostream& err) {
    Arguments arguments;
    if (const auto status = parse(std::move(args), arguments, out, err)) return *status;
    simulated::VisitError error;
    const auto visit = simulated::Visit::load(arguments.visit, &error);
    if (!visit) {
        err << error.text() << '\n';
        return kNotValid;
    }
    const LocalClock clock(visit->start, visit->timeZone);
    const BeaconNames names(labelsOf(*visit));
    RuleStory story(out, clock, names, arguments.rule, arguments.hasAt ? std::optional(arguments.at) : std::nullopt,
                    terminal.columns);
    Playing playing(err, terminal.showsProgress);
    auto options = wireReplay(*visit);
    options.traces = [](auto) { return false; };  // the story is in the records of rules
    options.goesOn = [&](Duration at, Duration end) { return playing.goesOn(at, end); };
    const auto replay = simulated::Replay::prepare(
        *visit, options,
        [&](const boost::json::object& record) {
            if (terminal.columns > 0) playing.hideProgress();
            story.record(record);
        },
        &error);
    if (replay == nullptr) {
        err << error.text() << '\n';
        return kNotValid;
    }
    if (!replay->play()) {
        if (const int signal = Playing::signal(); signal != 0) return kInterrupted + signal;
        err << visit->file << ": the app did not come to rest\n";
        return kFailed;
    }
    story.finish();
    return out ? kPlayed : kFailed;
}

}  // namespace quomi::tool
