#include "tools/quomi/backoffice/backoffice_command.h"
#include "tools/quomi/explain/explain_command.h"
#include "tools/quomi/replay/playing.h"
#include "tools/quomi/replay/replay_command.h"
#include "tools/quomi/store/store_command.h"
#include "tools/quomi/testing/test_command.h"
#include "tools/quomi/timeline/terminal.h"

#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

namespace {

constexpr std::string_view kUsage =
    "Usage: quomi COMMAND ...\n"
    "\n"
    "  replay VISIT.json          play a visit through the SDK and show what happened\n"
    "  test PATH...               play visits and tell whether what they expect came about\n"
    "  explain VISIT.json         play a visit and tell what became of one rule\n"
    "  backoffice CAMPAIGN.json   serve a campaign to SDKs on this machine\n"
    "  store make|info FILE       make a store file of a version, or look into one\n"
    "\n"
    "quomi COMMAND --help tells a command's options.\n";

constexpr int kUsageError = 2;

int run(const std::vector<std::string>& words) {
    const auto terminal = quomi::tool::Terminal::ofProcess();
    const std::string command = words.empty() ? "" : words.front();
    if (command == "replay") {
        return quomi::tool::ReplayCommand(terminal).run({words.begin() + 1, words.end()}, std::cout, std::cerr);
    }
    if (command == "test") {
        return quomi::tool::TestCommand(terminal.hasColours)
            .run({words.begin() + 1, words.end()}, std::cout, std::cerr);
    }
    if (command == "explain")
        return quomi::tool::runExplain({words.begin() + 1, words.end()}, terminal, std::cout, std::cerr);
    if (command == "backoffice") {
        return quomi::tool::runBackoffice({words.begin() + 1, words.end()}, std::cout, std::cerr);
    }
    if (command == "store") return quomi::tool::runStore({words.begin() + 1, words.end()}, std::cout, std::cerr);
    if (command == "--help" || command == "help") {
        std::cout << kUsage;
        return 0;
    }
    std::cerr << (command.empty() ? std::string(kUsage) : "quomi: no command \"" + command + "\"; see quomi --help\n");
    return kUsageError;
}

/// The status is a success's only when all that was written has arrived.
int flushed(int status) {
    std::cout.flush();
    if (std::cout) return status;
    std::cerr << "quomi: standard output cannot be written\n";
    return status == 0 ? 1 : status;
}

/// Ends as the signal would have ended it, so that whoever started it knows.
void endBySignal() {
    const int signal = quomi::tool::Playing::signal();
    if (signal == 0) return;
    std::signal(signal, SIG_DFL);
    static_cast<void>(std::raise(signal));
}

}  // namespace

int main(int argc, char** argv) {
    try {
        std::ios::sync_with_stdio(false);
        const int status = flushed(run({argv + 1, argv + argc}));
        endBySignal();
        return status;
    } catch (const std::exception& error) {
        std::cerr << "quomi: " << error.what() << '\n';
        return 1;
    }
}
