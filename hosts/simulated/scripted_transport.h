#pragma once

#include "hosts/simulated/virtual_loop.h"
#include "quomi/api/http_transport.h"

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <boost/json/fwd.hpp>

namespace quomi::simulated {

/// What a scripted back office answers to one request.
struct ScriptedAnswer {
    int status = 200;
    std::string body{};
    HttpHeaders headers{};
    /// From sending to the answer, in virtual time.
    Duration delay = std::chrono::milliseconds(50);
    /// No answer arrives: connection and TLS failures come after `delay`, a timeout at the request's timeout.
    std::optional<HttpFailureKind> fail{};

    /// An answer with that JSON, and a content type that says so.
    [[nodiscard]] static ScriptedAnswer json(const boost::json::value& body, int status = 200);
    [[nodiscard]] static ScriptedAnswer text(std::string body, int status = 200);
    [[nodiscard]] static ScriptedAnswer failure(HttpFailureKind kind);
};

/// A back office that is a table of answers, on the virtual clock and without a socket.
///
/// An answer is found by its key, "METHOD URL" with the URL cut before its query: the path alone ("GET
/// /u_beacons/query.json") where the URL begins with one of the base URLs, else the whole URL ("POST
/// https://shop.test/hook"). The answers of a key are used up in order, the last one then repeats. A key without
/// answers gets status 404 after 0.05 s; what is no http or https URL ends as a connection that cannot be made. An
/// answer that takes longer than the request's timeout is a timeout at that time. Host's thread only.
class ScriptedTransport final : public HttpTransport {
public:
    /// The loop outlives it.
    explicit ScriptedTransport(VirtualLoop& loop);
    ~ScriptedTransport() override;
    ScriptedTransport(const ScriptedTransport&) = delete;
    ScriptedTransport& operator=(const ScriptedTransport&) = delete;

    /// Replaces the answers of that key and begins with the first.
    void answer(const std::string& key, std::vector<ScriptedAnswer> answers);
    void answer(const std::string& key, ScriptedAnswer always) { answer(key, std::vector{std::move(always)}); }
    /// Base URLs in force, asked at every request: a host may change its own meanwhile.
    void setBaseURLs(std::function<std::vector<std::string>()> baseURLs) { baseURLs_ = std::move(baseURLs); }
    void setBaseURLs(std::vector<std::string> baseURLs);

    /// The key under which a request is answered.
    [[nodiscard]] std::string keyOf(const HttpRequest& request) const;
    /// Requests of that key so far.
    [[nodiscard]] std::size_t requests(const std::string& key) const;

    /// Failures carry a message of one line. Response header names are handed over in lower case.
    [[nodiscard]] std::unique_ptr<HttpTask> send(HttpRequest request, Completion completion) override;

private:
    struct Script {
        std::vector<ScriptedAnswer> answers;
        std::size_t asked = 0;
        std::size_t next = 0;
    };

    [[nodiscard]] ScriptedAnswer take(const std::string& key);

    VirtualLoop& loop_;
    std::map<std::string, Script> scripts_;
    std::function<std::vector<std::string>()> baseURLs_;
    std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace quomi::simulated
