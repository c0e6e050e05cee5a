#pragma once

#include "quomi/platform/files.h"
#include "quomi/platform/platform.h"
#include "tests/durability/traced_process.h"
#include "tests/support/prelude.h"

namespace quomi::test {

/// What the world saw of a process that may be dead by now. The process writes it into memory that it shares with the
/// one that verifies.
struct Witness {
    static constexpr std::size_t kEvents = 128;

    int done = 0;                                 ///< saves that have returned
    std::array<bool, kEvents> accepted{};         ///< events of which `logEvent` said true
    std::array<bool, kEvents> handedOver{};       ///< those that were accepted before the last batch was sent
    std::array<std::uint8_t, kEvents> uploads{};  ///< how often an event reached the server
};

/// Something that a process does with its files and may be killed in.
///
/// Each function is given a phone whose container is the scenario's own directory. `prepare` runs once; `act` runs in a
/// child process on a copy of what was prepared and throws when it fails; `verify` is the next launch, in the parent,
/// with objects of its own. It returns what is wrong, or nothing.
struct Scenario {
    std::string name;
    std::function<void(const Platform&)> prepare;
    std::function<void(const Platform&, Witness&)> act;
    std::function<std::string(const Platform&, const Witness&)> verify;
    /// What stands between either process and the disk; empty for nothing.
    std::function<std::unique_ptr<Files>(Files&)> fault{};
    /// Writes of up to 200 bytes are cut off after each of them, not only in the middle.
    bool everyByte = false;
    /// Among the calls that change files only each of this number is a kill point; the full walk takes all.
    int stride = 1;
};

/// The extent that the environment asks for: all calls when QUOMI_DURABILITY is "full".
[[nodiscard]] Extent extentOfThisRun();

/// What came of a walk.
struct Walk {
    int kills = 0;
    std::vector<std::string> complaints;  ///< each with the system call in which the process was killed
};

/// Runs the scenario once for every kill point: the child is killed with SIGKILL when it enters the system call, which
/// is then not made, and again at each cut of a write, of which that many bytes are made. The last run is not killed.
/// Each run is verified. With a text that is sought, the walk ends at the first complaint that contains it.
[[nodiscard]] Walk walk(const Scenario& scenario, Extent extent, const std::string& sought = {});

/// Why no process can be traced here (containers may forbid it); empty when it can.
[[nodiscard]] std::string whyNoTracing();

/// Runs the work in a child process, which is killed when it has returned: nothing is closed. False when it threw.
bool runAndKill(const std::function<void()>& work);

}  // namespace quomi::test
