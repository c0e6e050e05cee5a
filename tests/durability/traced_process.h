#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <sys/types.h>

namespace quomi::test {

/// A system call that a process is about to make.
struct SystemCall {
    std::uint64_t number = 0;
    std::array<std::uint64_t, 6> arguments{};

    /// Whether it changes files or forces them to the disk. An opening that makes no file does not.
    [[nodiscard]] bool changesFiles() const;
    /// Bytes that it is to write; 0 when it is no write.
    [[nodiscard]] std::size_t bytes() const;
    /// For reports: "pwrite64 of 4096 bytes".
    [[nodiscard]] std::string description() const;
};

/// What becomes of the process at a system call.
struct Decision {
    enum Kind { goOn, kill, writeAndKill } kind = goOn;
    std::size_t bytes = 0;  ///< to be written before the kill
};

/// Which system calls are asked about.
enum class Extent {
    changes,  ///< those that change files or force them to the disk
    allCalls  ///< every one
};

/// How a process ended.
enum class Ending { finished, failed, killed, notTraced };

/// Runs the work in a child process under ptrace and asks before its system calls what to do. A killed child has not
/// made the call, or has written as many bytes of it as was said. A child whose work throws has failed.
[[nodiscard]] Ending trace(const std::function<void()>& work, Extent extent,
                           const std::function<Decision(const SystemCall&)>& ask);

}  // namespace quomi::test
