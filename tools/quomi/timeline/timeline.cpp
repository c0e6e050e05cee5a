#include "tools/quomi/timeline/timeline.h"

#include "tools/quomi/timeline/terminal_text.h"
#include "tools/quomi/timeline/trace_fields.h"
#include "tools/quomi/timeline/visit_summary.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <ostream>

#include <boost/json/object.hpp>
#include <date/tz.h>
#include <fmt/format.h>

namespace quomi::tool {

namespace {

constexpr std::string_view kResetColour = "\x1b[0m";

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

const date::time_zone* findZone(const std::string& name) {
    try {
        return date::locate_zone(name);
    } catch (const std::exception&) {
        return nullptr;
    }
}

/// A moment of a visit as the device's clock shows it.
struct LocalTime {
    date::local_days day;
    std::int64_t tenths = 0;  ///< since midnight

    [[nodiscard]] std::string clock(bool withTenths) const {
        const auto seconds = tenths / 10;
        auto text = fmt::format("{:02}:{:02}:{:02}", seconds / 3600, seconds / 60 % 60, seconds % 60);
        return withTenths ? text + fmt::format(".{}", tenths % 10) : text;
    }
    [[nodiscard]] std::string date() const {
        static constexpr std::array<std::string_view, 7> names = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                                                  "Thursday", "Friday", "Saturday"};
        const date::year_month_day ymd{day};
        return fmt::format("{} {:04}-{:02}-{:02}", names[date::weekday{day}.c_encoding()], static_cast<int>(ymd.year()),
                           static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()));
    }
};

std::string timesText(std::size_t times) {
    return times == 1 ? "" : fmt::format("  {} times", times);
}

}  // namespace

class Timeline::Impl {
public:
    Impl(std::ostream& out, bool colour, Options options)
        : out_(out),
          colour_(colour),
          start_(options.start),
          zone_(findZone(options.timeZone)),
          names_(std::move(options.labels)),
          words_(names_) {
        day_ = localTime(0).day;
        const auto zoneName = zone_ != nullptr ? neutralised(options.timeZone) : std::string("UTC");
        print(painted(neutralised(options.visitName), "\x1b[1m"));
        print(fmt::format("{}, {} ({})", localTime(0).date(), localTime(0).clock(false), zoneName));
        print("");
    }

    void record(const boost::json::object& record) {
        const auto seconds = std::clamp(numberOf(record, "t", 0), -1e9, 1e9);
        summary_.record(record, seconds);
        const auto line = words_.describe(record, seconds);
        if (!line) return;
        const auto time = localTime(seconds);
        if (time.day != day_) print(painted(fmt::format("── {} ──", time.date()), "\x1b[1m"));
        day_ = time.day;
        const auto times = fmt::format("{}  {:>8.1f} s", time.clock(true), std::floor(seconds * 10 + 1e-4) / 10);
        const auto head = fmt::format("{} {}", line->sign, leftAligned(std::string(line->word), 10));
        const bool whole = line->tone == Tone::quiet || line->tone == Tone::bad;
        const auto colour = colourOf(line->tone);
        print(
            fmt::format("{}  {}", painted(times, "\x1b[2m"),
                        whole ? painted(head + "  " + line->text, colour) : painted(head, colour) + "  " + line->text));
    }

    void finish() {
        summary_.finish();
        print("");
        print(painted("Summary", "\x1b[1m") + fmt::format("  {}", spanText(summary_.seconds())));
        printBeacons();
        printWay();
        print(fmt::format("  events    {} logged, {} uploaded", summary_.eventsLogged(), summary_.eventsUploaded()));
        printRequests();
        printErrors();
        out_.flush();
    }

private:
    [[nodiscard]] LocalTime localTime(double seconds) const {
        // Floating-point seconds such as 0.3 lie a hair below their tenth; the millisecond is what counts.
        const auto time = start_ + std::chrono::milliseconds(std::llround(seconds * 1000));
        const auto local =
            zone_ != nullptr ? zone_->to_local(time) : date::local_time<Duration>(time.time_since_epoch());
        const auto day = date::floor<date::days>(local);
        return {day, (local - day) / std::chrono::milliseconds(100)};
    }

    [[nodiscard]] std::string painted(const std::string& text, std::string_view colour) const {
        return colour_ && !colour.empty() ? fmt::format("{}{}{}", colour, text, kResetColour) : text;
    }

    void print(const std::string& line) { out_ << line << '\n'; }

    void printBeacons() {
        const auto& beacons = summary_.beacons();
        print(fmt::format("  beacons   {} seen", beacons.size()));
        if (beacons.empty()) return;
        std::size_t columns = 0;
        for (const auto& beacon : beacons) columns = std::max(columns, columnsOf(names_.fullName(beacon.name)));
        print(
            painted(fmt::format("    {}  {:<8}  {:<8}  {:>5}  {:>5}  {:>12}  {:>12}  {:>12}", leftAligned("", columns),
                                "first", "last", "found", "lost", "in view", "near", "immediate"),
                    "\x1b[2m"));
        for (const auto& beacon : beacons) {
            print(fmt::format("    {}  {}  {}  {:>5}  {:>5}  {:>12}  {:>12}  {:>12}",
                              leftAligned(names_.fullName(beacon.name), columns),
                              localTime(beacon.firstSeen).clock(false), localTime(beacon.lastSeen).clock(false),
                              beacon.found, beacon.lost, spanText(beacon.inView), spanOrDash(beacon.near),
                              spanOrDash(beacon.immediate)));
        }
    }

    static std::string spanOrDash(double seconds) { return seconds > 0 ? spanText(seconds) : "-"; }

    void printWay() {
        const auto& way = summary_.way();
        if (way.positions + way.entered + way.left == 0) return;
        print(fmt::format("  way       {} positions, {:.1f} km; geofences: {} entered, {} left", way.positions,
                          way.metres / 1000, way.entered, way.left));
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
        print(fmt::format("  errors    {}", all));
        for (const auto& [text, times] : summary_.errors()) {
            print(painted(fmt::format("    {}{}", text, timesText(times)), colourOf(Tone::bad)));
        }
    }

    std::ostream& out_;
    bool colour_;
    WallTime start_;
    const date::time_zone* zone_;
    BeaconNames names_;
    TraceWords words_;
    VisitSummary summary_;
    date::local_days day_;
};

Timeline::Timeline(std::ostream& out, bool colour, Options options)
    : impl_(std::make_unique<Impl>(out, colour, std::move(options))) {}

Timeline::~Timeline() = default;

void Timeline::record(const boost::json::object& record) {
    impl_->record(record);
}

void Timeline::finish() {
    impl_->finish();
}

}  // namespace quomi::tool
