#include "tools/quomi/replay/action_queue.h"

#include <algorithm>
#include <tuple>

namespace quomi::tool {

Duration playedTime(Duration recorded, double speed) {
    return toDuration(Seconds(recorded) / speed);
}

Duration ActionQueue::Playing::at() const {
    return began + playedTime((*packets)[position].offset, speed);
}

ActionQueue::ActionQueue(const std::vector<Step>& steps, const Recordings& recordings)
    : steps_(steps), recordings_(recordings), occurrences_(steps) {}

std::vector<ActionQueue::Playing>::iterator ActionQueue::earliestRecording() {
    return std::min_element(playing_.begin(), playing_.end(), [](const Playing& a, const Playing& b) {
        return std::tuple(a.at(), a.step) < std::tuple(b.at(), b.step);
    });
}

std::optional<TimedAction> ActionQueue::next(Duration limit) {
    const auto step = occurrences_.peek();
    const auto recording = earliestRecording();
    const bool packetFirst = recording != playing_.end() && (!step || std::tuple(recording->at(), recording->step) <=
                                                                          std::tuple(step->at, step->step));
    if (packetFirst) {
        if (recording->at() > limit) return std::nullopt;
        return takePacket(recording);
    }
    if (!step || step->at > limit) return std::nullopt;
    return takeStep();
}

TimedAction ActionQueue::takePacket(std::vector<Playing>::iterator recording) {
    const TimedAction action{recording->at(), &(*recording->packets)[recording->position].packet};
    if (++recording->position == recording->packets->size()) playing_.erase(recording);
    return action;
}

TimedAction ActionQueue::takeStep() {
    const auto occurrence = *occurrences_.next();
    const auto& step = steps_[occurrence.step];
    if (const auto* packets = std::get_if<PacketsStep>(&step.action)) {
        const auto& recording = recordings_.at(occurrence.step);
        if (!recording.empty()) playing_.push_back({occurrence.step, &recording, 0, occurrence.at, packets->speed});
    }
    return {occurrence.at, &step};
}

}  // namespace quomi::tool
