#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <fmt/core.h>

namespace quomi {

class Clock;
class Files;

inline constexpr const char* kQuomiDebugLogFileName = "QuomiLog.txt";

/// The debug log's file in the documents directory. Any thread: a string is appended in one operation of the port, so
/// those of several threads do not mix, and none is lost to another thread that creates the file.
class QuomiFileLogger {
public:
    /// `files` outlives the object.
    explicit QuomiFileLogger(Files& files) : files_(files) {}

    /// Directory and file are created when they are missing.
    std::filesystem::path getLogFilePath();
    /// Appends the string as it is; the caller supplies the line break. False when it could not be written, or only in
    /// part.
    bool log(std::string_view string);
    /// The file's bytes; empty when it cannot be read. A missing file is created.
    [[nodiscard]] std::optional<std::string> getFileLogContent();
    /// Deletes the file; failures are ignored.
    void clearLogFile();

private:
    Files& files_;
};

/// Writes lines "<date in UTC> - <text>" to the debug log while it is enabled.
class DebugLog {
public:
    /// `enabled` is asked at each line, on the thread that logs; one that is empty or throws counts as no. The ports
    /// outlive the object.
    DebugLog(Files& files, const Clock& clock, std::function<bool()> enabled);

    /// Any thread. Formats only while enabled; a text that cannot be formatted is dropped. The line break is added.
    template <typename... Arguments>
    void log(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
        if (isEnabled()) write(format, fmt::make_format_args(arguments...));
    }

    [[nodiscard]] bool isEnabled() const;
    [[nodiscard]] QuomiFileLogger& file() { return file_; }

private:
    void write(fmt::string_view format, fmt::format_args arguments);

    QuomiFileLogger file_;
    const Clock& clock_;
    std::function<bool()> enabled_;
};

/// The trace function: all of the SDK's trace lines go here, and nothing becomes of them.
template <typename... Arguments>
constexpr void QuomiLogVoid(fmt::format_string<Arguments...>, Arguments&&...) {}

}  // namespace quomi
