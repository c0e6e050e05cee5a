#pragma once

#include "hosts/simulated/scripted_transport.h"
#include "hosts/simulated/simulated_phone.h"
#include "quomi/api/api_client.h"
#include "quomi/diagnostics/debug_log.h"
#include "quomi/model/settings.h"
#include "quomi/platform/platform.h"
#include "tests/support/prelude.h"

namespace quomi::test {

using simulated::ScriptedAnswer;

/// A client of https://a.test on a simulated phone, whose service lives at https://push.test. Answers take 0.05 s.
class ApiClientFixture : public testing::Test {
protected:
    ApiClientFixture() {
        settings.namespace_ = "shop";
        makeClient("https://a.test");
    }
    void makeClient(const std::string& baseURL) {
        phone.transport().setBaseURLs(std::vector{baseURL});
        api = std::make_unique<QuomiAPI>(baseURL, phone.platform(), settings, debugLog);
    }
    [[nodiscard]] double now() { return toSeconds(phone.loop().monotonicNow().time_since_epoch()); }

    // Callbacks that write a line into the journal
    [[nodiscard]] QuomiAPI::Done note(const std::string& word) {
        return [this, word] { journal.push_back(word); };
    }
    [[nodiscard]] QuomiAPI::Success noteAnswer(const std::string& word = "got") {
        return [this, word](const boost::json::value& body) { journal.push_back(word + " " + serialize(body)); };
    }
    [[nodiscard]] QuomiAPI::Failure noteError(const std::string& word = "failed") {
        return [this, word](const Error& error) {
            journal.push_back(
                fmt::format("{} {} {}", word, error.domain == kHTTPErrorDomain ? "http" : "sdk", error.code));
        };
    }
    /// The journal since the last call, `span` later.
    std::vector<std::string> after(Duration span) {
        phone.advanceBy(span);
        return std::exchange(journal, {});
    }
    /// Texts of the debug log without their dates.
    std::vector<std::string> debugLines() {
        std::vector<std::string> lines;
        std::string text = debugLog.file().getFileLogContent().value_or("");
        for (std::size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
            const auto line = text.substr(at, end - at);
            lines.push_back(line.substr(line.find(" - ") + 3));
        }
        return lines;
    }

    std::vector<std::string> journal;
    std::vector<HttpRequest> requests;
    simulated::SimulatedPhone phone{{.timeZone = "Europe/Berlin", .udid = "U-1"},
                                    {.request = [this](const HttpRequest& request) { requests.push_back(request); }}};
    QuomiSettings settings{{.apiBaseUrl = "https://push.test/"}, phone.platform().location};
    DebugLog debugLog{phone.platform().files, phone.platform().clock, [] { return true; }};
    std::unique_ptr<QuomiAPI> api;
};

}  // namespace quomi::test
