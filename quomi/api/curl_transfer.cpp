#include "quomi/api/curl_transfer.h"

#include "quomi/api/curl_redirect.h"
#include "quomi/util/ascii.h"
#include "quomi/util/text.h"

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
constexpr const char* kUnaskedCoding = "The answer is coded in a way that was not asked for";

HttpFailure connectionFailure(std::string message) {
    return {HttpFailureKind::connection, std::move(message)};
}

bool isTokenCharacter(char c) {
    return isLetterOrDigit(c) || std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
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

CurlTransfer::CurlTransfer(std::uint64_t id, HttpRequest request, Moment sent, const CurlTransportOptions& options,
                           const std::atomic<bool>& isStopping)
    : id_(id),
      request_(std::move(request)),
      sent_(sent),
      lastMovement_(sent),
      options_(options),
      isStopping_(isStopping),
      maxBodyBytes_(request_.maxResponseBytes.value_or(options.maxResponseBytes)),
      easy_(curl_easy_init()) {
    static_assert(std::tuple_size_v<decltype(message_)> >= CURL_ERROR_SIZE);
}

CurlTransfer& CurlTransfer::of(void* handle) {
    void* owner = nullptr;
    curl_easy_getinfo(handle, CURLINFO_PRIVATE, &owner);
    return *static_cast<CurlTransfer*>(owner);
}

CurlTransfer::Moment CurlTransfer::deadline() const {
    return std::min(lastMovement_ + request_.timeout, lastMoment());
}

HttpFailure CurlTransfer::timeoutFailure() const {
    const double seconds = toSeconds(request_.timeout);
    if (lastMoment() > deadline()) {
        return {HttpFailureKind::timeout, fmt::format("The server was silent for {} seconds", seconds)};
    }
    return {HttpFailureKind::timeout, fmt::format("The request took {} seconds", kTimeoutsOfARequest * seconds)};
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
    const auto origin = httpOriginOf(request_.url);
    if (!origin) return connectionFailure("The URL is not an absolute http or https URL");
    if (!isToken(request_.method)) return connectionFailure("The method cannot be sent");
    for (const auto& [name, value] : request_.headers) {
        if (!isToken(name) || !isHeaderValue(value)) return connectionFailure("A header cannot be sent");
    }
    if (origin->scheme == "https" && !std::ranges::all_of(options_.pinnedPublicKeys, isPin)) {
        return HttpFailure{HttpFailureKind::tls, "A pinned public key is not of the form sha256//<base64>"};
    }
    if (deadline() <= std::chrono::steady_clock::now()) return timeoutFailure();
    return std::nullopt;
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
    using std::chrono::ceil, std::chrono::milliseconds;
    constexpr auto longest = static_cast<std::uint64_t>(std::numeric_limits<curl_off_t>::max());
    setup.set(CURLOPT_PRIVATE, static_cast<void*>(this));
    setup.set(CURLOPT_NOSIGNAL, 1L);
    setup.set(CURLOPT_QUICK_EXIT, 1L);  // else dropping a transfer waits for its name to be looked up
    // The worker looks at the deadline; libcurl's own limit for connecting is only kept out of the way.
    setup.set(CURLOPT_CONNECTTIMEOUT_MS,
              static_cast<long>(ceil<milliseconds>(kTimeoutsOfARequest * request_.timeout).count()));
    setup.set(CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(std::min(maxBodyBytes_, longest)));
    setup.set(CURLOPT_WRITEFUNCTION, &CurlTransfer::onBody);
    setup.set(CURLOPT_WRITEDATA, static_cast<void*>(this));
    setup.set(CURLOPT_HEADERFUNCTION, &CurlTransfer::onHeader);
    setup.set(CURLOPT_HEADERDATA, static_cast<void*>(this));
    setup.set(CURLOPT_ERRORBUFFER, message_.data());
    body_.clear();
    receivedBytes_ = 0;
    headerBytes_ = 0;
    headersEnded_ = false;
    inflater_.reset();
    refusal_.reset();
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
    // libcurl is not told: it would undo codings itself, as many as a server names, and look at no clock meanwhile.
    if (!hasHeader(request_.headers, "accept-encoding")) complete = append("Accept-Encoding: gzip") && complete;
    if (!hasHeader(request_.headers, "content-type")) complete = append("Content-Type:") && complete;
    for (const auto& [name, value] : request_.headers) {
        if (isHeaderNamed(name, "content-length") || isHeaderNamed(name, "transfer-encoding")) continue;
        complete = append(value.empty() ? name + ";" : fmt::format("{}: {}", name, value)) && complete;
    }
    return complete;
}

std::size_t CurlTransfer::onHeader(const char* data, std::size_t size, std::size_t count, void* self) {
    return static_cast<CurlTransfer*>(self)->takeHeader({data, size * count}) ? size * count : 0;
}

std::size_t CurlTransfer::onBody(const char* data, std::size_t size, std::size_t count, void* self) {
    try {
        return static_cast<CurlTransfer*>(self)->takeBody({data, size * count}) ? size * count : 0;
    } catch (const std::bad_alloc&) {
        return 0;
    }
}

bool CurlTransfer::takeHeader(std::string_view line) {
    if (line.starts_with("HTTP/")) headersEnded_ = false;
    if (line == "\r\n" || line == "\n") headersEnded_ = true;
    headerBytes_ += line.size();
    if (headerBytes_ > kMaxHeaderBytes) {
        return refuse(HttpFailureKind::unusable,
                      fmt::format("The headers of the answer are longer than {} bytes", kMaxHeaderBytes));
    }
    // libcurl undoes transfer codings unasked.
    const auto colon = line.find(':');
    if (colon == std::string_view::npos || !isHeaderNamed(line.substr(0, colon), "transfer-encoding")) return true;
    const std::string coding = lowerCase(trimmed(line.substr(colon + 1)));
    return coding == "chunked" || coding == "identity" || refuse(HttpFailureKind::connection, kUnaskedCoding);
}

bool CurlTransfer::takeBody(std::string_view piece) {
    if (isStopping_) return false;
    if (receivedBytes_ == 0 && !beginBody()) return false;
    receivedBytes_ += piece.size();
    if (receivedBytes_ > maxBodyBytes_) return refuseLength();
    if (inflater_ != nullptr) return inflate(piece);
    body_.append(piece);
    return true;
}

bool CurlTransfer::beginBody() {
    for (const auto& [name, value] : headers()) {
        if (name != "content-encoding") continue;
        for (const auto part : componentsSeparatedBy(value, ',')) {
            const std::string coding = lowerCase(trimmed(part));
            if (coding.empty() || coding == "identity") continue;
            const bool isGzip = coding == "gzip" || coding == "x-gzip";
            if (!isGzip || inflater_ != nullptr) return refuse(HttpFailureKind::connection, kUnaskedCoding);
            inflater_ = std::make_unique<GzipInflater>();
        }
    }
    return true;
}

bool CurlTransfer::inflate(std::string_view piece) {
    switch (inflater_->add(piece, body_, maxBodyBytes_)) {
        case GzipInflater::Outcome::fine:
            return true;
        case GzipInflater::Outcome::tooLong:
            return refuseLength();
        case GzipInflater::Outcome::broken:
            break;
    }
    return refuse(HttpFailureKind::connection, "The compressed answer is broken");
}

/// Remembers why libcurl is told to stop.
bool CurlTransfer::refuse(HttpFailureKind kind, std::string message) {
    refusal_ = {kind, std::move(message)};
    return false;
}

bool CurlTransfer::refuseLength() {
    return refuse(HttpFailureKind::unusable, fmt::format("The answer is longer than {} bytes", maxBodyBytes_));
}

std::optional<HttpResult> CurlTransfer::finish(int code) {
    if (code != CURLE_OK) return failure(code);
    // libcurl takes an answer that ends within its headers for one without a body.
    if (!headersEnded_) return connectionFailure("The answer ended within its headers");
    if (inflater_ != nullptr && !inflater_->isComplete()) {
        return connectionFailure("The compressed answer ended before its end");
    }
    HttpResponse response = takeResponse();
    if (followRedirect(response)) return std::nullopt;
    return response;
}

HttpFailure CurlTransfer::failure(int code) {
    const auto curlCode = static_cast<CURLcode>(code);
    if (curlCode == CURLE_FILESIZE_EXCEEDED) static_cast<void>(refuseLength());
    if (refusal_) {
        if (refusal_->kind == HttpFailureKind::unusable) refusal_->status = status();
        return *refusal_;
    }
    const char* message = message_.front() != '\0' ? message_.data() : curl_easy_strerror(curlCode);
    return {failureKind(curlCode), message};
}

int CurlTransfer::status() const {
    long status = 0;
    curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    return static_cast<int>(status);
}

HttpHeaders CurlTransfer::headers() const {
    HttpHeaders headers;
    curl_header* header = nullptr;
    while ((header = curl_easy_nextheader(easy_.get(), CURLH_HEADER, -1, header)) != nullptr) {
        headers.emplace_back(lowerCase(header->name), header->value);
    }
    return headers;
}

HttpResponse CurlTransfer::takeResponse() {
    return {status(), headers(), std::move(body_)};
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
