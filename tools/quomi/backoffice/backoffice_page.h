#pragma once

#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quomi::simulated {
class Campaign;
}

namespace quomi::tool {

class Inbox;

/// How a request to an endpoint looks, for people.
struct EndpointHelp {
    std::string_view method;
    /// Path, perhaps with "{namespace}" in it.
    std::string path;
    std::string_view purpose;
    /// The query that it takes, and an example of the body that it takes; empty where there is none.
    std::string query;
    std::string body;
};

/// What stands in examples for {namespace}, {uuid}, {lat} and {lng}, so that a campaign's examples find something.
class ExampleValues {
public:
    explicit ExampleValues(const simulated::Campaign& campaign);
    /// The text with these slots filled.
    [[nodiscard]] std::string in(std::string_view text) const;

private:
    std::vector<std::pair<std::string_view, std::string>> values_;
};

/// The start page: what is served, what was received last, and how to call each endpoint with curl. One HTML document
/// without scripts that loads nothing. All that comes from devices and from the campaign is escaped, long texts and
/// lists are cut, and push tokens and advertising identifiers are shortened.
[[nodiscard]] std::string startPage(const simulated::Campaign& campaign, const Inbox& inbox, std::string_view baseUrl,
                                    std::span<const EndpointHelp> endpoints);

/// The first characters of a push token or an advertising identifier, at most a quarter of it: enough to tell two
/// apart, no use for sending.
[[nodiscard]] std::string shortened(std::string_view secret);

/// Text as HTML text or as a quoted attribute's value.
[[nodiscard]] std::string escapedHtml(std::string_view text);

}  // namespace quomi::tool
