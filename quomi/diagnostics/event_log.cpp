#include "quomi/diagnostics/event_log.h"

#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "quomi/platform/files.h"
#include "quomi/util/dates.h"
#include "quomi/util/json_readers.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <system_error>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

namespace quomi {
namespace {

constexpr std::string_view kMissing = "(null)";
constexpr std::uint64_t kFirstLookAtEnd = 4096;  // bytes; longer than a usual line

/// Bytes of the UTF-8 sequence that begins the text; 0 when it is malformed, too long or beyond Unicode.
std::size_t lengthOfCharacter(std::string_view text) {
    const auto byte = [&](std::size_t index) { return static_cast<unsigned char>(text[index]); };
    const unsigned first = byte(0);
    if (first < 0x80) return 1;
    const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (std::size_t index = 1; index < length; ++index) {
        if ((byte(index) & 0xC0U) != 0x80) return 0;
    }
    const unsigned second = byte(1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second > 0x9F;
    const bool beyond = first == 0xF4 && second > 0x8F;
    return overlong || surrogate || beyond ? 0 : length;
}

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = lengthOfCharacter(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

/// Whether a last line lacks nothing but its line break. No proper beginning of a JSON object is one itself, whereas a
/// torn line may well end with the brace of an inner object.
bool isWholeRecord(std::string_view line) {
    const std::size_t separator = line.find(';');
    if (separator == std::string_view::npos) return false;
    const auto data = parseJson(line.substr(separator + 1));
    return data && data->is_object();
}

std::string_view lineAtEnd(std::string_view text) {
    return text.substr(text.rfind('\n') + 1);
}

}  // namespace

std::string QuomiDLog::description(std::string_view zone) const {
    return fmt::format("{};{}", logTime ? QuomiUtils::logDateString(*logTime, zone) : std::string(kMissing),
                       logData ? std::string_view(*logData) : kMissing);
}

boost::json::object QuomiDLog::dictionary() const {
    boost::json::object result;
    if (logTime) result["logTime"] = logTime->time_since_epoch().count();
    if (logData) result["logData"] = *logData;
    return result;
}

std::optional<QuomiDLog> QuomiDLog::quomiDLogFromString(std::string_view line, Console& console) {
    if (std::count(line.begin(), line.end(), ';') != 1) {
        console.log(fmt::format("Quomi SDK error while parsing log string: {}", line));
        return std::nullopt;
    }
    const std::size_t separator = line.find(';');
    const auto time = QuomiUtils::parseLogDate(line.substr(0, separator));
    const std::string_view data = line.substr(separator + 1);
    if (!time || !data.starts_with('{') || !data.ends_with('}')) return std::nullopt;
    return QuomiDLog{*time, std::string(data)};
}

std::vector<QuomiDLog> QuomiDLog::quomiDLogsFromString(std::string_view text, Console& console) {
    std::vector<QuomiDLog> records;
    while (!text.empty()) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(line.size() + 1, text.size()));
        if (line.empty()) continue;
        if (auto record = quomiDLogFromString(line, console)) records.push_back(std::move(*record));
    }
    return records;
}

QuomiDLogger::QuomiDLogger(Files& files, const Clock& clock, Console& console)
    : files_(files), clock_(clock), console_(console) {}

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

bool QuomiDLogger::addQuomiDLogToFile(std::string_view line) {
    if (!isUtf8(line)) return false;
    const auto path = getLogFilePath();
    const auto missing = repairEnd(path);
    std::error_code error;
    const auto size = files_.size(path, error);
    if (!missing || !size) return false;
    if (files_.append(path, fmt::format("{}{}\n", *missing, line), error)) return true;
    files_.truncate(path, *size, error);
    return false;
}

/// What has to be written before the next line: a line break after a whole record. A torn one is cut off. Empty when
/// the file could not be read or cut.
std::optional<std::string_view> QuomiDLogger::repairEnd(const std::filesystem::path& path) {
    const auto line = lastLine(path);
    if (!line) return std::nullopt;
    if (line->empty()) return "";
    if (isWholeRecord(*line)) return "\n";
    std::error_code error;
    const auto size = files_.size(path, error);
    if (!size || !files_.truncate(path, *size - line->size(), error)) return std::nullopt;
    return "";
}

/// What follows the file's last line break.
std::optional<std::string> QuomiDLogger::lastLine(const std::filesystem::path& path) const {
    std::error_code error;
    auto end = files_.readTail(path, 1, error);
    if (!end || end->empty() || *end == "\n") return end ? std::optional<std::string>("") : std::nullopt;
    for (std::uint64_t count = kFirstLookAtEnd;; count *= 2) {
        end = files_.readTail(path, count, error);
        if (!end) return std::nullopt;
        if (end->size() < count || end->find('\n') != std::string::npos) return std::string(lineAtEnd(*end));
    }
}

std::optional<std::string> QuomiDLogger::getQuomiDLogFileContentForPath(const std::filesystem::path& path) const {
    std::error_code error;
    return files_.read(path, error);
}

std::optional<std::string> QuomiDLogger::getQuomiDLogFileContent() {
    return getQuomiDLogFileContentForPath(getLogFilePath());
}

std::optional<std::string> QuomiDLogger::getQuomiDLogTmpFileContent() {
    return getQuomiDLogFileContentForPath(getTmpLogFilePath());
}

/// The file's text without a torn last line; empty when it cannot be read or decoded.
std::optional<std::string> QuomiDLogger::wholeLinesOfFile(std::string_view name) {
    auto text = getQuomiDLogFileContentForPath(getLogFilePathForFileName(name));
    if (!text) return std::nullopt;
    const std::string_view tail = lineAtEnd(*text);
    if (!tail.empty() && !isWholeRecord(tail)) text->resize(text->size() - tail.size());
    if (!isUtf8(*text)) return std::nullopt;
    return text;
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::getQuomiDLogsFromFile() {
    const auto text = wholeLinesOfFile(kQuomiBOLogFileName);
    if (!text) return std::nullopt;
    return QuomiDLog::quomiDLogsFromString(*text, console_);
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::getBatchOfQuomiDLogsFromTmpFile() {
    const auto text = wholeLinesOfFile(kQuomiBOTmpLogFileName);
    if (!text) return std::nullopt;
    return QuomiDLog::quomiDLogsFromString(*text, console_);
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::getBatchOfQuomiDLogsFromFile() {
    const auto text = wholeLinesOfFile(kQuomiBOLogFileName);
    if (!text || text->empty()) return std::nullopt;
    auto records = QuomiDLog::quomiDLogsFromString(*text, console_);
    const std::size_t count = std::min(records.size(), kBatchSize);
    std::vector<QuomiDLog> batch(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(count));
    if (!saveBatchToTmpFile(batch)) return std::nullopt;
    if (replaceLog(records, count) || wholeLinesOfFile(kQuomiBOLogFileName) != text) return batch;
    // Uploading a batch that the log still holds would upload it again and again for as long as the disk is full.
    clearTmpLogFile();
    return std::nullopt;
}

/// The lines of the records from `first` on, with line breaks between them.
std::string QuomiDLogger::joined(const std::vector<QuomiDLog>& records, std::size_t first) const {
    const std::string zone = clock_.timeZone();
    std::string text;
    for (std::size_t index = first; index < records.size(); ++index) {
        if (index > first) text += '\n';
        text += records[index].description(zone);
    }
    return text;
}

bool QuomiDLogger::saveBatchToTmpFile(const std::vector<QuomiDLog>& batch) {
    std::error_code error;
    const auto path = pathForFileName(kQuomiBOTmpLogFileName);
    if (batch.empty()) return files_.remove(path, error);
    files_.createDirectories(files_.documentsDirectory(), error);
    return files_.replace(path, joined(batch, 0), error);
}

bool QuomiDLogger::replaceLog(const std::vector<QuomiDLog>& records, std::size_t first) {
    std::error_code error;
    const auto path = pathForFileName(kQuomiBOLogFileName);
    if (first == records.size()) return files_.remove(path, error);
    return files_.replace(path, joined(records, first) + "\n", error);
}

void QuomiDLogger::clearLogFileForFileName(std::string_view name) {
    std::error_code ignored;
    files_.remove(pathForFileName(name), ignored);
}

void QuomiDLogger::clearLogFile() {
    clearLogFileForFileName(kQuomiBOLogFileName);
}

void QuomiDLogger::clearTmpLogFile() {
    clearLogFileForFileName(kQuomiBOTmpLogFileName);
}

}  // namespace quomi
