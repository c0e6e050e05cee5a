#pragma once

#include "quomi/diagnostics/event_record.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quomi {

class Console;

/// What follows the text's last line break.
[[nodiscard]] std::string_view lineAtEnd(std::string_view text);

/// Whether a last line lacks nothing but its line break. No proper beginning of a JSON object is one itself, whereas a
/// torn line may well end with the brace of an inner object.
[[nodiscard]] bool isWholeRecord(std::string_view line);

/// How much may be taken out of a log's text.
struct BatchLimit {
    std::size_t records;
    std::size_t bytes;  ///< of their lines; one record may have more
};

/// The first records of a log's text.
struct LogBatch {
    std::vector<QuomiDLog> records;
    std::string lines;           ///< theirs as they stood there, with line breaks between them
    std::size_t taken = 0;       ///< bytes of the text up to the next record, or to the end of its last whole line
    std::size_t unreadable = 0;  ///< lines among these that are no UTF-8
};

/// Takes records as far as the limit goes. Lines that hold none are taken with them, those behind the last one too.
/// With `isEnd` the text ends where its file ends: a last line without line break counts when it is a whole record, and
/// is otherwise the rest of one that was never accepted.
[[nodiscard]] LogBatch takeBatch(std::string_view text, bool isEnd, const BatchLimit& limit, Console& console);

}  // namespace quomi
