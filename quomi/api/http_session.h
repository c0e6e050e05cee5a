#pragma once

#include "quomi/api/download_pace.h"
#include "quomi/api/http_transport.h"
#include "quomi/platform/platform.h"
#include "quomi/util/error.h"
#include "quomi/util/lifetime.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <string>

#include <boost/json/value.hpp>

namespace quomi {

/// Why a request failed. The error is of kHTTPErrorDomain; the status is there when the server answered at all.
struct HttpSessionFailure {
    Error error;
    std::optional<int> status;
    bool exceedsBound = false;  ///< the answer was longer, or its value larger, than allowed
};

/// What all requests of a session have in common.
struct HttpSessionOptions {
    HttpHeaders headers;
    Duration timeout{};
    std::uint64_t maxResponseBytes{};
};

/// A client of JSON over HTTP: sends requests through a transport, at most one at a time to each host, the others wait
/// in order; tells answers from failures.
///
/// Success is a status from 200 to 299 whose body is JSON; an empty or blank body counts as null. Everything else is a
/// failure. Each callback runs at most once, on the host's thread, in a later turn; none runs for a cancelled request
/// or after the session is gone. A callback may call every operation. Host's thread only.
///
/// Downloads keep to themselves: equal ones that wait are one, those that fail are paced (DownloadPace), and one that
/// takes longer than four seconds lets other requests to its host pass.
class HttpSession {
public:
    using Success = std::function<void(const boost::json::value& body, int status)>;
    using Failure = std::function<void(const HttpSessionFailure&)>;

    /// A download that may be shared.
    struct Download {
        std::string url;
        /// Told of the end first of all.
        std::function<void()> ended{};
        /// Takes the answer, once, however many asked for it. An error says why the answer is of no use.
        std::function<void(const boost::json::value& body, int status, std::optional<Error>* error)> take{};
        /// Told of the first of a run of failures; an answer of no use is one.
        std::function<void(const Error&)> failed{};
        /// Whether it takes the place of one of the same endpoint that waits; who asked for that one hears of this one.
        bool replacesWaiting = false;
    };

    /// What the platform refers to outlives the session.
    HttpSession(const Platform& platform, HttpSessionOptions options);
    ~HttpSession();
    HttpSession(const HttpSession&) = delete;
    HttpSession& operator=(const HttpSession&) = delete;

    /// Queues a request to an absolute URL. One that is no http or https URL fails like a refused connection.
    void get(const std::string& url, Success success, Failure failure);
    void post(const std::string& url, const boost::json::object& body, Success success, Failure failure);
    /// Queues a download, or joins an equal one that waits. Those who asked are called back in the order in which they
    /// did, after the answer was taken.
    void download(Download download, Success success, Failure failure);

    /// Requests that have not ended, waiting ones included, but not downloads that are held back because they failed.
    [[nodiscard]] std::size_t requestCount() const;
    /// Those of them that were sent.
    [[nodiscard]] std::size_t sentCount() const;
    /// Drops every request; nobody is called back for them.
    void cancelAll();
    /// While suspended nothing is sent; what is on the wire goes on, what waits is sent afterwards, and no earlier
    /// failure counts any more.
    void setSuspended(bool suspended);
    /// Downloads that failed are tried as if they had not.
    void forgetFailures();

private:
    struct Operation;
    using Operations = std::list<Operation>;

    [[nodiscard]] Operation makeOperation(HttpRequest request) const;
    void enqueue(HttpRequest request, Success success, Failure failure);
    [[nodiscard]] Operation* waitingLike(const Operation& download, bool anyOfItsKind);
    void startWhatMay();
    [[nodiscard]] bool isHeld(const Operation& operation) const;
    [[nodiscard]] bool isBlocked(const Operation& operation) const;
    void send(Operations::iterator operation);
    void finish(Operations::iterator finished, const HttpResult& result);

    HttpTransport& transport_;
    RunLoop& runLoop_;
    Clock& clock_;
    const HttpSessionOptions options_;
    bool isSuspended_ = false;
    DownloadPace pace_;
    Operations operations_;
    Lifetime lifetime_;
};

/// Code of the error for an answer that is no JSON, or more than a bound allows.
inline constexpr std::int64_t kHTTPErrorInvalidBody = 4;

/// The body as JSON: null when it is empty or blank, nothing when it is no JSON or takes too much memory.
[[nodiscard]] std::optional<boost::json::value> parseJsonBody(const std::string& body,
                                                              std::optional<Error>* error = nullptr);

}  // namespace quomi
