#include "tools/quomi/timeline/timeline.h"

#include "tools/quomi/timeline/line_folding.h"
#include "tools/quomi/timeline/local_clock.h"
#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"
#include "tools/quomi/timeline/visit_summary.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <ostream>

#include <boost/json/object.hpp>
#include <fmt/format.h>

namespace quomi::tool {

namespace {

constexpr std::string_view kResetColour = "\x1b[0m";
constexpr std::size_t kWideTerminal = 100;  // columns

std::string_view colourOf(Tone tone) {
    switch (tone) {
        case Tone::plain:
            return "";
        case Tone::quiet:
            return "\x1b[2m";
        case Tone::arrived:
            return "\x1b[32m";
        case Tone::gone:
            return "\x1b[33m";
        case Tone::shown:
            return "\x1b[1;35m";
        case Tone::network:
            return "\x1b[36m";
        case Tone::bad:
            return "\x1b[1;31m";
    }
    return "";
}

std::string timesText(std::size_t times) {
    return times == 1 ? "" : fmt::format("  {} times", times);
}

}  // namespace

class Timeline::Impl {
public:
    Impl(std::ostream& out, const Terminal& terminal, Options options)
        : out_(out),
          terminal_(terminal),
          depth_(options.depth),
          clock_(options.start, options.timeZone),
          names_(std::move(options.labels), isNarrow()),
          words_(names_, clock_),
          folding_([this](const TimedLine& line) { print(line); },
                   [this](auto... repeated) { printRepeated(repeated...); }) {
        day_ = clock_.day(0);
        const auto zoneName = clock_.knowsZone() ? neutralised(options.timeZone) : std::string("UTC");
        print(painted(neutralised(options.visitName), "\x1b[1m"));
        print(fmt::format("{}, {} ({})", clock_.date(0), clock_.clock(0), zoneName));
        print("");
    }

    void record(const boost::json::object& record) {
        const auto seconds = std::clamp(numberOf(record, "t", 0), -1e9, 1e9);
        summary_.record(record, seconds);
        auto line = words_.describe(record, seconds);
        if (line && line->depth <= depth_) folding_.add({seconds, std::move(*line)});
    }

    void finish() {
        folding_.finish();
        summary_.finish();
        print("");
        print(painted("Summary", "\x1b[1m") + fmt::format("  {}", spanText(summary_.seconds())));
        printBeacons();
        printRules();
        printWay();
        print(fmt::format("  events    {} logged, {} uploaded", summary_.eventsLogged(), summary_.eventsUploaded()));
        printRequests();
        printErrors();
        out_.flush();
    }

private:
    [[nodiscard]] std::string painted(const std::string& text, std::string_view colour) const {
        return terminal_.hasColours && !colour.empty() ? fmt::format("{}{}{}", colour, text, kResetColour) : text;
    }

    void print(const std::string& line) { out_ << line << '\n'; }

    [[nodiscard]] bool isNarrow() const { return terminal_.columns > 0 && terminal_.columns < kWideTerminal; }

    /// A narrow terminal has no room for the seconds.
    [[nodiscard]] std::string times(double seconds) const {
        const auto clock = clock_.clock(seconds, true);
        return isNarrow() ? clock : fmt::format("{}  {:>8.1f} s", clock, std::floor(seconds * 10 + 1e-4) / 10);
    }

    void print(const TimedLine& timed) {
        const auto& [seconds, line] = timed;
        const auto day = clock_.day(seconds);
        if (day != day_) print(painted(fmt::format("── {} ──", clock_.date(seconds)), "\x1b[1m"));
        day_ = day;
        const auto time = times(seconds);
        const auto head = fmt::format("{} {}", line.sign, leftAligned(std::string(line.word), 10));
        const auto begin = columnsOf(time) + 2 + columnsOf(head) + 2;
        const auto room = terminal_.columns > begin ? terminal_.columns - begin : 0;
        auto text = wrapped(line.text, room, 0);
        for (auto at = text.find('\n'); at != std::string::npos; at = text.find('\n', at + 1)) {
            text.insert(at + 1, begin, ' ');
        }
        const bool whole = line.tone == Tone::quiet || line.tone == Tone::bad;
        const auto colour = colourOf(line.tone);
        print(fmt::format("{}  {}", painted(time, "\x1b[2m"),
                          whole ? painted(head + "  " + text, colour) : painted(head, colour) + "  " + text));
    }

    void printRepeated(std::size_t repetitions, std::size_t lines, double until) {
        const auto what = lines == 1 ? "the same" : lines == 2 ? "the same two" : fmt::format("the same {}", lines);
        const auto blanks = std::string(columnsOf(times(until)), ' ');
        print(painted(fmt::format("{}  … {} more of {} until {}", blanks, repetitions, what, clock_.clock(until)),
                      "\x1b[2m"));
    }

