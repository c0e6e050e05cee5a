// Visits, as somebody wrote them; those that are valid are unfolded.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/visit/visit.h"
#include "hosts/simulated/visit/visit_steps.h"

#include <optional>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quomi::simulated;
    using quomi::fuzz::require;
    VisitError error;
    const auto visit =
        Visit::parse(quomi::fuzz::textOf(data, size), "fuzz.json", QUOMI_SOURCE_DIR "/examples/shop", &error);
    if (!visit) {
        require(!error.message.empty() && error.path.starts_with('$'));
        require(error.text().find('\n') == std::string::npos);
        return 0;
    }
    const quomi::Duration end = visit->endTime();
    quomi::Duration last{};
    Occurrences occurrences(visit->steps);
    for (int count = 0; count < 1000; ++count) {
        const std::optional<Occurrence> next = occurrences.next();
        if (!next) break;
        require(next->at >= last && next->step < visit->steps.size());
        require(next->at <= visit->steps[next->step].lastTime());
        require(visit->end || next->at <= end);
        last = next->at;
    }
    return 0;
}
