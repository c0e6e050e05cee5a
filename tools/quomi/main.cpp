#include "tools/quomi/backoffice/backoffice_command.h"
#include "tools/quomi/explain/explain_command.h"
#include "tools/quomi/replay/replay_command.h"
#include "tools/quomi/store/store_command.h"
#include "tools/quomi/test/test_command.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <string>
#include <string_view>
#include <unistd.h>
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

bool colourIsWelcome() {
    return isatty(STDOUT_FILENO) == 1 && std::getenv("NO_COLOR") == nullptr;
}

int run(const std::vector<std::string>& words) {
    const std::string command = words.empty() ? "" : words.front();
    if (command == "replay") {
        return quomi::tool::ReplayCommand(colourIsWelcome())
            .run({words.begin() + 1, words.end()}, std::cout, std::cerr);
    }
    if (command == "test") {
        return quomi::tool::TestCommand(colourIsWelcome()).run({words.begin() + 1, words.end()}, std::cout, std::cerr);
    }
    if (command == "explain") return quomi::tool::runExplain({words.begin() + 1, words.end()}, std::cout, std::cerr);
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

}  // namespace

int main(int argc, char** argv) {
    try {
        std::ios::sync_with_stdio(false);
        return run({argv + 1, argv + argc});
    } catch (const std::exception& error) {
        std::cerr << "quomi: " << error.what() << '\n';
        return 1;
    }
}
