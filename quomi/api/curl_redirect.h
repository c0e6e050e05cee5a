#pragma once

#include "quomi/api/http_transport.h"

#include <optional>
#include <string>
#include <string_view>

namespace quomi {

// What a redirect makes of a request. libcurl would follow redirects itself, but it sends an app's own headers on to
// whatever host it is led to and loses the body of the last answer. Internal to the transport; any thread.

/// Where an URL leads. Scheme and host are in lower case; the port is the scheme's default when the URL names none.
struct HttpOrigin {
    std::string scheme;
    std::string host;
    std::string port;
    bool operator==(const HttpOrigin&) const = default;
};

/// The origin of an absolute http or https URL; nothing for any other text.
[[nodiscard]] std::optional<HttpOrigin> httpOriginOf(const std::string& url);

/// The request that follows this answer to `request`; nothing when the answer is no redirect or may not be followed.
[[nodiscard]] std::optional<HttpRequest> redirectedRequest(const HttpRequest& request, const HttpResponse& response);

/// Compares the names of headers; `lowerCaseName` is in lower case.
[[nodiscard]] bool isHeaderNamed(std::string_view name, std::string_view lowerCaseName);
[[nodiscard]] bool hasHeader(const HttpHeaders& headers, std::string_view lowerCaseName);

}  // namespace quomi
