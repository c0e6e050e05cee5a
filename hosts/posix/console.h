#pragma once

#include "quomi/platform/console.h"

namespace quomi::posix {

/// Writes each message and a line break to the standard error stream in one call, so that those of several threads do
/// not mix. What cannot be written is dropped.
class StderrConsole : public Console {
public:
    void log(std::string_view message) override;
};

}  // namespace quomi::posix
