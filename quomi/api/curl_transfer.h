#pragma once

#include "quomi/api/curl_transport.h"

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

struct curl_slist;

namespace quomi {

/// One request on its way through its redirects: an easy handle and all that it points at. Internal to the transport,
/// used on its thread only.
///
/// A transfer is sent by `prepare`, adding `handle` to a multi handle, removing it when done, and `finish`; as long as
/// `finish` gives nothing the same again.
class CurlTransfer {
public:
    using Deadline = std::chrono::steady_clock::time_point;

    /// The options outlive the transfer.
    CurlTransfer(std::uint64_t id, HttpRequest request, Deadline deadline, const CurlTransportOptions& options);
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    [[nodiscard]] std::uint64_t id() const { return id_; }

    /// The CURL; its private pointer is this transfer.
    [[nodiscard]] void* handle() const { return easy_.get(); }

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
    [[nodiscard]] std::chrono::milliseconds remaining() const;
    void setTarget(Setup& setup) const;
    void setLimits(Setup& setup);
    void setTls(Setup& setup) const;
    void setMessage(Setup& setup);
    [[nodiscard]] bool makeHeaderList();
    [[nodiscard]] HttpFailure failure(int code) const;
    [[nodiscard]] HttpResponse takeResponse();
    [[nodiscard]] bool followRedirect(const HttpResponse& response);

    static std::size_t onBody(const char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t onHeader(const char* data, std::size_t size, std::size_t count, void* self);

    const std::uint64_t id_;
    HttpRequest request_;
    const Deadline deadline_;
    const CurlTransportOptions& options_;
    int redirects_ = 0;

    std::string body_;
    std::size_t headerBytes_ = 0;
    bool headersEnded_ = false;
    bool bodyTooLong_ = false;
    std::array<char, 256> message_{};
    std::unique_ptr<curl_slist, Free> headers_;
    std::unique_ptr<void, Free> easy_;  // last: it refers to the others
};

}  // namespace quomi
