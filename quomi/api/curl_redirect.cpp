#include "quomi/api/curl_redirect.h"

#include "quomi/util/ascii.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include <curl/curl.h>

namespace quomi {
namespace {

struct FreeUrl {
    void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
using Url = std::unique_ptr<CURLU, FreeUrl>;

Url parseUrl(const std::string& text) {
    Url url(curl_url());
    if (url != nullptr && curl_url_set(url.get(), CURLUPART_URL, text.c_str(), 0) != CURLUE_OK) url.reset();
    return url;
}

std::string part(const Url& url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url.get(), which, &text, flags) != CURLUE_OK) return {};
    const std::unique_ptr<char, decltype(&curl_free)> owner(text, &curl_free);
    return text;
}

/// The URL that the Location, which may be relative, names from `base`.
std::string resolve(const std::string& base, const std::string& location) {
    const Url url = parseUrl(base);
    if (url == nullptr) return {};
    constexpr unsigned flags = CURLU_URLENCODE | CURLU_ALLOW_SPACE;
    if (curl_url_set(url.get(), CURLUPART_URL, location.c_str(), flags) != CURLUE_OK) return {};
    return part(url, CURLUPART_URL);
}

bool isRedirect(int status) {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

/// Whether what was meant for one origin may be shown to the other.
bool isSameParty(const HttpOrigin& from, const HttpOrigin& to) {
    const bool isUpgrade = from.scheme == "http" && from.port == "80" && to.scheme == "https" && to.port == "443";
    return from == to || (isUpgrade && from.host == to.host);
}

bool isHarmlessHeader(std::string_view name) {
    constexpr std::array<std::string_view, 4> harmless{"accept", "accept-language", "content-type", "user-agent"};
    return std::ranges::any_of(harmless, [name](std::string_view known) { return isHeaderNamed(name, known); });
}

void becomeGet(HttpRequest& request) {
    request.method = "GET";
    request.body.clear();
    std::erase_if(request.headers, [](const auto& header) { return isHeaderNamed(header.first, "content-type"); });
}

}  // namespace

std::optional<HttpOrigin> httpOriginOf(const std::string& url) {
    const Url parsed = parseUrl(url);
    if (parsed == nullptr || url.find('\0') != std::string::npos) return std::nullopt;
    HttpOrigin origin{part(parsed, CURLUPART_SCHEME), lowerCase(part(parsed, CURLUPART_HOST)),
                      part(parsed, CURLUPART_PORT, CURLU_DEFAULT_PORT)};
    if ((origin.scheme != "http" && origin.scheme != "https") || origin.host.empty()) return std::nullopt;
    return origin;
}

std::optional<HttpRequest> redirectedRequest(const HttpRequest& request, const HttpResponse& response) {
    const auto location = std::ranges::find(response.headers, "location", &HttpHeaders::value_type::first);
    if (!isRedirect(response.status) || location == response.headers.end()) return std::nullopt;
    std::string url = resolve(request.url, location->second);
    const auto from = httpOriginOf(request.url);
    const auto to = httpOriginOf(url);
    if (!from || !to || (from->scheme == "https" && to->scheme == "http")) return std::nullopt;

    HttpRequest next = request;
    next.url = std::move(url);
    const bool asGet = response.status == 303 || (response.status <= 302 && request.method == "POST");
    if (asGet && request.method != "HEAD") becomeGet(next);
    if (isSameParty(*from, *to)) return next;
    if (!next.body.empty()) return std::nullopt;
    std::erase_if(next.headers, [](const auto& header) { return !isHarmlessHeader(header.first); });
    return next;
}

bool isHeaderNamed(std::string_view name, std::string_view lowerCaseName) {
    return lowerCase(name) == lowerCaseName;
}

bool hasHeader(const HttpHeaders& headers, std::string_view lowerCaseName) {
    return std::ranges::any_of(
        headers, [lowerCaseName](const auto& header) { return isHeaderNamed(header.first, lowerCaseName); });
}

}  // namespace quomi
