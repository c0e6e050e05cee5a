#pragma once

#include "quomi/diagnostics/event_record.h"
#include "quomi/diagnostics/log_lines.h"
#include "quomi/platform/files.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace quomi {

class Clock;
class Console;

inline constexpr const char* kQuomiBOLogFileName = "QuomiBOLog.txt";
inline constexpr const char* kQuomiBOTmpLogFileName = "QuomiBOTmpLog.txt";
/// A long log while batches are taken out of it, and how many of its bytes were taken.
inline constexpr const char* kQuomiBODrainLogFileName = "QuomiBODrainLog.txt";
inline constexpr const char* kQuomiBODrainOffsetFileName = "QuomiBODrainOffset.txt";
inline constexpr const char* kQuomiBORefusedLogFileName = "QuomiBORefusedLog.txt";

/// The event log and the file of the batch that is being uploaded, in the documents directory.
///
/// Several loggers, of one process or of many, may share the files: each operation holds the locks of the files that it
/// changes, and fails when it does not get one within a second, which the console tells. One logger is used by one
/// thread at a time; calls are synchronous. Whatever the moment at which the process dies, a record that was accepted
/// stays in one of the files until it is dropped from the batch file; one batch may then be handed over twice. Lines
/// that hold no record, or are no UTF-8, are dropped at the hand-over; the console tells. docs/log-files.md describes
/// the files.
class QuomiDLogger {
public:
    /// Records in a batch, and bytes of their lines; a record that alone has more is a batch.
    static constexpr std::size_t kBatchSize = 50;
    static constexpr std::size_t kBatchBytes = std::size_t{256} * 1024;
    /// Refusals after which a record no longer holds the others up.
    static constexpr std::size_t kMostRefusals = 3;
    /// Bytes of a log out of which batches are taken by writing the rest anew.
    static constexpr std::uint64_t kShortLog = std::uint64_t{32} * 1024;
    /// Bytes of refused records that are kept; one record may have more.
    static constexpr std::size_t kRefusedBytes = std::size_t{256} * 1024;

    /// What it is given outlives the object. The zone of the lines is the clock's at the time of writing.
    QuomiDLogger(Files& files, const Clock& clock, Console& console);

    /// Path of a file in the documents directory. Directory and file are created when they are missing.
    std::filesystem::path getLogFilePathForFileName(std::string_view name);
    std::filesystem::path getLogFilePath();
    std::filesystem::path getTmpLogFilePath();

    /// Appends the line, without its line break, to the event log. False when it was not written or is not valid UTF-8
    /// (`illegal_byte_sequence`); the log is then as it was, unless the disk refuses that too.
    bool addQuomiDLogToFile(std::string_view line, std::error_code& error);
    bool addQuomiDLogToFile(std::string_view line);

    /// A file's bytes; empty when it cannot be read. A missing event log or batch file is created. Of a long log only
    /// what was not handed over counts.
    [[nodiscard]] std::optional<std::string> getQuomiDLogFileContentForPath(const std::filesystem::path& path) const;
    [[nodiscard]] std::optional<std::string> getQuomiDLogFileContent();
    [[nodiscard]] std::optional<std::string> getQuomiDLogTmpFileContent();

    /// The records of the event log or the batch file; empty when it cannot be read.
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> getQuomiDLogsFromFile();
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> getBatchOfQuomiDLogsFromTmpFile();
    /// The records of the event log, which is deleted.
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> takeQuomiDLogsFromFile();

    /// Hands over the first records of the event log, as many as a batch holds: they replace what the batch file holds
    /// and leave the log. A log without records after it is deleted. Empty, and nothing has left the log, when the log
    /// is empty or unreadable or one of the files cannot be written.
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> getBatchOfQuomiDLogsFromFile();

    /// The first records of the batch file, at most `most` and a batch; when it holds none, those of the next batch,
    /// handed over as above.
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> nextBatch(std::size_t most);
    /// The records have arrived: they leave the batch file, if they are still its first ones. False when it could not
    /// be changed.
    bool dropFromBatch(const std::vector<QuomiDLog>& records);
    /// The server refused the record, sent alone, for good. The third time it leaves the batch file, if it is still its
    /// first one, for the file of refused records; the console tells. Returns whether it has left.
    bool refuse(const QuomiDLog& record);

    /// Makes these the batch file's only records; without records the file is deleted. On failure it
    /// holds the old records or these.
    bool saveBatchToTmpFile(const std::vector<QuomiDLog>& batch);

    /// Deletes a file of the documents directory; failures are ignored.
    void clearLogFileForFileName(std::string_view name);
    void clearLogFile();
    void clearTmpLogFile();

private:
    /// Where the oldest record of the log lies.
    struct Source {
        std::filesystem::path file;
        bool isDrained = false;  ///< bytes are skipped instead of removed
        std::uint64_t offset = 0;
        std::uint64_t size = 0;
        bool operator==(const Source&) const = default;
    };

    [[nodiscard]] std::filesystem::path pathForFileName(std::string_view name) const;
    [[nodiscard]] std::unique_ptr<FileLock> lock(std::string_view name, std::error_code& error);
    [[nodiscard]] std::unique_ptr<FileLock> lock(std::string_view name);
    [[nodiscard]] std::optional<std::string> lastLine(const std::filesystem::path& path, std::error_code& error) const;
    [[nodiscard]] std::optional<std::string_view> repairEnd(const std::filesystem::path& path, std::error_code& error);
    [[nodiscard]] std::vector<QuomiDLog> recordsOf(std::string_view text);

    [[nodiscard]] std::optional<Source> source();
    [[nodiscard]] std::uint64_t drainOffset(std::uint64_t size) const;
    void beginDraining();
    bool drop(const Source& source, std::uint64_t end);
    [[nodiscard]] std::optional<LogBatch> readBatch(const Source& source);
    [[nodiscard]] std::optional<std::vector<QuomiDLog>> handOver();
    [[nodiscard]] std::optional<std::string> waitingText();
    void clearLog();

    bool replaceBatch(std::string_view text);
    bool keepRefused(std::string_view line);
    void tellUnreadable(std::size_t lines) const;

    Files& files_;
    const Clock& clock_;
    Console& console_;
};

}  // namespace quomi
