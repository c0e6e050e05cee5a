#include "quomi/api/url.h"

#include "quomi/util/ascii.h"
#include "quomi/util/percent.h"

#include <memory>

#include <curl/curl.h>

namespace quomi {

namespace {

using CurlUrl = std::unique_ptr<CURLU, decltype(&curl_url_cleanup)>;

std::optional<std::string> part(CURLU* url, CURLUPart which, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url, which, &text, flags) != CURLUE_OK) return std::nullopt;
    std::string value(text);
    curl_free(text);
    return value;
}

bool mayStandInUrl(char c) {
    return c > ' ' && c < '\x7F' && std::string_view("\"<>\\^`{|}").find(c) == std::string_view::npos;
}

}  // namespace

std::string withoutForbiddenCharacters(std::string_view url) {
    std::string clean;
    clean.reserve(url.size());
    for (const char c : url) {
        if (mayStandInUrl(c)) {
            clean += c;
        } else {
            appendPercentEncoded(clean, c);
        }
    }
    return clean;
}

std::optional<std::string> normalizedHttpUrl(std::string_view url) {
    const std::string clean = withoutForbiddenCharacters(url);
    // libcurl takes "http:///shop" for the host "shop".
    if (clean.find(":///") != std::string::npos && clean.find(":///") == clean.find(':')) return std::nullopt;
    const CurlUrl parsed(curl_url(), &curl_url_cleanup);
    if (parsed == nullptr || curl_url_set(parsed.get(), CURLUPART_URL, clean.c_str(), 0) != CURLUE_OK) {
        return std::nullopt;
    }
    const auto scheme = part(parsed.get(), CURLUPART_SCHEME);
    const auto host = part(parsed.get(), CURLUPART_HOST);
    if (!scheme || (*scheme != "http" && *scheme != "https") || !host || host->empty()) return std::nullopt;
    return clean;
}

std::string originOf(std::string_view url) {
    const auto schemeEnd = url.find("://");
    const auto hostEnd = url.find_first_of("/?#", schemeEnd == std::string_view::npos ? 0 : schemeEnd + 3);
    std::string origin(url.substr(0, hostEnd));
    for (char& c : origin) {
        c = lowerCase(c);
    }
    return origin;
}

std::string joinUrl(std::string_view base, std::string_view path) {
    if (base.ends_with('/')) base.remove_suffix(1);
    return std::string(base).append(path);
}

std::string withQuery(std::string_view url, const QueryParameters& parameters) {
    std::string full(url);
    char separator = full.find('?') == std::string::npos ? '?' : '&';
    for (const auto& [name, value] : parameters) {
        full += separator;
        full += percentEncoded(name);
        full += '=';
        full += percentEncoded(value);
        separator = '&';
    }
    return full;
}

}  // namespace quomi
