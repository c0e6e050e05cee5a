#include "quomi/api/curl_transfer.h"

#include "quomi/api/curl_redirect.h"

#include <algorithm>
#include <limits>
#include <new>
#include <string_view>
#include <utility>

#include <curl/curl.h>
#include <fmt/format.h>

namespace quomi {
namespace {

constexpr std::size_t kMaxHeaderBytes = std::size_t{256} << 10;
constexpr int kMaxRedirects = 5;

HttpFailure connectionFailure(std::string message) {
    return {HttpFailureKind::connection, std::move(message)};
}

bool isTokenCharacter(char c) {
    const bool isAlphanumeric = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
    return isAlphanumeric || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, isTokenCharacter);
}

/// Whether the text may stand in a header: a control character would end it and begin another.
bool isHeaderValue(std::string_view text) {
    return std::ranges::none_of(text, [](char c) { return (c >= 0 && c < ' ' && c != '\t') || c == '\x7f'; });
}

bool isBase64Character(char c) {
    return (isTokenCharacter(c) || c == '/' || c == '=') && c != '-' && c != '_';
}

/// libcurl takes whatever does not begin like this for the name of a file.
bool isPin(std::string_view text) {
    constexpr std::string_view prefix = "sha256//";
    constexpr std::size_t base64Length = 44;
    return text.starts_with(prefix) && text.size() == prefix.size() + base64Length &&
           std::ranges::all_of(text.substr(prefix.size()), isBase64Character);
}

HttpFailureKind failureKind(CURLcode code) {
    switch (code) {
        case CURLE_OPERATION_TIMEDOUT:
            return HttpFailureKind::timeout;
        case CURLE_SSL_CONNECT_ERROR:
        case CURLE_SSL_ENGINE_NOTFOUND:
        case CURLE_SSL_ENGINE_SETFAILED:
        case CURLE_SSL_CERTPROBLEM:
        case CURLE_SSL_CIPHER:
        case CURLE_PEER_FAILED_VERIFICATION:
        case CURLE_USE_SSL_FAILED:
        case CURLE_SSL_ENGINE_INITFAILED:
        case CURLE_SSL_CACERT_BADFILE:
        case CURLE_SSL_SHUTDOWN_FAILED:
        case CURLE_SSL_CRL_BADFILE:
        case CURLE_SSL_ISSUER_ERROR:
        case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
        case CURLE_SSL_INVALIDCERTSTATUS:
        case CURLE_SSL_CLIENTCERT:
            return HttpFailureKind::tls;
        default:
            return HttpFailureKind::connection;
    }
}

}  // namespace

/// Sets options one after another and remembers whether libcurl took them all; it fails closed.
struct CurlTransfer::Setup {
    CURL* easy = nullptr;
    bool failed = false;

    template <typename Value>
    void set(CURLoption option, Value value) {
        failed = curl_easy_setopt(easy, option, value) != CURLE_OK || failed;
    }
};

void CurlTransfer::Free::operator()(void* easy) const {
    curl_easy_cleanup(easy);
}
void CurlTransfer::Free::operator()(curl_slist* list) const {
    curl_slist_free_all(list);
}

CurlTransfer::CurlTransfer(std::uint64_t id, HttpRequest request, Deadline deadline,
                           const CurlTransportOptions& options)
    : id_(id), request_(std::move(request)), deadline_(deadline), options_(options), easy_(curl_easy_init()) {
    static_assert(std::tuple_size_v<decltype(message_)> >= CURL_ERROR_SIZE);
}

std::optional<HttpFailure> CurlTransfer::prepare() {
    if (auto failed = checkRequest()) return failed;
    if (easy_ == nullptr || !makeHeaderList()) return connectionFailure("Out of memory");
    curl_easy_reset(easy_.get());
    Setup setup{easy_.get()};
    setTarget(setup);
    setLimits(setup);
    setTls(setup);
    setMessage(setup);
    if (setup.failed) return connectionFailure("The HTTP library refused the request");
    return std::nullopt;
}

std::optional<HttpFailure> CurlTransfer::checkRequest() const {
    const auto origin = originOf(request_.url);
    if (!origin) return connectionFailure("The URL is not an absolute http or https URL");
    if (!isToken(request_.method)) return connectionFailure("The method cannot be sent");
    for (const auto& [name, value] : request_.headers) {
        if (!isToken(name) || !isHeaderValue(value)) return connectionFailure("A header cannot be sent");
    }
    if (origin->scheme == "https" && !std::ranges::all_of(options_.pinnedPublicKeys, isPin)) {
        return HttpFailure{HttpFailureKind::tls, "A pinned public key is not of the form sha256//<base64>"};
    }
    if (remaining().count() <= 0) return HttpFailure{HttpFailureKind::timeout, "The request timed out"};
    return std::nullopt;
}

std::chrono::milliseconds CurlTransfer::remaining() const {
    return std::chrono::ceil<std::chrono::milliseconds>(deadline_ - std::chrono::steady_clock::now());
}

void CurlTransfer::setTarget(Setup& setup) const {
    setup.set(CURLOPT_URL, request_.url.c_str());
    setup.set(CURLOPT_PROTOCOLS_STR, "http,https");
    setup.set(CURLOPT_FOLLOWLOCATION, 0L);             // see curl_redirect.h
    setup.set(CURLOPT_PROXY, options_.proxy.c_str());  // even an empty one hides the environment's
    setup.set(CURLOPT_NOPROXY, "");
    setup.set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
}

