#pragma once

#include "tools/quomi/timeline/trace_words.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <vector>

namespace quomi::tool {

/// A line of the timeline with its time in seconds.
struct TimedLine {
    double at = 0;
    TraceLine line;
};

/// Lines, or groups of up to six lines, that repeat at once are given on once and then counted.
class LineFolding {
public:
    using Print = std::function<void(const TimedLine&)>;
    /// `lines` was given on and came again so many times, in all for the last time at `until`.
    using PrintRepeated = std::function<void(std::size_t times, std::size_t lines, double until)>;

    LineFolding(Print print, PrintRepeated printRepeated)
        : print_(std::move(print)), printRepeated_(std::move(printRepeated)) {}

    void add(TimedLine line);
    /// Gives on what is held back; nothing that comes later counts as a repetition.
    void finish();

private:
    static constexpr std::size_t kLongestGroup = 6;

    [[nodiscard]] bool continues(const TraceLine& line) const;
    bool begins(const TraceLine& line);
    void take(TimedLine line);
    void endRun();
    void give(const TimedLine& line);

    const Print print_;
    const PrintRepeated printRepeated_;
    std::deque<TraceLine> given_;  // the latest ones, as far back as a group may reach
    std::size_t group_ = 0;        // length of the group that repeats; 0 for none
    std::size_t times_ = 0;        // how often it came again, whole
    double until_ = 0;
    std::vector<TimedLine> held_;  // of the first repetition, and of one that is not whole yet
};

}  // namespace quomi::tool
