// The event log as a file may hold it after any accident.
#include "fuzz/fuzz_input.h"
#include "quomi/diagnostics/event_log.h"
#include "quomi/platform/console.h"

#include <string>

#include <boost/json/object.hpp>

namespace {

class QuietConsole : public quomi::Console {
public:
    void log(std::string_view message) override { quomi::fuzz::require(!message.empty()); }
};

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using quomi::QuomiDLog;
    using quomi::fuzz::require;
    QuietConsole console;
    for (const QuomiDLog& record : QuomiDLog::quomiDLogsFromString(quomi::fuzz::textOf(data, size), console)) {
        require(record.logTime.has_value() && record.logData.has_value());
        require(record.logData->starts_with('{') && record.logData->ends_with('}'));
        require(record.dictionary().size() == 2);
        const std::string line = record.description("UTC");
        const auto again = QuomiDLog::quomiDLogFromString(line, console);
        require(again.has_value() && again->logData == record.logData);
    }
    return 0;
}
