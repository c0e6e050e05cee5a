#pragma once

#include "quomi/util/time.h"

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi {

class Clock;
class Console;
class Files;

inline constexpr const char* kQuomiBOLogFileName = "QuomiBOLog.txt";
inline constexpr const char* kQuomiBOTmpLogFileName = "QuomiBOTmpLog.txt";

/// One record of the event log. Records that were read from a file have both fields.
struct QuomiDLog {
    std::optional<WallTime> logTime;     ///< when the event happened; a file keeps whole seconds
    std::optional<std::string> logData;  ///< the event's dictionary as a JSON object's text

    /// The record's line without its line break: the time in the zone as `QuomiUtils::logDateString` writes it, ";",
    /// the data. "(null)" stands for a missing field.
    [[nodiscard]] std::string description(std::string_view zone) const;
    [[nodiscard]] std::string stringFromQuomiDLog(std::string_view zone) const { return description(zone); }
    /// "logTime" in microseconds since 1970 and "logData"; without the fields that are missing.
    [[nodiscard]] boost::json::object dictionary() const;

    /// The record of a line: a time, one ";" and data that begins with "{" and ends with "}". Empty for any other line.
    /// Data that itself contains ";" makes its line unreadable, deliberately; only then, or when there is no ";", the
    /// console says so.
    [[nodiscard]] static std::optional<QuomiDLog> quomiDLogFromString(std::string_view line, Console& console);
    /// The records of the text's lines, in order. Lines that hold none are left out.
    [[nodiscard]] static std::vector<QuomiDLog> quomiDLogsFromString(std::string_view text, Console& console);

    bool operator==(const QuomiDLog&) const = default;
};

/// The event log and the file of the batch that is being uploaded, both in the documents directory.
///
/// The host's thread only; calls are synchronous. Whatever the moment at which the process dies, a record that was
/// accepted stays in one of the two files until the batch file that holds it is cleared; one batch may then be handed
/// over twice. A last line without line break counts when its data is a complete JSON object; otherwise it is the torn
/// rest of a record that was never accepted, and no reader sees it. docs/log-files.md has the reasons.
class QuomiDLogger {
public:
    /// Records in a batch.
    static constexpr std::size_t kBatchSize = 50;

    /// What it is given outlives the object. The zone of the lines is the clock's at the time of writing.
    QuomiDLogger(Files& files, const Clock& clock, Console& console);

    /// Path of a file in the documents directory. Directory and file are created when they are missing.
    std::filesystem::path getLogFilePathForFileName(std::string_view name);
    std::filesystem::path getLogFilePath();
    std::filesystem::path getTmpLogFilePath();

    /// Appends the line, without its line break, to the event log. False when it was not written or is not valid UTF-8;
    /// the log is then as it was, unless the disk refuses that too.
    bool addQuomiDLogToFile(std::string_view line);

    /// A file's bytes; empty when it cannot be read. A missing event log or batch file is created.
    [[nodiscard]] std::optional<std::string> getQuomiDLogFileContentForPath(const std::filesystem::path& path) const;
    [[nodiscard]] std::optional<std::string> getQuomiDLogFileContent();
    [[nodiscard]] std::optional<std::string> getQuomiDLogTmpFileContent();

    /// The records of the event log or the batch file; empty when it cannot be read or is not valid UTF-8.
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> getQuomiDLogsFromFile();
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> getBatchOfQuomiDLogsFromTmpFile();

    /// Hands over the first records of the event log, at most `kBatchSize`: they replace what the batch file holds and
    /// leave the log. Lines that hold no record are lost, deliberately. A log without records after it is deleted.
    /// Empty, and nothing has left the log, when the log is empty or unreadable or one of the files cannot be written.
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> getBatchOfQuomiDLogsFromFile();

    /// Makes these the batch file's only records; without records the file is deleted. On failure it
    /// holds the old records or these.
    bool saveBatchToTmpFile(const std::vector<QuomiDLog>& batch);

    /// Deletes a file of the documents directory; failures are ignored.
    void clearLogFileForFileName(std::string_view name);
    void clearLogFile();
    void clearTmpLogFile();

private:
    [[nodiscard]] std::filesystem::path pathForFileName(std::string_view name) const;
    [[nodiscard]] std::optional<std::string> wholeLinesOfFile(std::string_view name);
    [[nodiscard]] std::optional<std::string> lastLine(const std::filesystem::path& path) const;
    [[nodiscard]] std::optional<std::string_view> repairEnd(const std::filesystem::path& path);
    bool replaceLog(const std::vector<QuomiDLog>& records, std::size_t first);
    [[nodiscard]] std::string joined(const std::vector<QuomiDLog>& records, std::size_t first) const;

    Files& files_;
    const Clock& clock_;
    Console& console_;
};

}  // namespace quomi
