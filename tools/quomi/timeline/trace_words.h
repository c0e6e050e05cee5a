#pragma once

#include "quomi/platform/location.h"
#include "tools/quomi/timeline/beacon_names.h"
#include "tools/quomi/timeline/local_clock.h"

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include <boost/json/object.hpp>

namespace quomi::tool {

/// What an event means to the reader; a terminal makes it a colour.
enum class Tone { plain, quiet, arrived, gone, shown, network, bad };

/// What a line belongs to: the visit's story (regions, beacons, rules, what the user sees, errors), the events,
/// requests and calls around it, or the phone's own doings.
enum class Depth { story, traffic, phone };

/// One event in words: a sign, the word of its kind and a text without control characters.
struct TraceLine {
    std::string_view sign;
    std::string_view word;
    Tone tone = Tone::plain;
    std::string text;
    Depth depth = Depth::story;
    /// What makes two lines tell the same, where that is not the whole text.
    std::string gist = {};
};

/// Puts trace records into words. It remembers what a line needs of the records before it: a beacon's proximity, which
/// request a response answers. Records come in the order of the trace.
class TraceWords {
public:
    TraceWords(const BeaconNames& names, const LocalClock& clock);

    /// Empty for what would only flood: pings, updates within a proximity class, positions less than 100 m from the one
    /// shown before, logged events that repeat the line before. `seconds` is the record's time.
    [[nodiscard]] std::optional<TraceLine> describe(const boost::json::object& record, double seconds);

private:
    using Record = boost::json::object;
    using Line = std::optional<TraceLine>;
    using Describer = Line (TraceWords::*)(const Record&);
    struct Visible {
        double since = 0;
        std::int64_t proximity = 0;
    };
    struct Sent {
        std::string url;
        std::string method;
        double at = 0;
    };

    static const std::map<std::string_view, Describer>& kinds();
    static const std::map<std::string_view, Describer>& delegates();

    Line delegate(const Record& record);
    Line otherDelegate(const Record& record);
    Line found(const Record& record);
    Line lost(const Record& record);
    Line updated(const Record& record);
    Line hidden(const Record& record);
    Line beaconRegion(const Record& record);
    Line geofence(const Record& record);
    Line location(const Record& record);
    Line loggedEvent(const Record& record);
    Line reportedError(const Record& record);

    Line call(const Record& record);
    Line callback(const Record& record);
    Line request(const Record& record);
    Line response(const Record& record);
    Line rule(const Record& record);
    Line notification(const Record& record);
    Line category(const Record& record);
    Line webPage(const Record& record);
    Line openURL(const Record& record);
    Line alert(const Record& record);
    Line console(const Record& record);
    Line watch(const Record& record);
    Line updates(const Record& record);
    Line permission(const Record& record);
    Line backgroundTask(const Record& record);
    Line defaults(const Record& record);

    [[nodiscard]] std::string beaconText(const Record& record) const;
    [[nodiscard]] std::string classText(const Record& record) const;
    [[nodiscard]] std::string shortURL(const std::string& url);

    const BeaconNames& names_;
    const LocalClock& clock_;
    std::map<std::string, Visible, std::less<>> visible_;
    std::deque<Sent> sent_;
    std::string home_;  ///< scheme and host of the first request; left out of later lines
    std::optional<Coordinate> shownPlace_;
    double now_ = 0;
};

}  // namespace quomi::tool
