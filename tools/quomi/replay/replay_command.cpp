#include "tools/quomi/replay/replay_command.h"

#include "hosts/simulated/json/json_writer.h"
#include "hosts/simulated/replay/replay.h"
#include "hosts/simulated/visit/visit.h"
#include "quomi/api/url.h"
#include "tools/quomi/replay/geojson.h"
#include "tools/quomi/replay/visit_labels.h"
#include "tools/quomi/replay/wire_replay.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/timeline.h"

#include <algorithm>
#include <filesystem>
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
constexpr int kNotValid = 2;

struct Arguments {
    std::string visit;
    bool json = false;
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
    app.add_option("visit", parsed.visit, "The visit's file")->required()->type_name("VISIT.json");
    app.add_flag("--json", parsed.json, "Write the trace as JSON lines and nothing else");
    const auto* stateOption =
        app.add_option("--state", state, "Keep the app's container in this directory")->type_name("DIR");
    const auto* backofficeOption =
        app.add_option("--backoffice", backoffice, "Use a running server instead of the visit's own back office")
            ->type_name("URL");
    app.add_option("--geojson", parsed.geojson, "Write track, places and events as GeoJSON to this file")
        ->type_name("OUT");
    for (const char* option : kNotYet) app.add_option(option, ignored)->group("");
    try {
        std::reverse(args.begin(), args.end());
        app.parse(args);
    } catch (const CLI::Success&) {
        out << app.help();
        return kPlayed;
    } catch (const CLI::ParseError& error) {
        complain(err, error.what());
        return kFailed;
    }
    for (const char* option : kNotYet) {
        if (app.count(option) == 0) continue;
        complain(err, fmt::format("{} is not supported by this version yet", option));
        return kFailed;
    }
    if (stateOption->count() != 0 && state.empty()) {
        complain(err, "--state: expected a directory's name, found an empty one");
        return kFailed;
    }
    parsed.state = state;
    if (backofficeOption->count() == 0) return parsed;
    parsed.server = normalizedHttpUrl(backoffice);
    if (parsed.server) return parsed;
    complain(err, fmt::format("--backoffice: expected an http or https URL, found \"{}\"", backoffice));
    return kFailed;
}

int cannotWrite(std::ostream& err, const std::string& file) {
    complain(err, fmt::format("--geojson: {} cannot be written", file.empty() ? "a file without a name" : file));
    return kFailed;
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

}  // namespace

int ReplayCommand::run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) const {
    const auto parsed = parseArguments(args, out, err);
    if (const auto* status = std::get_if<int>(&parsed)) return *status;
    const auto& arguments = std::get<Arguments>(parsed);

    simulated::VisitError error;
    const auto visit = simulated::Visit::load(arguments.visit, &error);
    if (!visit) {
        err << error.text() << '\n';
        return kNotValid;
    }
    // Begun only when the visit is known to be good: a refused one leaves nothing on `out`.
    std::optional<Timeline> timeline;
    const auto shown = [&]() -> Timeline& {
        if (timeline) return *timeline;
        return timeline.emplace(out, colour_,
                                Timeline::Options{visit->name, visit->start, visit->timeZone, labelsOf(*visit)});
    };
    simulated::TraceSink sink = [&out](const boost::json::object& record) {
        out << simulated::jsonText(record) << '\n';
    };
    if (!arguments.json) sink = [&shown](const boost::json::object& record) { shown().record(record); };
    Drawing drawing(*visit, arguments.geojson);
    auto options = wireReplay(*visit, arguments.state, arguments.server);
    drawing.listen(options, sink);
    const auto replay = simulated::Replay::prepare(*visit, options, std::move(sink), &error);
    if (replay == nullptr) {
        err << error.text() << '\n';
        return kNotValid;
    }
    drawing.follow(*replay);
    if (!drawing.canBeWritten()) return cannotWrite(err, *arguments.geojson);
    if (!arguments.json) shown();
    if (!replay->play()) {
        err << visit->file << ": the app did not come to rest\n";
        return kFailed;
    }
    if (timeline) timeline->finish();
    if (!drawing.write()) return cannotWrite(err, *arguments.geojson);
    out.flush();
    return out ? kPlayed : kFailed;
}

}  // namespace quomi::tool
