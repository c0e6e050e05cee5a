// The event log's files as they may be after any accident, through appending, hand-over, uploads and refusals.
#include "fuzz/fuzz_input.h"
#include "hosts/posix/files.h"
#include "quomi/diagnostics/event_log.h"
#include "quomi/platform/clock.h"
#include "quomi/platform/console.h"
#include "tests/support/temporary_directory.h"

#include <algorithm>
#include <string>

#include <boost/json/object.hpp>

namespace {

using namespace quomi;

class FixedClock : public Clock {
public:
    [[nodiscard]] WallTime now() const override { return WallTime(Duration(1'700'000'000'000'000)); }
    [[nodiscard]] MonotonicTime monotonicNow() const override { return {}; }
    [[nodiscard]] std::string timeZone() const override { return "Europe/Berlin"; }
};

class QuietConsole : public Console {
public:
    void log(std::string_view message) override { fuzz::require(!message.empty()); }
};

/// The same for all runs.
posix::PosixFiles& files() {
    static const test::TemporaryDirectory directory;
    static posix::PosixFiles all(directory.path());
    return all;
}

std::filesystem::path pathOf(const char* name) {
    return files().documentsDirectory() / name;
}

/// The input, cut at its zero bytes, as the files; a missing part leaves the file out.
void writeFiles(std::string_view input) {
    std::error_code error;
    fuzz::require(files().createDirectories(files().documentsDirectory(), error));
    for (const char* name : {kQuomiBOLogFileName, kQuomiBODrainLogFileName, kQuomiBODrainOffsetFileName,
                             kQuomiBOTmpLogFileName, kQuomiBORefusedLogFileName}) {
        fuzz::require(files().remove(pathOf(name), error));
        const auto text = input.substr(0, input.find('\0'));
        input.remove_prefix(std::min(input.size(), text.size() + 1));
        if (!text.empty()) fuzz::require(files().append(pathOf(name), text, error));
    }
}

/// A server that accepts, halves or refuses, as the bits say; ends when nothing is left.
bool drain(QuomiDLogger& logger, unsigned bits, const QuomiDLog& own) {
    bool hasArrived = false;
    std::size_t most = QuomiDLogger::kBatchSize;
    for (int round = 0; round < 20'000; ++round) {
        const auto batch = logger.nextBatch(most);
        if (!batch || batch->empty()) {
            if (logger.getQuomiDLogFileContent() == "") return hasArrived;
            continue;
        }
        fuzz::require(batch->size() <= most);
        bits = bits * 1'103'515'245U + 12'345U;
        const bool isRefused = (bits >> 16U) % 4 == 0;
        if (isRefused && batch->size() > 1) {
            most = batch->size() / 2;
        } else if (isRefused) {
            hasArrived = (logger.refuse(batch->front()) && batch->front() == own) || hasArrived;
        } else {
            hasArrived = std::ranges::find(*batch, own) != batch->end() || hasArrived;
            fuzz::require(logger.dropFromBatch(*batch));
            most = std::min(2 * most, QuomiDLogger::kBatchSize);
        }
    }
    fuzz::require(false);
    return false;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const FixedClock clock;
    QuietConsole console;
    writeFiles(fuzz::textOf(data, size));
    QuomiDLogger logger(files(), clock, console);
    const auto own = QuomiDLog::ofEvent({{"own", "a;b"}}, clock.now());
    fuzz::require(logger.addQuomiDLogToFile(own.description(clock.timeZone())));
    fuzz::require(logger.getQuomiDLogsFromFile().value().back() == own);
    fuzz::require(drain(logger, static_cast<unsigned>(size), own));
    std::error_code error;
    const auto refused = files().read(pathOf(kQuomiBORefusedLogFileName), error).value_or("");
    fuzz::require(refused.size() <= std::max(QuomiDLogger::kRefusedBytes, size + 1));
    return 0;
}
