#include "hosts/simulated/scripted_transport.h"

#include "quomi/api/url.h"
#include "quomi/util/ascii.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>

namespace quomi::simulated {

namespace {

constexpr std::string_view kContentType = "content-type";

class ScriptedTask final : public HttpTask {
public:
    explicit ScriptedTask(std::unique_ptr<Timer> timer) : timer_(std::move(timer)) {}

private:
    std::unique_ptr<Timer> timer_;
};

/// Whether the URL begins with the base at a border: "https://a.test" is no base of "https://a.test.org/".
bool beginsWith(std::string_view url, std::string_view base) {
    if (base.empty() || !url.starts_with(base)) return false;
    return url.size() == base.size() || base.back() == '/' || url[base.size()] == '/';
}

/// From the first slash after the host on; "/" where there is none.
std::string_view pathOf(std::string_view url) {
    const auto scheme = url.find("://");
    const auto host = scheme == std::string_view::npos ? 0 : scheme + 3;
    const auto slash = url.find('/', host);
    return slash == std::string_view::npos ? std::string_view("/") : url.substr(slash);
}

HttpResult resultOf(ScriptedAnswer answer, bool timesOut) {
    if (timesOut) return HttpFailure{HttpFailureKind::timeout, "The request timed out."};
    if (answer.fail) {
        const bool isTls = *answer.fail == HttpFailureKind::tls;
        return HttpFailure{*answer.fail,
                           isTls ? "A secure connection could not be made." : "The connection to the server failed."};
    }
    for (auto& header : answer.headers) header.first = lowerCase(header.first);
    return HttpResponse{answer.status, std::move(answer.headers), std::move(answer.body)};
}

}  // namespace

ScriptedAnswer ScriptedAnswer::json(const boost::json::value& body, int status) {
    ScriptedAnswer answer;
    answer.status = status;
    answer.body = boost::json::serialize(body);
    answer.headers.emplace_back(kContentType, "application/json");
    return answer;
}

ScriptedAnswer ScriptedAnswer::text(std::string body, int status) {
    ScriptedAnswer answer;
    answer.status = status;
    answer.body = std::move(body);
    return answer;
}

ScriptedAnswer ScriptedAnswer::failure(HttpFailureKind kind) {
    ScriptedAnswer answer;
    answer.fail = kind;
    return answer;
}

ScriptedTransport::ScriptedTransport(VirtualLoop& loop) : loop_(loop) {}

ScriptedTransport::~ScriptedTransport() = default;

void ScriptedTransport::answer(const std::string& key, std::vector<ScriptedAnswer> answers) {
    auto& script = scripts_[key];
    script.answers = std::move(answers);
    script.next = 0;
}

void ScriptedTransport::setBaseURLs(std::vector<std::string> baseURLs) {
    baseURLs_ = [baseURLs = std::move(baseURLs)] { return baseURLs; };
}

std::string ScriptedTransport::keyOf(const HttpRequest& request) const {
    std::string_view url = request.url;
    url = url.substr(0, url.find_first_of("?#"));
    const auto bases = baseURLs_ ? baseURLs_() : std::vector<std::string>();
    const bool isOwn = std::ranges::any_of(bases, [url](const std::string& base) { return beginsWith(url, base); });
    return request.method + " " + std::string(isOwn ? pathOf(url) : url);
}

std::size_t ScriptedTransport::requests(const std::string& key) const {
    const auto found = scripts_.find(key);
    return found == scripts_.end() ? 0 : found->second.asked;
}

ScriptedAnswer ScriptedTransport::take(const std::string& key) {
    auto& script = scripts_[key];
    ++script.asked;
    if (script.answers.empty()) return ScriptedAnswer::text({}, 404);
    const auto last = script.answers.size() - 1;
    return script.answers[std::min(script.next++, last)];
}

std::unique_ptr<HttpTask> ScriptedTransport::send(HttpRequest request, Completion completion) {
    // What is no URL has no server that could answer it.
    auto answer =
        normalizedHttpUrl(request.url) ? take(keyOf(request)) : ScriptedAnswer::failure(HttpFailureKind::connection);
    const bool timesOut = answer.fail == HttpFailureKind::timeout || answer.delay > request.timeout;
    const auto delay = timesOut ? request.timeout : answer.delay;
    auto deliver = [alive = std::weak_ptr(alive_), timesOut, answer = std::move(answer),
                    completion = std::move(completion)]() mutable {
        if (!alive.expired() && completion) completion(resultOf(std::move(answer), timesOut));
    };
    return std::make_unique<ScriptedTask>(loop_.scheduleAnswer(delay, std::move(deliver)));
}

}  // namespace quomi::simulated