void CurlTransfer::setLimits(Setup& setup) {
    constexpr auto longest = static_cast<std::uint64_t>(std::numeric_limits<curl_off_t>::max());
    const std::uint64_t bodyLimit = std::min(options_.maxResponseBytes, longest);
    setup.set(CURLOPT_PRIVATE, static_cast<void*>(this));
    setup.set(CURLOPT_NOSIGNAL, 1L);
    setup.set(CURLOPT_QUICK_EXIT, 1L);  // else dropping a transfer waits for its name to be looked up
    setup.set(CURLOPT_TIMEOUT_MS, static_cast<long>(remaining().count()));
    setup.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(bodyLimit));
    setup.set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
    setup.set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    setup.set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
    setup.set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    setup.set(CURLOPT_ERRORBUFFER, message_.data());
    body_.clear();
    headerBytes_ = 0;
    headersEnded_ = false;
    bodyTooLong_ = false;
    message_.fill('\0');
}

void CurlTransfer::setTls(Setup& setup) const {
    setup.set(CURLOPT_SSL_VERIFYPEER, 1L);
    setup.set(CURLOPT_SSL_VERIFYHOST, 2L);
    setup.set(CURLOPT_SSLVERSION, static_cast<long>(CURL_SSLVERSION_TLSv1_2));
    if (options_.caBundlePath) {
        setup.set(CURLOPT_CAINFO, options_.caBundlePath->c_str());
        setup.set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    if (options_.pinnedPublicKeys.empty()) return;
    setup.set(CURLOPT_PINNEDPUBLICKEY, fmt::format("{}", fmt::join(options_.pinnedPublicKeys, ";")).c_str());
}

void CurlTransfer::setMessage(Setup& setup) {
    setup.set(CURLOPT_HTTPHEADER, headers_.get());
    setup.set(CURLOPT_ACCEPT_ENCODING, "gzip");
    if (request_.method == "HEAD") {
        setup.set(CURLOPT_NOBODY, 1L);
        return;
    }
    if (request_.method == "POST" || request_.method == "PUT" || !request_.body.empty()) {
        setup.set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request_.body.size()));
        setup.set(CURLOPT_POSTFIELDS, request_.body.data());
    }
    setup.set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

bool CurlTransfer::makeHeaderList() {
    headers_.reset();
    const auto append = [this](const std::string& line) {
        curl_slist* list = curl_slist_append(headers_.get(), line.c_str());
        if (list == nullptr) return false;
        static_cast<void>(headers_.release());
        headers_.reset(list);
        return true;
    };
    // A name without value keeps libcurl from adding a header of its own.
    bool complete = append("Expect:");
    if (!hasHeader(request_.headers, "content-type")) complete = append("Content-Type:") && complete;
    for (const auto& [name, value] : request_.headers) {
        if (isHeaderNamed(name, "content-length") || isHeaderNamed(name, "transfer-encoding")) continue;
        complete = append(value.empty() ? name + ";" : fmt::format("{}: {}", name, value)) && complete;
    }
    return complete;
}

std::size_t CurlTransfer::onBody(const char* data, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const std::size_t length = size * count;
    if (length > transfer.options_.maxResponseBytes - transfer.body_.size()) {
        transfer.bodyTooLong_ = true;
        return 0;
    }
    try {
        transfer.body_.append(data, length);
    } catch (const std::bad_alloc&) {
        return 0;
    }
    return length;
}

std::size_t CurlTransfer::onHeader(const char* data, std::size_t size, std::size_t count, void* self) {
    auto& transfer = *static_cast<CurlTransfer*>(self);
    const std::string_view line(data, size * count);
    if (line.starts_with("HTTP/")) transfer.headersEnded_ = false;
    if (line == "\r\n" || line == "\n") transfer.headersEnded_ = true;
    transfer.headerBytes_ += line.size();
    return transfer.headerBytes_ > kMaxHeaderBytes ? 0 : size * count;
}

std::optional<HttpResult> CurlTransfer::finish(int code) {
    if (code != CURLE_OK) return failure(code);
    // libcurl takes an answer that ends within its headers for one without a body.
    if (!headersEnded_) return connectionFailure("The answer ended within its headers");
    HttpResponse response = takeResponse();
    if (followRedirect(response)) return std::nullopt;
    return response;
}

HttpFailure CurlTransfer::failure(int code) const {
    const auto curlCode = static_cast<CURLcode>(code);
    if (bodyTooLong_ || curlCode == CURLE_FILESIZE_EXCEEDED) {
        return connectionFailure(fmt::format("The answer is longer than {} bytes", options_.maxResponseBytes));
    }
    if (headerBytes_ > kMaxHeaderBytes) {
        return connectionFailure(fmt::format("The headers of the answer are longer than {} bytes", kMaxHeaderBytes));
    }
    const char* message = message_.front() != '\0' ? message_.data() : curl_easy_strerror(curlCode);
    return {failureKind(curlCode), message};
}

HttpResponse CurlTransfer::takeResponse() {
    HttpResponse response;
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    response.status = static_cast<int>(status);
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(easy_.get(), CURLH_HEADER, -1, header)) != nullptr) {
        response.headers.emplace_back(lowerCase(header->name), header->value);
    }
    response.body = std::move(body_);
    return response;
}

bool CurlTransfer::followRedirect(const HttpResponse& response) {
    if (redirects_ >= kMaxRedirects) return false;
    auto next = redirectedRequest(request_, response);
    if (!next) return false;
    request_ = std::move(*next);
    ++redirects_;
    return true;
}

}  // namespace quomi
