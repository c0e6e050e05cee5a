#pragma once

#include "hosts/simulated/campaign/campaign.h"
#include "tools/quomi/backoffice/inbox.h"

#include <functional>
#include <memory>
#include <string>

namespace quomi::tool {

/// One request and how it was answered.
struct RequestLine {
    /// Empty when the request could not be read.
    std::string method;
    /// Path and query as they were sent, but push tokens and advertising identifiers shortened: foreign bytes, not
    /// fit for a terminal as they stand.
    std::string path;
    int status = 0;
};

/// The server that SDKs talk to, on this machine only: it serves one campaign over HTTP on 127.0.0.1 and keeps what
/// devices send, in memory unless it is given another inbox. It refuses what names another host (`Host`) or comes from
/// another site's page (`Origin`). docs/campaign.md lists its endpoints.
///
/// It runs on threads of its own; its operations belong to one thread, except `inbox` and `port`.
class Backoffice {
public:
    using OnRequest = std::function<void(const RequestLine&)>;
    using Now = std::function<WallTime()>;

    /// The largest body that is accepted; larger ones are answered with status 413.
    static constexpr std::size_t kMaxBody = std::size_t{8} * 1024 * 1024;

    /// `onRequest`, when given, is called for every answer right before it is sent: on a thread of the server, one call
    /// at a time, none after `stop` has returned. It must not call `stop`; what it throws is dropped.
    explicit Backoffice(simulated::Campaign campaign, OnRequest onRequest = nullptr,
                        std::unique_ptr<Inbox> inbox = nullptr);
    /// Stops.
    ~Backoffice();
    Backoffice(const Backoffice&) = delete;
    Backoffice& operator=(const Backoffice&) = delete;

    /// Takes the time from elsewhere than the system's clock; null goes back to that. What answers are valid until and
    /// when things were received follow it. It is called on threads of the server, one call at a time, none after
    /// `stop` has returned.
    void setNow(Now now);

    /// Begins to answer on the port, 0 for any free one. False, and nothing changes, when the port cannot be had or it
    /// runs already.
    bool start(int port = 0);
    /// Ends the listening and every connection, also those that clients keep open, and returns when no thread of the
    /// server is left. Requests that are being answered still get their answers. It may be started again; the inbox
    /// stays.
    void stop();

    /// The port that it listens on, 0 while stopped.
    [[nodiscard]] int port() const;
    /// "http://127.0.0.1:PORT", the base URL for an SDK; empty while stopped.
    [[nodiscard]] std::string baseUrl() const;

    [[nodiscard]] const simulated::Campaign& campaign() const;
    /// What devices have sent. It lives as long as the back office.
    [[nodiscard]] const Inbox& inbox() const;

private:
    class Server;
    std::unique_ptr<Server> server_;
};

}  // namespace quomi::tool
