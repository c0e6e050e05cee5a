#pragma once

#include <span>
#include <string>
#include <string_view>

namespace quomi::tool {

class Campaign;
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
    /// Whether this version answers it.
    bool isServed = true;
};

/// The start page: what is served, what was received last, and how to call each endpoint with curl. One HTML document
/// without scripts that loads nothing. All that comes from devices and from the campaign is escaped.
[[nodiscard]] std::string startPage(const Campaign& campaign, const Inbox& inbox, std::string_view baseUrl,
                                    std::span<const EndpointHelp> endpoints);

/// Text as HTML text or as a quoted attribute's value.
[[nodiscard]] std::string escapedHtml(std::string_view text);

}  // namespace quomi::tool