    void printBeacons() {
        const auto& beacons = summary_.beacons();
        print(fmt::format("  beacons   {} seen", beacons.size()));
        if (beacons.empty()) return;
        if (isNarrow()) return printStays();
        std::size_t columns = 0;
        for (const auto& beacon : beacons) columns = std::max(columns, columnsOf(names_.fullName(beacon.name)));
        print(
            painted(fmt::format("    {}  {:<8}  {:<8}  {:>5}  {:>5}  {:>12}  {:>12}  {:>12}", leftAligned("", columns),
                                "first", "last", "found", "lost", "in view", "near", "immediate"),
                    "\x1b[2m"));
        for (const auto& beacon : beacons) {
            print(fmt::format("    {}  {}  {}  {:>5}  {:>5}  {:>12}  {:>12}  {:>12}",
                              leftAligned(names_.fullName(beacon.name), columns), clock_.clock(beacon.firstSeen),
                              clock_.clock(beacon.lastSeen), beacon.found, beacon.lost, spanText(beacon.inView),
                              spanOrDash(beacon.near), spanOrDash(beacon.immediate)));
        }
    }

    /// What a narrow terminal has room for.
    void printStays() {
        std::size_t columns = 0;
        for (const auto& beacon : summary_.beacons()) columns = std::max(columns, columnsOf(names_.label(beacon.name)));
        print(painted(fmt::format("    {}  {:<8}  {:>12}  {:>12}  {:>12}", leftAligned("", columns), "first", "in view",
                                  "near", "immediate"),
                      "\x1b[2m"));
        for (const auto& beacon : summary_.beacons()) {
            print(fmt::format("    {}  {}  {:>12}  {:>12}  {:>12}", leftAligned(names_.label(beacon.name), columns),
                              clock_.clock(beacon.firstSeen), spanText(beacon.inView), spanOrDash(beacon.near),
                              spanOrDash(beacon.immediate)));
        }
    }

    void printRules() {
        const auto& rules = summary_.rules();
        if (rules.empty()) return;
        print(fmt::format("  rules     {} considered", rules.size()));
        std::size_t columns = 0;
        for (const auto& [rule, fate] : rules) columns = std::max(columns, columnsOf(rule));
        print(painted(
            fmt::format("    {}  {:>10}  {:>8}  stopped by", leftAligned("", columns), "considered", "executed"),
            "\x1b[2m"));
        for (const auto& [rule, fate] : rules) {
            std::string stops;
            for (const auto& [decision, times] : fate.stops) {
                stops += (stops.empty() ? "" : ", ") + fmt::format("{} × {}", times, decision);
            }
            print(fmt::format("    {}  {:>10}  {:>8}  {}", leftAligned(rule, columns), fate.considered, fate.executed,
                              stops.empty() ? "-" : stops));
        }
    }

    static std::string spanOrDash(double seconds) { return seconds > 0 ? spanText(seconds) : "-"; }

    void printWay() {
        const auto& way = summary_.way();
        if (way.positions + way.entered + way.left == 0) return;
        print(fmt::format("  way       {} positions, {:.1f} km; geofences told to the host: {} entered, {} left",
                          way.positions, way.metres / 1000, way.entered, way.left));
    }

    void printRequests() {
        std::string text;
        for (const auto& [outcome, times] : summary_.outcomes()) {
            text += (text.empty() ? ": " : ", ") + fmt::format("{} × {}", times, outcome);
        }
        print(fmt::format("  requests  {}{}", summary_.requests(), text));
    }

    void printErrors() {
        std::size_t all = 0;
        for (const auto& [text, times] : summary_.errors()) all += times;
        if (!summary_.hasRun()) print("  the SDK never ran");
        if (all > 0 || summary_.hasRun()) print(fmt::format("  errors    {}", all));
        for (const auto& [text, times] : summary_.errors()) {
            print(painted(fmt::format("    {}{}", text, timesText(times)), colourOf(Tone::bad)));
        }
    }

    std::ostream& out_;
    const Terminal terminal_;
    const Depth depth_;
    const LocalClock clock_;
    BeaconNames names_;
    TraceWords words_;
    LineFolding folding_;
    VisitSummary summary_;
    date::local_days day_;
};

Timeline::Timeline(std::ostream& out, const Terminal& terminal, Options options)
    : impl_(std::make_unique<Impl>(out, terminal, std::move(options))) {}

Timeline::~Timeline() = default;

void Timeline::record(const boost::json::object& record) {
    impl_->record(record);
}

void Timeline::finish() {
    impl_->finish();
}

}  // namespace quomi::tool
