#pragma once

#include <functional>
#include <iosfwd>
#include <string>
#include <vector>

namespace quomi::tool {

/// `quomi backoffice CAMPAIGN.json [--port N] [--keep FILE.sqlite]`: serves a campaign on this machine until it is
/// interrupted, and prints the address and then a line per request: time of day in UTC, method, path with query,
/// status. What devices send is kept in the file, else in memory.
class BackofficeCommand {
public:
    static constexpr int kDefaultPort = 8787;

    /// Returns when it is time to stop. Called once, after the address has been printed.
    using WaitForStop = std::function<void()>;

    /// Without a function of its own it waits for SIGINT or SIGTERM. It takes these signals from the calling thread's
    /// and its own threads' normal handling for as long as `run` lasts; in a process with other threads, they must be
    /// blocked there.
    explicit BackofficeCommand(WaitForStop waitForStop = nullptr);

    /// `args` are those after the command's name. Exit status: 0 stopped (or help was asked for); 2 the arguments,
    /// the campaign or the file to keep are wrong, with one line on `err`; 1 the port cannot be had. The streams are
    /// written to from several threads, one at a time.
    int run(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

private:
    WaitForStop waitForStop_;
};

/// Runs the command as the process's main thread does, waiting for signals.
int runBackoffice(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace quomi::tool
