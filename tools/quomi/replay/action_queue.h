#pragma once

#include "hosts/simulated/packet_file.h"
#include "tools/quomi/visit/visit_steps.h"

#include <cstddef>
#include <map>
#include <optional>
#include <variant>
#include <vector>

namespace quomi::tool {

/// What happens next in a visit: a step begins, or a packet of a recording is heard.
using Action = std::variant<const Step*, const simulated::Packet*>;

struct TimedAction {
    Duration at{};
    Action action;
};

/// The visit's steps and the packets of its recordings in the order of time. At the same time the order is that of the
/// steps in the file, where a packet has the place of the step that plays it; of one step, packets come before its next
/// repetition.
class ActionQueue {
public:
    /// Packets of each step that plays some, by the step's place in the list. Both outlive the queue.
    using Recordings = std::map<std::size_t, std::vector<simulated::TimedPacket>>;
    ActionQueue(const std::vector<Step>& steps, const Recordings& recordings);

    /// Takes the next one if it happens at `limit` or before.
    [[nodiscard]] std::optional<TimedAction> next(Duration limit);

private:
    struct Playing {
        std::size_t step;
        const std::vector<simulated::TimedPacket>* packets;
        std::size_t position;
        Duration began;
        double speed;
        [[nodiscard]] Duration at() const;
    };
    [[nodiscard]] std::vector<Playing>::iterator earliestRecording();
    TimedAction takePacket(std::vector<Playing>::iterator recording);
    TimedAction takeStep();

    const std::vector<Step>& steps_;
    const Recordings& recordings_;
    Occurrences occurrences_;
    std::vector<Playing> playing_;
};

/// How long a recording lasts at a speed.
[[nodiscard]] Duration playedTime(Duration recorded, double speed);

}  // namespace quomi::tool
