// Bodies that devices send to the back office, and the page that shows them.
#include "fuzz/fuzz_input.h"
#include "hosts/simulated/campaign/campaign.h"
#include "hosts/simulated/campaign/device_report.h"
#include "tools/quomi/backoffice/backoffice_page.h"
#include "tools/quomi/backoffice/inbox.h"

#include <array>

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace quomi::simulated;
    using quomi::fuzz::require;
    using quomi::tool::Inbox;
    using quomi::tool::startPage;
    static constexpr std::array<ReadBody, 5> readers = {readUserBody, readEventBody, readEventsBody, readPushTokenBody,
                                                        readBatteryAlertBody};
    static const auto campaign = Campaign::parse(R"({"application": {"namespace_uid": "fuzz"}})", "fuzz.json");
    if (size == 0) return 0;
    std::string fault;
    const auto body = readers[data[0] % readers.size()](quomi::fuzz::textOf(data + 1, size - 1), {}, fault);
    require(body.has_value() == fault.empty());
    if (!body) {
        require(fault.starts_with('$') && fault.find('\n') == fault.npos);
        return 0;
    }
    Inbox inbox;
    require(inbox.add(body->entries));
    require(inbox.all().size() == body->entries.size());
    const auto page = startPage(*campaign, inbox, "http://127.0.0.1:1", {});
    require(page.find("<script") == page.npos && page.find('\0') == page.npos);
    return 0;
}
