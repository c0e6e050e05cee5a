#pragma once

#include "hosts/posix/files.h"
#include "quomi/diagnostics/event_log.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "tests/support/prelude.h"
#include "tests/support/temporary_directory.h"

namespace quomi::test {

class SetClock : public Clock {
public:
    [[nodiscard]] WallTime now() const override { return time; }
    [[nodiscard]] MonotonicTime monotonicNow() const override { return {}; }
    [[nodiscard]] std::string timeZone() const override { return zone; }

    WallTime time{std::chrono::sys_days(std::chrono::year(2026) / 11 / 21) + std::chrono::hours(4)};
    std::string zone = "Europe/Berlin";
};

class KeptConsole : public Console {
public:
    void log(std::string_view message) override { messages.emplace_back(message); }
    std::vector<std::string> messages;
};

/// A container on the disk with both log files in it.
class LogDirectory {
public:
    /// `text` becomes the event log; without one the documents directory is missing too.
    explicit LogDirectory(std::string_view text = {}) {
        std::error_code error;
        if (text.empty()) return;
        files.createDirectories(files.documentsDirectory(), error);
        write(kQuomiBOLogFileName, text);
    }

    void write(std::string_view name, std::string_view text) {
        std::error_code error;
        EXPECT_TRUE(files.replace(path(name), text, error)) << error.message();
    }
    [[nodiscard]] std::string text(std::string_view name = kQuomiBOLogFileName) const {
        std::error_code error;
        return files.read(path(name), error).value_or("(missing)");
    }
    [[nodiscard]] std::string batch() const { return text(kQuomiBOTmpLogFileName); }
    [[nodiscard]] std::filesystem::path path(std::string_view name) const { return files.documentsDirectory() / name; }

    TemporaryDirectory directory;
    posix::PosixFiles files{directory.path()};
};

/// The line of the event `number`, without its line break.
inline std::string eventLine(int number) {
    return fmt::format("2026-11-21 05:00:00 +0100;{{\"id\":\"{}\"}}", number);
}

/// Lines of the events from `first` to before `end`, each with its line break.
inline std::string eventLines(int first, int end) {
    std::string text;
    for (int number = first; number < end; ++number) text += eventLine(number) + "\n";
    return text;
}

}  // namespace quomi::test
