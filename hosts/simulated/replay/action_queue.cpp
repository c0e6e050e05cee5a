#include "hosts/simulated/replay/action_queue.h"

#include <algorithm>
#include <tuple>

namespace quomi::simulated {

namespace {

Duration offsetOf(const Recording& recording, std::size_t position) {
    return std::visit([position](const auto& list) { return list[position].offset; }, recording);
}

}  // namespace

std::size_t sizeOf(const Recording& recording) {
    return std::visit([](const auto& list) { return list.size(); }, recording);
}

Duration lengthOf(const Recording& recording, double speed) {
    const auto size = sizeOf(recording);
    return size == 0 ? Duration::zero() : playedTime(offsetOf(recording, size - 1), speed);
}

std::optional<double> playedSpeed(const Step& step) {
    if (const auto* packets = std::get_if<PacketsStep>(&step.action)) return packets->speed;
    if (const auto* walk = std::get_if<WalkStep>(&step.action)) return walk->speed;
    return std::nullopt;
}

Duration ActionQueue::Playing::at() const {
    return began + playedTime(offsetOf(*recording, position), speed);
}

Action ActionQueue::Playing::action() const {
    if (const auto* track = std::get_if<Track>(recording)) return legOf(*track, position, speed);
    return &std::get<std::vector<TimedPacket>>(*recording)[position].packet;
}

ActionQueue::ActionQueue(const std::vector<Step>& steps, const Recordings& recordings)
    : steps_(steps), recordings_(recordings), occurrences_(steps) {}

std::vector<ActionQueue::Playing>::iterator ActionQueue::earliestRecording() {
    return std::ranges::min_element(playing_, [](const Playing& a, const Playing& b) {
        return std::tuple(a.at(), a.step) < std::tuple(b.at(), b.step);
    });
}

std::optional<TimedAction> ActionQueue::next(Duration limit) {
    const auto step = occurrences_.peek();
    const auto recording = earliestRecording();
    const bool recordedFirst = recording != playing_.end() && (!step || std::tuple(recording->at(), recording->step) <=
                                                                            std::tuple(step->at, step->step));
    if (recordedFirst) {
        if (recording->at() > limit) return std::nullopt;
        return takeRecorded(recording);
    }
    if (!step || step->at > limit) return std::nullopt;
    return takeStep();
}

TimedAction ActionQueue::takeRecorded(std::vector<Playing>::iterator recording) {
    TimedAction action{recording->at(), recording->action()};
    if (++recording->position == sizeOf(*recording->recording)) playing_.erase(recording);
    return action;
}

TimedAction ActionQueue::takeStep() {
    const auto occurrence = *occurrences_.next();
    const auto& step = steps_[occurrence.step];
    if (const auto speed = playedSpeed(step)) {
        const auto& recording = recordings_.at(occurrence.step);
        if (sizeOf(recording) != 0) playing_.push_back({occurrence.step, &recording, 0, occurrence.at, *speed});
    }
    return {occurrence.at, &step};
}

}  // namespace quomi::simulated
