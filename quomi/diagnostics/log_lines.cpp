#include "quomi/diagnostics/log_lines.h"

#include "quomi/util/json_readers.h"

#include <utility>

namespace quomi {
namespace {

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

bool isUtf8(std::string_view text) {
    while (!text.empty()) {
        const std::size_t length = lengthOfCharacter(text);
        if (length == 0) return false;
        text.remove_prefix(length);
    }
    return true;
}

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
