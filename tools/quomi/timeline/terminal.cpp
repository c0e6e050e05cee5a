#include "tools/quomi/timeline/terminal.h"

#include <cstdlib>
#include <string_view>
#include <sys/ioctl.h>
#include <unistd.h>

namespace quomi::tool {

namespace {

std::string_view environment(const char* name) {
    const char* value = std::getenv(name);
    return value != nullptr ? value : "";
}

std::size_t columnsOfOutput() {
    winsize size{};
    return ::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 ? size.ws_col : 0;
}

}  // namespace

Terminal Terminal::ofProcess() {
    const bool isDumb = environment("TERM") == "dumb";
    Terminal terminal;
    if (::isatty(STDOUT_FILENO) == 1) {
        terminal.hasColours = !isDumb && environment("NO_COLOR").empty();
        terminal.columns = columnsOfOutput();
    }
    terminal.showsProgress = !isDumb && ::isatty(STDERR_FILENO) == 1;
    return terminal;
}

}  // namespace quomi::tool
