#pragma once

#include "quomi/api/http_transport.h"

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace quomi::testing {

/// A key and a certificate signed with it, for one host name or IP address.
class TlsIdentity {
public:
    /// `subject` is an alternative name as OpenSSL writes it: "DNS:localhost" or "IP:127.0.0.1".
    explicit TlsIdentity(const std::string& subject);
    ~TlsIdentity();
    TlsIdentity(const TlsIdentity&) = delete;
    TlsIdentity& operator=(const TlsIdentity&) = delete;

    /// Writes the certificate as PEM, for clients that are to trust it.
    void writeCertificate(const std::filesystem::path& file) const;
    /// "sha256//" and the base64 of the public key's SHA-256.
    [[nodiscard]] std::string pin() const;

private:
    friend class LoopbackServer;
    struct Parts;
    std::unique_ptr<Parts> parts_;
};

/// A request as it arrived; header names are in lower case.
struct ReceivedRequest {
    std::string method;
    std::string target;
    HttpHeaders headers;
    std::string body;

    /// The first value; empty when there is none.
    [[nodiscard]] std::string header(const std::string& lowerCaseName) const;
};

/// A real HTTP server on 127.0.0.1. It answers every request with what the handler returns, up to sixteen at once, each
/// on a thread of its own. Destroy its clients first: an idle connection holds up its end.
class LoopbackServer {
public:
    using Handler = std::function<HttpResponse(const ReceivedRequest&)>;
    explicit LoopbackServer(Handler handler);
    LoopbackServer(const TlsIdentity& identity, Handler handler);
    ~LoopbackServer();
    LoopbackServer(const LoopbackServer&) = delete;
    LoopbackServer& operator=(const LoopbackServer&) = delete;

    [[nodiscard]] int port() const;
    /// With the scheme spoken here, for 127.0.0.1 or the host named.
    [[nodiscard]] std::string url(const std::string& path = "/", const std::string& host = "127.0.0.1") const;

private:
    struct Running;
    std::unique_ptr<Running> running_;
};

/// A server on 127.0.0.1 that sends whatever bytes it is told, for answers that no HTTP server gives. It reads the head
/// of each request first and closes the connection after the answer, or holds it open until it dies.
class RawServer {
public:
    enum class Afterwards { close, hold };
    /// Sends the bytes after the pause; false once the client has left or the server ends.
    using Send = std::function<bool(std::string_view bytes, std::chrono::milliseconds pause)>;
    explicit RawServer(std::string answer, Afterwards afterwards = Afterwards::close);
    /// Answers each request by the script, on a thread of its own, and closes when the script returns.
    explicit RawServer(std::function<void(const Send&)> script);
    ~RawServer();
    RawServer(const RawServer&) = delete;
    RawServer& operator=(const RawServer&) = delete;

    [[nodiscard]] int port() const;
    [[nodiscard]] std::string url(const std::string& path = "/") const;
    /// The head of the last request, waiting for the first; empty when none has come after five seconds.
    [[nodiscard]] std::string lastRequest() const;
    /// Waits until a client that was held has closed its connection; false after five seconds.
    [[nodiscard]] bool waitForClientToLeave() const;

private:
    struct Running;
    std::unique_ptr<Running> running_;
};

/// A port of 127.0.0.1 at which nobody listens.
[[nodiscard]] int unusedPort();

}  // namespace quomi::testing
