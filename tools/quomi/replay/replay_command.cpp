#include "tools/quomi/replay/replay_command.h"

#include "hosts/simulated/json/json_writer.h"
#include "hosts/simulated/replay/replay.h"
#include "hosts/simulated/visit/visit.h"
#include "quomi/api/url.h"
#include "tools/quomi/replay/geojson.h"
#include "tools/quomi/replay/playing.h"
#include "tools/quomi/replay/visit_labels.h"
#include "tools/quomi/replay/wire_replay.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/timeline.h"

#include <algorithm>
#include <filesystem>
#include <iostream>
#include <iterator>
#include <optional>
#include <ostream>
#include <system_error>
#include <unistd.h>
#include <variant>

#include <CLI/CLI.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace {

constexpr int kPlayed = 0;
constexpr int kFailed = 1;
constexpr int kNotUsable = 2;
constexpr int kInterrupted = 128;  // and the signal's number, as shells have it

struct Arguments {
    std::vector<std::string> visits;
    bool json = false;
    std::size_t depth = 0;
    std::string colour = "auto";
    std::optional<std::string> geojson;
    std::filesystem::path state;
    std::optional<std::string> server;
};

void complain(std::ostream& err, const std::string& what) {
    err << "quomi replay: " << neutralised(what) << '\n';
}

/// Options of the format that this version does not have. Known to the parser, so that the answer can say so.
constexpr const char* kNotYet[] = {"--map"};

/// Either the arguments or the exit status with which there is nothing left to do.
std::variant<Arguments, int> parseArguments(std::vector<std::string> args, std::ostream& out, std::ostream& err) {
    Arguments parsed;
    std::string state;
    std::string backoffice;
    std::string ignored;
    CLI::App app("Plays a visit through the SDK under a virtual clock and shows what happened.", "quomi replay");
    app.add_option("visit", parsed.visits, "The visits' files, played one after the other; - is standard input")
        ->required()
        ->type_name("VISIT.json");
    app.add_flag("--json", parsed.json, "Write the trace as JSON lines and nothing else");
    app.add_flag("-v", parsed.depth, "Show events, requests and calls too; -vv: the phone's own doings as well");
    app.add_option("--color", parsed.colour, "Colours: auto (on a terminal), always or never")
        ->type_name("WHEN")
        ->check(CLI::IsMember({"auto", "always", "never"}));
    const auto* stateOption =
        app.add_option("--state", state, "Keep the app's container in this directory")->type_name("DIR");
    const auto* backofficeOption =
        app.add_option("--backoffice", backoffice, "Use a running server instead of the visit's own back office")
            ->type_name("URL");
    app.add_option("--geojson", parsed.geojson, "Write track, places and events as GeoJSON to this file")
        ->type_name("OUT");
    for (const char* option : kNotYet) app.add_option(option, ignored)->group("");
    try {
        std::ranges::reverse(args);
        app.parse(args);
    } catch (const CLI::Success&) {
        out << app.help();
        return kPlayed;
    } catch (const CLI::ParseError& error) {
        complain(err, error.what());
        return kNotUsable;
    }
    for (const char* option : kNotYet) {
        if (app.count(option) == 0) continue;
        complain(err, fmt::format("{} is not supported by this version yet", option));
        return kNotUsable;
    }
    if (stateOption->count() != 0 && state.empty()) {
        complain(err, "--state: expected a directory's name, found an empty one");
        return kNotUsable;
    }
    if (parsed.geojson && parsed.visits.size() > 1) {
        complain(err, "--geojson: expected one visit, found several");
        return kNotUsable;
    }
    parsed.state = state;
    if (backofficeOption->count() == 0) return parsed;
    parsed.server = normalizedHttpUrl(backoffice);
    if (parsed.server) return parsed;
    complain(err, fmt::format("--backoffice: expected an http or https URL, found \"{}\"", backoffice));
    return kNotUsable;
}

int cannotWrite(std::ostream& err, const std::string& file, int status) {
    complain(err, fmt::format("--geojson: {} cannot be written", file.empty() ? "a file without a name" : file));
    return status;
}

