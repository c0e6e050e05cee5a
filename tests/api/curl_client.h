#pragma once

#include "hosts/posix/run_loop.h"
#include "quomi/api/curl_transport.h"
#include "tests/support/prelude.h"

#include <variant>

namespace quomi {

/// A transport with a run loop of its own, driven until an answer is there.
class CurlClient {
public:
    explicit CurlClient(CurlTransportOptions options = {}) : transport(loop, std::move(options)) {}

    HttpResult fetch(HttpRequest request) {
        std::optional<HttpResult> result;
        const auto task = transport.send(std::move(request), [&](HttpResult given) { result = std::move(given); });
        loop.runUntil([&] { return result.has_value(); }, std::chrono::seconds(10));
        if (!result) ADD_FAILURE() << "no result";
        return result.value_or(HttpFailure{HttpFailureKind::connection, "no result"});
    }

    HttpResult get(std::string url) {
        HttpRequest request;
        request.url = std::move(url);
        return fetch(std::move(request));
    }

    posix::RunLoop loop;
    CurlTransport transport;
};

/// The status of an answer; the negated number of a failure's kind.
inline int outcome(const HttpResult& result) {
    if (const auto* response = std::get_if<HttpResponse>(&result)) return response->status;
    return -static_cast<int>(std::get<HttpFailure>(result).kind);
}
inline constexpr int kConnectionFailed = -1;
inline constexpr int kTimedOut = -2;
inline constexpr int kTlsFailed = -3;
inline constexpr int kUnusable = -4;

inline std::string bodyOf(const HttpResult& result) {
    const auto* response = std::get_if<HttpResponse>(&result);
    return response != nullptr ? response->body : std::string();
}
inline std::string messageOf(const HttpResult& result) {
    const auto* failure = std::get_if<HttpFailure>(&result);
    return failure != nullptr ? failure->message : std::string();
}

}  // namespace quomi
