#pragma once

#include "quomi/util/time.h"
#include "tools/quomi/timeline/terminal.h"
#include "tools/quomi/timeline/trace_words.h"

#include <iosfwd>
#include <memory>
#include <string>
#include <string_view>

#include <boost/json/fwd.hpp>

namespace quomi::tool {

/// Prints a visit's trace for people: a line an event, with the device's time of day, the seconds since the start, a
/// sign and a word for the kind, and plain words. Pings and updates within a proximity class are left out, and what
/// lies deeper than asked for; lines that repeat are folded. `finish` adds a summary: beacons, events, requests,
/// errors. docs/timeline.md shows all of it.
///
/// Output is UTF-8; ANSI colours only when asked for, and long lines are wrapped for a terminal. Whatever the records
/// hold, no control character of theirs reaches the stream. The stream outlives the timeline.
class Timeline {
public:
    struct Options {
        std::string visitName;
        WallTime start;              ///< the wall clock at t = 0; jumps of the clock within the visit are not shown
        std::string timeZone;        ///< IANA name; UTC where it is unknown
        Labels labels;               ///< people's names of beacons ("Bakery") and rule owners
        Depth depth = Depth::story;  ///< how deep it goes
    };

    /// Whether it has a use for records of a delegate operation. A ping says what the update beside it says.
    [[nodiscard]] static bool reads(std::string_view operation) { return operation != "didReceivePingFromBeacon"; }

    Timeline(std::ostream& out, const Terminal& terminal, Options options);
    ~Timeline();

    /// Prints one record, if it is worth a line. Records come in the order of the trace.
    void record(const boost::json::object& record);
    /// Prints the summary. Nothing more is recorded after it.
    void finish();

private:
    class Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace quomi::tool
