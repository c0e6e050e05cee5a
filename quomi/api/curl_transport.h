#pragma once

#include "quomi/api/http_transport.h"
#include "quomi/util/export.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace quomi {

class RunLoop;

/// What an app may decide about its requests; fixed for a transport's life.
struct CurlTransportOptions {
    /// PEM file of the certificates to trust, in place of the system's. A file that cannot be read fails every https
    /// request (tls).
    std::optional<std::string> caBundlePath;

    /// Public keys of which every https server must show one, besides a certificate that holds: "sha256//" and the
    /// base64 of the SHA-256 of the key's SubjectPublicKeyInfo. They hold for whatever host a request goes to. Empty:
    /// none is asked for. An entry of another form fails every https request (tls).
    std::vector<std::string> pinnedPublicKeys;

    /// The longest body of an answer, compressed and uncompressed, to requests that say nothing about it.
    std::uint64_t maxResponseBytes = std::uint64_t{16} << 20;

    /// URL of a proxy for all requests; empty: none. Proxies that the environment names are never used.
    std::string proxy;
};

/// The HTTP transport port over libcurl.
///
/// Threads: the transport owns one thread, on which all of libcurl runs (names are looked up on short-lived threads of
/// libcurl). It is constructed, used and destroyed on the host's thread; `send`, dropping a task and dropping the
/// transport hand something over and never wait for the network. Answers come by posting to the run loop, which
/// outlives the transport, in the order in which they arrive.
///
/// Cancellation: a completion and all that it holds belong to the host's thread. It is forgotten there the moment its
/// task is dropped, even when the answer is already posted; the connection closes a little later. Dropping the
/// transport forgets all and joins the thread, which ends at once. Both may happen inside a completion; a task may
/// outlive its transport and then does nothing.
///
/// Every request gets exactly one result unless it is cancelled, those that cannot be sent too. `timeout`: no byte came
/// or went for the request's timeout, or the whole request took ten times as long. `unusable`: a body longer than
/// allowed, headers over 256 KiB. `connection` stands for everything else but `tls`: an URL that is not absolute http
/// or https, a method or header that cannot be sent as it is, no such host, refused, broken or malformed answers, a
/// body shorter than announced, a coding that was not asked for.
///
/// Requests: start at once, each on a connection of its own if none is idle; HTTP/1.1; headers as given, save
/// Content-Length and Transfer-Encoding, which are the transport's, and a `User-Agent` only if given. Certificate and
/// host name are always verified, TLS is 1.2 or newer. gzip is offered and undone, once; an answer that is coded twice
/// or otherwise is refused. The answer's headers stay as sent. No cookies, no stored credentials, nothing on disk.
///
/// Redirects: 301, 302, 303, 307 and 308 with a Location are followed, at most five in a row, to http and https only
/// and never from https to http. After 303, and after 301 and 302 to a POST, the next request is a GET without body;
/// otherwise method and body stay. A request that leaves its scheme, host or port (http to https at the default ports
/// aside) keeps only `Accept`, `Accept-Language`, `Content-Type` and `User-Agent`, and is not sent when it would take
/// its body along. A redirect that is not followed, for whichever of these reasons or for a missing Location, is handed
/// over as the answer, with status, headers and body.
class QUOMI_EXPORT CurlTransport final : public HttpTransport {
public:
    explicit CurlTransport(RunLoop& runLoop, CurlTransportOptions options = {});
    ~CurlTransport() override;
    CurlTransport(const CurlTransport&) = delete;
    CurlTransport& operator=(const CurlTransport&) = delete;

    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override;

private:
    class InFlight;
    class OwnedTask;
    std::shared_ptr<InFlight> inFlight_;  // owned here alone; tasks and posted answers only look at it
};

}  // namespace quomi
