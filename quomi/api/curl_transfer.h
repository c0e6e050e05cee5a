#pragma once

#include "quomi/api/curl_transport.h"
#include "quomi/api/gzip_inflater.h"

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

struct curl_slist;

namespace quomi {

/// One request on its way through its redirects: an easy handle and all that it points at. Internal to the transport,
/// used on its thread only.
///
/// A transfer is sent by `prepare`, adding `handle` to a multi handle, removing it when done, and `finish`; as long as
/// `finish` gives nothing the same again.
class CurlTransfer {
public:
    using Moment = std::chrono::steady_clock::time_point;

    /// Options and flag outlive the transfer. Once the flag is set, the transfer takes nothing more.
    CurlTransfer(std::uint64_t id, HttpRequest request, Moment sent, const CurlTransportOptions& options,
                 const std::atomic<bool>& isStopping);
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    [[nodiscard]] std::uint64_t id() const { return id_; }

    /// The CURL.
    [[nodiscard]] void* handle() const { return easy_.get(); }
    /// The transfer of a handle that was prepared.
    [[nodiscard]] static CurlTransfer& of(void* handle);

    /// Bytes came or went, so the silence begins anew.
    void noteMovement() { lastMovement_ = std::chrono::steady_clock::now(); }
    /// When the transfer is late, unless something moves before.
    [[nodiscard]] Moment deadline() const;
    /// What becomes of a late transfer.
    [[nodiscard]] HttpFailure timeoutFailure() const;

    /// Sets the handle up for the next request. The failure, when it cannot be sent.
    [[nodiscard]] std::optional<HttpFailure> prepare();

    /// The result of the request that ended with this CURLcode; nothing when a redirect is to be followed.
    [[nodiscard]] std::optional<HttpResult> finish(int code);

private:
    struct Free {
        void operator()(void* easy) const;
        void operator()(curl_slist* list) const;
    };
    struct Setup;

    [[nodiscard]] std::optional<HttpFailure> checkRequest() const;
    void setTarget(Setup& setup) const;
    void setLimits(Setup& setup);
    void setTls(Setup& setup) const;
    void setMessage(Setup& setup);
    [[nodiscard]] bool makeHeaderList();
    [[nodiscard]] HttpFailure failure(int code);
    [[nodiscard]] HttpResponse takeResponse();
    [[nodiscard]] bool followRedirect(const HttpResponse& response);

    [[nodiscard]] Moment lastMoment() const { return sent_ + kTimeoutsOfARequest * request_.timeout; }
    [[nodiscard]] bool takeHeader(std::string_view line);
    [[nodiscard]] bool takeBody(std::string_view piece);
    [[nodiscard]] bool beginBody();
    [[nodiscard]] bool inflate(std::string_view piece);
    [[nodiscard]] bool refuse(HttpFailureKind kind, std::string message);
    [[nodiscard]] bool refuseLength();
    [[nodiscard]] int status() const;
    [[nodiscard]] HttpHeaders headers() const;

    static std::size_t onBody(const char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t onHeader(const char* data, std::size_t size, std::size_t count, void* self);

    const std::uint64_t id_;
    HttpRequest request_;
    const Moment sent_;
    Moment lastMovement_;
    const CurlTransportOptions& options_;
    const std::atomic<bool>& isStopping_;
    const std::uint64_t maxBodyBytes_;
    int redirects_ = 0;

    // The answer so far
    std::string body_;
    std::uint64_t receivedBytes_ = 0;  // of the body, as they were sent
    std::size_t headerBytes_ = 0;
    bool headersEnded_ = false;
    std::unique_ptr<GzipInflater> inflater_;  // for a body that is compressed
    std::optional<HttpFailure> refusal_;      // why no more of it was taken
    std::array<char, 256> message_{};
    std::unique_ptr<curl_slist, Free> headers_;
    std::unique_ptr<void, Free> easy_;  // last: it refers to the others
};

}  // namespace quomi
