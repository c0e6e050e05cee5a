#include "quomi/diagnostics/log_lines.h"

#include "quomi/util/json_readers.h"
#include "quomi/util/utf8.h"

#include <utility>

namespace quomi {
namespace {

bool fits(const LogBatch& batch, std::string_view line, const BatchLimit& limit) {
    if (batch.records.empty()) return limit.records > 0;
    return batch.records.size() < limit.records && batch.lines.size() + 1 + line.size() <= limit.bytes;
}

void add(LogBatch& batch, QuomiDLog record, std::string_view line) {
    if (!batch.records.empty()) batch.lines += '\n';
    batch.lines += line;
    batch.records.push_back(std::move(record));
}

}  // namespace

std::string_view lineAtEnd(std::string_view text) {
    return text.substr(text.rfind('\n') + 1);
}

bool isWholeRecord(std::string_view line) {
    const std::size_t separator = line.find(';');
    if (separator == std::string_view::npos) return false;
    const auto data = parseJson(line.substr(separator + 1));
    return data && data->is_object();
}

LogBatch takeBatch(std::string_view text, bool isEnd, const BatchLimit& limit, Console& console) {
    LogBatch batch;
    while (batch.taken < text.size()) {
        const std::size_t lineBreak = text.find('\n', batch.taken);
        const bool isBroken = lineBreak != std::string_view::npos;
        if (!isBroken && !isEnd) break;
        const std::string_view line = text.substr(batch.taken, lineBreak - batch.taken);
        const bool isReadable = isUtf8(line);
        batch.unreadable += isBroken && !isReadable ? 1 : 0;
        if (isReadable && !line.empty() && (isBroken || isWholeRecord(line))) {
            auto record = QuomiDLog::quomiDLogFromString(line, console);
            if (record && !fits(batch, line, limit)) break;
            if (record) add(batch, std::move(*record), line);
        }
        batch.taken += line.size() + (isBroken ? 1 : 0);
    }
    return batch;
}

}  // namespace quomi
