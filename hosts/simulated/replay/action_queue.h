#pragma once

#include "hosts/simulated/packet_file.h"
#include "hosts/simulated/track.h"
#include "hosts/simulated/visit/visit_steps.h"

#include <cstddef>
#include <map>
#include <optional>
#include <variant>
#include <vector>

namespace quomi::simulated {

/// What happens next in a visit: a step begins, a packet of a recording is heard, or the device is at a point of a
/// track.
using Action = std::variant<const Step*, const Packet*, Leg>;

struct TimedAction {
    Duration at{};
    Action action;
};

/// What a step plays: packets that a scanner logged, or a track.
using Recording = std::variant<std::vector<TimedPacket>, Track>;

/// The number of its packets or points.
[[nodiscard]] std::size_t sizeOf(const Recording& recording);
/// How long a recording lasts at a speed.
[[nodiscard]] Duration lengthOf(const Recording& recording, double speed);
/// The speed at which the step plays its recording; empty when it plays none.
[[nodiscard]] std::optional<double> playedSpeed(const Step& step);

/// The visit's steps and what is in its recordings in the order of time. At the same time the order is that of the
/// steps in the file, where a packet or point has the place of the step that plays it; of one step, packets and points
/// come before its next repetition.
class ActionQueue {
public:
    /// Recording of each step that plays one, by the step's place in the list. Both outlive the queue.
    using Recordings = std::map<std::size_t, Recording>;
    ActionQueue(const std::vector<Step>& steps, const Recordings& recordings);

    /// Takes the next one if it happens at `limit` or before.
    [[nodiscard]] std::optional<TimedAction> next(Duration limit);

private:
    struct Playing {
        std::size_t step;
        const Recording* recording;
        std::size_t position;
        Duration began;
        double speed;
        [[nodiscard]] Duration at() const;
        [[nodiscard]] Action action() const;
    };
    [[nodiscard]] std::vector<Playing>::iterator earliestRecording();
    TimedAction takeRecorded(std::vector<Playing>::iterator recording);
    TimedAction takeStep();

    const std::vector<Step>& steps_;
    const Recordings& recordings_;
    Occurrences occurrences_;
    std::vector<Playing> playing_;
};

}  // namespace quomi::simulated
