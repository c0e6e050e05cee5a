#include "hosts/posix/console.h"

#include <cstdio>
#include <exception>
#include <string>

namespace quomi::posix {

void StderrConsole::log(std::string_view message) try {
    std::string line(message);
    line += '\n';
    std::fwrite(line.data(), 1, line.size(), stderr);
} catch (const std::exception&) {
    return;
}

}  // namespace quomi::posix
