// The way of the event log's records into the batch file, and out of it.
#include "quomi/diagnostics/event_log.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <fmt/format.h>

namespace quomi {
namespace {

constexpr BatchLimit kBatch{QuomiDLogger::kBatchSize, QuomiDLogger::kBatchBytes};

}  // namespace

// The log as the place where batches come from

/// How much of the drained log was handed over; nothing where the file does not say so sensibly, because an event that
/// comes twice is better than none.
std::uint64_t QuomiDLogger::drainOffset(std::uint64_t size) const {
    std::error_code error;
    const auto text = files_.read(pathForFileName(kQuomiBODrainOffsetFileName), error).value_or("");
    std::uint64_t offset = 0;
    std::from_chars(text.data(), text.data() + text.size(), offset);
    return offset <= size ? offset : 0;
}

std::optional<QuomiDLogger::Source> QuomiDLogger::source() {
    std::error_code error;
    const auto drained = pathForFileName(kQuomiBODrainLogFileName);
    if (const auto size = files_.size(drained, error)) return Source{drained, true, drainOffset(*size), *size};
    const auto log = getLogFilePath();
    const auto size = files_.size(log, error);
    return size ? std::optional(Source{log, false, 0, *size}) : std::nullopt;
}

/// The long log gets a name of its own and is not written any more; new records begin a new log.
void QuomiDLogger::beginDraining() {
    std::error_code error;
    if (files_.replace(pathForFileName(kQuomiBODrainOffsetFileName), "0", error)) {
        files_.move(pathForFileName(kQuomiBOLogFileName), pathForFileName(kQuomiBODrainLogFileName), error);
    }
}

/// The batch at the beginning of what waits; `taken` counts from the beginning of the file. Empty when the file cannot
/// be read.
std::optional<LogBatch> QuomiDLogger::readBatch(const Source& source) {
    std::error_code error;
    std::uint64_t offset = source.offset;
    std::size_t unreadable = 0;
    for (std::uint64_t count = 2 * kBatchBytes;;) {
        const auto text = files_.readPart(source.file, offset, count, error);
        if (!text) return std::nullopt;
        const bool isEnd = text->size() < count;
        auto batch = takeBatch(*text, isEnd, kBatch, console_);
        unreadable += batch.unreadable;
        if (batch.taken == 0) count *= 2;  // a line longer than that
        offset += batch.taken;
        if (batch.records.empty() && !isEnd) continue;
        batch.taken = offset;
        tellUnreadable(unreadable);
        return batch;
    }
}

/// What comes before `end` has been handed over.
bool QuomiDLogger::drop(const Source& source, std::uint64_t end) {
    std::error_code error;
    if (end >= source.size) return files_.remove(source.file, error);
    if (source.isDrained) {
        return files_.replace(pathForFileName(kQuomiBODrainOffsetFileName), std::to_string(end), error);
    }
    const auto rest = files_.readPart(source.file, end, source.size, error);
    return rest && files_.replace(source.file, *rest, error);
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::handOver() {
    const auto log = lock(kQuomiBOLogFileName);
    auto from = log ? source() : std::nullopt;
    if (from && !from->isDrained && from->size > kShortLog) {
        beginDraining();  // where that is not possible the rest is written anew, as of a short log
        from = source();
    }
    if (!from) return std::nullopt;
    auto batch = readBatch(*from);
    if (!batch) return std::nullopt;
    if (batch->taken == from->offset) {
        if (from->isDrained) drop(*from, from->size);
        return std::nullopt;
    }
    if (!replaceBatch(batch->lines)) return std::nullopt;
    if (drop(*from, batch->taken) || source() != from) return std::move(batch->records);
    // Uploading a batch that the log still holds would upload it again and again for as long as the disk is full.
    clearLogFileForFileName(kQuomiBOTmpLogFileName);
    return std::nullopt;
}

// The batch file

bool QuomiDLogger::replaceBatch(std::string_view text) {
    std::error_code error;
    const auto path = pathForFileName(kQuomiBOTmpLogFileName);
    if (text.empty()) return files_.remove(path, error);
    return files_.replace(path, text, error);
}

bool QuomiDLogger::saveBatchToTmpFile(const std::vector<QuomiDLog>& batch) {
    const std::string zone = clock_.timeZone();
    std::string text;
    for (const auto& record : batch) {
        if (!text.empty()) text += '\n';
        text += record.description(zone);
    }
    const auto lockOfBatch = lock(kQuomiBOTmpLogFileName);
    return lockOfBatch && replaceBatch(text);
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::getBatchOfQuomiDLogsFromTmpFile() {
    const auto text = getQuomiDLogTmpFileContent();
    return text ? std::optional(recordsOf(*text)) : std::nullopt;
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::getBatchOfQuomiDLogsFromFile() {
    const auto batch = lock(kQuomiBOTmpLogFileName);
    return batch ? handOver() : std::nullopt;
}

std::optional<std::vector<QuomiDLog>> QuomiDLogger::nextBatch(std::size_t most) {
    const auto lockOfBatch = lock(kQuomiBOTmpLogFileName);
    if (!lockOfBatch) return std::nullopt;
    const auto text = getQuomiDLogTmpFileContent().value_or("");
    auto waiting = takeBatch(text, true, {most, kBatchBytes}, console_);
    tellUnreadable(waiting.unreadable);
    if (!waiting.records.empty()) return std::move(waiting.records);
    auto records = handOver();
    if (records && records->size() > most) records->resize(most);
    return records;
}

bool QuomiDLogger::dropFromBatch(const std::vector<QuomiDLog>& records) {
    const auto lockOfBatch = lock(kQuomiBOTmpLogFileName);
    if (!lockOfBatch) return false;
    const auto text = getQuomiDLogTmpFileContent();
    if (!text) return false;
    const auto first = takeBatch(*text, true, {records.size(), kBatchBytes}, console_);
    return first.records != records || replaceBatch(std::string_view(*text).substr(first.taken));
}

/// How often the first record was refused stands in the batch file as so many empty lines before it: it goes with the
/// record, and every version skips it.
bool QuomiDLogger::refuse(const QuomiDLog& record) {
    const auto lockOfBatch = lock(kQuomiBOTmpLogFileName);
    const auto text = lockOfBatch ? getQuomiDLogTmpFileContent() : std::nullopt;
    if (!text) return false;
    const auto first = takeBatch(*text, true, {1, kBatchBytes}, console_);
    if (first.records != std::vector{record}) return false;
    const std::size_t refusals = std::min(text->find_first_not_of('\n') + 1, kMostRefusals);
    if (refusals < kMostRefusals) {
        replaceBatch("\n" + *text);
        return false;
    }
    if (!keepRefused(first.lines) || !replaceBatch(std::string_view(*text).substr(first.taken))) return false;
    console_.log(
        fmt::format("Quomi SDK Error: the server refuses an event; it is kept in {}", kQuomiBORefusedLogFileName));
    return true;
}

/// The oldest refused records go for the new one.
bool QuomiDLogger::keepRefused(std::string_view line) {
    std::error_code error;
    const auto path = pathForFileName(kQuomiBORefusedLogFileName);
    const std::string text = fmt::format("{}{}\n", files_.read(path, error).value_or(""), line);
    std::size_t begin = 0;
    while (text.size() - begin > std::max(kRefusedBytes, line.size() + 1)) begin = text.find('\n', begin) + 1;
    return files_.replace(path, std::string_view(text).substr(begin), error);
}

}  // namespace quomi
