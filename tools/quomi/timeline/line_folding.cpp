#include "tools/quomi/timeline/line_folding.h"

#include <utility>

namespace quomi::tool {

namespace {

bool isSame(const TraceLine& a, const TraceLine& b) {
    return a.word == b.word && a.sign == b.sign && (a.gist.empty() ? a.text == b.text : a.gist == b.gist);
}

}  // namespace

void LineFolding::add(TimedLine line) {
    if (group_ > 0 && continues(line.line)) return take(std::move(line));
    if (group_ > 0) endRun();
    if (begins(line.line)) return take(std::move(line));
    give(line);
}

void LineFolding::finish() {
    if (group_ > 0) endRun();
    given_.clear();
}

bool LineFolding::continues(const TraceLine& line) const {
    const auto place = held_.size() % group_;
    return isSame(given_[given_.size() - group_ + place], line);
}

bool LineFolding::begins(const TraceLine& line) {
    for (std::size_t length = 1; length <= given_.size(); ++length) {
        if (!isSame(given_[given_.size() - length], line)) continue;
        group_ = length;
        return true;
    }
    return false;
}

void LineFolding::take(TimedLine line) {
    held_.push_back(std::move(line));
    if (held_.size() % group_ != 0) return;
    ++times_;
    until_ = held_.back().at;
    if (times_ > 1) held_.clear();
}

/// A group that came again only once is given on as it is: to count it would save nothing.
void LineFolding::endRun() {
    if (times_ > 1) {
        printRepeated_(times_, group_, until_);
        given_.clear();
    }
    group_ = 0;
    times_ = 0;
    for (const auto& line : std::exchange(held_, {})) give(line);
}

void LineFolding::give(const TimedLine& line) {
    print_(line);
    given_.push_back(line.line);
    if (given_.size() > kLongestGroup) given_.pop_front();
}

}  // namespace quomi::tool
