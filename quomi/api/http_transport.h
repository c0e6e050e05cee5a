#pragma once

#include "quomi/util/time.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace quomi {

/// Name and value, in order; a name may come twice.
using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

/// One request. The URL is absolute, http or https.
struct HttpRequest {
    std::string method = "GET";
    std::string url;
    HttpHeaders headers;
    std::string body;
    /// The longest silence: for so long no byte comes or goes before the request fails. The whole of it, redirects
    /// included, may take ten times as long.
    Duration timeout = std::chrono::seconds(25);
    /// The longest body of the answer, uncompressed; without it the transport's own.
    std::optional<std::uint64_t> maxResponseBytes{};
};

/// How many times its timeout a whole request may take.
inline constexpr int kTimeoutsOfARequest = 10;

/// An answer, whatever its status. Header names are in lower case.
struct HttpResponse {
    int status = 0;
    HttpHeaders headers;
    std::string body;
};

/// Why no answer arrived. The numbers are the codes of the errors made from it.
/// `unusable`: a server answered, with more than a bound allows.
enum class HttpFailureKind { connection = 1, timeout = 2, tls = 3, unusable = 4 };

/// For a failure without answer; the message is for logs. The status is that of an answer that is unusable.
struct HttpFailure {
    HttpFailureKind kind = HttpFailureKind::connection;
    std::string message;
    std::optional<int> status{};
};

/// What became of a request.
using HttpResult = std::variant<HttpResponse, HttpFailure>;

/// An owned request in flight. Dropping it cancels it: its completion never runs afterwards.
class HttpTask {
public:
    virtual ~HttpTask() = default;
};

/// Port: carries single requests. Whoever uses it decides what may start when; a transport sends what it is given at
/// once and keeps no queue.
///
/// `send` and the destruction of tasks happen on the host's thread and never block; the completion runs once, on the
/// host's thread, in a later turn, unless the task was dropped before. A task may be dropped from inside its own
/// completion. Dropping the transport cancels what is in flight.
class HttpTransport {
public:
    using Completion = std::function<void(HttpResult)>;
    virtual ~HttpTransport() = default;
    /// Sends the request. Never null.
    [[nodiscard]] virtual std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) = 0;
};

}  // namespace quomi
