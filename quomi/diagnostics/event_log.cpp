#include "quomi/diagnostics/event_log.h"

#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/util/utf8.h"

#include <algorithm>
#include <chrono>
#include <limits>
#include <utility>

#include <fmt/format.h>

namespace quomi {
namespace {

constexpr std::uint64_t kFirstLookAtEnd = 4096;  // bytes; longer than a usual line
constexpr std::chrono::seconds kLockPatience{1};
constexpr BatchLimit kEverything{std::numeric_limits<std::size_t>::max(), std::numeric_limits<std::size_t>::max()};

}  // namespace

QuomiDLogger::QuomiDLogger(Files& files, const Clock& clock, Console& console)
    : files_(files), clock_(clock), console_(console) {}

// The files

std::filesystem::path QuomiDLogger::pathForFileName(std::string_view name) const {
    return files_.documentsDirectory() / name;
}

std::filesystem::path QuomiDLogger::getLogFilePathForFileName(std::string_view name) {
    auto path = pathForFileName(name);
    std::error_code error;
    if (files_.type(path, error) != std::filesystem::file_type::not_found) return path;
    files_.createDirectories(files_.documentsDirectory(), error);
    files_.append(path, {}, error);  // an append never harms lines that another writer put there meanwhile
    return path;
}

std::filesystem::path QuomiDLogger::getLogFilePath() {
    return getLogFilePathForFileName(kQuomiBOLogFileName);
}

std::filesystem::path QuomiDLogger::getTmpLogFilePath() {
    return getLogFilePathForFileName(kQuomiBOTmpLogFileName);
}

/// Whoever takes both locks takes the batch file's first.
std::unique_ptr<FileLock> QuomiDLogger::lock(std::string_view name, std::error_code& error) {
    if (!files_.createDirectories(files_.documentsDirectory(), error)) return nullptr;
    auto lock = files_.lock(pathForFileName(name), kLockPatience, error);
    if (lock == nullptr) {
        console_.log(fmt::format("Quomi SDK Error: {} cannot be locked: {}", name, error.message()));
    }
    return lock;
}

std::unique_ptr<FileLock> QuomiDLogger::lock(std::string_view name) {
    std::error_code error;
    return lock(name, error);
}

std::optional<std::string> QuomiDLogger::getQuomiDLogFileContentForPath(const std::filesystem::path& path) const {
    std::error_code error;
    return files_.read(path, error);
}

std::optional<std::string> QuomiDLogger::getQuomiDLogFileContent() {
    const auto log = lock(kQuomiBOLogFileName);
    return log ? waitingText() : std::nullopt;
}

std::optional<std::string> QuomiDLogger::getQuomiDLogTmpFileContent() {
    return getQuomiDLogFileContentForPath(getTmpLogFilePath());
}

void QuomiDLogger::tellUnreadable(std::size_t lines) const {
    if (lines > 0) console_.log(fmt::format("Quomi SDK Error: {} lines of the event log are no UTF-8", lines));
}

// Appending

bool QuomiDLogger::addQuomiDLogToFile(std::string_view line) {
    std::error_code error;
    return addQuomiDLogToFile(line, error);
}

bool QuomiDLogger::addQuomiDLogToFile(std::string_view line, std::error_code& error) {
    if (!isUtf8(line)) {
        error = std::make_error_code(std::errc::illegal_byte_sequence);
        return false;
    }
    const auto log = lock(kQuomiBOLogFileName, error);
    if (!log) return false;
    const auto path = getLogFilePath();
    const auto missing = repairEnd(path, error);
    if (!missing) return false;
    const auto size = files_.size(path, error);
    if (!size) return false;
    if (files_.append(path, fmt::format("{}{}\n", *missing, line), error)) return true;
    std::error_code ignored;
    files_.truncate(path, *size, ignored);
    return false;
}

/// What has to be written before the next line: a line break after a whole record. A torn one is cut off. Empty when
/// the file could not be read or cut.
std::optional<std::string_view> QuomiDLogger::repairEnd(const std::filesystem::path& path, std::error_code& error) {
    const auto line = lastLine(path, error);
    if (!line) return std::nullopt;
    if (line->empty()) return "";
    if (isWholeRecord(*line)) return "\n";
    const auto size = files_.size(path, error);
    if (!size || !files_.truncate(path, *size - line->size(), error)) return std::nullopt;
    return "";
}

/// What follows the file's last line break.
std::optional<std::string> QuomiDLogger::lastLine(const std::filesystem::path& path, std::error_code& error) const {
    auto end = files_.readTail(path, 1, error);
    if (!end || end->empty() || *end == "\n") return end ? std::optional<std::string>("") : std::nullopt;
    for (std::uint64_t count = kFirstLookAtEnd;; count *= 2) {
        end = files_.readTail(path, count, error);
        if (!end) return std::nullopt;
        if (end->size() < count || end->find('\n') != std::string::npos) return std::string(lineAtEnd(*end));
    }
}

// Reading and deleting the log

std::vector<QuomiDLog> QuomiDLogger::recordsOf(std::string_view text) {
    auto all = takeBatch(text, true, kEverything, console_);
    tellUnreadable(all.unreadable);
    return std::move(all.records);
}

/// What has not been handed over.
std::optional<std::string> QuomiDLogger::waitingText() {
    std::error_code error;
    const auto oldest = source();
    if (!oldest) return std::nullopt;
    auto text = files_.readPart(oldest->file, oldest->offset, oldest->size, error);
    if (!text || !oldest->isDrained) return text;
    if (!text->empty() && !text->ends_with('\n')) {
        text->resize(text->size() - (isWholeRecord(lineAtEnd(*text)) ? 0 : lineAtEnd(*text).size()));
        if (!text->empty() && !text->ends_with('\n')) *text += '\n';
    }
    const auto newer = files_.read(getLogFilePath(), error);
    return newer ? std::optional(*text + *newer) : std::nullopt;
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::getQuomiDLogsFromFile() {
    const auto text = getQuomiDLogFileContent();
    return text ? std::optional(recordsOf(*text)) : std::nullopt;
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::takeQuomiDLogsFromFile() {
    const auto log = lock(kQuomiBOLogFileName);
    const auto text = log ? waitingText() : std::nullopt;
    if (!text) return std::nullopt;
    clearLog();
    return recordsOf(*text);
}

void QuomiDLogger::clearLogFileForFileName(std::string_view name) {
    std::error_code ignored;
    files_.remove(pathForFileName(name), ignored);
}

void QuomiDLogger::clearLog() {
    clearLogFileForFileName(kQuomiBODrainLogFileName);
    clearLogFileForFileName(kQuomiBOLogFileName);
}

void QuomiDLogger::clearLogFile() {
    if (const auto log = lock(kQuomiBOLogFileName)) clearLog();
}

void QuomiDLogger::clearTmpLogFile() {
    if (const auto batch = lock(kQuomiBOTmpLogFileName)) clearLogFileForFileName(kQuomiBOTmpLogFileName);
}

}  // namespace quomi
