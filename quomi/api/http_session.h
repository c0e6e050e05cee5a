#pragma once

#include "quomi/api/http_transport.h"
#include "quomi/util/error.h"

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <boost/json/value.hpp>

namespace quomi {

/// Why a request failed. The error is of kHTTPErrorDomain; the status is there when the server answered at all.
struct HttpSessionFailure {
    Error error;
    std::optional<int> status;
};

/// A client of JSON over HTTP: sends requests through a transport, at most one at a time to each host, the others wait
/// in order; tells answers from failures.
///
/// Success is a status from 200 to 299 whose body is JSON; an empty or blank body counts as null. Everything else is a
/// failure. Each callback runs at most once, on the host's thread, in a later turn; none runs for a cancelled request
/// or after the session is gone. A callback may call every operation. Host's thread only.
class HttpSession {
public:
    using Success = std::function<void(const boost::json::value& body, int status)>;
    using Failure = std::function<void(const HttpSessionFailure&)>;

    /// Headers are sent with every request; the transport outlives the session.
    HttpSession(HttpTransport& transport, HttpHeaders headers, Duration timeout);
    ~HttpSession();
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;

    /// Queues a request to an absolute URL. One that is no http or https URL fails like a refused connection.
    void get(const std::string& url, Success success, Failure failure);
    /// Like `get`, but joins an equal one that still waits to be sent: the one request answers all who asked for it, in
    /// the order in which they did.
    void getShared(const std::string& url, Success success, Failure failure);
    void post(const std::string& url, const boost::json::object& body, Success success, Failure failure);

    /// Requests that have not ended, waiting ones included.
    [[nodiscard]] std::size_t requestCount() const;
    /// Drops every request; nobody is called back for them.
    void cancelAll();
    /// While suspended nothing is sent; what is on the wire goes on, what waits is sent afterwards.
    void setSuspended(bool suspended);

private:
    struct Queue;
    void enqueue(HttpRequest request, bool isShared, Success success, Failure failure);

    HttpHeaders headers_;
    Duration timeout_;
    std::shared_ptr<Queue> queue_;
};

/// Code of the error for an answer that is no JSON.
inline constexpr std::int64_t kHTTPErrorInvalidBody = 4;

/// The body as JSON: null when it is empty or blank, nothing when it is no JSON.
[[nodiscard]] std::optional<boost::json::value> parseJsonBody(const std::string& body);

}  // namespace quomi