/// The trace also as GeoJSON, if that was asked for.
class Drawing {
public:
    Drawing(const simulated::Visit& visit, const std::optional<std::string>& path) {
        if (!path) return;
        map_.emplace(visit);
        file_.emplace(*path);
    }

    [[nodiscard]] bool canBeWritten() const { return !file_ || file_->canBeWritten(); }

    void listen(simulated::ReplayOptions& options, simulated::TraceSink& sink) {
        if (!map_) return;
        options.moved = [this](const Coordinate& place, Duration at) { map_->moved(place, at); };
        sink = [this, show = std::move(sink)](const boost::json::object& record) {
            if (replay_ != nullptr) map_->record(record, replay_->now());
            show(record);
        };
    }
    void follow(const simulated::Replay& replay) { replay_ = &replay; }

    bool write() { return !map_ || file_->complete(map_->text()); }

private:
    std::optional<GeoJson> map_;
    std::optional<NewFile> file_;
    const simulated::Replay* replay_ = nullptr;
};

std::string textOfInput() {
    return {std::istreambuf_iterator<char>(std::cin), std::istreambuf_iterator<char>()};
}

int playVisit(const simulated::Visit& visit, const Arguments& arguments, const Terminal& terminal, std::ostream& out,
              std::ostream& err) {
    // Begun only when the visit is known to be good: a refused one leaves nothing on `out`.
    std::optional<Timeline> timeline;
    const auto shown = [&]() -> Timeline& {
        if (timeline) return *timeline;
        const auto depth = static_cast<Depth>(std::min<std::size_t>(arguments.depth, 2));
        return timeline.emplace(out, terminal,
                                Timeline::Options{visit.name, visit.start, visit.timeZone, labelsOf(visit), depth});
    };
    Playing playing(err, terminal.showsProgress);
    simulated::TraceSink sink = [&](const boost::json::object& record) {
        if (terminal.columns > 0) playing.hideProgress();
        if (!arguments.json) return shown().record(record);
        out << simulated::jsonText(record) << '\n';
    };
    Drawing drawing(visit, arguments.geojson);
    auto options = wireReplay(visit, arguments.state, arguments.server);
    if (!arguments.json && !arguments.geojson) options.traces = &Timeline::reads;
    options.goesOn = [&](Duration at, Duration end) { return out.good() && playing.goesOn(at, end); };
    drawing.listen(options, sink);
    simulated::VisitError error;
    const auto replay = simulated::Replay::prepare(visit, options, std::move(sink), &error);
    if (replay == nullptr) {
        err << error.text() << '\n';
        return kNotUsable;
    }
    drawing.follow(*replay);
    if (!drawing.canBeWritten()) return cannotWrite(err, *arguments.geojson, kNotUsable);
    if (!arguments.json) shown();
    if (!replay->play() && out) {
        if (const int signal = Playing::signal(); signal != 0) return kInterrupted + signal;
        playing.hideProgress();
        err << visit.file << ": the app did not come to rest\n";
        return kFailed;
    }
    if (timeline) timeline->finish();
    if (!drawing.write()) return cannotWrite(err, *arguments.geojson, kFailed);
    return kPlayed;
}

}  // namespace

int ReplayCommand::run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) const {
    const auto parsed = parseArguments(args, out, err);
    if (const auto* status = std::get_if<int>(&parsed)) return *status;
    const auto& arguments = std::get<Arguments>(parsed);

    std::vector<simulated::Visit> visits;
    for (const auto& file : arguments.visits) {
        simulated::VisitError error;
        auto visit = file == "-" ? simulated::Visit::parse(textOfInput(), "standard input", "", &error)
                                 : simulated::Visit::load(file, &error);
        if (!visit) {
            err << error.text() << '\n';
            return kNotUsable;
        }
        visits.push_back(std::move(*visit));
    }
    auto terminal = terminal_;
    if (arguments.colour != "auto") terminal.hasColours = arguments.colour == "always";
    for (const auto& visit : visits) {
        if (!arguments.json && &visit != visits.data()) out << '\n';
        const int status = playVisit(visit, arguments, terminal, out, err);
        if (status != kPlayed) return status;
    }
    out.flush();
    return out ? kPlayed : kFailed;
}

}  // namespace quomi::tool
